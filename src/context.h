// What lives as long as the process. Handlers get it as an argument; there are no globals.
#pragma once

#include "core/control_queue.h"
#include "core/database.h"
#include "core/environment.h"

namespace psia {

class IndexDocuments;
struct tz_pair_list;

struct Context {
  Environment& environment;
  Database& database;
  ControlQueues& queues;
  const tz_pair_list& time_zones;
  const IndexDocuments& index_documents;
};

}  // namespace psia
