// The service with a fault_library loaded: a plan says which of its operations fails, and how fast time
// passes.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>

#include "tests/support/fault_plan.h"
#include "tests/support/service_fixture.h"

namespace psia_tests {

class FaultTest : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    write_file(kFaultPlanFile, std::string(sizeof(FaultPlan), '\0'));
    const int file = open(kFaultPlanFile, O_RDWR | O_CLOEXEC);
    void* const page = mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    ASSERT_NE(page, MAP_FAILED);
    plan = static_cast<FaultPlan*>(page);
    start_with_plan();
  }

  void start_with_plan() {
    start_service(
        {.environment = {{"LD_PRELOAD", PSIA_FAULT_LIBRARY}, {"ASAN_OPTIONS", "verify_asan_link_order=0"}}});
    ASSERT_NE(get("/PSIA"), "");
  }

  /// Lets `skip` operations go well and the `fail` after them fail.
  void plan_fault(FaultKind kind, int skip, int fail) const {
    plan->skip = skip;
    plan->fail = fail;
    plan->kind = kind;
  }
  /// Ends the plan; true when it had its effect.
  [[nodiscard]] bool fault_happened(int fail) const {
    plan->kind = kNoFault;
    return plan->fail < fail;
  }

  FaultPlan* plan = nullptr;
};

}  // namespace psia_tests
