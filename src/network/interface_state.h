// Reads the live settings of a network interface and the resolver file, and parses IPv4 address texts. The
// result tells of every failure; when the kernel or a file fails, a line on standard output, flushed at once,
// does too.
#pragma once

#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace psia {

/// What the readers of an IPv4 address or gateway give on failure. No host and no gateway has 255.255.255.255
/// (RFC 919, section 7), so it cannot be returned otherwise. IPv4 values are in the layout of
/// `in_addr::s_addr`: on this little-endian system the first octet is the lowest byte.
inline constexpr std::uint32_t kNoAddress = 0xFFFFFFFF;

using HardwareAddress = std::array<std::uint8_t, 6>;
/// Zero-terminated text of an IPv4 or IPv6 address.
using AddressText = std::array<char, INET6_ADDRSTRLEN>;
/// Zero-terminated text from the resolver file, at most 31 characters, with the line feed of its line.
using ResolverText = std::array<char, 32>;

struct DnsServers {
  ResolverText primary{};
  ResolverText secondary{};
};

/// Which byte of a parsed IPv4 value takes the first octet.
enum class OctetOrder { kFirstHighest, kFirstLowest };

// In all of the following `interface_name` is truncated to 15 characters before the kernel gets it.

/// The subnet mask, or nothing when the interface is missing or has no address.
[[nodiscard]] std::optional<std::uint32_t> find_subnet_mask(const char* interface_name);

/// The hardware (MAC) address, or nothing.
[[nodiscard]] std::optional<HardwareAddress> find_hardware_address(const char* interface_name);

/// The interface's default gateway, or kNoAddress when it has none.
[[nodiscard]] std::uint32_t find_default_gateway(const char* interface_name);

/// The same out of an open table in the layout of /proc/net/route: the first line that begins with
/// `interface_name` and has a gateway gives the result, whatever its destination. Only the name's length is
/// compared, so "eth0" also takes the lines of "eth0.1". Lines are read in pieces of at most 255 characters.
[[nodiscard]] std::uint32_t find_gateway(std::FILE* route_table, const char* interface_name);

/// The first two name servers of /etc/resolv.conf, empty where there are fewer; nothing if it is unreadable.
[[nodiscard]] std::optional<DnsServers> find_dns_servers();
[[nodiscard]] DnsServers parse_dns_servers(std::FILE* resolver_file);

/// Four decimal numbers separated by "."; anything may follow them. Of each number the low 8 bits count, so
/// that "300" is 44. Nothing when the text has another form.
[[nodiscard]] std::optional<std::uint32_t> parse_dotted_quad(const char* text, OctetOrder order);

/// The link-local IPv6 address of a hardware address: prefix fe80::/64 and the modified EUI-64 identifier
/// (RFC 4291, appendix A).
[[nodiscard]] in6_addr link_local_address(const HardwareAddress& address);

/// The addresses of all interfaces whose names agree with `interface_name` in the first four characters.
/// Either output may be null; one for which nothing is found stays unchanged. The last IPv4 address wins, and
/// the last global IPv6 address. Without a global one the first link-local address is given, or the last that
/// was not made of eth0's hardware address. Returns 0, or the error of getifaddrs(3), which is negative.
[[nodiscard]] int find_interface_addresses(const char* interface_name, in_addr* ipv4, in6_addr* ipv6);

/// The IPv4 address that `find_interface_addresses` finds: "0.0.0.0" when the interface has none, nothing
/// when the interfaces cannot be listed.
[[nodiscard]] std::optional<AddressText> interface_ipv4_text(const char* interface_name);

/// The octets of an IPv4 value for printing, first octet first.
[[nodiscard]] std::array<int, 4> octets_of(std::uint32_t address);

}  // namespace psia
