#include "for_other_programs/interface_setup.h"

#include <arpa/inet.h>
#include <net/if_arp.h>
#include <net/route.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/file.h"
#include "network/interface_request.h"

namespace psia {
namespace {

constexpr std::size_t kShortestQuad = std::string_view("0.0.0.0").size();

void put_address(sockaddr& place, std::uint32_t address) {
  const sockaddr_in socket_address = {
      .sin_family = AF_INET, .sin_port = 0, .sin_addr = {address}, .sin_zero = {}};
  std::memcpy(&place, &socket_address, sizeof socket_address);
}

/// The index (1 to 3) of the octet in which the mask's host part begins: the last octet that is not 0, or the
/// one after it when that octet is 255. Nothing when an octet before the index is not 255.
std::optional<std::size_t> boundary_octet(const Octets& mask) {
  std::size_t boundary = 3;
  while (boundary > 1 && mask[boundary] == 0 && mask[boundary - 1] != 255)
    --boundary;
  for (std::size_t i = 0; i < boundary; ++i) {
    if (mask[i] != 255) return std::nullopt;
  }
  return boundary;
}

/// Whether every octet after the boundary octet is `value`; true when there is none.
bool rest_is(const Octets& octets, std::size_t boundary, int value) {
  return std::all_of(octets.begin() + boundary + 1, octets.end(), [=](int octet) { return octet == value; });
}

/// Made octet by octet: the address's octet where the mask's is 255, 255 where it is 0, otherwise the mask's
/// octet itself. Kept for compatibility: 192.168.1.10 with mask 255.255.255.128 gets the broadcast
/// 192.168.1.128.
std::uint32_t broadcast_address(std::uint32_t address, std::uint32_t mask) {
  std::uint32_t broadcast = 0;
  for (unsigned shift = 0; shift < 32; shift += 8) {
    const std::uint32_t mask_octet = mask >> shift & 0xFF;
    const std::uint32_t address_octet = address >> shift & 0xFF;
    broadcast |= (mask_octet == 255 ? address_octet : mask_octet == 0 ? 255 : mask_octet) << shift;
  }
  return broadcast;
}

}  // namespace

std::uint32_t find_ipv4_address(const char* interface_name) {
  const ControlSocket socket("Socket Open Fail!");
  if (!socket.is_open()) return kNoAddress;
  ifreq request = interface_request(interface_name);
  if (!socket.control(SIOCGIFADDR, &request)) {
    std::printf("Unable to read IP address!, err: %s\n", std::strerror(errno));
    std::fflush(stdout);
    return kNoAddress;
  }
  return taken_address(request);
}

int set_ipv4_address(const char* interface_name, std::uint32_t address) {
  const ControlSocket socket("Socket Open Fail!");
  ifreq request = interface_request(interface_name);
  put_address(request.ifr_addr, address);
  return socket.control_or_report(SIOCSIFADDR, &request, "Failed to set IP address!") ? 0 : -1;
}

int set_subnet_mask(const char* interface_name, std::uint32_t mask) {
  const std::uint32_t address = find_ipv4_address(interface_name);
  if (address == kNoAddress) return -1;
  const ControlSocket socket("Socket Open Fail!");
  ifreq request = interface_request(interface_name);
  put_address(request.ifr_addr, mask);
  const bool mask_set = socket.control_or_report(SIOCSIFNETMASK, &request, "Failed to set subnet mask!");
  put_address(request.ifr_addr, broadcast_address(address, mask));
  const bool both_set =
      socket.control_or_report(SIOCSIFBRDADDR, &request, "Failed to set broadcast address!") && mask_set;
  return both_set ? 0 : -1;
}

std::optional<HardwareAddress> set_hardware_address(const char* interface_name,
                                                    const HardwareAddress& address) {
  const ControlSocket socket("Failed to open socket!");
  ifreq request = interface_request(interface_name, ARPHRD_ETHER);
  std::memcpy(request.ifr_hwaddr.sa_data, address.data(), address.size());
  // The same line as the reader's: programs that watch the output know it.
  if (!socket.control_or_report(SIOCSIFHWADDR, &request, "Unable to read MAC address!")) return std::nullopt;
  return taken_hardware_address(request);
}

int set_default_gateway(const char* interface_name, std::uint32_t gateway) {
  const ControlSocket socket("Socket Open Fail!");
  if (!socket.is_open()) return -1;
  // The kernel copies 15 bytes from where rt_dev points, so the name needs a buffer of that size.
  ifreq device = interface_request(interface_name);
  rtentry route{};
  route.rt_flags = RTF_UP;
  route.rt_dev = device.ifr_name;
  put_address(route.rt_dst, 0);
  if (find_default_gateway(interface_name) != kNoAddress && !socket.control(SIOCDELRT, &route) &&
      errno != ESRCH) {
    report("Failed to delete default gateway!");
    return -1;
  }

  route.rt_flags |= RTF_GATEWAY;
  put_address(route.rt_gateway, gateway);
  if (!socket.control_or_report(SIOCADDRT, &route, "Failed to set default gateway!")) {
    std::array<char, 64> command{};
    const auto [first, second, third, fourth] = octets_of(gateway);
    std::snprintf(command.data(), command.size(), "route add default gw %d.%d.%d.%d", first, second, third,
                  fourth);
    // The result is -1 even if the command succeeds, so its status is ignored.
    // NOLINTNEXTLINE(cert-env33-c): the only variable part is four numbers.
    [[maybe_unused]] const int status = std::system(command.data());
    return -1;
  }
  return 0;
}

int ip_check(const char* address, const char* mask, const char* gateway) {
  for (const char* text : {address, mask, gateway}) {
    if (strnlen(text, kShortestQuad) < kShortestQuad) return -1;
  }
  const auto m = scan_octets(mask);
  if (!m) return -2;
  const auto a = scan_octets(address);
  if (!a) return -1;
  const auto g = scan_octets(gateway);
  if (!g) return -3;

  const auto boundary = boundary_octet(*m);
  if (!boundary) return -2;
  const int boundary_value = m->at(*boundary);
  if (boundary_value < 0 || boundary_value > 254) return -2;
  const int block_size = 256 - boundary_value;
  if (!std::has_single_bit(static_cast<unsigned>(block_size))) return -2;

  for (std::size_t i = 0; i < m->size(); ++i) {
    if (((g->at(i) ^ a->at(i)) & m->at(i)) == 0) continue;
    const auto [m1, m2, m3, m4] = *m;
    const auto [a1, a2, a3, a4] = *a;
    const auto [g1, g2, g3, g4] = *g;
    std::fprintf(stderr, "%s wrong ipaddr or gateway [%d.%d.%d.%d], [%d.%d.%d.%d], [%d.%d.%d.%d]\n",
                 "ip_check", m1, m2, m3, m4, a1, a2, a3, a4, g1, g2, g3, g4);
    return -1;
  }

  const auto is_edge = [&](const Octets& octets, int first) {
    const int value = octets[*boundary];
    return (value == first && rest_is(octets, *boundary, 0)) ||
           (value == first + block_size - 1 && rest_is(octets, *boundary, 255));
  };
  for (int first = 0; first <= 256; first += block_size) {
    if (is_edge(*a, first)) return -1;
    if (is_edge(*g, first)) return -3;
  }
  return 0;
}

ResolverText parse_dns_search_domain(std::FILE* resolver_file) {
  return next_resolver_value(resolver_file, "search").value_or(ResolverText{});
}

std::optional<ResolverText> find_dns_search_domain() {
  const File resolver_file = open_file(kResolverFile, "re");
  if (!resolver_file) return std::nullopt;
  return parse_dns_search_domain(resolver_file.get());
}

std::optional<sockaddr_storage> parse_address(const char* text) {
  sockaddr_in ipv4{};
  sockaddr_in6 ipv6{};
  sockaddr_storage address{};
  if (inet_pton(AF_INET, text, &ipv4.sin_addr) == 1) {
    ipv4.sin_family = AF_INET;
    std::memcpy(&address, &ipv4, sizeof ipv4);
  } else if (inet_pton(AF_INET6, text, &ipv6.sin6_addr) == 1) {
    ipv6.sin6_family = AF_INET6;
    std::memcpy(&address, &ipv6, sizeof ipv6);
  } else {
    return std::nullopt;
  }
  return address;
}

AddressText link_local_text(const char* hardware_address) {
  std::array<unsigned, 8> id{};
  // NOLINTNEXTLINE(cert-err34-c): two digits cannot overflow.
  const int count = std::sscanf(hardware_address, "%02X:%02X:%02X:%02X:%02X:%02X", &id[0], &id[1], &id[2],
                                &id[5], &id[6], &id[7]);
  if (count == 6) {
    id[3] = 0xff;
    id[4] = 0xfe;
  }
  id[0] ^= 2U;
  const auto group = [&](std::size_t i) { return (id[i] & 0xFF) << 8 | (id[i + 1] & 0xFF); };
  AddressText text{};
  std::snprintf(text.data(), text.size(), "fe80:0000:0000:0000:%04x:%04x:%04x:%04x", group(0), group(2),
                group(4), group(6));
  std::fprintf(stderr, "AutoConf IPv6 Addr. = %s\n", text.data());
  return text;
}

std::optional<AddressText> interface_ipv6_text(const char* interface_name) {
  const auto texts = interface_address_texts(interface_name);
  return texts ? std::optional(texts->ipv6) : std::nullopt;
}

std::optional<AddressTexts> interface_address_texts(const char* interface_name) {
  in_addr ipv4{};
  in6_addr ipv6{};
  if (find_interface_addresses(interface_name, &ipv4, &ipv6) < 0) return std::nullopt;
  const auto ipv4_text = address_text(AF_INET, &ipv4);
  const auto ipv6_text = address_text(AF_INET6, &ipv6);
  if (!ipv4_text || !ipv6_text) return std::nullopt;
  return AddressTexts{*ipv4_text, *ipv6_text};
}

std::optional<AddressText> socket_address_text(const sockaddr_storage& address) {
  if (address.ss_family == AF_INET) {
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, &address, sizeof ipv4);
    return address_text(AF_INET, &ipv4.sin_addr);
  }
  if (address.ss_family == AF_INET6) {
    sockaddr_in6 ipv6{};
    std::memcpy(&ipv6, &address, sizeof ipv6);
    if (IN6_IS_ADDR_V4MAPPED(&ipv6.sin6_addr)) return address_text(AF_INET, &ipv6.sin6_addr.s6_addr[12]);
    return address_text(AF_INET6, &ipv6.sin6_addr);
  }
  return std::nullopt;
}

}  // namespace psia
