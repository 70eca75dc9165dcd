// camera-inside: runs a command inside a new simulated camera, with or without its daemons, and exits with
// the command's status. The service tests, those of deploy/ and scripts/make-reference use it. Usage:
// camera-inside [--without-daemons | --answer RULE...] COMMAND [ARGUMENT]...
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <vector>

#include "simulator/camera/daemons.h"
#include "simulator/device/device.h"

namespace {

// The command reads here which messages the daemons received, a line for each.
constexpr const char* kMessageLog = "/usr/local/messages";

void serve(const camera::Message& message, const std::vector<camera::AnswerRule>& rules) {
  std::ofstream(kMessageLog, std::ios::app) << camera::describe(message) << '\n';
  for (const camera::AnswerRule& rule : rules) {
    if (rule.command != camera::command_of(message)) continue;
    if (rule.kind == camera::AnswerKind::kNever) return;
    sleep(static_cast<unsigned int>(rule.delay.count()));
  }
  if (!camera::send_reply(camera::perform(message))) std::fputs("An answer was lost.\n", stderr);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<camera::AnswerRule> rules;
  int next = 1;
  const bool daemons = argc < 2 || std::string_view(argv[1]) != "--without-daemons";
  if (!daemons) ++next;
  for (; next + 1 < argc && std::string_view(argv[next]) == "--answer"; next += 2) {
    const auto rule = camera::parse_answer_rule(argv[next + 1]);
    if (!rule) return 2;
    rules.push_back(*rule);
  }
  const std::string fault = camera::enter_private_device();
  if (!fault.empty()) {
    std::fprintf(stderr, "%s\n", fault.c_str());
    return 1;
  }
  // The command is process 1 of a namespace: the kernel kills the others when it ends, and it dies with this
  // program.
  if (unshare(CLONE_NEWPID) != 0) {
    std::perror("Private processes");
    return 1;
  }
  const pid_t command = fork();
  if (command == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (mount("proc", "/proc", "proc", 0, nullptr) != 0) {
      std::perror("Cannot mount /proc (in docker: --security-opt systempaths=unconfined)");
      _exit(1);
    }
    execvp(argv[next], argv + next);
    std::perror(argv[next]);
    _exit(127);
  }
  int status = 0;
  // Without daemons the messages are left to the command.
  while (command > 0 && waitpid(command, &status, daemons ? WNOHANG : 0) == 0) {
    if (const auto message = camera::receive_message(std::chrono::milliseconds(20))) serve(*message, rules);
  }
  // _exit, because this process cannot start others any more, and a sanitizer's leak check would.
  _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
}
