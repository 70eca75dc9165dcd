// A shell inside the camera, where its files, its eth0, its queues and its clock are to be seen.
#pragma once

#include <sys/types.h>

#include <string>

namespace camera {

/// Starts a shell as a child of a process that has entered the camera; -1 when that fails. `service` is the
/// binary that its greeting names.
[[nodiscard]] pid_t start_shell(const std::string& service);

/// Makes the calling process a shell inside the camera of another process. Returns only with a fault.
[[nodiscard]] std::string join_camera(pid_t process, const std::string& service);

}  // namespace camera
