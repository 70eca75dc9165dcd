// Ending the service from outside, and the limit of its patience with a body. After SIGTERM or SIGUSR1 the
// request at hand is finished, then the accept loop ends.
#pragma once

#include <fcgiapp.h>

namespace psia {

/// A body ends when no byte of it has come for so long.
inline constexpr int kBodyTimeoutMilliseconds = 30000;
/// The same after a stop, counted from the stop at the earliest. The parameters of a request that is arriving
/// must be complete so long after the stop.
inline constexpr int kTimeoutAfterStopMilliseconds = 1500;

/// Installs the handlers of SIGTERM, SIGUSR1 and SIGALRM. Call once at start, before libfcgi installs its
/// own.
void install_stop_signals();

/// While one of these lives, libfcgi waits for the next request over FastCGI.
class RequestAwaited {
 public:
  explicit RequestAwaited(const FCGX_Request& request);
  ~RequestAwaited();
  RequestAwaited(const RequestAwaited&) = delete;
  RequestAwaited& operator=(const RequestAwaited&) = delete;
  RequestAwaited(RequestAwaited&&) = delete;
  RequestAwaited& operator=(RequestAwaited&&) = delete;
};

/// While one of these lives, a body is awaited on the connection of the last request.
class BodyAwaited {
 public:
  BodyAwaited();
  ~BodyAwaited();
  BodyAwaited(const BodyAwaited&) = delete;
  BodyAwaited& operator=(const BodyAwaited&) = delete;
  BodyAwaited(BodyAwaited&&) = delete;
  BodyAwaited& operator=(BodyAwaited&&) = delete;

  /// Call before each wait for further bytes: the time of silence begins anew.
  static void begin_wait();

  /// For a body that does not come over a connection: waits until `descriptor` can be read. False when the
  /// peer was silent for too long, or when the descriptor fails.
  [[nodiscard]] static bool wait_until_readable(int descriptor);
};

/// True once SIGTERM or SIGUSR1 has arrived. For work in many steps, too.
[[nodiscard]] bool stop_requested();

}  // namespace psia
