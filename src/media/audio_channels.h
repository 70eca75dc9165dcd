// The camera's one audio input, channel 1. It is listen-only and can be switched on and off. Its codec
// belongs to the streaming channels.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

void read_audio_channel(Service& service, const Request& request);
void read_audio_channels(Service& service, const Request& request);
void write_audio_channel(Service& service, const Request& request);

}  // namespace psia
