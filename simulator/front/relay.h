// Stands between the web server and the service. It passes every byte on unchanged, one request after the
// other because the service takes one at a time, and notes each request and its answer. Requests that the
// camera answers itself do not reach the service: those below /camera, and all of them during an outage.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/tools/descriptor.h"

namespace camera {

/// A request, and once it has ended its answer.
struct Exchange {
  std::chrono::steady_clock::time_point arrived;
  std::string method;
  std::string url;
  std::string authorization;  ///< the header's value, like the two below
  std::string host;
  std::string origin;
  std::string body_start;  ///< the first 4 KiB
  int http_status = 500;   ///< as the client receives it; the web server turns an empty answer into 500
  int status_code = 0;     ///< of a ResponseStatus document; 0 for any other answer
  std::int64_t milliseconds = 0;
};

class Relay {
 public:
  struct Listener {
    /// Whether the camera answers a request itself.
    std::function<bool(const Exchange&)> answers_itself;
    /// Its whole answer in CGI form; null while the client has to wait, and the next step asks again.
    std::function<std::optional<std::string>(const Exchange&)> answer;
    /// A request is about to reach the service; it has ended there.
    std::function<void(const Exchange&)> begun;
    std::function<void(const Exchange&)> ended;
  };

  /// Accepts the web server's connections at `web_socket`, a listening one, and passes them on to the
  /// service that listens at `service_path`.
  Relay(int web_socket, std::string service_path, Listener listener);
  Relay(const Relay&) = delete;
  Relay(Relay&&) = delete;
  Relay& operator=(const Relay&) = delete;
  Relay& operator=(Relay&&) = delete;
  ~Relay();

  /// The descriptors and events to wait for.
  void add_to(std::vector<pollfd>& events) const;
  /// Receives and sends whatever is possible without waiting.
  void step();

  /// The request that is at the service; null when there is none.
  [[nodiscard]] const Exchange* current() const;

  /// Whether a client waits for an answer, or for the rest of one.
  [[nodiscard]] bool has_work() const { return !connections_.empty(); }

 private:
  struct Connection;
  void accept_all();
  void advance(Connection& connection);
  void read_request(Connection& connection);
  void start_next();
  void pass_on(Connection& connection);
  void end(Connection& connection);

  int web_socket_;
  std::string service_path_;
  Listener listener_;
  std::deque<std::unique_ptr<Connection>> connections_;  // in the order of their arrival
  Connection* at_service_ = nullptr;
};

/// Reads an answer in CGI form, or its start, into the exchange: the HTTP status and the code of a
/// ResponseStatus document. An answer without header lines changes nothing.
void read_answer(const std::string& answer, Exchange& exchange);

}  // namespace camera
