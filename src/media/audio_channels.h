// The camera's one audio input, channel 1: listen-only, can be switched on and off. Its codec belongs to the
// streaming channels.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

void read_audio_channel(Service& service, const Request& request);
void list_audio_channels(Service& service, const Request& request);
void set_audio_channel(Service& service, const Request& request);

}  // namespace psia
