#include "network/interface_state.h"

#include <arpa/inet.h>
#include <ifaddrs.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>

#include "core/file.h"
#include "network/interface_request.h"

namespace psia {
namespace {

static_assert(std::endian::native == std::endian::little,
              "IPv4 values keep the first octet in the lowest byte");

/// Characters of a route table's column that are read.
constexpr std::size_t kMaxColumn = 16;
/// Characters of an interface name that are compared when addresses are listed.
constexpr std::size_t kComparedCharacters = 4;

/// Moves `line` past its next tab and gives the column that begins there. Both are empty without a tab.
std::string_view take_column(std::string_view& line) {
  const std::size_t tab = line.find('\t');
  line.remove_prefix(tab == std::string_view::npos ? line.size() : tab + 1);
  return {line.data(), std::min(line.size(), kMaxColumn)};
}

/// The hexadecimal number at the start of `text`: 0 without one, all bits set when it exceeds 32 bits.
std::uint32_t hexadecimal(std::string_view text) {
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  return error == std::errc::result_out_of_range ? std::numeric_limits<std::uint32_t>::max() : value;
}

/// std::string_view's own would need the C++ library on the device, for a check that cannot fail here.
bool begins_with(std::string_view text, std::string_view beginning) {
  return text.size() >= beginning.size() && std::memcmp(text.data(), beginning.data(), beginning.size()) == 0;
}

bool is_link_local(const in6_addr& address) {
  return address.s6_addr[0] == 0xfe && address.s6_addr[1] == 0x80;
}

/// Whether `address` is the link-local address made of eth0's hardware address.
bool is_derived(const in6_addr& address) {
  const in6_addr derived = link_local_address(find_hardware_address("eth0").value_or(HardwareAddress{}));
  return std::memcmp(&address, &derived, sizeof derived) == 0;
}

/// Chooses among the IPv6 addresses of an interface; offer() takes them one by one.
struct Ipv6Choice {
  std::optional<in6_addr> global;
  std::optional<in6_addr> link_local;

