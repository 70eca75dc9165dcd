// What reading an interface and setting it up have in common: requests to the kernel, lines of the resolver
// file, address texts. For interface_state.cpp and interface_setup.cpp only.
#pragma once

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include "network/interface_state.h"

namespace psia {

/// Prints a line on standard output. Flushes it at once, so that it comes before the output of a child
/// process.
inline void report(const char* line) {
  std::puts(line);
  std::fflush(stdout);
}

/// The type of a request to ioctl(2): unsigned long in one C library, int in another.
template <typename Request>
Request request_of(int (*)(int, Request, ...));
using IoctlRequest = decltype(request_of(::ioctl));

/// The datagram socket for interface requests.
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
  /// The same, and prints `failure_line` when the kernel refuses. False also when the socket is not open.
  [[nodiscard]] bool control_or_report(int request, void* argument, const char* failure_line) const {
    if (!is_open()) return false;
    const bool done = control(request, argument);
    if (!done) report(failure_line);
    return done;
  }

 private:
  int descriptor_;
};

/// A request about the interface, whose name is truncated to 15 characters.
[[nodiscard]] inline ifreq interface_request(const char* interface_name, sa_family_t family = AF_INET) {
  ifreq request{};
  std::memcpy(request.ifr_name, interface_name, strnlen(interface_name, IFNAMSIZ - 1));
  request.ifr_addr.sa_family = family;
  return request;
}

inline constexpr const char* kResolverFile = "/etc/resolv.conf";

/// What follows `keyword` and one separator in the next line that begins with it; empty after a bare keyword,
/// nothing when no line follows. Lines are read in pieces of at most 63 characters.
[[nodiscard]] std::optional<ResolverText> next_resolver_value(std::FILE* resolver_file,
                                                              std::string_view keyword);

/// The octets of an IPv4 address text as written, first octet first.
using Octets = std::array<int, 4>;

/// Reads what scanf's "%d.%d.%d.%d" reads, but saturates numbers beyond 32 bits. Nothing when the text has
/// another form.
[[nodiscard]] std::optional<Octets> scan_octets(const char* text);

/// The text of an address of family AF_INET or AF_INET6; nothing for other families.
[[nodiscard]] std::optional<AddressText> address_text(int family, const void* address);

[[nodiscard]] inline std::uint32_t taken_address(const ifreq& request) {
  sockaddr_in socket_address{};
  std::memcpy(&socket_address, &request.ifr_addr, sizeof socket_address);
  return socket_address.sin_addr.s_addr;
}

[[nodiscard]] inline HardwareAddress taken_hardware_address(const ifreq& request) {
  HardwareAddress address{};
  std::memcpy(address.data(), request.ifr_hwaddr.sa_data, address.size());
  return address;
}

}  // namespace psia
