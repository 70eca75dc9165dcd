#include "simulator/camera/service_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <utility>

#include "simulator/device/clock.h"
#include "simulator/tools/child_process.h"
#include "simulator/tools/text.h"

namespace camera {
namespace {

// Reads without waiting. The end of the stream closes the descriptor.
std::string read_waiting(Descriptor& stream) {
  std::string bytes;
  std::array<char, 4096> chunk{};
  ssize_t count = -1;
  while (stream.number >= 0 && (count = read(stream.number, chunk.data(), chunk.size())) > 0)
    bytes.append(chunk.data(), static_cast<std::size_t>(count));
  if (count == 0) stream.reset();
  return bytes;
}

}  // namespace

ServiceProcess::ServiceProcess(std::string binary, int socket, Listener listener)
    : binary_(std::move(binary)), socket_(socket), listener_(std::move(listener)) {}

std::string ServiceProcess::start() {
  std::array<int, 2> printed{};
  std::array<int, 2> reported{};
  if (pipe2(printed.data(), O_CLOEXEC | O_NONBLOCK) != 0) return system_error("Cannot create a pipe");
  printed_ = Descriptor(printed[0]);
  const Descriptor printing_end(printed[1]);
  if (pipe2(reported.data(), O_CLOEXEC | O_NONBLOCK) != 0) return system_error("Cannot create a pipe");
  reported_ = Descriptor(reported[0]);
  const Descriptor reporting_end(reported[1]);
  const pid_t parent = getpid();
  process_ = fork();
  if (process_ < 0) return system_error("Cannot start a process");
  if (process_ == 0) {
    begin_child(parent, SIGKILL);
    for (const int writing_end : {printed[1], reported[1]})
      fcntl(writing_end, F_SETFL, 0);
    dup2(socket_, STDIN_FILENO);
    dup2(printed[1], STDOUT_FILENO);
    dup2(reported[1], STDERR_FILENO);
    use_camera_clock();
    execl(binary_.c_str(), binary_.c_str(), nullptr);
    std::fprintf(stderr, "%s\n", system_error("cannot run " + binary_).c_str());
    _exit(127);
  }
  listener_.told("service started, process " + std::to_string(process_));
  return "";
}

void ServiceProcess::stop() {
  if (process_ <= 0 || kill_at_) return;
  kill(process_, SIGTERM);
  kill_at_ = std::chrono::steady_clock::now() + std::chrono::seconds(3);
}

void ServiceProcess::end() {
  stop();
  for (int attempt = 0; attempt < 50 && runs(); attempt++) {
    if (attempt > 0) usleep(5000);
    step();
  }
  kill_at_ = std::chrono::steady_clock::now();
  while (runs()) {
    step();
    if (runs()) usleep(1000);
  }
  kill_at_.reset();
}

void ServiceProcess::read_outputs() {
  const std::string printed = read_waiting(printed_);
  if (!printed.empty()) listener_.printed(printed);
  for (const std::string& line : split_lines(read_waiting(reported_)))
    listener_.told("service reported: " + line);
}

void ServiceProcess::step() {
  read_outputs();
  if (process_ <= 0) return;
  if (kill_at_ && std::chrono::steady_clock::now() >= *kill_at_) kill(process_, SIGKILL);
  int status = 0;
  if (waitpid(process_, &status, WNOHANG) != process_) return;
  read_outputs();
  printed_.reset();
  reported_.reset();
  process_ = -1;
  kill_at_.reset();
  ended_at_ = std::chrono::steady_clock::now();
  listener_.told(WIFSIGNALED(status)
                     ? "service ended by signal " + std::to_string(WTERMSIG(status))
                     : "service ended with exit status " + std::to_string(WEXITSTATUS(status)));
}

void ServiceProcess::add_to(std::vector<pollfd>& events) const {
  for (const Descriptor* stream : {&printed_, &reported_}) {
    if (stream->number >= 0) events.push_back({stream->number, POLLIN, 0});
  }
}

}  // namespace camera
