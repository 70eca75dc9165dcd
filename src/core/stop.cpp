// A stop sets a flag and starts a timer that ticks every kTickAfterStopMilliseconds until the process ends.
// Without a stop the timer ticks every kTickMilliseconds while a request is handled. Signals are never
// blocked. System calls that read, write or accept are restarted after a signal (SA_RESTART).
//
// What a tick does depends on what the service is doing:
//
// - It waits for a connection. After a stop the tick puts another file in place of the listening socket, so
//   that accept(2) fails.
// - It waits for parameters. kTimeoutAfterStopMilliseconds after a stop the tick ends the connection. Without
//   a stop there is no limit.
// - It waits for a piece of a body. After kPeerTimeoutMilliseconds the tick ends the reading of the
//   connection. The answer can still be sent.
// - It waits until the peer takes a piece of the answer. After kPeerTimeoutMilliseconds the tick ends the
//   connection.
// - It reads the rest of a request that it has answered. After kRestTimeoutMilliseconds, all pieces together,
//   the tick ends the connection.
// - It sends into a full queue. After a stop any signal ends msgsnd(2) with EINTR.
// - It works, or waits for a reply. The tick does nothing. The request is finished.
//
// After a stop the limit of each wait for the peer is kTimeoutAfterStopMilliseconds, which begin at the stop
// if that came during the wait.
//
// A replaced socket and an ended connection stay what they are, so a tick just before such a call ends it,
// too. For the other calls the next tick comes soon.
//
// A plain CGI program has no connection that a tick could end. It waits for its body with poll(2), and for as
// long as it takes until its answer is taken.
#include "core/stop.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <initializer_list>

namespace psia {

namespace {

/// A write to a full socket is tried again at each tick. The kernel itself would wake it only after the peer
/// has taken most of what is there.
constexpr int kTickMilliseconds = 500;
constexpr int kTickAfterStopMilliseconds = 50;

// What the signal handlers share with the program, which all run in the one thread.
volatile std::sig_atomic_t stop_was_requested = 0;
volatile Wait waiting = Wait::kNone;
volatile std::sig_atomic_t wait_is_new = 1;         // no tick has seen this wait yet
volatile std::uint32_t waiting_since = 0;           // milliseconds of the monotonic clock, modulo 2^32
const volatile int* volatile connection = nullptr;  // libfcgi's descriptor, negative while there is none

std::uint32_t now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<std::uint32_t>(time.tv_sec) * 1000U + static_cast<std::uint32_t>(time.tv_nsec / 1000000);
}

/// The timer's setting for SIGALRMs `first` milliseconds from now and then every `interval`.
constexpr itimerval ticks(int first, int interval) {
  const auto to_timeval = [](int milliseconds) {
    return timeval{milliseconds / 1000, static_cast<suseconds_t>(milliseconds % 1000) * 1000};
  };
  return {to_timeval(interval), to_timeval(first)};
}

constexpr itimerval kNoTicks{};
constexpr itimerval kTicks = ticks(kTickMilliseconds, kTickMilliseconds);
constexpr itimerval kTicksAfterStop = ticks(1, kTickAfterStopMilliseconds);

/// setitimer(2) is a plain system call on Linux, so a signal handler may use it.
void set_timer(const itimerval& setting) {
  setitimer(ITIMER_REAL, &setting, nullptr);
}

/// A stop may have arrived just before and must not lose its ticks.
void set_timer_before_stop(const itimerval& setting) {
  set_timer(setting);
  if (stop_was_requested != 0) set_timer(kTicksAfterStop);
}

/// How much longer the service waits for the peer, in milliseconds; not positive when it waited too long. The
/// clock starts with the first call in a wait, so that a wait that ends before any tick does not read it.
int patience_left() {
  if (wait_is_new != 0) {
    waiting_since = now();
    wait_is_new = 0;
  }
  int limit = waiting == Wait::kRestOfRequest ? kRestTimeoutMilliseconds : kPeerTimeoutMilliseconds;
  if (stop_requested()) limit = std::min(limit, kTimeoutAfterStopMilliseconds);
  return limit - static_cast<int>(now() - waiting_since);
}

extern "C" void request_stop(int /*signal*/) {
  if (stop_was_requested == 0) wait_is_new = 1;
  stop_was_requested = 1;
  set_timer(kTicksAfterStop);
}

/// SIGALRM. All functions called here are safe in a signal handler (signal-safety(7)).
extern "C" void tick(int /*signal*/) {
  if (waiting == Wait::kNone || connection == nullptr) return;
  if (waiting == Wait::kRequest && !stop_requested()) return;
  const int error = errno;
  if (*connection < 0) {
    // Standard output is no listening socket. Closing the socket instead would free descriptor 0 for the
    // next file.
    dup2(STDOUT_FILENO, STDIN_FILENO);
  } else if (patience_left() <= 0) {
    shutdown(*connection, waiting == Wait::kBody ? SHUT_RD : SHUT_RDWR);
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

/// Without a stop the timer must not run on: libfcgi drops a connection when a signal meets the poll(2) that
/// follows its accept.
RequestAwaited::RequestAwaited(const FCGX_Request& request) {
  connection = &request.ipcFd;
  waiting = Wait::kRequest;
  set_timer_before_stop(kNoTicks);
}

RequestAwaited::~RequestAwaited() {
  waiting = Wait::kNone;
  set_timer_before_stop(kTicks);
}

PeerAwaited::PeerAwaited(Wait wait) {
  wait_is_new = 1;
  waiting = wait;
}

PeerAwaited::~PeerAwaited() {
  waiting = Wait::kNone;
}

bool PeerAwaited::until_readable(int descriptor) {
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
