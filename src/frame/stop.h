// Ending the service from outside: SIGTERM and SIGUSR1 let the request at hand finish, then the accept loop
// ends.
#pragma once

namespace psia {

/// Installs the handlers of SIGTERM and SIGUSR1 and holds both signals back, so that they cut no read or
/// write of a request short; they are let in where a StopSignalsAllowed stands. Call once at start, before
/// libfcgi installs its own handlers.
void install_stop_signals();

/// While one of these lives, a stop signal is delivered and interrupts the system call it meets.
class StopSignalsAllowed {
 public:
  StopSignalsAllowed();
  ~StopSignalsAllowed();
  StopSignalsAllowed(const StopSignalsAllowed&) = delete;
  StopSignalsAllowed& operator=(const StopSignalsAllowed&) = delete;
  StopSignalsAllowed(StopSignalsAllowed&&) = delete;
  StopSignalsAllowed& operator=(StopSignalsAllowed&&) = delete;
};

/// True once a stop signal was delivered.
[[nodiscard]] bool stop_requested();

}  // namespace psia
