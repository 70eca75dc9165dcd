// What a test and the fault library, which is loaded into the service, tell each other in a file that both
// map.
#pragma once

#include <atomic>

constexpr const char* kFaultPlanFile = "/usr/local/orvid/faults";

/// Allocations, SQLite's writes, flushes and locks; kStop: a SIGTERM just before an accept or a send that
/// blocks.
enum FaultKind : int { kNoFault, kMemory, kWrite, kSync, kLock, kStop };

struct FaultPlan {
  std::atomic<int> kind;
  std::atomic<int> skip;   ///< so many operations go well before
  std::atomic<int> fail;   ///< so many that fail then; counts down
  std::atomic<int> speed;  ///< clocks and waits run so many times faster; 0 as 1
  std::atomic<int> slept;  ///< milliseconds of all sleeps, as they were asked for
};
