#include "frame/stop.h"

#include <fcgiapp.h>
#include <sys/time.h>

#include <csignal>
#include <cstdint>
#include <ctime>
#include <initializer_list>

namespace psia {

namespace {

// SIGTERM, SIGUSR1 and SIGALRM. Made once, at start: the mask is changed twice for every request.
sigset_t all_signals;

/// How soon a stop first interrupts, and how often it does so again. A signal that arrives between a look at
/// the flag and the system call that then blocks would be lost otherwise, in libfcgi's accept as in our own
/// calls.
constexpr int kFirstTickMilliseconds = 1;
constexpr int kTickMilliseconds = 250;

// What the signal handlers share with the program, which all run in the one thread.
volatile std::sig_atomic_t stop_was_requested = 0;
volatile std::sig_atomic_t body_is_awaited = 0;
volatile std::sig_atomic_t timer_runs = 0;
volatile std::sig_atomic_t alarm_interrupts = 0;
volatile std::uint32_t silent_since = 0;  // milliseconds of the monotonic clock, modulo 2^32

std::uint32_t now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<std::uint32_t>(time.tv_sec) * 1000U + static_cast<std::uint32_t>(time.tv_nsec / 1000000);
}

/// setitimer(2) is a plain system call on Linux, so a signal handler may use it.
void set_timer(int milliseconds) {
  itimerval timer{};
  timer.it_value.tv_sec = milliseconds / 1000;
  timer.it_value.tv_usec = milliseconds % 1000 * 1000;
  setitimer(ITIMER_REAL, &timer, nullptr);
  timer_runs = 1;
}

void install(int signal, void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_mask = all_signals;
  action.sa_flags = flags;
  sigaction(signal, &action, nullptr);
}

/// SIGTERM and SIGUSR1 interrupt nothing themselves; the timer does when it is time to.
extern "C" void request_stop(int /*signal*/) {
  if (stop_was_requested == 0) silent_since = now();
  stop_was_requested = 1;
  FCGX_ShutdownPending();
  set_timer(kFirstTickMilliseconds);
}

/// SIGALRM. Whether a signal interrupts a read is decided when it arrives, so it takes a second one to
/// interrupt what the first one found to be overdue.
extern "C" void look_at_clock(int /*signal*/) {
  timer_runs = 0;
  if (body_is_awaited != 0) {
    const int limit = stop_was_requested != 0 ? kBodyTimeoutAfterStopMilliseconds : kBodyTimeoutMilliseconds;
    const auto silent = static_cast<int>(now() - silent_since);
    if (silent < limit) return set_timer(limit - silent);
  } else if (stop_was_requested == 0) {
    return;  // left over from a body that has come
  }
  if (alarm_interrupts == 0) install(SIGALRM, look_at_clock, 0);
  set_timer(alarm_interrupts == 0 ? kFirstTickMilliseconds : kTickMilliseconds);
  alarm_interrupts = 1;
}

/// From here on the timer interrupts no read until look_at_clock says so again.
void let_reads_go_on() {
  if (alarm_interrupts == 0) return;
  install(SIGALRM, look_at_clock, SA_RESTART);
  alarm_interrupts = 0;
}

}  // namespace

void install_stop_signals() {
  sigemptyset(&all_signals);
  for (const int signal : {SIGTERM, SIGUSR1, SIGALRM})
    sigaddset(&all_signals, signal);
  sigprocmask(SIG_BLOCK, &all_signals, nullptr);
  install(SIGTERM, request_stop, SA_RESTART);
  install(SIGUSR1, request_stop, SA_RESTART);
  install(SIGALRM, look_at_clock, SA_RESTART);
}

StopSignalsAllowed::StopSignalsAllowed() {
  // A body's timer must not go off here: libfcgi drops a connection when a signal meets the poll(2) that
  // follows its accept.
  if (timer_runs != 0 && !stop_requested()) {
    set_timer(0);
    timer_runs = 0;
  }
  sigprocmask(SIG_UNBLOCK, &all_signals, nullptr);
}

StopSignalsAllowed::~StopSignalsAllowed() {
  sigprocmask(SIG_BLOCK, &all_signals, nullptr);
}

BodyAwaited::BodyAwaited() {
  waits_again();
  body_is_awaited = 1;
  if (timer_runs == 0) set_timer(kBodyTimeoutMilliseconds);
  sigprocmask(SIG_UNBLOCK, &all_signals, nullptr);
}

BodyAwaited::~BodyAwaited() {
  sigprocmask(SIG_BLOCK, &all_signals, nullptr);
  body_is_awaited = 0;
}

void BodyAwaited::waits_again() {
  silent_since = now();
  let_reads_go_on();
}

bool stop_requested() {
  return stop_was_requested != 0;
}

bool stop_waiting() {
  sigset_t pending;
  sigemptyset(&pending);
  sigpending(&pending);
  return stop_requested() || sigismember(&pending, SIGTERM) == 1 || sigismember(&pending, SIGUSR1) == 1;
}

}  // namespace psia
