// Reboot, factory reset, and the settings as a file. The daemons do the work; files pass between them and
// clients through the web server's exchange directory.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

void request_reboot(Service& service, const Request& request);
/// Wants "MODE=FULL" or "MODE=BASIC" behind the URI's "?"; the daemons are not told which of them it was.
void reset_to_factory(Service& service, const Request& request);
/// Has the daemons export the settings and sends the file. Waits for up to 180.1 s.
void download_configuration(Service& service, const Request& request);
/// Stores the body as psia_config.dat in the exchange directory; see save_body. It is not looked at.
void upload_configuration(Service& service, const Request& request);

}  // namespace psia
