#include "network/interface_address.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>

namespace psia {
namespace {

static_assert(std::endian::native == std::endian::little,
              "IPv4 values keep the first octet in the lowest byte");

constexpr std::size_t kShortestQuad = std::string_view("0.0.0.0").size();
/// Characters of a route table's column that are looked at.
constexpr std::size_t kMaxColumn = 16;
/// Characters of an interface name that are compared when addresses are listed.
constexpr std::size_t kComparedCharacters = 4;

/// An IPv4 address text's numbers as written, first octet first.
using Octets = std::array<int, 4>;

/// Flushed at once: whoever reads our standard output must see it before what a child process writes there.
void report(const char* line) {
  std::puts(line);
  std::fflush(stdout);
}

/// The type of a request to ioctl(2): unsigned long in one C library, int in another.
template <typename Request>
Request request_of(int (*)(int, Request, ...));
using IoctlRequest = decltype(request_of(::ioctl));

/// The datagram socket that interface requests are made on.
class ControlSocket {
 public:
  explicit ControlSocket(const char* failure_line)
      : descriptor_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (!is_open()) report(failure_line);
  }
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket(ControlSocket&&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;
  ControlSocket& operator=(ControlSocket&&) = delete;
  ~ControlSocket() {
    if (is_open()) ::close(descriptor_);
  }

  [[nodiscard]] bool is_open() const { return descriptor_ >= 0; }
  /// False, with errno set, when the kernel refuses; `argument` is the record that the request works on.
  [[nodiscard]] bool control(int request, void* argument) const {
    return ::ioctl(descriptor_, static_cast<IoctlRequest>(request), argument) == 0;
  }

 private:
  int descriptor_;
};

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

File open_file(const char* path) {
  return File(std::fopen(path, "re"));
}

ifreq interface_request(const char* interface_name, sa_family_t family = AF_INET) {
  ifreq request{};
  std::memcpy(request.ifr_name, interface_name, strnlen(interface_name, IFNAMSIZ - 1));
  request.ifr_addr.sa_family = family;
  return request;
}

void put_address(ifreq& request, std::uint32_t address) {
  sockaddr_in socket_address{};
  socket_address.sin_family = AF_INET;
  socket_address.sin_addr.s_addr = address;
  std::memcpy(&request.ifr_addr, &socket_address, sizeof socket_address);
}

std::uint32_t taken_address(const ifreq& request) {
  sockaddr_in socket_address{};
  std::memcpy(&socket_address, &request.ifr_addr, sizeof socket_address);
  return socket_address.sin_addr.s_addr;
}

HardwareAddress taken_hardware_address(const ifreq& request) {
  HardwareAddress address{};
  std::memcpy(address.data(), request.ifr_hwaddr.sa_data, address.size());
  return address;
}

/// Moves `line` behind its next tab and gives the column that begins there; both are empty without a tab.
std::string_view take_column(std::string_view& line) {
  const std::size_t tab = line.find('\t');
  line.remove_prefix(tab == std::string_view::npos ? line.size() : tab + 1);
  return {line.data(), std::min(line.size(), kMaxColumn)};
}

/// The hexadecimal number that `text` begins with: 0 without one, all bits set when it exceeds 32 bits.
std::uint32_t hexadecimal(std::string_view text) {
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  return error == std::errc::result_out_of_range ? std::numeric_limits<std::uint32_t>::max() : value;
}

/// Lines of the resolver file, read in pieces of at most 63 characters.
using ResolverLine = std::array<char, 64>;

bool next_line(std::FILE* resolver_file, ResolverLine& line) {
  return std::fgets(line.data(), static_cast<int>(line.size()), resolver_file) != nullptr;
}

/// Spelt out: std::string_view's own needs the C++ library on the device for a check that cannot fail here.
bool begins_with(std::string_view text, std::string_view beginning) {
  return text.size() >= beginning.size() && std::memcmp(text.data(), beginning.data(), beginning.size()) == 0;
}

/// What follows `keyword` and one separator when `line` begins with it; empty behind a bare keyword.
std::optional<ResolverText> resolver_value(std::string_view line, std::string_view keyword) {
  if (!begins_with(line, keyword)) return std::nullopt;
  line.remove_prefix(std::min(line.size(), keyword.size() + 1));
  ResolverText value{};
  line.copy(value.data(), value.size() - 1);
  return value;
}

/// Reads what scanf's "%d.%d.%d.%d" reads, but saturates numbers beyond 32 bits.
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

/// The place (1 to 3) of the octet in which the mask's host part begins: the last one that is not 0, or the
/// one behind it when that is 255. Nothing when an octet before that place is not 255.
std::optional<std::size_t> boundary_octet(const Octets& mask) {
  std::size_t boundary = 3;
  while (boundary > 1 && mask[boundary] == 0 && mask[boundary - 1] != 255)
    --boundary;
  for (std::size_t i = 0; i < boundary; ++i) {
    if (mask[i] != 255) return std::nullopt;
  }
  return boundary;
}

/// Whether every octet behind the boundary octet is `value`; so it is when there is none.
bool rest_is(const Octets& octets, std::size_t boundary, int value) {
  return std::all_of(octets.begin() + boundary + 1, octets.end(), [=](int octet) { return octet == value; });
}

bool is_link_local(const in6_addr& address) {
  return address.s6_addr[0] == 0xfe && address.s6_addr[1] == 0x80;
}

/// Whether `address` is the link-local address made of eth0's hardware address.
bool is_derived(const in6_addr& address) {
  const in6_addr derived = link_local_address(read_hardware_address("eth0").value_or(HardwareAddress{}));
  return std::memcmp(&address, &derived, sizeof derived) == 0;
}

/// Chooses among the IPv6 addresses of an interface, which are offered one after the other.
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

std::optional<AddressText> address_text(int family, const void* address) {
  AddressText text{};
  if (inet_ntop(family, address, text.data(), text.size()) == nullptr) return std::nullopt;
  return text;
}

}  // namespace

std::uint32_t read_ipv4_address(const char* interface_name) {
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
  if (!socket.is_open()) return -1;
  ifreq request = interface_request(interface_name);
  put_address(request, address);
  if (!socket.control(SIOCSIFADDR, &request)) {
    report("Failed to set IP address!");
    return -1;
  }
  return 0;
}

std::optional<std::uint32_t> read_subnet_mask(const char* interface_name) {
  const ControlSocket socket("Socket Open Fail!");
  if (!socket.is_open()) return std::nullopt;
  ifreq request = interface_request(interface_name);
  if (!socket.control(SIOCGIFNETMASK, &request)) {
    report("Unable to read subnet mask!");
    return std::nullopt;
  }
  return taken_address(request);
}

std::uint32_t broadcast_address(std::uint32_t address, std::uint32_t mask) {
  std::uint32_t broadcast = 0;
  for (unsigned shift = 0; shift < 32; shift += 8) {
    const std::uint32_t mask_octet = mask >> shift & 0xFF;
    const std::uint32_t address_octet = address >> shift & 0xFF;
    broadcast |= (mask_octet == 255 ? address_octet : mask_octet == 0 ? 255 : mask_octet) << shift;
  }
  return broadcast;
}

int set_subnet_mask(const char* interface_name, std::uint32_t mask) {
  const std::uint32_t address = read_ipv4_address(interface_name);
  if (address == kNoAddress) return -1;
  const ControlSocket socket("Socket Open Fail!");
  if (!socket.is_open()) return -1;
  int result = 0;
  ifreq request = interface_request(interface_name);
  put_address(request, mask);
  if (!socket.control(SIOCSIFNETMASK, &request)) {
    report("Failed to set subnet mask!");
    result = -1;
  }
  put_address(request, broadcast_address(address, mask));
  if (!socket.control(SIOCSIFBRDADDR, &request)) {
    report("Failed to set broadcast address!");
    result = -1;
  }
  return result;
}

std::optional<HardwareAddress> read_hardware_address(const char* interface_name) {
  const ControlSocket socket("Failed to open socket!");
  if (!socket.is_open()) return std::nullopt;
  ifreq request = interface_request(interface_name);
  if (!socket.control(SIOCGIFHWADDR, &request)) {
    report("Unable to read MAC address!");
    return std::nullopt;
  }
  return taken_hardware_address(request);
}

std::optional<HardwareAddress> set_hardware_address(const char* interface_name,
                                                    const HardwareAddress& address) {
  const ControlSocket socket("Failed to open socket!");
  if (!socket.is_open()) return std::nullopt;
  ifreq request = interface_request(interface_name, ARPHRD_ETHER);
  std::memcpy(request.ifr_hwaddr.sa_data, address.data(), address.size());
  if (!socket.control(SIOCSIFHWADDR, &request)) {
    // The reader's words are intended here too; those who watch the output know them.
    report("Unable to read MAC address!");
    return std::nullopt;
  }
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

std::uint32_t read_default_gateway(const char* interface_name) {
  const File route_table = open_file("/proc/net/route");
  if (!route_table) {
    report("Do not support /proc file system?");
    return kNoAddress;
  }
  return find_gateway(route_table.get(), interface_name);
}

int set_default_gateway(const char* interface_name, std::uint32_t gateway) {
  const ControlSocket socket("Socket Open Fail!");
  if (!socket.is_open()) return -1;
  // The kernel copies the name as 15 bytes from wherever rt_dev points to, so it needs a buffer of that size.
  ifreq device = interface_request(interface_name);
  sockaddr_in destination{};
  destination.sin_family = AF_INET;
  rtentry route{};
  route.rt_flags = RTF_UP;
  route.rt_dev = device.ifr_name;
  std::memcpy(&route.rt_dst, &destination, sizeof destination);
  if (read_default_gateway(interface_name) != kNoAddress && !socket.control(SIOCDELRT, &route) &&
      errno != ESRCH) {
    report("Failed to delete default gateway!");
    return -1;
  }

  std::array<char, INET_ADDRSTRLEN> text{};
  std::snprintf(text.data(), text.size(), "%d.%d.%d.%d", static_cast<int>(gateway & 0xFF),
                static_cast<int>(gateway >> 8 & 0xFF), static_cast<int>(gateway >> 16 & 0xFF),
                static_cast<int>(gateway >> 24));
  sockaddr_in through = destination;
  inet_aton(text.data(), &through.sin_addr);
  route.rt_flags |= RTF_GATEWAY;
  std::memcpy(&route.rt_gateway, &through, sizeof through);
  if (!socket.control(SIOCADDRT, &route)) {
    report("Failed to set default gateway!");
    std::array<char, 64> command{};
    std::snprintf(command.data(), command.size(), "route add default gw %s", text.data());
    // The result is -1 whatever becomes of the command, so its status is not looked at.
    // NOLINTNEXTLINE(cert-env33-c): the only variable part is four numbers that were printed just above.
    [[maybe_unused]] const int status = std::system(command.data());
    return -1;
  }
  return 0;
}

DnsServers parse_dns_servers(std::FILE* resolver_file) {
  DnsServers servers;
  ResolverLine line{};
  bool has_primary = false;
  while (next_line(resolver_file, line)) {
    const auto value = resolver_value(line.data(), "nameserver");
    if (!value) continue;
    (has_primary ? servers.secondary : servers.primary) = *value;
    if (has_primary) break;
    has_primary = true;
  }
  return servers;
}

std::optional<DnsServers> read_dns_servers() {
  const File resolver_file = open_file("/etc/resolv.conf");
  if (!resolver_file) return std::nullopt;
  return parse_dns_servers(resolver_file.get());
}

ResolverText parse_dns_search_domain(std::FILE* resolver_file) {
  ResolverLine line{};
  while (next_line(resolver_file, line)) {
    if (const auto value = resolver_value(line.data(), "search")) return *value;
  }
  return {};
}

std::optional<ResolverText> read_dns_search_domain() {
  const File resolver_file = open_file("/etc/resolv.conf");
  if (!resolver_file) return std::nullopt;
  return parse_dns_search_domain(resolver_file.get());
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

std::optional<std::uint32_t> parse_dotted_quad(const char* text, OctetOrder order) {
  const auto octets = scan_octets(text);
  if (!octets) return std::nullopt;
  std::uint32_t value = 0;
  for (const int octet : *octets)
    value = value << 8 | (static_cast<unsigned>(octet) & 0xFF);
  return order == OctetOrder::kFirstHighest ? value : htonl(value);
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

in6_addr link_local_address(const HardwareAddress& address) {
  // The second bit inverted is the universal/local bit.
  return {{{0xfe, 0x80, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(address[0] ^ 2U), address[1], address[2],
            0xff, 0xfe, address[3], address[4], address[5]}}};
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

std::optional<AddressText> interface_ipv6_text(const char* interface_name) {
  in6_addr address{};
  if (find_interface_addresses(interface_name, nullptr, &address) < 0) return std::nullopt;
  return address_text(AF_INET6, &address);
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

std::optional<AddressText> interface_ipv4_text(const char* interface_name) {
  in_addr address{};
  if (find_interface_addresses(interface_name, &address, nullptr) < 0) return std::nullopt;
  return address_text(AF_INET, &address);
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

std::array<int, 4> octets_of(std::uint32_t address) {
  return {static_cast<int>(address & 0xFF), static_cast<int>(address >> 8 & 0xFF),
          static_cast<int>(address >> 16 & 0xFF), static_cast<int>(address >> 24)};
}

}  // namespace psia
