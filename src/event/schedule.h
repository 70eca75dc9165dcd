// The weekly schedule of the camera's trigger: the days on which it is armed, and one range of hours for all
// of them.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

void read_schedule(Context& context, const Request& request);
void write_schedule(Context& context, const Request& request);

}  // namespace psia
