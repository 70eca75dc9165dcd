// camera-simulator: runs the service in a simulated camera for a person to try. It plays the daemons behind
// the message queues and shows every message and whatever the service prints.

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/daemons.h"
#include "simulator/device.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kHelp =
    "Usage: camera-simulator [--answer RULE]... [--socket PATH] -- SERVICE-BINARY\n"
    "\n"
    "Runs the service in a simulated camera: the device's paths, its eth0 and its message queues, private "
    "to\n"
    "this program. Shows the control messages and what the service prints until Ctrl-C.\n"
    "\n"
    "  --socket PATH   the FastCGI socket that is created for the web server (default psia.socket)\n"
    "  --answer RULE   how the daemons answer a command: COMMAND=ok|busy|failed|late|never\n"
    "                  late waits 6 seconds before it acts, or as many as in COMMAND=late:SECONDS\n"
    "\n"
    "Commands: 1 picture, 2 encoder, 3 audio, 6 clock, 7 time zone, 8 reboot, 10 factory reset, 11 export,\n"
    "31 addressing, 33 name servers, 37 RTSP port.\n";

struct Options {
  std::string socket = "psia.socket";
  std::vector<camera::AnswerRule> rules;
  std::string service;
};

// One of the service's two output streams. The Event documents end without a line feed, so a last line that
// stays unfinished is shown as soon as nothing follows it.
struct Output {
  int descriptor = -1;
  const char* prefix = "";
  std::string unfinished;
};

struct Service {
  pid_t process = -1;  // -1 while it does not run
  std::array<Output, 2> outputs{Output{-1, "service printed: ", ""}, Output{-1, "service reported: ", ""}};
  Clock::time_point start_at;  // when to start it (again)
  std::optional<Clock::time_point> stop_at;
  std::optional<Clock::time_point> kill_at;  // after it was told to stop
};

struct LateAnswer {
  Clock::time_point due;
  camera::Message message;
};

// Shows a line with the time of day. Control characters, which a client may have put there, are not passed on
// to the terminal.
void show(const std::string& line) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::string clean = line;
  for (char& character : clean) {
    if ((character >= 0 && character < ' ' && character != '\t') || character == 0x7f) character = '?';
  }
  std::printf("%02d:%02d:%02d  %s\n", local.tm_hour, local.tm_min, local.tm_sec, clean.c_str());
  std::fflush(stdout);
}

void show_output_line(Output& output, std::size_t length) {
  std::string line = output.unfinished.substr(0, length);
  output.unfinished.erase(0, length + 1);
  while (!line.empty() && line.back() == '\r')
    line.pop_back();
  if (!line.empty()) show(output.prefix + line);
}

void close_output(Output& output) {
  if (!output.unfinished.empty()) show_output_line(output, output.unfinished.size());
  close(output.descriptor);
  output.descriptor = -1;
}

// Takes what the service wrote since the last time.
void read_output(Output& output) {
  if (output.descriptor < 0) return;
  std::array<char, 4096> chunk{};
  ssize_t count = 0;
  bool news = false;
  while ((count = read(output.descriptor, chunk.data(), chunk.size())) > 0) {
    news = true;
    output.unfinished.append(chunk.data(), static_cast<std::size_t>(count));
    std::size_t end = 0;
    while ((end = output.unfinished.find('\n')) != std::string::npos)
      show_output_line(output, end);
  }
  if (!news && !output.unfinished.empty()) show_output_line(output, output.unfinished.size());
  if (count == 0) close_output(output);
}

