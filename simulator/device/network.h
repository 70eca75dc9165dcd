// The camera's network as its network daemon sets it up: the addressing of eth0 and the resolver file.
#pragma once

#include <string>

namespace camera {

constexpr const char* kResolverFile = "/etc/resolv.conf";

/// The factory's settings that are the same in every camera; device.h has the others.
constexpr const char* kSubnetMask = "255.255.255.0";
constexpr const char* kPrimaryDns = "192.168.1.2";
constexpr const char* kSecondaryDns = "192.168.1.3";
constexpr const char* kSearchDomain = "camera.example";

/// Creates eth0 and brings it and lo up. Returns an empty text, or the fault and what to do about it.
[[nodiscard]] std::string create_interfaces();

/// Gives eth0 the hardware address and the addressing that the camera leaves the factory with. Returns an
/// empty text or the fault.
[[nodiscard]] std::string reset_interface();

/// Gives eth0 the stored addressing: address, mask and gateway when static, otherwise what the simulated
/// network leases, for camera 1 192.168.1.20/24 by 192.168.1.1. Returns an empty text or the fault.
[[nodiscard]] std::string apply_addressing();

/// Replaces the name servers in the resolver file; an empty one is left out. Returns an empty text or the
/// fault.
[[nodiscard]] std::string write_resolver(const std::string& primary, const std::string& secondary);

/// The address and mask that eth0 has now, as "192.168.1.10 255.255.255.0"; empty when it has none.
[[nodiscard]] std::string live_address();

}  // namespace camera
