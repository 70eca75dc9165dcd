// A stop sets a flag and starts a timer that ticks until the process ends. Signals are never blocked. Calls
// that read, write or accept go on after one (SA_RESTART). What a tick does depends on what the service is
// doing:
//
// - It waits for a connection: the tick puts another file in place of the listening socket, so that
//   accept(2) fails.
// - It receives parameters: kTimeoutAfterStopMilliseconds after the stop the tick ends the reading of the
//   connection.
// - It receives a body: the tick does the same after a silence of kTimeoutAfterStopMilliseconds.
// - It sends into a full queue: any signal ends msgsnd(2) with EINTR.
// - It waits for the peer's close: any signal ends libfcgi's poll(2) with EINTR.
// - It works, or waits for a reply: nothing. The request is finished.
//
// A replaced socket and an ended connection stay what they are, so a tick just before such a call ends it,
// too. For the other calls the next tick comes soon.
//
// Without a stop the timer runs only while a body is received. It ends the reading of the connection after
// kBodyTimeoutMilliseconds of silence.
#include "frame/stop.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <initializer_list>

namespace psia {

namespace {

constexpr int kFirstTickMilliseconds = 1;
constexpr int kTickMilliseconds = 50;

enum Waiting : std::sig_atomic_t { kForNothing, kForRequest, kForBody };

// What the signal handlers share with the program, which all run in the one thread.
volatile std::sig_atomic_t stop_was_requested = 0;
volatile std::sig_atomic_t waiting = kForNothing;
volatile std::uint32_t silent_since = 0;            // milliseconds of the monotonic clock, modulo 2^32
const volatile int* volatile connection = nullptr;  // libfcgi's descriptor, negative while there is none

std::uint32_t now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<std::uint32_t>(time.tv_sec) * 1000U + static_cast<std::uint32_t>(time.tv_nsec / 1000000);
}

timeval to_timeval(int milliseconds) {
  return {milliseconds / 1000, static_cast<suseconds_t>(milliseconds % 1000) * 1000};
}

/// Sends a SIGALRM after `first` milliseconds and then, unless `interval` is 0, every `interval`; none when
/// `first` is 0. setitimer(2) is a plain system call on Linux, so a signal handler may use it.
void set_timer(int first, int interval) {
  const itimerval timer{to_timeval(interval), to_timeval(first)};
  setitimer(ITIMER_REAL, &timer, nullptr);
}

void start_ticks() {
  set_timer(kFirstTickMilliseconds, kTickMilliseconds);
}

/// Sets the timer of a body. A stop may have arrived just before and must not lose its ticks.
void set_body_timer(int milliseconds) {
  set_timer(milliseconds, 0);
  if (stop_requested()) start_ticks();
}

/// How much longer the peer may be silent, in milliseconds; negative when it was for too long.
int patience_left() {
  const int limit = stop_requested() ? kTimeoutAfterStopMilliseconds : kBodyTimeoutMilliseconds;
  return limit - static_cast<int>(now() - silent_since);
}

extern "C" void request_stop(int /*signal*/) {
  if (stop_was_requested == 0) silent_since = now();
  stop_was_requested = 1;
  start_ticks();
}

/// SIGALRM. All functions called here are safe in a signal handler (signal-safety(7)).
extern "C" void tick(int /*signal*/) {
  if (waiting == kForNothing || connection == nullptr) return;
  if (waiting == kForRequest && !stop_requested()) return;
  const int error = errno;
  if (*connection < 0) {
    // Standard output is no listening socket. Closing the socket instead would free descriptor 0 for the
    // next file.
    dup2(STDOUT_FILENO, STDIN_FILENO);
  } else if (const int left = patience_left(); left <= 0) {
    shutdown(*connection, SHUT_RD);
  } else if (!stop_requested()) {
    set_timer(left, 0);
  }
  errno = error;
}

}  // namespace

void install_stop_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGUSR1, SIGALRM})
    sigaddset(&signals, signal);
  struct sigaction action {};
  action.sa_mask = signals;
  action.sa_flags = SA_RESTART;
  action.sa_handler = request_stop;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGUSR1, &action, nullptr);
  action.sa_handler = tick;
  sigaction(SIGALRM, &action, nullptr);
  sigprocmask(SIG_UNBLOCK, &signals, nullptr);  // a parent may have blocked them
}

RequestAwaited::RequestAwaited(const FCGX_Request& request) {
  connection = &request.ipcFd;
  waiting = kForRequest;
}

RequestAwaited::~RequestAwaited() {
  waiting = kForNothing;
}

BodyAwaited::BodyAwaited() {
  begin_wait();
  waiting = kForBody;
  set_body_timer(kBodyTimeoutMilliseconds);
}

/// Without a stop the timer must not run on: libfcgi drops a connection when a signal meets the poll(2) that
/// follows its accept.
BodyAwaited::~BodyAwaited() {
  waiting = kForNothing;
  set_body_timer(0);
}

void BodyAwaited::begin_wait() {
  silent_since = now();
}

bool BodyAwaited::wait_until_readable(int descriptor) {
  for (;;) {
    const int left = patience_left();
    if (left <= 0) return false;
    pollfd wanted{descriptor, POLLIN, 0};
    const int ready = poll(&wanted, 1, left);
    if (ready != -1 || errno != EINTR) return ready > 0;
  }
}

bool stop_requested() {
  return stop_was_requested != 0;
}

}  // namespace psia
