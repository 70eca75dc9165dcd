#include "simulator/camera/shell.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>
#include <vector>

#include "simulator/device/clock.h"
#include "simulator/device/settings.h"
#include "simulator/tools/descriptor.h"

namespace camera {
namespace {

void greet(const std::string& service) {
  std::printf(
      "A shell inside the camera. Some things to look at:\n"
      "  sqlite3 -header -column %s 'select * from Network'\n"
      "  ip address show eth0; route -n; cat /etc/resolv.conf; ipcs -q; date; cat /proc/uptime\n"
      "  ls /usr/local/httpd/htdocs/Web/updownload\n"
      "The service by hand, as a plain CGI program (it empties the queues under a running one):\n"
      "  REQUEST_METHOD=GET REQUEST_URI=/PSIA/Custom/Event \\\n"
      "    HTTP_AUTHORIZATION='Basic YWRtaW46YWRtaW4=' %s </dev/null\n"
      "exit leaves it.\n",
      kDatabase, service.c_str());
  std::fflush(stdout);
}

[[noreturn]] void become_shell(const std::string& service) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  greet(service);
  use_camera_clock();
  setenv("PS1", "camera:\\w\\$ ", 1);
  execlp("bash", "bash", "--norc", "--noprofile", nullptr);
  execlp("sh", "sh", nullptr);
  std::fprintf(stderr, "%s\n", system_error("Cannot start a shell").c_str());
  _exit(127);
}

bool is_own(const std::string& path, const char* own) {
  struct stat theirs = {};
  struct stat ours = {};
  return stat(path.c_str(), &theirs) == 0 && stat(own, &ours) == 0 && theirs.st_ino == ours.st_ino;
}

}  // namespace

pid_t start_shell(const std::string& service) {
  const pid_t parent = getpid();
  const pid_t process = fork();
  if (process != 0) return process;
  prctl(PR_SET_PDEATHSIG, SIGHUP);
  if (getppid() != parent) _exit(1);
  become_shell(service);
}

std::string join_camera(pid_t process, const std::string& service) {
  const std::string namespaces = "/proc/" + std::to_string(process) + "/ns/";
  const std::string here = std::filesystem::current_path().string();
  std::vector<std::pair<Descriptor, int>> opened;
  // First the user namespace: it gives the right to enter the others.
  if (!is_own(namespaces + "user", "/proc/self/ns/user")) {
    opened.emplace_back(open((namespaces + "user").c_str(), O_RDONLY | O_CLOEXEC), CLONE_NEWUSER);
  }
  for (const auto& [name, kind] : {std::pair{"ipc", CLONE_NEWIPC},
                                   {"net", CLONE_NEWNET},
                                   {"time_for_children", CLONE_NEWTIME},
                                   {"mnt", CLONE_NEWNS}}) {
    opened.emplace_back(open((namespaces + name).c_str(), O_RDONLY | O_CLOEXEC), kind);
  }
  for (const auto& [descriptor, kind] : opened) {
    if (setns(descriptor.number, kind) != 0 && kind != CLONE_NEWTIME) {
      return system_error("Cannot enter the camera of process " + std::to_string(process)) +
             "\nDo it as the user who runs it.";
    }
  }
  if (chdir(here.c_str()) != 0 && chdir("/") != 0) return system_error("Cannot change to /");
  become_shell(service);
}

}  // namespace camera
