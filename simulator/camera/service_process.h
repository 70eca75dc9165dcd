// The service as a process of the camera: starts it with its FastCGI socket on descriptor 0, reads its two
// output streams, and stops it.
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulator/tools/descriptor.h"

namespace camera {

class ServiceProcess {
 public:
  struct Listener {
    std::function<void(const std::string&)> printed;  ///< bytes of the standard output
    std::function<void(const std::string&)> told;     ///< a line to show: its diagnostics, start and end
  };

  ServiceProcess(std::string binary, int socket, Listener listener);

  /// Starts it; only when it does not run. Returns an empty text or the fault.
  [[nodiscard]] std::string start();
  /// Asks it to end after the current request; 3 s later it is killed.
  void stop();
  /// Ends it before this returns: it has a quarter of a second until it is killed.
  void end();
  /// Reads its output and checks whether it has ended.
  void step();

  [[nodiscard]] bool runs() const { return process_ > 0; }
  /// When it last ended; the epoch before that.
  [[nodiscard]] std::chrono::steady_clock::time_point ended_at() const { return ended_at_; }
  void add_to(std::vector<pollfd>& events) const;

 private:
  void read_outputs();

  std::string binary_;
  int socket_;
  Listener listener_;
  pid_t process_ = -1;
  Descriptor printed_{-1};
  Descriptor reported_{-1};
  std::optional<std::chrono::steady_clock::time_point> kill_at_;
  std::chrono::steady_clock::time_point ended_at_;
};

}  // namespace camera
