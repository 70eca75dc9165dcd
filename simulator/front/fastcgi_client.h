// A FastCGI client as a web server is one: sends a request over a Unix socket and takes the answer apart.
#pragma once

#include <map>
#include <string>

#include "simulator/front/unix_socket.h"

namespace camera::fastcgi {

struct Request {
  std::map<std::string, std::string> variables;
  std::string body;
  bool finished = true;  ///< the end of the body is sent, too
  bool keep = false;     ///< the connection is to stay open for a further request
};

struct Answer {
  std::string out;     ///< everything on the output stream: header lines, empty line, body
  std::string errors;  ///< everything on the error stream
  bool ended = false;  ///< the request was ended in due form
};

class Connection {
 public:
  /// Connects to the socket `path`; ok() tells whether that worked.
  explicit Connection(const std::string& path) : socket_(connect_to(path)) {}
  [[nodiscard]] bool ok() const { return socket_.number >= 0; }

  /// Sends a request; a further one only when the one before asked to keep the connection.
  void send(const Request& request) const;
  /// Sends a further part of the body of a request that is not finished.
  void send_more(const std::string& body) const;

  /// Whether an answer begins, or the connection ends, within so many milliseconds.
  [[nodiscard]] bool answers_within(int milliseconds) const;

  /// Reads the answer to its end, or to the end of the connection.
  [[nodiscard]] Answer receive() const;

 private:
  Descriptor socket_;
};

}  // namespace camera::fastcgi
