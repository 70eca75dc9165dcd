// Ending the service from outside, and the limit of its patience with a body. SIGTERM and SIGUSR1 let the
// request at hand finish, then the accept loop ends; a request that still waits for its body is given up.
#pragma once

namespace psia {

/// A body is given up when no byte of it has come for so long, counted from the stop once one is requested.
inline constexpr int kBodyTimeoutMilliseconds = 30000;
inline constexpr int kBodyTimeoutAfterStopMilliseconds = 1500;

/// Installs the handlers of SIGTERM, SIGUSR1 and SIGALRM and holds these signals back, so that they cut no
/// read or write of a request short; they are let in where one of the objects below stands. Call once at
/// start, before libfcgi installs its own handlers.
void install_stop_signals();

/// While one of these lives, a stop interrupts the system call it meets.
class StopSignalsAllowed {
 public:
  StopSignalsAllowed();
  ~StopSignalsAllowed();
  StopSignalsAllowed(const StopSignalsAllowed&) = delete;
  StopSignalsAllowed& operator=(const StopSignalsAllowed&) = delete;
  StopSignalsAllowed(StopSignalsAllowed&&) = delete;
  StopSignalsAllowed& operator=(StopSignalsAllowed&&) = delete;
};

/// While one of these lives a body is awaited: a read that meets a signal goes on, and is interrupted only
/// when the peer has been silent for longer than the limits above.
class BodyAwaited {
 public:
  BodyAwaited();
  ~BodyAwaited();
  BodyAwaited(const BodyAwaited&) = delete;
  BodyAwaited& operator=(const BodyAwaited&) = delete;
  BodyAwaited(BodyAwaited&&) = delete;
  BodyAwaited& operator=(BodyAwaited&&) = delete;

  /// Call when bytes have come and the next ones are awaited.
  static void waits_again();
};

/// True once a stop signal was delivered.
[[nodiscard]] bool stop_requested();

/// The same, or one has arrived and is held back. For work in many steps.
[[nodiscard]] bool stop_waiting();

}  // namespace psia
