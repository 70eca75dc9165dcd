// Changes of the streaming channels: encoders, shared audio encoder, RTSP port. The parts of a body take
// effect one after the other: those before a failure stay changed.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

/// PUT of one channel and POST to the list: a StreamingChannel document. The body's id names the channel; the
/// URL's is ignored.
void write_streaming_channel(Context& context, const Request& request);

/// PUT of the list: a StreamingChannelList document.
void write_streaming_channels(Context& context, const Request& request);

}  // namespace psia
