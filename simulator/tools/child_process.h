// What every process that the simulator starts does first.
#pragma once

#include <sys/types.h>

namespace camera {

/// Call this in the child, with the parent's process id. The child then receives the signal when its parent
/// ends for any reason. The terminal's Ctrl-C does not reach it, and no signal is blocked.
void begin_child(pid_t parent, int signal_at_parents_end);

}  // namespace camera
