// The camera's wired interface eth0. Reading shows its live addressing. Writing stores the new addressing and
// asks the network daemon to apply it; the service itself never changes the interface.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

void read_interfaces(Service& service, const Request& request);
void read_interface(Service& service, const Request& request);
void read_ip_address(Service& service, const Request& request);
void read_discovery(Service& service, const Request& request);

/// Both take the same address settings, from a NetworkInterface and from an IPAddress document. Only the IP
/// version and the interface's id are checked: a malformed address is stored and passed on.
void write_interface(Service& service, const Request& request);
void write_ip_address(Service& service, const Request& request);

}  // namespace psia
