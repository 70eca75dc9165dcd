#include "simulator/front/unix_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

namespace camera {
namespace {

constexpr int kMaxWaiting = 128;  // connections that nobody has accepted yet

std::optional<sockaddr_un> address_of(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return std::nullopt;
  }
  path.copy(static_cast<char*>(address.sun_path), path.size());
  return address;
}

bool try_to_bind(const Descriptor& listener, const sockaddr_un& address) {
  const mode_t old_mask = umask(0077);
  const int result = bind(listener.number, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  umask(old_mask);
  return result == 0;
}

}  // namespace

Descriptor connect_to(const std::string& path) {
  const std::optional<sockaddr_un> address = address_of(path);
  if (!address) return Descriptor(-1);
  Descriptor stream(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(stream.number, reinterpret_cast<const sockaddr*>(&*address), sizeof(*address)) != 0) {
    stream.reset();
  }
  return stream;
}

Descriptor listen_at(const std::string& path) {
  const std::optional<sockaddr_un> address = address_of(path);
  if (!address) return Descriptor(-1);
  Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  bool bound = try_to_bind(listener, *address);

  struct stat file {};
  if (!bound && errno == EADDRINUSE && stat(path.c_str(), &file) == 0 && S_ISSOCK(file.st_mode)) {
    const bool abandoned = connect_to(path).number < 0 && errno == ECONNREFUSED;
    if (abandoned) unlink(path.c_str());
    bound = try_to_bind(listener, *address);
  }
  if (!bound || listen(listener.number, kMaxWaiting) != 0) {
    const int fault = errno;
    listener.reset();
    errno = fault;
  }
  return listener;
}

}  // namespace camera
