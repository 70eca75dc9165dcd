// Ending the service from outside, and the limits of its patience with a peer. After SIGTERM or SIGUSR1 the
// request in progress is finished, then the accept loop ends.
#pragma once

#include <fcgiapp.h>

#include <csignal>

namespace psia {

/// Reading a body fails, and a peer that does not take its answer loses its connection, after this long
/// without progress. Only the time in which the service waits for the peer counts.
inline constexpr int kPeerTimeoutMilliseconds = 30000;
/// The same after a stop, counted from the stop at the earliest. The parameters of a request that is arriving
/// must be complete this long after the stop.
inline constexpr int kTimeoutAfterStopMilliseconds = 1500;
/// The rest of a request that was answered early may take this long in all.
inline constexpr int kRestTimeoutMilliseconds = 2000;

/// Installs the handlers of SIGTERM, SIGUSR1 and SIGALRM. Call once at start, before libfcgi installs its
/// own.
void install_stop_signals();

/// While one of these lives, libfcgi waits for the next request over FastCGI. The timer that watches the peer
/// runs from its end until the next one begins.
class RequestAwaited {
 public:
  explicit RequestAwaited(const FCGX_Request& request);
  ~RequestAwaited();
  RequestAwaited(const RequestAwaited&) = delete;
  RequestAwaited& operator=(const RequestAwaited&) = delete;
  RequestAwaited(RequestAwaited&&) = delete;
  RequestAwaited& operator=(RequestAwaited&&) = delete;
};

/// What the service waits for. The states are explained in stop.cpp.
enum class Wait : std::sig_atomic_t { kNone, kRequest, kBody, kAnswerTaken, kRestOfRequest };

/// While one of these lives, the service waits for the peer of the last request. Make one for each wait: the
/// time without progress begins with it. They do not nest.
class PeerAwaited {
 public:
  explicit PeerAwaited(Wait wait);
  ~PeerAwaited();
  PeerAwaited(const PeerAwaited&) = delete;
  PeerAwaited& operator=(const PeerAwaited&) = delete;
  PeerAwaited(PeerAwaited&&) = delete;
  PeerAwaited& operator=(PeerAwaited&&) = delete;

  /// For a body that does not come over a connection: waits until `descriptor` can be read. False when the
  /// peer was silent for too long, or when the descriptor fails.
  [[nodiscard]] static bool until_readable(int descriptor);
};

/// True once SIGTERM or SIGUSR1 has arrived. For work in many steps, too.
[[nodiscard]] bool stop_requested();

}  // namespace psia
