// Stands between the web server and the service: passes every byte on as it is, one request after the other
// as the service takes them, and notes what was asked and answered. Requests that the camera has to answer
// itself, the page's and all of them while the camera boots, do not reach the service.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simulator/tools/descriptor.h"

namespace camera {

/// What was asked, and once it has ended what was answered.
struct Exchange {
  std::string method;
  std::string url;
  std::string authorization;  ///< the header's value
  std::string body_start;     ///< the first 4 KiB
  int http_status = 500;      ///< what the client receives; the web server makes 500 of an empty answer
  int status_code = 0;        ///< of a ResponseStatus document; 0 for any other answer
  std::int64_t milliseconds = 0;
};

class Relay {
 public:
  struct Listener {
    /// Whether the camera answers a request itself, and its whole answer in CGI form.
    std::function<bool(const Exchange&)> answers_itself;
    std::function<std::string(const Exchange&)> answer;
    /// A request is about to reach the service, and has ended there.
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

  /// What to wait for.
  void add_to(std::vector<pollfd>& events) const;
  /// Moves what can be moved.
  void step();

  /// The request that is at the service; null when there is none.
  [[nodiscard]] const Exchange* current() const;

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

/// What an answer in CGI form, or its start, says: the HTTP status (500 when it is empty) and the code of a
/// ResponseStatus document.
void read_answer(const std::string& answer, Exchange& exchange);

}  // namespace camera
