// Reads the device's clock and time zone and asks the daemons to set them. There are two time zones. The
// stored one is a zone name in the database, which the daemons apply to the device. The current TZ of this
// process is a POSIX TZ rule, which only PUT /PSIA/System/time sets.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

void read_time(Context& context, const Request& request);
/// Answers a device error for a time that the device cannot represent, and sends nothing.
void write_time(Context& context, const Request& request);

void read_local_time(Context& context, const Request& request);
/// Takes a bare time text. A device that is not in manual mode answers OK and changes nothing.
void write_local_time(Context& context, const Request& request);

void read_time_zone(Context& context, const Request& request);
/// Takes a bare text: the first key of the time-zone table that begins with it, case ignored, gives the zone.
void write_time_zone(Context& context, const Request& request);

}  // namespace psia
