#include "simulator/tools/removed_at_end.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

namespace camera {

RemovedAtEnd::RemovedAtEnd(const std::string& path) {
  std::error_code fault;
  const std::filesystem::path absolute = std::filesystem::absolute(path, fault);
  std::array<int, 2> ends{};
  if (fault || pipe2(ends.data(), O_CLOEXEC) != 0) return;
  const Descriptor waiting(ends[0]);
  held_ = Descriptor(ends[1]);
  process_ = fork();
  if (process_ != 0) return;
  // Signals of the terminal must not end this process, and nobody may wait for the descriptors it inherited.
  setsid();
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, nullptr);
  dup2(waiting.number, STDIN_FILENO);
  close_range(STDIN_FILENO + 1, ~0U, 0);
  char nothing = 0;
  while (read(STDIN_FILENO, &nothing, 1) < 0 && errno == EINTR) {
  }
  std::filesystem::remove_all(absolute, fault);
  _exit(0);
}

RemovedAtEnd::~RemovedAtEnd() {
  held_.reset();
  while (process_ > 0 && waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace camera
