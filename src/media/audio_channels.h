// The camera's one audio input, channel 1. It is listen-only and can be switched on and off. Its codec
// belongs to the streaming channels.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

void read_audio_channel(Context& context, const Request& request);
void read_audio_channels(Context& context, const Request& request);
void write_audio_channel(Context& context, const Request& request);

}  // namespace psia
