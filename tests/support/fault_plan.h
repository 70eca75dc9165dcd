// What a test and the fault library, which is loaded into the service, tell each other: a page of a file that
// both have in memory.
#pragma once

#include <atomic>

namespace psia_tests {

constexpr const char* kFaultPlanFile = "/usr/local/orvid/faults";

enum FaultKind : int {
  kNoFault,
  kMemory,  ///< allocations of the service, libxml2 and SQLite
  kWrite,   ///< SQLite's writes into files
  kSync,    ///< SQLite's waits for the medium
  kLock,    ///< SQLite's locks
};

struct FaultPlan {
  std::atomic<int> kind;   ///< what is to fail
  std::atomic<int> skip;   ///< so many go well before
  std::atomic<int> fail;   ///< so many then fail; what is left was not reached
  std::atomic<int> speed;  ///< clocks and waits run so many times faster; 0 as 1
};

}  // namespace psia_tests
