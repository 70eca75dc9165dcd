#include "tests/support/fastcgi_client.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

namespace fastcgi {

namespace {

// Record types and the responder role of the FastCGI protocol, version 1.
constexpr std::uint8_t kBeginRequest = 1;
constexpr std::uint8_t kEndRequest = 3;
constexpr std::uint8_t kParams = 4;
constexpr std::uint8_t kStdin = 5;
constexpr std::uint8_t kStdout = 6;
constexpr std::uint8_t kStderr = 7;
constexpr char kResponder = 1;
constexpr char kKeepConnection = 1;
constexpr std::size_t kLargestRecord = 65535;

char low_byte(std::size_t number) {
  return static_cast<char>(static_cast<unsigned char>(number));
}

std::string record(std::uint8_t type, const std::string& content) {
  std::string bytes = {
      1, static_cast<char>(type), 0, 1, low_byte(content.size() >> 8U), low_byte(content.size()), 0, 0};
  return bytes + content;
}

/// The content in as many records as it needs, with the empty record that ends the stream when asked for.
std::string stream(std::uint8_t type, const std::string& content, bool end = true) {
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

std::string opening(const Request& request, bool keep) {
  std::string variables;
  for (const auto& [name, value] : request.variables) {
    variables += length_of(name) + length_of(value) + name + value;
  }
  const std::string begin = {0, kResponder, keep ? kKeepConnection : '\0', 0, 0, 0, 0, 0};
  return record(kBeginRequest, begin) + stream(kParams, variables);
}

void write_all(int descriptor, const std::string& bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    const ssize_t sent = ::send(descriptor, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
    if (sent <= 0) return;  // the service need not read all of a request it refuses
    at += static_cast<std::size_t>(sent);
  }
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

void Connection::send(const Request& request, bool keep) const {
  write_all(descriptor_, opening(request, keep) + stream(kStdin, request.body));
}

void Connection::send_unfinished(const Request& request) const {
  write_all(descriptor_, opening(request, false) + stream(kStdin, request.body, false));
}

Answer Connection::receive() const {
  Answer answer;
  std::array<char, 8> header{};
  while (read_all(descriptor_, header.data(), header.size())) {
    const auto byte = [&header](std::size_t i) {
      return static_cast<std::size_t>(static_cast<unsigned char>(header[i]));
    };
    std::string content((byte(4) << 8U | byte(5)) + byte(6), '\0');
    if (!read_all(descriptor_, content.data(), content.size())) break;
    content.resize(content.size() - byte(6));  // less the padding
    if (header[1] == kStdout) answer.out += content;
    if (header[1] == kStderr) answer.errors += content;
    if (header[1] == kEndRequest) {
      answer.ended = true;
      break;
    }
  }
  return answer;
}

}  // namespace fastcgi
