#include "frame/stop.h"

#include <fcgiapp.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace psia {

namespace {

constexpr std::array kStopSignals = {SIGTERM, SIGUSR1, SIGALRM};

volatile std::sig_atomic_t stop_was_requested = 0;

/// A signal that arrives between a look at the flag and the system call that then blocks would be lost, in
/// libfcgi's accept as in our own calls; so an alarm interrupts again every second until the process has
/// ended.
extern "C" void request_stop(int /*signal*/) {
  stop_was_requested = 1;
  FCGX_ShutdownPending();
  alarm(1);
}

sigset_t stop_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : kStopSignals)
    sigaddset(&signals, signal);
  return signals;
}

void change_mask(int how) {
  const sigset_t signals = stop_signals();
  sigprocmask(how, &signals, nullptr);
}

}  // namespace

void install_stop_signals() {
  change_mask(SIG_BLOCK);
  struct sigaction action {};
  action.sa_handler = request_stop;
  action.sa_mask = stop_signals();
  for (const int signal : kStopSignals)
    sigaction(signal, &action, nullptr);
}

StopSignalsAllowed::StopSignalsAllowed() {
  change_mask(SIG_UNBLOCK);
}

StopSignalsAllowed::~StopSignalsAllowed() {
  change_mask(SIG_BLOCK);
}

bool stop_requested() {
  return stop_was_requested != 0;
}

}  // namespace psia