  void offer(const in6_addr& address) {
    if (!is_link_local(address)) {
      if (!IN6_IS_ADDR_UNSPECIFIED(&address)) global = address;
      return;
    }
    // The address made of the hardware address does not replace one that was set by hand.
    if (!link_local || !is_derived(address)) link_local = address;
  }
};

}  // namespace

std::optional<Octets> scan_octets(const char* text) {
  Octets octets{};
  for (std::size_t i = 0; i < octets.size(); ++i) {
    if (i > 0 && *text++ != '.') return std::nullopt;
    char* end = nullptr;
    const long number = std::strtol(text, &end, 10);
    if (end == text) return std::nullopt;
    using Limits = std::numeric_limits<int>;
    octets[i] = static_cast<int>(std::clamp<long>(number, Limits::min(), Limits::max()));
    text = end;
  }
  return octets;
}

std::optional<AddressText> address_text(int family, const void* address) {
  AddressText text{};
  if (inet_ntop(family, address, text.data(), text.size()) == nullptr) return std::nullopt;
  return text;
}

std::optional<std::uint32_t> find_subnet_mask(const char* interface_name) {
  const ControlSocket socket("Socket Open Fail!");
  ifreq request = interface_request(interface_name);
  if (!socket.control_or_report(SIOCGIFNETMASK, &request, "Unable to read subnet mask!")) return std::nullopt;
  return taken_address(request);
}

std::optional<HardwareAddress> find_hardware_address(const char* interface_name) {
  const ControlSocket socket("Failed to open socket!");
  ifreq request = interface_request(interface_name);
  if (!socket.control_or_report(SIOCGIFHWADDR, &request, "Unable to read MAC address!")) return std::nullopt;
  return taken_hardware_address(request);
}

std::uint32_t find_gateway(std::FILE* route_table, const char* interface_name) {
  std::array<char, 256> line{};
  while (std::fgets(line.data(), line.size(), route_table) != nullptr) {
    std::string_view rest(line.data());
    if (!begins_with(rest, interface_name)) continue;
    const std::uint32_t destination = hexadecimal(take_column(rest));
    const std::uint32_t gateway = hexadecimal(take_column(rest));
    if (destination == kNoAddress || gateway == kNoAddress) {
      report("Unable to read routing table!");
      return kNoAddress;
    }
    if (gateway != 0) return gateway;
  }
  return kNoAddress;
}

std::uint32_t find_default_gateway(const char* interface_name) {
  const File route_table = open_file("/proc/net/route", "re");
  if (!route_table) {
    report("Do not support /proc file system?");
    return kNoAddress;
  }
  return find_gateway(route_table.get(), interface_name);
}

std::optional<ResolverText> next_resolver_value(std::FILE* resolver_file, std::string_view keyword) {
  std::array<char, 64> line{};
  while (std::fgets(line.data(), static_cast<int>(line.size()), resolver_file) != nullptr) {
    std::string_view rest(line.data());
    if (!begins_with(rest, keyword)) continue;
    rest.remove_prefix(std::min(rest.size(), keyword.size() + 1));
    ResolverText value{};
    rest.copy(value.data(), value.size() - 1);
    return value;
  }
  return std::nullopt;
}

DnsServers parse_dns_servers(std::FILE* resolver_file) {
  DnsServers servers;
  for (ResolverText* server : {&servers.primary, &servers.secondary}) {
    *server = next_resolver_value(resolver_file, "nameserver").value_or(ResolverText{});
  }
  return servers;
}

std::optional<DnsServers> find_dns_servers() {
  const File resolver_file = open_file(kResolverFile, "re");
  if (!resolver_file) return std::nullopt;
  return parse_dns_servers(resolver_file.get());
}

std::optional<std::uint32_t> parse_dotted_quad(const char* text, OctetOrder order) {
  const auto octets = scan_octets(text);
  if (!octets) return std::nullopt;
  std::uint32_t value = 0;
  for (const int octet : *octets)
    value = value << 8 | (static_cast<unsigned>(octet) & 0xFF);
  return order == OctetOrder::kFirstHighest ? value : htonl(value);
}

in6_addr link_local_address(const HardwareAddress& address) {
  // The second bit inverted is the universal/local bit.
  return {{{0xfe, 0x80, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(address[0] ^ 2U), address[1], address[2],
            0xff, 0xfe, address[3], address[4], address[5]}}};
}

int find_interface_addresses(const char* interface_name, in_addr* ipv4, in6_addr* ipv6) {
  ifaddrs* first = nullptr;
  if (const int error = getifaddrs(&first); error != 0) {
    std::printf("getifaddrs fail, err: %s\n", std::strerror(errno));
    std::fflush(stdout);
    return error;
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> list(first, freeifaddrs);
  Ipv6Choice choice;
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    const bool name_agrees = std::strncmp(entry->ifa_name, interface_name, kComparedCharacters) == 0;
    if (!name_agrees || entry->ifa_addr == nullptr) continue;
    if (entry->ifa_addr->sa_family == AF_INET && ipv4 != nullptr) {
      sockaddr_in address{};
      std::memcpy(&address, entry->ifa_addr, sizeof address);
      *ipv4 = address.sin_addr;
    } else if (entry->ifa_addr->sa_family == AF_INET6 && ipv6 != nullptr) {
      sockaddr_in6 address{};
      std::memcpy(&address, entry->ifa_addr, sizeof address);
      choice.offer(address.sin6_addr);
    }
  }
  const auto& chosen = choice.global ? choice.global : choice.link_local;
  if (ipv6 != nullptr && chosen) *ipv6 = *chosen;
  return 0;
}

std::optional<AddressText> interface_ipv4_text(const char* interface_name) {
  in_addr address{};
  if (find_interface_addresses(interface_name, &address, nullptr) < 0) return std::nullopt;
  return address_text(AF_INET, &address);
}

std::array<int, 4> octets_of(std::uint32_t address) {
  return {static_cast<int>(address & 0xFF), static_cast<int>(address >> 8 & 0xFF),
          static_cast<int>(address >> 16 & 0xFF), static_cast<int>(address >> 24)};
}

}  // namespace psia
