#include "tests/support/fastcgi_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <utility>

namespace fastcgi {

namespace {

// Record types of the FastCGI protocol, version 1.
enum Type : std::uint8_t { kBeginRequest = 1, kEndRequest = 3, kParams, kStdin, kStdout, kStderr };

constexpr std::size_t kLargestRecord = 65535;

char low_byte(std::size_t number) {
  return static_cast<char>(static_cast<unsigned char>(number));
}

std::string record(Type type, const std::string& content) {
  return std::string{
             1, static_cast<char>(type), 0, 1, low_byte(content.size() >> 8U), low_byte(content.size()), 0,
             0} +
         content;
}

/// The content in as many records as it needs, with the empty record that ends the stream when asked for.
std::string stream(Type type, const std::string& content, bool end = true) {
  std::string bytes;
  for (std::size_t at = 0; at < content.size(); at += kLargestRecord)
    bytes += record(type, content.substr(at, kLargestRecord));
  return end ? bytes + record(type, "") : bytes;
}

std::string length_of(const std::string& text) {
  const std::size_t size = text.size();
  if (size < 128) return {low_byte(size)};
  return {low_byte(size >> 24U | 0x80U), low_byte(size >> 16U), low_byte(size >> 8U), low_byte(size)};
}

bool read_all(int descriptor, char* bytes, std::size_t size) {
  for (std::size_t at = 0; at < size;) {
    const ssize_t got = ::read(descriptor, bytes + at, size - at);
    if (got <= 0) return false;
    at += static_cast<std::size_t>(got);
  }
  return true;
}

}  // namespace

Connection::Connection(const std::string& path)
    : descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(std::begin(address.sun_path), sizeof address.sun_path - 1);
  if (connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(std::exchange(descriptor_, -1));
  }
}

Connection::~Connection() {
  if (descriptor_ >= 0) close(descriptor_);
}

Connection::Connection(Connection&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

void Connection::send(const Request& request) const {
  std::string variables;
  for (const auto& [name, value] : request.variables)
    variables += length_of(name) + length_of(value) + name + value;
  const std::string role = {0, 1, static_cast<char>(request.keep ? 1 : 0), 0, 0, 0, 0, 0};  // a responder
  const std::string bytes = record(kBeginRequest, role) + stream(kParams, variables) +
                            stream(kStdin, request.body, request.finished);
  for (std::size_t at = 0; at < bytes.size();) {
    const ssize_t sent = ::send(descriptor_, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
    if (sent <= 0) return;  // the service need not read all of a request it refuses
    at += static_cast<std::size_t>(sent);
  }
}

bool Connection::answers_within(int milliseconds) const {
  pollfd answer{descriptor_, POLLIN, 0};
  return poll(&answer, 1, milliseconds) > 0;
}

Answer Connection::receive() const {
  Answer answer;
  std::array<char, 8> header{};
  while (!answer.ended && read_all(descriptor_, header.data(), header.size())) {
    const auto byte = [&header](std::size_t i) {
      return static_cast<std::size_t>(static_cast<unsigned char>(header.at(i)));
    };
    std::string content((byte(4) << 8U | byte(5)) + byte(6), '\0');
    if (!read_all(descriptor_, content.data(), content.size())) break;
    content.resize(content.size() - byte(6));  // less the padding
    if (header[1] == kStdout) answer.out += content;
    if (header[1] == kStderr) answer.errors += content;
    answer.ended = header[1] == kEndRequest;
  }
  return answer;
}

}  // namespace fastcgi
