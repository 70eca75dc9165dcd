// camera-simulator: runs the service in one or several simulated cameras, for people and for test programs.
// scripts/run starts it.

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "help_text.h"
#include "simulator/camera/camera.h"
#include "simulator/camera/run_directory.h"
#include "simulator/camera/shell.h"
#include "simulator/device/device.h"
#include "simulator/front/tcp_socket.h"
#include "simulator/front/unix_socket.h"
#include "simulator/tools/child_process.h"
#include "simulator/tools/removed_at_end.h"
#include "simulator/tools/text.h"

namespace {

using camera::Options;

constexpr int kFirstPort = 8080;
constexpr int kLastPort = 8180;
constexpr const char* kPortAdvice = " Leave --port out to have a free one chosen.";

int fail(const std::string& fault) {
  for (const std::string& line : camera::split_lines(fault))
    std::fprintf(stderr, "%s\n", camera::harmless(line).c_str());
  return 1;
}

// A socket that listens at the path; without a descriptor after a message on the terminal.
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

// Keeps the machine's time zone for the times on the terminal; /etc/localtime becomes the camera's.
void pin_own_zone() {
  std::error_code fault;
  const std::string zone = std::filesystem::canonical("/etc/localtime", fault).string();
  setenv("TZ", (fault || zone == "/etc/localtime" ? "UTC0" : ":" + zone).c_str(), 0);
  tzset();
}

std::string enter_device(const Options& options) {
  std::string fault = camera::enter_private_device(options.keep, options.number);
  for (const std::string& statement : options.statements) {
    if (fault.empty()) fault = camera::execute(statement);
  }
  return fault;
}

// "http://ADDRESS:PORT" as this machine reaches the web server.
std::string url_of(const Options& options, int port) {
  const bool all = options.listen == "0.0.0.0" || options.listen == "::";
  return "http://" + camera::authority(all ? "127.0.0.1" : options.listen, port);
}

void print_welcome(const Options& options, const std::vector<int>& ports) {
  std::printf("\n");
  for (std::size_t i = 0; i < ports.size(); i++) {
    const camera::Identity identity = camera::identity_of(options.number + static_cast<int>(i));
    const std::string url = url_of(options, ports[i]);
    std::printf("%s, serial number %s: page %s/  management service %s/PSIA\n", identity.name.c_str(),
                identity.serial_number.c_str(), url.c_str(), url.c_str());
  }
  if (!camera::is_loopback(options.listen)) {
    std::printf(
        "\nOTHER MACHINES CAN REACH THIS at %s. Everybody there can log in with the accounts below, as\n"
        "long as these have the factory's passwords, and those travel unencrypted.\n",
        options.listen.c_str());
  }
  const std::string address = url_of(options, ports[0]) + "/PSIA";
  std::printf(
      "\n"
      "Accounts of the factory, name:password, from the most to the least privileged:\n"
      "  admin:admin  operator:operator  viewer:viewer  guest:guest  and anonymous with an empty password\n"
      "\n"
      "To try in another terminal:\n"
      "  curl -u admin:admin '%s/index'\n"
      "  curl -u admin:admin '%s/System/Audio/channels/1'\n"
      "  curl -u admin:admin -X PUT -d '<AudioChannel><enabled>false</enabled></AudioChannel>' "
      "'%s/System/Audio/channels/1'\n"
      "  scripts/run --shell --port %d\n"
      "\n"
      "Each request appears here with the rows it changed and its messages to the camera's daemons.\n"
      "The documents below /PSIA/Custom/Event appear here too: they go to the service's standard output,\n"
      "and the web server answers the client with an error. Ctrl-C ends everything.\n\n",
      address.c_str(), address.c_str(), address.c_str(), ports[0]);
  std::fflush(stdout);
}

// Opens a listening socket for each camera. Returns an empty text or the fault.
std::string open_ports_from(const Options& options, int port, std::vector<camera::Descriptor>& sockets) {
  sockets.clear();
  for (int i = 0; i < options.cameras; i++) {
    const int own = port == 0 ? 0 : port + i;
    sockets.push_back(camera::listen_on_port(options.listen, own));
    if (sockets.back().number >= 0) continue;
    if (errno == EADDRINUSE) return "Port " + std::to_string(own) + " is taken.";
    return camera::system_error("Cannot listen at " + camera::authority(options.listen, own));
  }
  return "";
}

std::string open_ports(const Options& options, std::vector<camera::Descriptor>& sockets) {
  if (options.port) return open_ports_from(options, *options.port, sockets);
  std::string fault;
  for (int port = kFirstPort; port <= kLastPort; port++) {
    fault = open_ports_from(options, port, sockets);
    if (fault.empty() || errno != EADDRINUSE) break;
  }
  if (!fault.empty()) return fault;
  const int found = camera::port_of(sockets[0]);
  if (found != kFirstPort) std::printf("Port %d is taken; using %d.\n", kFirstPort, found);
  return "";
}

// The file that tells test programs when the cameras answer, and at which URLs.
class ReadyFile {
 public:
  explicit ReadyFile(std::string path) : path_(std::move(path)) {
    if (path_.empty()) return;
    unlink(path_.c_str());
    draft_ = path_ + ".XXXXXX";
    const camera::Descriptor file(mkostemp(draft_.data(), O_CLOEXEC));
    if (file.number < 0) return;
    fchmod(file.number, 0644);
    removal_.emplace(camera::removal_of_file({path_, draft_}, file.number));
  }
  // Returns an empty text or the fault. The file appears with its whole content.
  [[nodiscard]] std::string write(const std::string& text) const {
    if (path_.empty()) return "";
    std::ofstream file(draft_, std::ios::in | std::ios::out);
    file << text;
    file.close();
    if (file.fail() || rename(draft_.c_str(), path_.c_str()) != 0) {
      return camera::system_error("Cannot write " + path_);
    }
    return "";
  }

