// A file or directory that is removed when its process ends, also when the process is killed.
#pragma once

#include <sys/types.h>

#include <string>

#include "simulator/tools/descriptor.h"

namespace camera {

/// A child process waits for the end of this process or of this object, and then removes the path.
class RemovedAtEnd {
 public:
  explicit RemovedAtEnd(const std::string& path);
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
