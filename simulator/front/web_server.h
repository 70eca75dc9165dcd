// The web server in front of one camera, in the machine's own network: it serves the page and passes requests
// below /PSIA and /camera to the relay.
#pragma once

#include <sys/types.h>

#include <string>

#include "simulator/tools/descriptor.h"

namespace camera {

class WebServer {
 public:
  WebServer() = default;
  WebServer(const WebServer&) = delete;
  WebServer(WebServer&&) = delete;
  WebServer& operator=(const WebServer&) = delete;
  WebServer& operator=(WebServer&&) = delete;
  ~WebServer();

  /// Starts it for a socket that listens at `address`. `directory` takes its configuration and log and has
  /// the socket `psia.socket`; only the files in `page` are served. Call it before the process enters
  /// namespaces. Returns an empty text or the fault.
  [[nodiscard]] std::string start(const std::string& directory, const Descriptor& listener,
                                  const std::string& address, const std::string& page);

  /// Whether it has ended by itself.
  [[nodiscard]] bool has_ended();

 private:
  pid_t process_ = -1;
};

}  // namespace camera
