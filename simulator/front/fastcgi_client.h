// A FastCGI client, as a web server is one: sends a request over a Unix socket and reads the answer.
#pragma once

#include <map>
#include <string>

#include "simulator/front/unix_socket.h"

namespace camera::fastcgi {

struct Request {
  std::map<std::string, std::string> variables;
  std::string body;
  bool finished = true;  ///< the end of the body is sent too
  bool keep = false;     ///< the responder keeps the connection open for another request
};

struct Answer {
  std::string out;     ///< everything on the output stream: header lines, empty line, body
  std::string errors;  ///< everything on the error stream
  bool ended = false;  ///< the responder has sent the end of the request
};

class Connection {
 public:
  /// Connects to the socket at `path`; ok() tells whether that worked.
  explicit Connection(const std::string& path) : socket_(connect_to(path)) {}
  [[nodiscard]] bool ok() const { return socket_.number >= 0; }

  /// Sends a request. A second one needs `keep` in the first.
  void send(const Request& request) const;
  /// Sends another part of the body of a request that is not finished.
  void send_more(const std::string& body) const;

  /// Whether an answer begins, or the connection ends, within so many milliseconds.
  [[nodiscard]] bool answers_within(int milliseconds) const;

  /// Reads until the end of the answer or of the connection.
  [[nodiscard]] Answer receive() const;

 private:
  Descriptor socket_;
};

}  // namespace camera::fastcgi
