// Accepts requests and ends them. During a request libfcgi's streams lead to its peer, and its variables are
// the environment of the process. With a listening socket as file descriptor 0 the service is a FastCGI
// server, with anything else a plain CGI program, whose only request is in its environment from the start.
#pragma once

#include <fcgiapp.h>

namespace psia {

/// Call install_stop_signals before making one. There can be only one.
class FastCgi {
 public:
  FastCgi();

  /// Waits for the next request and makes its variables the environment. False when there will be none: the
  /// service was told to stop, libfcgi fails, or the one request of a plain CGI program is done. A request
  /// whose parameters do not all arrive gets no answer, and the next one is waited for.
  [[nodiscard]] bool accept();

  /// Sends what was written and ends the request; its variables are gone. Reads the rest of a request that
  /// was answered early. The limits of stop.h apply to both. Bytes after the end of the request are not
  /// awaited.
  void finish();

 private:
  FCGX_Request request_{};  // unused in a plain CGI program
  bool is_cgi_ = false;
};

}  // namespace psia
