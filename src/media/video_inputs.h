// The camera's one video input, channel 1: brightness, contrast and hue of the sensor's picture, and the
// power-line frequency, which can only be read.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

void read_video_inputs(Context& context, const Request& request);
void read_video_input_channels(Context& context, const Request& request);
void read_video_input_channel(Context& context, const Request& request);
void write_video_input_channel(Context& context, const Request& request);

}  // namespace psia
