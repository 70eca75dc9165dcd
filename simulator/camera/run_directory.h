// The directory in which one run of the simulator keeps the web server's configuration, log and socket. It is
// removed when the run ends, also when the run is killed. A directory that is left, for example after a power
// failure, is removed when the next run starts.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "simulator/tools/descriptor.h"
#include "simulator/tools/removed_at_end.h"

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
  ~RunDirectory() = default;

  /// Empty when the directory could not be created; fault() tells why.
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const std::string& fault() const { return fault_; }

 private:
  std::string path_;
  std::string fault_;
  std::optional<RemovedAtEnd> removal_;
  Descriptor lock_{-1};
};

/// A run that has not ended.
struct Run {
  pid_t process = 0;
  int port = 0;
};
[[nodiscard]] std::vector<Run> find_runs(const std::string& base);

/// Locks a file, which it creates, for as long as the descriptor is open. Without a descriptor when another
/// process has the lock, or the file cannot be created.
[[nodiscard]] Descriptor lock_file(const std::string& path);

}  // namespace camera
