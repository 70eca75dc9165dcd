#include "simulator/front/relay.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "simulator/front/fastcgi.h"
#include "simulator/front/unix_socket.h"

namespace camera {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxWaiting = 1U << 18U;  // bytes held for a side that does not take them
constexpr std::size_t kMaxNoted = 1U << 16U;    // bytes of an answer, or of variables, that are examined
constexpr std::size_t kBodyStart = 4096;

// Reads without waiting, as long as less than kMaxWaiting bytes wait. False at the end of the stream.
bool receive(const Descriptor& from, std::string& bytes) {
  std::array<char, 16384> chunk{};
  while (bytes.size() < kMaxWaiting) {
    const ssize_t count = recv(from.number, chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (count > 0) {
      bytes.append(chunk.data(), static_cast<std::size_t>(count));
    } else if (count < 0 && errno == EINTR) {
      continue;
    } else {
      return count < 0 && errno == EAGAIN;
    }
  }
  return true;
}

// Sends without waiting. False when the peer has closed the connection.
bool transmit(const Descriptor& to, std::string& bytes) {
  while (!bytes.empty()) {
    const ssize_t count = send(to.number, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno == EAGAIN;
    bytes.erase(0, static_cast<std::size_t>(count));
  }
  return true;
}

int number_at(const std::string& text, std::size_t place) {
  return static_cast<int>(std::strtol(text.c_str() + place, nullptr, 10));
}

void append_start(std::string& start, const std::string& more, std::size_t most) {
  start.append(more, 0, most - std::min(most, start.size()));
}

}  // namespace

struct Relay::Connection {
  explicit Connection(int accepted) : web(accepted) { exchange.arrived = Clock::now(); }

  Descriptor web;
  Descriptor service{-1};
  Exchange exchange;
  std::uint16_t id = 1;
  std::string to_service;  // from the web server, not yet passed on
  std::string to_web;
  std::string request_bytes;  // of a record that is not complete yet
  std::string answer_bytes;
  std::string parameters;
  std::string answer;
  bool asked = false;        // all variables have arrived
  bool input_ended = false;  // so has the body
  bool own = false;          // the camera answers, not the service
  bool web_open = true;
  bool service_shut = false;
  bool done = false;
};

Relay::Relay(int web_socket, std::string service_path, Listener listener)
    : web_socket_(web_socket), service_path_(std::move(service_path)), listener_(std::move(listener)) {
  fcntl(web_socket_, F_SETFL, O_NONBLOCK);
}

Relay::~Relay() = default;

const Exchange* Relay::current() const {
  return at_service_ != nullptr ? &at_service_->exchange : nullptr;
}

void Relay::add_to(std::vector<pollfd>& events) const {
  events.push_back({web_socket_, POLLIN, 0});
  const auto add = [&events](const Descriptor& side, bool reads, bool writes) {
    const int wanted = (reads ? POLLIN : 0) | (writes ? POLLOUT : 0);
    if (side.number >= 0 && wanted != 0) events.push_back({side.number, static_cast<short>(wanted), 0});
  };
  for (const auto& connection : connections_) {
    add(connection->web, connection->web_open && connection->to_service.size() < kMaxWaiting,
        !connection->to_web.empty());
    add(connection->service, connection->to_web.size() < kMaxWaiting, !connection->to_service.empty());
  }
}

void Relay::accept_all() {
  while (true) {
    const int accepted = accept4(web_socket_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (accepted < 0) return;
    connections_.push_back(std::make_unique<Connection>(accepted));
  }
}

// Receives from the web server and notes the request.
void Relay::read_request(Connection& connection) {
  const std::size_t known = connection.to_service.size();
  connection.web_open = receive(connection.web, connection.to_service);
  connection.request_bytes.append(connection.to_service, known);
  if (connection.own) connection.to_service.clear();
  for (const fastcgi::Record& record : fastcgi::take_records(connection.request_bytes)) {
    connection.id = record.request;
    if (record.type == fastcgi::kParameters && !connection.asked) {
      append_start(connection.parameters, record.content, kMaxNoted);
      if (!record.content.empty()) continue;
      connection.asked = true;
      auto variables = fastcgi::read_parameters(connection.parameters);
      connection.exchange.method = variables["REQUEST_METHOD"];
      connection.exchange.url = variables["REQUEST_URI"];
      connection.exchange.authorization = variables["HTTP_AUTHORIZATION"];
      connection.exchange.host = variables["HTTP_HOST"];
      connection.exchange.origin = variables["HTTP_ORIGIN"];
    } else if (record.type == fastcgi::kInput) {
      append_start(connection.exchange.body_start, record.content, kBodyStart);
      connection.input_ended = record.content.empty();
    }
  }
}

void Relay::start_next() {
  for (const auto& waiting : connections_) {
    if (!waiting->asked || waiting->own || waiting->done || waiting.get() == at_service_) continue;
    waiting->own = listener_.answers_itself(waiting->exchange);
    if (waiting->own || at_service_ != nullptr) continue;
    waiting->service = connect_to(service_path_);
    waiting->own = waiting->service.number < 0;
    if (waiting->own) continue;
    at_service_ = waiting.get();
    listener_.begun(waiting->exchange);
  }
}

// Passes bytes on in both directions between the web server and the service.
void Relay::pass_on(Connection& connection) {
  if (!transmit(connection.service, connection.to_service)) connection.to_service.clear();
  if (!connection.web_open && connection.to_service.empty() && !connection.service_shut) {
    shutdown(connection.service.number, SHUT_WR);
    connection.service_shut = true;
  }
  const std::size_t known = connection.to_web.size();
  const bool more = receive(connection.service, connection.to_web);
  connection.answer_bytes.append(connection.to_web, known);
  for (const fastcgi::Record& record : fastcgi::take_records(connection.answer_bytes)) {
    if (record.type == fastcgi::kOutput) append_start(connection.answer, record.content, kMaxNoted);
  }
  if (!transmit(connection.web, connection.to_web)) connection.to_web.clear();
  if (!more) end(connection);
}

// The service has closed the connection: the request is over.
void Relay::end(Connection& connection) {
  const auto time = Clock::now() - connection.exchange.arrived;
  connection.exchange.milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
  read_answer(connection.answer, connection.exchange);
  connection.service.reset();
  at_service_ = nullptr;
  connection.done = true;
  listener_.ended(connection.exchange);
}

void Relay::advance(Connection& connection) {
  if (connection.web_open && !connection.done) read_request(connection);
  if (connection.service.number >= 0) pass_on(connection);
  if (connection.own && !connection.done && connection.input_ended) {
    if (const auto answer = listener_.answer(connection.exchange)) {
      connection.to_web = fastcgi::answer_records(connection.id, *answer);
      connection.done = true;
    }
  }
  if (connection.own && !connection.web_open) connection.done = true;
  if (!connection.asked && !connection.web_open) connection.done = true;
  if (connection.done && !transmit(connection.web, connection.to_web)) connection.to_web.clear();
}

void Relay::step() {
  accept_all();
  for (const auto& connection : connections_)
    advance(*connection);
  start_next();
  std::erase_if(connections_,
                [](const auto& connection) { return connection->done && connection->to_web.empty(); });
}

void read_answer(const std::string& answer, Exchange& exchange) {
  const std::size_t body = std::min(answer.find("\r\n\r\n"), answer.find("\n\n"));
  if (body == std::string::npos) return;
  const std::string_view status = "Status: ";
  exchange.http_status =
      answer.compare(0, status.size(), status) == 0 ? number_at(answer, status.size()) : 200;
  const std::size_t code = answer.find("<statusCode>", body);
  if (code != std::string::npos && answer.find("<ResponseStatus ", body) < code) {
    exchange.status_code = number_at(answer, code + std::strlen("<statusCode>"));
  }
}

}  // namespace camera
