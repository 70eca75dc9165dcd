#include "simulator/unix_socket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace camera {
namespace {

constexpr int kMostWaiting = 128;

sockaddr_un address_of(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(static_cast<char*>(address.sun_path), sizeof(address.sun_path) - 1);
  return address;
}

}  // namespace

Descriptor connect_to(const std::string& path) {
  const sockaddr_un address = address_of(path);
  Descriptor stream(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(stream.number, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
    stream.reset();
  return stream;
}

Descriptor listen_at(const std::string& path) {
  const sockaddr_un address = address_of(path);
  Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  unlink(path.c_str());
  if (bind(listener.number, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(listener.number, kMostWaiting) != 0) {
    listener.reset();
  }
  return listener;
}

}  // namespace camera
