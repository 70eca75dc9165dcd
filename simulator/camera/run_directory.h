// The directory in which one run of the simulator keeps the web server's configuration, log and socket. It
// goes with the run; what a killed run left behind goes when the next one starts.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "simulator/tools/descriptor.h"

namespace camera {

class RunDirectory {
 public:
  /// Removes the directories below `base` whose runs have ended and makes a new one for this process and
  /// port.
  RunDirectory(const std::string& base, int port);
  RunDirectory(const RunDirectory&) = delete;
  RunDirectory(RunDirectory&&) = delete;
  RunDirectory& operator=(const RunDirectory&) = delete;
  RunDirectory& operator=(RunDirectory&&) = delete;
  ~RunDirectory();

  /// Empty when it could not be made; `fault` tells why.
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const std::string& fault() const { return fault_; }

 private:
  std::string path_;
  std::string fault_;
  Descriptor lock_{-1};
};

/// A run that is going on.
struct Run {
  pid_t process = 0;
  int port = 0;
};
[[nodiscard]] std::vector<Run> find_runs(const std::string& base);

/// Takes a lock of one file for this process, as long as it lives. Not held: another process has it.
[[nodiscard]] Descriptor lock_file(const std::string& path);

}  // namespace camera