 private:
  std::string path_;
  std::string draft_;
  std::optional<camera::RemovedAtEnd> removal_;
};

// Shows the welcome and writes the ready file, once all cameras answer. Returns an empty text or the fault.
std::string tell_ready(const Options& options, const std::vector<int>& ports, const ReadyFile& file) {
  if (ports.empty()) return "";
  print_welcome(options, ports);
  std::string urls;
  for (const int port : ports)
    urls += url_of(options, port) + "\n";
  return file.write(urls);
}

// One camera in this process. Prefix, signals and ready are as in Camera; without a listener there is no web
// server.
int run_camera(const Options& options, const std::string& prefix, int signals, camera::Descriptor listener,
               const std::function<void()>& ready) {
  std::optional<camera::RunDirectory> directory;
  camera::WebServer web_server;
  std::string socket_path = options.socket;
  const bool has_web_server = listener.number >= 0;
  if (has_web_server) {
    directory.emplace(options.run_directory, camera::port_of(listener));
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
  if (has_web_server) {
    fault = web_server.start(directory->path(), listener, options.listen, options.page);
    listener.reset();
  }
  if (fault.empty()) fault = enter_device(options);
  if (!fault.empty()) {
    fail(fault);
  } else {
    const camera::Descriptor service_socket = listen_or_tell(camera::Camera::kServiceSocket);
    camera::Camera camera(options, prefix, web_socket.number, service_socket.number, ready);
    if (daemons_only) camera.boot();
    const pid_t shell = daemons_only ? camera::start_shell(options.service) : -1;
    status = camera.run(signals, web_server, shell);
  }
  if (!daemons_only) unlink(socket_path.c_str());
  return status;
}

// Several cameras, each in a process of its own. All end when one does, or when this process is told to.
int run_cameras(const Options& options, int signals, std::vector<camera::Descriptor> listeners,
                const std::vector<int>& ports, const ReadyFile& ready_file) {
  std::array<int, 2> ready{};  // a pipe that receives a byte from each camera
  if (pipe2(ready.data(), O_CLOEXEC | O_NONBLOCK) != 0)
    return fail(camera::system_error("Cannot create a pipe"));
  std::vector<pid_t> processes;
  const pid_t parent = getpid();
  for (int i = 0; i < options.cameras; i++) {
    const auto place = static_cast<std::size_t>(i);
    const pid_t process = fork();
    if (process == 0) {
      camera::begin_child(parent, SIGTERM);
      Options own = options;
      own.number = options.number + i;
      if (!own.keep.empty()) own.keep += "/" + std::to_string(own.number);
      const int status =
          run_camera(own, std::to_string(ports[place]) + "  ", block_signals(), std::move(listeners[place]),
                     [&ready] { (void)!write(ready[1], "r", 1); });
      std::fflush(stdout);
      _exit(status);
    }
    if (process > 0) processes.push_back(process);
  }
  listeners.clear();
  std::array<pollfd, 2> events{{{signals, POLLIN, 0}, {ready[0], POLLIN, 0}}};
  std::size_t answering = 0;
  std::string fault;
  while (fault.empty()) {
    if (poll(events.data(), events.size(), -1) < 0) continue;
    if (events[0].revents != 0) break;
    char byte = 0;
    while (read(ready[0], &byte, 1) == 1)
      answering++;
    if (answering == processes.size()) fault = tell_ready(options, ports, ready_file);
  }
  int worst = fault.empty() ? 0 : fail(fault);
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
  const std::string mistake = camera::read_options({argv + 1, argv + argc}, options);
  if (options.help) {
    std::fputs(camera::kHelpText, stdout);
    return 0;
  }
  if (!mistake.empty()) {
    fail(mistake);
    std::fprintf(stderr, "--help lists the options.\n");
    return 2;
  }
  if (access(options.service.c_str(), X_OK) != 0) {
    return fail(camera::system_error("Cannot run " + options.service) + ". Build the service first.");
  }
  options.service = std::filesystem::absolute(options.service).string();
  if (std::error_code fault; std::filesystem::is_directory(options.ready_file, fault)) {
    return fail("--ready-file needs a file; " + options.ready_file + " is a directory.");
  }
  if (options.shell) {
    for (const camera::Run& run : camera::find_runs(options.run_directory)) {
      if (!options.port || run.port == *options.port) {
        return fail(camera::join_camera(run.process, options.service));
      }
    }
    if (options.port)
      return fail("No camera of this folder runs on port " + std::to_string(*options.port) + ".");
    std::printf("No camera runs: the shell is inside one with its daemons only.\n");
  }
  pin_own_zone();
  // First, so that no signal can end this process before it has removed what it creates from here on.
  const int signals = block_signals();
  std::vector<camera::Descriptor> listeners;
  std::vector<int> ports;
  if (options.socket.empty() && !options.shell) {
    const std::string fault = open_ports(options, listeners);
    if (!fault.empty()) return fail(fault + (errno == EADDRINUSE && options.port ? kPortAdvice : ""));
    for (const camera::Descriptor& listener : listeners)
      ports.push_back(camera::port_of(listener));
  }
  const ReadyFile ready_file(options.ready_file);
  if (options.cameras > 1) return run_cameras(options, signals, std::move(listeners), ports, ready_file);
  std::string fault;
  const auto ready = [&] {
    fault = tell_ready(options, ports, ready_file);
    if (!fault.empty()) kill(getpid(), SIGTERM);
  };
  const int status = run_camera(options, "", signals,
                                listeners.empty() ? camera::Descriptor(-1) : std::move(listeners[0]), ready);
  return fault.empty() ? status : fail(fault);
}
