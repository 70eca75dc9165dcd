// What lives as long as the process. Handlers get it as an argument; there are no globals.
#pragma once

#include "frame/control_queue.h"
#include "frame/database.h"
#include "frame/environment.h"

namespace psia {

class IndexDocuments;
struct tz_pair_list;

struct Service {
  Environment& environment;
  Database& database;
  ControlQueues& queues;
  const tz_pair_list& time_zones;
  const IndexDocuments& index_documents;
};

}  // namespace psia
