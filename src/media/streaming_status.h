// Who is watching the streams: the streaming daemon keeps a row for each connected client.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

/// Number and addresses of all clients.
void read_streaming_status(Service& service, const Request& request);

/// The addresses of one stream's clients; a device error when it has none.
void read_streaming_channel_status(Service& service, const Request& request);

}  // namespace psia
