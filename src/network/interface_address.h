// Reads and changes the live IPv4 and IPv6 settings of a network interface through the Linux kernel: address,
// mask, broadcast, hardware address, default gateway and resolver settings. Also holds the parsers for
// address texts. Every failure is told by the result and, where stated, by one line on standard output,
// flushed at once.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace psia {

/// What the readers of an IPv4 address or gateway give on failure; 255.255.255.255 can therefore not be read,
/// and need not: it is neither (RFC 919, 7). IPv4 values
/// are in the layout of `in_addr::s_addr`: on this little-endian system the first octet is the lowest byte.
inline constexpr std::uint32_t kNoAddress = 0xFFFFFFFF;

using HardwareAddress = std::array<std::uint8_t, 6>;
/// Zero-terminated text of an IPv4 or IPv6 address.
using AddressText = std::array<char, INET6_ADDRSTRLEN>;
/// Zero-terminated text out of the resolver file, at most 31 characters and with its line's line feed.
using ResolverText = std::array<char, 32>;

struct DnsServers {
  ResolverText primary{};
  ResolverText secondary{};
};

struct AddressTexts {
  AddressText ipv4{};
  AddressText ipv6{};
};

/// Which byte of a parsed IPv4 value takes the first octet.
enum class OctetOrder { kFirstHighest, kFirstLowest };

// In all of the following `interface_name` is cut to 15 characters where it is handed to the kernel.

/// The IPv4 address, or kNoAddress when the interface is missing or has none.
[[nodiscard]] std::uint32_t read_ipv4_address(const char* interface_name);

/// 0, or -1 when the kernel refuses.
[[nodiscard]] int set_ipv4_address(const char* interface_name, std::uint32_t address);

/// The subnet mask, or nothing when the interface is missing or has no address.
[[nodiscard]] std::optional<std::uint32_t> read_subnet_mask(const char* interface_name);

/// Sets the mask and the broadcast address that `broadcast_address` makes of it and the present address. The
/// broadcast is set even when the mask is refused; either failure gives -1, otherwise 0.
[[nodiscard]] int set_subnet_mask(const char* interface_name, std::uint32_t mask);

/// The broadcast address that `set_subnet_mask` sets, made octet by octet: the address's octet where the
/// mask's is 255, 255 where it is 0, and otherwise the mask's octet itself. That last rule is intended and
/// visible on the interface: 192.168.1.10 with mask 255.255.255.128 gets the broadcast 192.168.1.128.
[[nodiscard]] std::uint32_t broadcast_address(std::uint32_t address, std::uint32_t mask);

/// The hardware (MAC) address, or nothing.
[[nodiscard]] std::optional<HardwareAddress> read_hardware_address(const char* interface_name);

/// The hardware address in the kernel's answer to the change, or nothing.
[[nodiscard]] std::optional<HardwareAddress> set_hardware_address(const char* interface_name,
                                                                  const HardwareAddress& address);

/// The interface's default gateway, or kNoAddress when it has none.
[[nodiscard]] std::uint32_t read_default_gateway(const char* interface_name);

/// The same out of an open table in the layout of /proc/net/route: the first line that begins with
/// `interface_name` and has a gateway gives the result, whatever its destination. Only the name's length is
/// compared, so "eth0" also takes the lines of "eth0.1". Lines are read in pieces of at most 255 characters.
[[nodiscard]] std::uint32_t find_gateway(std::FILE* route_table, const char* interface_name);

/// Replaces the interface's default route by one through `gateway`. 0, or -1: also when the `route` command,
/// which is tried after the kernel refused the new route, succeeds.
[[nodiscard]] int set_default_gateway(const char* interface_name, std::uint32_t gateway);

/// The first two name servers of /etc/resolv.conf, empty where there are fewer; nothing if it is unreadable.
[[nodiscard]] std::optional<DnsServers> read_dns_servers();
[[nodiscard]] DnsServers parse_dns_servers(std::FILE* resolver_file);

/// The search domain of /etc/resolv.conf, empty when there is none; nothing when the file cannot be read.
[[nodiscard]] std::optional<ResolverText> read_dns_search_domain();
[[nodiscard]] ResolverText parse_dns_search_domain(std::FILE* resolver_file);

/// Checks that three dotted-quad texts fit each other: 0; -1 for a bad address or one that shares no subnet
/// with the gateway (told on standard error); -2 for a mask that is not contiguous from /8 to /31; -3 for a
/// bad gateway. An address or gateway that is its block's network or broadcast address is bad.
[[nodiscard]] int ip_check(const char* address, const char* mask, const char* gateway);

/// Four decimal numbers separated by ".", with anything behind them; each is cut to its low 8 bits, so that
/// "300" counts as 44. Nothing when the text has another form.
[[nodiscard]] std::optional<std::uint32_t> parse_dotted_quad(const char* text, OctetOrder order);

/// An IPv4 or IPv6 address text as inet_pton(3) takes it, with its family; nothing when it is neither.
[[nodiscard]] std::optional<sockaddr_storage> parse_address(const char* text);

/// The link-local IPv6 address of a hardware address: prefix fe80::/64 and the modified EUI-64 identifier
/// (RFC 4291, appendix A).
[[nodiscard]] in6_addr link_local_address(const HardwareAddress& address);

/// The same from a text such as "00:11:22:33:44:55", all digits written out. Of a text with fewer than six
/// numbers the missing bytes are 0, those between the halves included. Notes the result on standard error.
[[nodiscard]] AddressText link_local_text(const char* hardware_address);

/// The addresses of all interfaces whose names agree with `interface_name` in the first four characters.
/// Either output may be null when it is not wanted; one for which nothing is found stays unchanged. The last
/// IPv4 address wins. For IPv6 the last global address wins; without one, the first link-local address,
/// unless a later one differs from that made of eth0's hardware address. 0, or the error of getifaddrs(3),
/// which is negative.
[[nodiscard]] int find_interface_addresses(const char* interface_name, in_addr* ipv4, in6_addr* ipv6);

/// Texts of what `find_interface_addresses` finds: "0.0.0.0" or "::" where the interface has no address,
/// nothing when the interfaces cannot be listed.
[[nodiscard]] std::optional<AddressText> interface_ipv6_text(const char* interface_name);
[[nodiscard]] std::optional<AddressTexts> interface_address_texts(const char* interface_name);
[[nodiscard]] std::optional<AddressText> interface_ipv4_text(const char* interface_name);

/// The text of an IPv4 or IPv6 address; an IPv4-mapped one (::ffff:0:0/96) is written as the IPv4 address.
/// Nothing for other families.
[[nodiscard]] std::optional<AddressText> socket_address_text(const sockaddr_storage& address);

/// The octets of an IPv4 value for printing, first octet first.
[[nodiscard]] std::array<int, 4> octets_of(std::uint32_t address);

}  // namespace psia
