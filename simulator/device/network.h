// What the camera's network daemon does to the live device: the addressing of eth0 and the resolver file.
#pragma once

#include <string>

namespace camera {

constexpr const char* kResolverFile = "/etc/resolv.conf";

/// What leaves the factory, and what the simulated network leases to a camera that asks for an address.
constexpr const char* kAddress = "192.168.1.10";
constexpr const char* kSubnetMask = "255.255.255.0";
constexpr const char* kGateway = "192.168.1.1";
constexpr const char* kHardwareAddress = "02:51:43:20:40:0a";
constexpr const char* kPrimaryDns = "192.168.1.2";
constexpr const char* kSecondaryDns = "192.168.1.3";
constexpr const char* kSearchDomain = "camera.example";
constexpr const char* kLeasedAddress = "192.168.1.20";

/// Makes lo and eth0. Returns an empty text, or the fault and what to do about it.
[[nodiscard]] std::string create_interfaces();

/// Brings eth0 to what it is in the factory.
[[nodiscard]] std::string reset_interface();

/// Brings eth0 to the stored addressing: address, mask and gateway when static, otherwise what the simulated
/// network leases, 192.168.1.20/24 by 192.168.1.1. Returns an empty text or the fault.
[[nodiscard]] std::string apply_addressing();

/// Replaces the name servers in the resolver file; an empty one is left out.
[[nodiscard]] std::string write_resolver(const std::string& primary, const std::string& secondary);

/// The address and mask that eth0 has now, as "192.168.1.10 255.255.255.0"; empty when it has none.
[[nodiscard]] std::string live_address();

}  // namespace camera
