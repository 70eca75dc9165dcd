#include "frame/gateway.h"

#include <fcgi_stdio.h>
#include <unistd.h>

#include "frame/stop.h"

namespace psia {

namespace {

/// What FCGI_Accept does, which keeps its request to itself.
void use_streams(FCGX_Request& request, char** environment) {
  FCGI_stdin->fcgx_stream = request.in;
  FCGI_stdout->fcgx_stream = request.out;
  FCGI_stderr->fcgx_stream = request.err;
  environ = environment;
}

}  // namespace

Gateway::Gateway() {
  FCGX_Init();
  FCGX_InitRequest(&request_, STDIN_FILENO, 0);
}

bool Gateway::accept() {
  if (FCGX_IsCGI() != 0) return !stop_requested() && FCGI_Accept() >= 0;
  while (!stop_requested()) {
    const RequestAwaited awaited(request_);
    if (FCGX_Accept_r(&request_) < 0) return false;
    if (FCGX_GetError(request_.in) == 0) {
      use_streams(request_, request_.envp);
      return true;
    }
    FCGX_Free(&request_, 1);  // libfcgi hands on the parameters that came before the connection ended
  }
  return false;
}

void Gateway::finish() {
  if (FCGX_IsCGI() != 0) return;
  FCGX_Finish_r(&request_);
  use_streams(request_, nullptr);
}

}  // namespace psia
