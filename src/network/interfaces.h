// The camera's wired interface eth0. Reading shows its addressing as it is; changing stores the addressing as
// it shall be and has the network daemon apply it: the service itself never touches the interface.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

void list_interfaces(Service& service, const Request& request);
void read_interface(Service& service, const Request& request);
void read_ip_address(Service& service, const Request& request);
void read_discovery(Service& service, const Request& request);

/// Both take the same address settings, from a NetworkInterface and from an IPAddress document. Nothing is
/// checked but the IP version and the interface's id: a malformed address is stored and passed on as given.
void set_interface(Service& service, const Request& request);
void set_ip_address(Service& service, const Request& request);

}  // namespace psia
