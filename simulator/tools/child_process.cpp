#include "simulator/tools/child_process.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

namespace camera {

void begin_child(pid_t parent, int signal_at_parents_end) {
  prctl(PR_SET_PDEATHSIG, signal_at_parents_end);
  if (getppid() != parent) _exit(1);
  setpgid(0, 0);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace camera
