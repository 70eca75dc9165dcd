#include "simulator/front/fastcgi_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

#include "simulator/front/fastcgi.h"

namespace camera::fastcgi {

namespace {

constexpr std::uint16_t kRequest = 1;

char low_byte(std::size_t number) {
  return static_cast<char>(static_cast<unsigned char>(number));
}

std::string length_of(const std::string& text) {
  const std::size_t size = text.size();
  if (size < 128) return {low_byte(size)};
  return {low_byte(size >> 24U | 0x80U), low_byte(size >> 16U), low_byte(size >> 8U), low_byte(size)};
}

}  // namespace

void Connection::send(const Request& request) const {
  std::string variables;
  for (const auto& [name, value] : request.variables)
    variables += length_of(name) + length_of(value) + name + value;
  const std::string role = {0, 1, static_cast<char>(request.keep ? 1 : 0), 0, 0, 0, 0, 0};  // a responder
  const std::string bytes = record(kBeginRequest, kRequest, role) + stream(kParameters, kRequest, variables) +
                            stream(kInput, kRequest, request.body, request.finished);
  for (std::size_t at = 0; at < bytes.size();) {
    const ssize_t sent = ::send(socket_.number, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
    if (sent <= 0) return;  // the service may close the connection before it has read a whole request
    at += static_cast<std::size_t>(sent);
  }
}

bool Connection::answers_within(int milliseconds) const {
  pollfd answer{socket_.number, POLLIN, 0};
  return poll(&answer, 1, milliseconds) > 0;
}

void Connection::send_more(const std::string& body) const {
  const std::string bytes = stream(kInput, kRequest, body, false);
  (void)::send(socket_.number, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

Answer Connection::receive() const {
  Answer answer;
  std::string bytes;
  std::array<char, 65536> piece{};
  for (ssize_t got = 0; !answer.ended && (got = read(socket_.number, piece.data(), piece.size())) > 0;) {
    bytes.append(piece.data(), static_cast<std::size_t>(got));
    for (const auto& record : take_records(bytes)) {
      if (record.type == kOutput) answer.out += record.content;
      if (record.type == kErrors) answer.errors += record.content;
      answer.ended = record.type == kEndRequest;
    }
  }
  return answer;
}

}  // namespace camera::fastcgi
