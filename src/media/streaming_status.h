// Who is watching the streams: the streaming daemon keeps a row for each connected client.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

/// Number and addresses of all clients.
void read_streaming_status(Context& context, const Request& request);

/// The addresses of one stream's clients; a device error when it has none.
void read_streaming_channel_status(Context& context, const Request& request);

}  // namespace psia
