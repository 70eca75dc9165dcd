// A shell inside the camera, which sees the camera's files, eth0, queues and clock.
#pragma once

#include <sys/types.h>

#include <string>

namespace camera {

/// Starts a shell as a child of this process, which has entered the camera. Gives its process id, or -1.
/// `service` is the binary that its greeting names.
[[nodiscard]] pid_t start_shell(const std::string& service);

/// Makes the calling process a shell inside the camera of another process. Returns only with a fault.
[[nodiscard]] std::string join_camera(pid_t process, const std::string& service);

}  // namespace camera
