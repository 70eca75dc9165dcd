// What lives as long as the process; handlers get it as an argument, there are no globals.
#pragma once

#include "frame/control_queue.h"
#include "frame/database.h"
#include "frame/environment.h"

namespace psia {

struct tz_pair_list;

struct Service {
  Environment& environment;
  Database& database;
  const ControlQueues& queues;
  const tz_pair_list& time_zones;
};

}  // namespace psia
