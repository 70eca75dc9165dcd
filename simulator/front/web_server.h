// The web server in front of one camera, on the machine's own 127.0.0.1: it serves the page and passes what
// is below /PSIA and /camera to the relay.
#pragma once

#include <sys/types.h>

#include <string>

namespace camera {

class WebServer {
 public:
  WebServer() = default;
  WebServer(const WebServer&) = delete;
  WebServer(WebServer&&) = delete;
  WebServer& operator=(const WebServer&) = delete;
  WebServer& operator=(WebServer&&) = delete;
  ~WebServer();

  /// Starts it and waits until it listens. `directory` takes its configuration and log and has the socket
  /// `psia.socket`; only the files in `page` are served. To be called before the process enters namespaces.
  /// Returns an empty text or the fault.
  [[nodiscard]] std::string start(const std::string& directory, int port, const std::string& page);

  /// Whether it has ended by itself.
  [[nodiscard]] bool has_ended();

 private:
  pid_t process_ = -1;
};

}  // namespace camera
