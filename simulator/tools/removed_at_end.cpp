#include "simulator/tools/removed_at_end.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>
#include <utility>

namespace camera {

std::function<void()> removal_of_directory(const std::string& path) {
  std::error_code fault;
  return [absolute = std::filesystem::absolute(path, fault)] {
    std::error_code ignored;
    if (!absolute.empty()) std::filesystem::remove_all(absolute, ignored);
  };
}

std::function<void()> removal_of_file(std::vector<std::string> paths, int descriptor) {
  std::error_code fault;
  for (std::string& path : paths)
    path = std::filesystem::absolute(path, fault).string();
  struct stat own {};
  fstat(descriptor, &own);
  return [paths = std::move(paths), own] {
    for (const std::string& path : paths) {
      struct stat found {};
      if (lstat(path.c_str(), &found) != 0) continue;
      if (found.st_dev == own.st_dev && found.st_ino == own.st_ino) unlink(path.c_str());
    }
  };
}

RemovedAtEnd::RemovedAtEnd(const std::function<void()>& remove) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return;
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
  remove();
  _exit(0);
}

RemovedAtEnd::~RemovedAtEnd() {
  held_.reset();
  while (process_ > 0 && waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace camera
