// The device's clock and time zone: reads them, has the daemons set them. There are two time zones: the one
// stored in the database, a zone name, which the daemons apply to the device; and the current TZ of this
// process, a POSIX TZ rule that only PUT /PSIA/System/time sets.
#pragma once

#include "frame/owned_text.h"
#include "frame/request.h"

namespace psia {

class Database;
struct Service;

/// The POSIX TZ rule of the stored zone: the last line of its file below /usr/share/zoneinfo, which in a
/// compiled zone file of version 2 and later is the rule (RFC 8536, 3.3). The zone is GMT when none can be
/// read; the name counts up to 127 characters; the stored name "CST-0" stands for itself. Null when the file
/// cannot be read, is empty or larger than 1 MiB, or memory is short.
[[nodiscard]] OwnedText current_posix_tz(Database& database);

void read_time(Service& service, const Request& request);
/// A time that the device cannot represent is a device error, and nothing is sent.
void write_time(Service& service, const Request& request);

void read_local_time(Service& service, const Request& request);
/// Takes a bare time text. A device that is not in manual mode answers OK and changes nothing.
void set_local_time(Service& service, const Request& request);

void read_time_zone(Service& service, const Request& request);
/// Takes a bare POSIX TZ rule, the beginning of one, or the name of a zone that has no rule in the table.
void set_time_zone(Service& service, const Request& request);

}  // namespace psia
