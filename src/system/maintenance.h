// Reboot, factory reset, and the settings as a file. The daemons do the work; files pass between them and
// clients through the web server's exchange directory.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

void request_reboot(Context& context, const Request& request);
/// Expects "MODE=FULL" or "MODE=BASIC" after the URI's "?". The daemons are not told which of the two it was.
void reset_to_factory(Context& context, const Request& request);
/// Asks the daemons to export the settings and sends the file. Answers status 3 when they do not within 180.1
/// s or more, and when the file is missing or empty.
void read_configuration(Context& context, const Request& request);
/// Stores the body as psia_config.dat in the exchange directory, without reading it; see save_body.
void write_configuration(Context& context, const Request& request);

}  // namespace psia
