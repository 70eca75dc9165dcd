// The camera's one video input, channel 1: brightness, contrast and hue of the sensor's picture, and the
// power-line frequency, which can only be read.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

void read_video_inputs(Service& service, const Request& request);
void read_video_input_channels(Service& service, const Request& request);
void read_video_input_channel(Service& service, const Request& request);
void write_video_input_channel(Service& service, const Request& request);

}  // namespace psia
