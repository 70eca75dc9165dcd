// For the camera's other programs, which link this folder's library; no request reaches it. Reads, changes
// and checks further settings of the network, and makes further address texts. The service itself changes an
// interface through the database and the daemons. The result tells of every failure; when the kernel fails, a
// line on standard output, flushed at once, does too.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstdio>
#include <optional>

#include "network/interface_state.h"

namespace psia {

struct AddressTexts {
  AddressText ipv4{};
  AddressText ipv6{};
};

// In all of the following `interface_name` is truncated to 15 characters before the kernel gets it.

/// The IPv4 address, or kNoAddress when the interface is missing or has none.
[[nodiscard]] std::uint32_t find_ipv4_address(const char* interface_name);

/// 0, or -1 when the kernel refuses.
[[nodiscard]] int set_ipv4_address(const char* interface_name, std::uint32_t address);

/// Sets the mask, and the broadcast address made of it and the present address. Sets the broadcast address
/// also when the kernel refuses the mask. 0, or -1 when either is refused or the interface has no address.
[[nodiscard]] int set_subnet_mask(const char* interface_name, std::uint32_t mask);

/// The hardware address in the kernel's answer to the change, or nothing.
[[nodiscard]] std::optional<HardwareAddress> set_hardware_address(const char* interface_name,
                                                                  const HardwareAddress& address);

/// Replaces the interface's default route by one through `gateway`. 0, or -1 when the kernel refuses. It then
/// tries the `route` command, and gives -1 even if that succeeds.
[[nodiscard]] int set_default_gateway(const char* interface_name, std::uint32_t gateway);

/// Checks that three dotted-quad texts fit each other: 0; -1 for a bad address or one that shares no subnet
/// with the gateway (told on standard error); -2 for a mask that is not contiguous from /8 to /31; -3 for a
/// bad gateway. An address or gateway that is its block's network or broadcast address is bad.
[[nodiscard]] int ip_check(const char* address, const char* mask, const char* gateway);

/// The search domain of /etc/resolv.conf, empty when there is none; nothing when the file cannot be read.
[[nodiscard]] std::optional<ResolverText> find_dns_search_domain();
[[nodiscard]] ResolverText parse_dns_search_domain(std::FILE* resolver_file);

/// An IPv4 or IPv6 address text as inet_pton(3) takes it, with its family; nothing when it is neither.
[[nodiscard]] std::optional<sockaddr_storage> parse_address(const char* text);

/// The link-local IPv6 address of a hardware address text such as "00:11:22:33:44:55", with all digits
/// written out. Missing numbers count as 0, and the two bytes between the halves are then 0, too. Writes the
/// result to standard error as well.
[[nodiscard]] AddressText link_local_text(const char* hardware_address);

/// Texts of what `find_interface_addresses` finds: "0.0.0.0" or "::" where the interface has no address,
/// nothing when the interfaces cannot be listed.
[[nodiscard]] std::optional<AddressText> interface_ipv6_text(const char* interface_name);
[[nodiscard]] std::optional<AddressTexts> interface_address_texts(const char* interface_name);

/// The text of an IPv4 or IPv6 address; an IPv4-mapped one (::ffff:0:0/96) is written as the IPv4 address.
/// Nothing for other families.
[[nodiscard]] std::optional<AddressText> socket_address_text(const sockaddr_storage& address);

}  // namespace psia
