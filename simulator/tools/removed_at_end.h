// Files and directories of this process that are removed when it ends, also when it is killed.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "simulator/tools/descriptor.h"

namespace camera {

/// Removes a directory that this process made, with everything in it.
[[nodiscard]] std::function<void()> removal_of_directory(const std::string& path);
/// Unlinks those of the paths that are then still the file that `descriptor` has open. A person chose the
/// paths, so another file or a directory in their place stays.
[[nodiscard]] std::function<void()> removal_of_file(std::vector<std::string> paths, int descriptor);

/// A child process waits for the end of this process or of this object, and then calls `remove`.
class RemovedAtEnd {
 public:
  explicit RemovedAtEnd(const std::function<void()>& remove);
  RemovedAtEnd(const RemovedAtEnd&) = delete;
  RemovedAtEnd(RemovedAtEnd&&) = delete;
  RemovedAtEnd& operator=(const RemovedAtEnd&) = delete;
  RemovedAtEnd& operator=(RemovedAtEnd&&) = delete;
  /// Returns when the path is removed.
  ~RemovedAtEnd();

 private:
  pid_t process_ = -1;
  Descriptor held_{-1};  // the end of a pipe that closes with this process
};

}  // namespace camera
