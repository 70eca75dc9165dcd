// camera-simulator: runs the service in a simulated camera, or in several, for a person to try.

#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "simulator/camera/camera.h"
#include "simulator/camera/run_directory.h"
#include "simulator/camera/shell.h"
#include "simulator/device/device.h"
#include "simulator/front/unix_socket.h"
#include "simulator/tools/child_process.h"
#include "simulator/tools/text.h"

namespace {

using camera::Options;

int fail(const std::string& fault) {
  for (const std::string& line : camera::split_lines(fault))
    std::fprintf(stderr, "%s\n", camera::harmless(line).c_str());
  return 1;
}

// A socket that listens at the path; without a descriptor after telling why. It is for this user's web server
// alone, because the service trusts its peer.
camera::Descriptor listen_or_tell(const std::string& path) {
  camera::Descriptor listener = camera::listen_at(path);
  if (listener.number < 0) fail(camera::system_error("Cannot listen at " + path));
  return listener;
}

int block_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
    sigaddset(&set, number);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  return signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
}

// The terminal's times stay the machine's, also when /etc/localtime becomes the camera's.
void pin_own_zone() {
  std::error_code fault;
  const std::string zone = std::filesystem::canonical("/etc/localtime", fault).string();
  setenv("TZ", (fault || zone == "/etc/localtime" ? "UTC0" : ":" + zone).c_str(), 0);
  tzset();
}

std::string enter_device(const Options& options) {
  std::string fault = camera::enter_private_device(options.keep);
  for (const std::string& statement : options.statements) {
    if (fault.empty()) fault = camera::execute(statement);
  }
  return fault;
}

void print_welcome(int port) {
  const std::string base = "http://127.0.0.1:" + std::to_string(port);
  const std::string address = base + "/PSIA";
  std::printf(
      "\nThe camera's page is at %s/ and its management service at %s\n"
      "\n"
      "Accounts, name:password, from the most to the least privileged:\n"
      "  admin:admin  operator:operator  viewer:viewer  guest:guest  and anonymous with an empty password\n"
      "\n"
      "To try in another terminal:\n"
      "  curl -u admin:admin %s/index\n"
      "  curl -u admin:admin %s/System/Audio/channels/1\n"
      "  curl -u admin:admin -X PUT -d '<AudioChannel><enabled>false</enabled></AudioChannel>' "
      "%s/System/Audio/channels/1\n"
      "  scripts/run --shell\n"
      "\n"
      "Each request appears here with the rows it changed and its messages to the camera's daemons. The documents\n"
      "below /PSIA/Custom/Event appear here too, as they go to the service's standard output and not to the\n"
      "client, to whom the web server reports an error. Ctrl-C ends everything.\n\n",
      base.c_str(), address.c_str(), address.c_str(), address.c_str(), address.c_str());
  std::fflush(stdout);
}

// One camera in this process. Prefix and signals are as in Camera.
int run_camera(const Options& options, const std::string& prefix, int signals) {
  std::unique_ptr<camera::RunDirectory> directory;
  camera::WebServer web_server;
  std::string socket_path = options.socket;
  if (options.port > 0) {
    directory = std::make_unique<camera::RunDirectory>(options.run_directory, options.port);
    if (directory->path().empty()) return fail(directory->fault());
    socket_path = directory->path() + "/psia.socket";
  }
  camera::Descriptor kept(-1);
  if (!options.keep.empty()) {
    std::error_code fault;
    std::filesystem::create_directories(options.keep, fault);
    if (fault) return fail("Cannot create " + options.keep + ": " + fault.message());
    kept = camera::lock_file(options.keep + "/lock");
    if (kept.number < 0) {
      return fail("Cannot use " + options.keep +
                  ": another camera keeps its settings there, or it is read-only.");
    }
  }
  const bool daemons_only = options.shell;
  const camera::Descriptor web_socket = daemons_only ? camera::Descriptor(-1) : listen_or_tell(socket_path);
  if (!daemons_only && web_socket.number < 0) return 1;
  int status = 1;
  std::string fault;
  if (!daemons_only && options.port > 0) {
    fault = web_server.start(directory->path(), options.port, options.page);
  }
  if (fault.empty()) fault = enter_device(options);
  if (!fault.empty()) {
    fail(fault);
  } else {
    const camera::Descriptor service_socket = listen_or_tell(camera::Camera::kServiceSocket);
    camera::Camera camera(options, prefix, web_socket.number, service_socket.number);
    if (prefix.empty() && options.port > 0) print_welcome(options.port);
    if (!prefix.empty())
      std::printf("%sthe camera's page is at http://127.0.0.1:%d/\n", prefix.c_str(), options.port);
    if (daemons_only) camera.boot();
    const pid_t shell = daemons_only ? camera::start_shell(options.service) : -1;
    status = camera.run(signals, web_server, shell);
  }
  if (!daemons_only) unlink(socket_path.c_str());
  return status;
}

// Several cameras, each in a process of its own; all end when one does or when this one is told to.
int run_cameras(const Options& options, int signals) {
  std::vector<pid_t> processes;
  const pid_t parent = getpid();
  for (int i = 0; i < options.cameras; i++) {
    const pid_t process = fork();
    if (process == 0) {
      camera::begin_child(parent, SIGTERM);
      Options own = options;
      own.cameras = 1;
      own.port += i;
      if (!own.keep.empty()) own.keep += "/" + std::to_string(i + 1);
      const int status = run_camera(own, std::to_string(own.port) + "  ", block_signals());
      std::fflush(stdout);
      _exit(status);
    }
    if (process > 0) processes.push_back(process);
  }
  pollfd event{signals, POLLIN, 0};
  while (poll(&event, 1, -1) < 0 && errno == EINTR) {
  }
  int worst = 0;
  for (const pid_t process : processes)
    kill(process, SIGTERM);
  for (const pid_t process : processes) {
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (status != 0) worst = 1;
  }
  return worst;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::string fault = camera::read_options({argv + 1, argv + argc}, options);
  if (options.help) {
    std::fputs(camera::kHelp, stdout);
    return 0;
  }
  if (!fault.empty()) {
    std::fprintf(stderr, "%s\n\n%s", fault.c_str(), camera::kHelp);
    return 2;
  }
  if (access(options.service.c_str(), X_OK) != 0) {
    return fail(camera::system_error("Cannot run " + options.service) + ". Build the service first.");
  }
  options.service = std::filesystem::absolute(options.service).string();
  if (options.shell) {
    for (const camera::Run& run : camera::find_runs(options.run_directory)) {
      if (options.port == 0 || run.port == options.port) {
        return fail(camera::join_camera(run.process, options.service));
      }
    }
    std::printf("No camera runs: the shell is inside one with its daemons only.\n");
    options.port = 0;
  }
  pin_own_zone();
  // Before the socket exists, so that it is always removed.
  const int signals = block_signals();
  return options.cameras > 1 ? run_cameras(options, signals) : run_camera(options, "", signals);
}
