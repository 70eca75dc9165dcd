// The weekly schedule of the camera's trigger: the days on which it is armed, and one range of hours for all
// of them.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

void read_schedule(Service& service, const Request& request);
void write_schedule(Service& service, const Request& request);

}  // namespace psia
