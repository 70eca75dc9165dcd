// A FastCGI client as a web server is one: sends a request over a Unix socket and takes the answer apart.
#pragma once

#include <map>
#include <string>

namespace fastcgi {

/// The variables and the body of one request.
struct Request {
  std::map<std::string, std::string> variables;
  std::string body;
};

struct Answer {
  std::string out;     ///< everything on the output stream: header lines, empty line, body
  std::string errors;  ///< everything on the error stream
  bool ended = false;  ///< the request was ended in due form
};

/// One connection that carries one request.
class Connection {
 public:
  /// Connects to the socket `path`; ok() tells whether that worked.
  explicit Connection(const std::string& path);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  Connection(Connection&& other) noexcept;
  Connection& operator=(Connection&&) = delete;

  [[nodiscard]] bool ok() const { return descriptor_ >= 0; }

  /// Sends the whole request. `keep` asks for the connection to stay open for a further request.
  void send(const Request& request, bool keep = false) const;
  /// Sends the request's variables and the given part of its body, without the end of the body.
  void send_unfinished(const Request& request) const;

  /// Reads the answer to its end, or to the end of the connection.
  [[nodiscard]] Answer receive() const;

 private:
  int descriptor_;
};

}  // namespace fastcgi
