#include "simulator/front/tcp_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace camera {
namespace {

constexpr int kMaxWaiting = 128;  // connections that nobody has accepted yet

// An address of either family with its size; size 0: the text is none.
struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t size = 0;
};

SocketAddress address_of(const std::string& text, int port) {
  SocketAddress address;
  sockaddr_in four{};
  sockaddr_in6 six{};
  four.sin_family = AF_INET;
  six.sin6_family = AF_INET6;
  four.sin_port = six.sin6_port = htons(static_cast<std::uint16_t>(port));
  if (inet_pton(AF_INET, text.c_str(), &four.sin_addr) == 1) {
    address.size = sizeof four;
    std::memcpy(&address.storage, &four, sizeof four);
  } else if (inet_pton(AF_INET6, text.c_str(), &six.sin6_addr) == 1) {
    address.size = sizeof six;
    std::memcpy(&address.storage, &six, sizeof six);
  }
  return address;
}

}  // namespace

bool is_ip_address(const std::string& text) {
  return address_of(text, 0).size > 0;
}

bool is_loopback(const std::string& address) {
  in_addr four{};
  in6_addr six{};
  if (inet_pton(AF_INET, address.c_str(), &four) == 1) return ntohl(four.s_addr) >> 24U == IN_LOOPBACKNET;
  return inet_pton(AF_INET6, address.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
}

Descriptor listen_on_port(const std::string& address, int port) {
  const SocketAddress wanted = address_of(address, port);
  Descriptor listener(socket(wanted.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  const int off = 0;
  // Connections of a camera that has just ended do not keep the port.
  setsockopt(listener.number, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (wanted.storage.ss_family == AF_INET6) {
    setsockopt(listener.number, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
  }
  if (bind(listener.number, reinterpret_cast<const sockaddr*>(&wanted.storage), wanted.size) != 0 ||
      listen(listener.number, kMaxWaiting) != 0) {
    const int fault = errno;
    listener.reset();
    errno = fault;
  }
  return listener;
}

int port_of(const Descriptor& listener) {
  sockaddr_in6 address{};  // the port has the same place in both families
  socklen_t size = sizeof address;
  getsockname(listener.number, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin6_port);
}

std::string authority(const std::string& address, int port) {
  const bool six = address.find(':') != std::string::npos;
  return (six ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

}  // namespace camera
