#include "core/fastcgi.h"

#include <fcgi_stdio.h>
#include <unistd.h>

#include <cstdio>

#include "core/stop.h"

namespace psia {

namespace {

/// Sets libfcgi's streams and the environment, as FCGI_Accept does. FCGI_Accept itself hides its request, of
/// which stop.h needs the connection.
void use_streams(FCGX_Request& request, char** environment) {
  FCGI_stdin->fcgx_stream = request.in;
  FCGI_stdout->fcgx_stream = request.out;
  FCGI_stderr->fcgx_stream = request.err;
  environ = environment;
}

/// Sends what is left of the answer and the end of the request. False when the peer is gone or was left.
bool end_answer(FCGX_Request& request) {
  const PeerAwaited awaited(Wait::kAnswerTaken);
  const bool errors_sent = FCGX_FClose(request.err) == 0;
  return FCGX_FClose(request.out) == 0 && errors_sent;  // the last stream sends the end of the request
}

/// Reads the rest of a request that was answered early: a peer may read its answer only after it has sent
/// everything. False when the connection fails, or when that takes too long.
bool skip_rest(FCGX_Request& request) {
  const PeerAwaited awaited(Wait::kRestOfRequest);
  FCGX_Stream* const rest = request.in;
  while (FCGX_GetChar(rest) != EOF)
    rest->rdNext = rest->stop;  // all that has been received
  return FCGX_GetError(rest) == 0;
}

/// Frees the request and closes its connection, unless that is to be kept. libfcgi's own functions would read
/// on for as long as the peer sends, and wait 2 s for a silent peer to close.
void end_connection(FCGX_Request& request, bool keep) {
  FCGX_Free(&request, 0);
  if (keep) return;
  close(request.ipcFd);
  request.ipcFd = -1;
}

}  // namespace

FastCgi::FastCgi() {
  FCGX_Init();
  FCGX_InitRequest(&request_, STDIN_FILENO, 0);
  is_cgi_ = FCGX_IsCGI() != 0;
}

bool FastCgi::accept() {
  if (is_cgi_) return !stop_requested() && FCGI_Accept() >= 0;
  while (!stop_requested()) {
    const RequestAwaited awaited(request_);
    if (FCGX_Accept_r(&request_) < 0) return false;
    if (FCGX_GetError(request_.in) == 0) {
      use_streams(request_, request_.envp);
      return true;
    }
    end_connection(request_, false);  // libfcgi returns the parameters that came before the connection ended
  }
  return false;
}

void FastCgi::finish() {
  if (is_cgi_) return;
  const bool sent = end_answer(request_);
  const bool read = skip_rest(request_);
  end_connection(request_, sent && read && request_.keepConnection != 0);
  use_streams(request_, nullptr);
}

}  // namespace psia