std::string start_service(Service& service, const Options& options, int listener) {
  std::array<int, 2> printed{};
  std::array<int, 2> reported{};
  if (pipe2(printed.data(), O_CLOEXEC | O_NONBLOCK) != 0) return "Cannot create a pipe";
  if (pipe2(reported.data(), O_CLOEXEC | O_NONBLOCK) != 0) return "Cannot create a pipe";
  const pid_t parent = getpid();
  const pid_t process = fork();
  if (process < 0) return std::string("Cannot start a process: ") + std::strerror(errno);
  if (process == 0) {
    // Nothing may stay behind when this program is killed. Ctrl-C at the terminal is for this program alone.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);
    setpgid(0, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (const int writing_end : {printed[1], reported[1]})
      fcntl(writing_end, F_SETFL, 0);
    dup2(listener, STDIN_FILENO);
    dup2(printed[1], STDOUT_FILENO);
    dup2(reported[1], STDERR_FILENO);
    execl(options.service.c_str(), options.service.c_str(), nullptr);
    std::fprintf(stderr, "cannot run %s: %s\n", options.service.c_str(), std::strerror(errno));
    _exit(127);
  }
  close(printed[1]);
  close(reported[1]);
  service.process = process;
  service.outputs[0].descriptor = printed[0];
  service.outputs[1].descriptor = reported[0];
  show("service started, process " + std::to_string(process));
  return "";
}

void stop_service(Service& service) {
  kill(service.process, SIGTERM);
  service.kill_at = Clock::now() + std::chrono::seconds(3);
}

// Notices that the service has ended; it starts again a second later, so that one that cannot live does not
// spin.
void reap_service(Service& service) {
  int status = 0;
  if (service.process < 0 || waitpid(service.process, &status, WNOHANG) != service.process) return;
  for (Output& output : service.outputs) {
    while (output.descriptor >= 0 || !output.unfinished.empty())
      read_output(output);
  }
  show(WIFSIGNALED(status) ? "service ended by signal " + std::to_string(WTERMSIG(status))
                           : "service ended with exit status " + std::to_string(WEXITSTATUS(status)));
  service.process = -1;
  service.stop_at.reset();
  service.kill_at.reset();
  service.start_at = Clock::now() + std::chrono::seconds(1);
}

void answer(const camera::Message& reply, const char* how) {
  const bool sent = camera::send_reply(reply);
  show("  command " + std::to_string(camera::command_of(reply)) +
       (sent ? std::string(" answered: ") + how : ": the reply queue is full, answer lost"));
}

void act_and_answer(const camera::Message& message, Service& service) {
  const camera::Message reply = camera::perform(message);
  answer(reply, camera::integer_at(reply, 8) == camera::kResultDone ? "done" : "failed");
  // A moment later, as a camera does, so that the client still gets its answer.
  if (camera::command_of(message) == 8) service.stop_at = Clock::now() + std::chrono::seconds(1);
}

void serve_message(const camera::Message& message, const Options& options, Service& service,
                   std::vector<LateAnswer>& late_answers) {
  show(camera::describe(message));
  camera::AnswerRule rule;
  for (const camera::AnswerRule& given : options.rules) {
    if (given.command == camera::command_of(message)) rule = given;
  }
  switch (rule.kind) {
    case camera::AnswerKind::kOk:
      return act_and_answer(message, service);
    case camera::AnswerKind::kBusy:
      return answer(camera::reply_to(message, camera::kResultBusy), "busy");
    case camera::AnswerKind::kFailed:
      return answer(camera::reply_to(message, camera::kResultFailed), "failed");
    case camera::AnswerKind::kLate:
      show("  answer follows in " + std::to_string(rule.delay.count()) + " s");
      late_answers.push_back({Clock::now() + rule.delay, message});
      return;
    case camera::AnswerKind::kNever:
      return show("  never answered");
  }
}

void serve_messages(const Options& options, Service& service, std::vector<LateAnswer>& late_answers) {
  while (const std::optional<camera::Message> message = camera::receive_message()) {
    serve_message(*message, options, service, late_answers);
  }
  for (std::size_t i = late_answers.size(); i-- > 0;) {
    if (late_answers[i].due > Clock::now()) continue;
    act_and_answer(late_answers[i].message, service);
    late_answers.erase(late_answers.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

std::optional<Options> read_options(const std::vector<std::string>& arguments) {
  Options options;
  std::size_t next = 0;
  for (; next + 1 < arguments.size() && arguments[next] != "--"; next += 2) {
    if (arguments[next] == "--socket") {
      options.socket = arguments[next + 1];
    } else if (arguments[next] == "--answer") {
      const auto rule = camera::parse_answer_rule(arguments[next + 1]);
      if (!rule) return std::nullopt;
      options.rules.push_back(*rule);
    } else {
      return std::nullopt;
    }
  }
  if (next + 2 != arguments.size() || arguments[next] != "--") return std::nullopt;
  options.service = arguments[next + 1];
  return options;
}

// The descriptor of the listening socket, or -1 after telling why. Only this user's web server may connect:
// the service trusts its peer.
int listen_at(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(address.sun_path)) {
    std::fprintf(stderr, "The socket's path must have 1 to %zu characters; give a relative one: %s\n",
                 sizeof(address.sun_path) - 1, path.c_str());
    return -1;
  }
  std::memcpy(address.sun_path, path.c_str(), path.size());
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const mode_t old_mask = umask(0077);
  const int bound = bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  umask(old_mask);
  if (bound != 0 || listen(listener, 128) != 0) {
    std::fprintf(stderr, "Cannot listen at %s: %s\n", path.c_str(), std::strerror(errno));
    if (errno == EADDRINUSE) std::fprintf(stderr, "Remove the file if no other simulator uses it.\n");
    close(listener);
    return -1;
  }
  return listener;
}

// Runs until SIGINT or SIGTERM. The queues cannot be polled, hence the short rounds.
int run(const Options& options, int listener, int signals) {
  Service service;
  service.start_at = Clock::now();
  std::vector<LateAnswer> late_answers;
  bool ending = false;
  while (true) {
    std::array<pollfd, 3> events{pollfd{signals, POLLIN, 0}, pollfd{service.outputs[0].descriptor, POLLIN, 0},
                                 pollfd{service.outputs[1].descriptor, POLLIN, 0}};
    poll(events.data(), events.size(), 20);
    signalfd_siginfo signal{};
    while (read(signals, &signal, sizeof(signal)) == sizeof(signal)) {
      if (signal.ssi_signo == SIGCHLD || ending) continue;
      ending = true;
      if (service.process > 0) stop_service(service);
    }
    for (Output& output : service.outputs)
      read_output(output);
    reap_service(service);
    serve_messages(options, service, late_answers);

    if (service.process < 0) {
      if (ending) return 0;
      if (Clock::now() < service.start_at) continue;
      const std::string fault = start_service(service, options, listener);
      if (!fault.empty()) {
        std::fprintf(stderr, "%s\n", fault.c_str());
        return 1;
      }
    } else if (service.kill_at && Clock::now() >= *service.kill_at) {
      kill(service.process, SIGKILL);
    } else if (service.stop_at && !service.kill_at && Clock::now() >= *service.stop_at) {
      show("the camera reboots");
      stop_service(service);
    }
  }
}

int block_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
    sigaddset(&set, number);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  return signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (!arguments.empty() && arguments[0] == "--help") {
    std::fputs(kHelp, stdout);
    return 0;
  }
  const std::optional<Options> options = read_options(arguments);
  if (!options) {
    std::fputs(kHelp, stderr);
    return 2;
  }
  if (access(options->service.c_str(), X_OK) != 0) {
    std::fprintf(stderr, "Cannot run %s: %s. Build the service first.\n", options->service.c_str(),
                 std::strerror(errno));
    return 1;
  }
  // Before the socket exists, so that it is always removed.
  const int signals = block_signals();
  const std::string fault = camera::enter_private_device();
  if (!fault.empty()) {
    std::fprintf(stderr, "%s\n", fault.c_str());
    return 1;
  }
  const int listener = listen_at(options->socket);
  if (listener < 0) return 1;
  show("the camera is ready, its FastCGI socket is " + options->socket);
  const int status = run(*options, listener, signals);
  unlink(options->socket.c_str());
  return status;
}
