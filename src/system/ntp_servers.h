// The device's one NTP server, shown both as a list and as a single server, whatever its id in the URL.
// Changes are only stored: the daemons learn of them with the next time message.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

void read_ntp_servers(Context& context, const Request& request);
/// Stores the last host name of the list. Addresses are ignored: a list that gives only an `ipAddress` stores
/// an empty server.
void write_ntp_servers(Context& context, const Request& request);

void read_ntp_server(Context& context, const Request& request);
/// Also serves POST to the list. Stores the host name; with an `addressingFormatType` the address, even an
/// empty one.
void write_ntp_server(Context& context, const Request& request);

}  // namespace psia
