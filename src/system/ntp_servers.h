// The device's one NTP server, shown both as a list and as a single server, whatever its id in the URL.
// Changes are only stored: the daemons learn of them with the next time message.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

void list_ntp_servers(Service& service, const Request& request);
/// Stores the last host name of the list. Addresses are not looked at: a list that gives only an `ipAddress`
/// stores an empty server.
void replace_ntp_servers(Service& service, const Request& request);

void read_ntp_server(Service& service, const Request& request);
/// Also serves POST to the list. Stores the host name; the address instead, even an empty one, when there is
/// an `addressingFormatType`.
void update_ntp_server(Service& service, const Request& request);

}  // namespace psia
