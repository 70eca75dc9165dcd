// The camera's wired interface eth0. Reading shows its live addressing. Writing stores the new addressing and
// asks the network daemon to apply it; the service itself never changes the interface.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

void read_interfaces(Context& context, const Request& request);
void read_interface(Context& context, const Request& request);
void read_ip_address(Context& context, const Request& request);
void read_discovery(Context& context, const Request& request);

/// Both take the same address settings, from a NetworkInterface and from an IPAddress document. Only the IP
/// version and the interface's id are checked: a malformed address is stored and passed on.
void write_interface(Context& context, const Request& request);
void write_ip_address(Context& context, const Request& request);

}  // namespace psia
