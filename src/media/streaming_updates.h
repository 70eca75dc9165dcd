// Changes of the streaming channels: encoders, shared audio encoder, RTSP port. Each part of a body takes
// effect as it is met, so that what stands before a failure stays changed.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

/// PUT of one channel and POST to the list: a StreamingChannel document. The channel is the one named in the
/// body; the URL's is not looked at.
void update_streaming_channel(Service& service, const Request& request);

/// PUT of the list: a StreamingChannelList document.
void update_streaming_channels(Service& service, const Request& request);

}  // namespace psia
