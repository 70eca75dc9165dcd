// The service with the fault library loaded: a plan says which of its operations fails, and how fast time
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
    plan = static_cast<FaultPlan*>(
        mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
    close(file);
    start_with_plan();
  }

  void start_with_plan() {
    start_service(
        {.environment = {{"LD_PRELOAD", PSIA_FAULT_LIBRARY}, {"ASAN_OPTIONS", "verify_asan_link_order=0"}}});
    ASSERT_NE(get("/PSIA"), "");
  }

  std::string put(const std::string& uri, const std::string& body) {
    return call({.method = "PUT", .uri = uri, .body = body});
  }

  /// Lets `skip` operations of the kind go well and the `fail` after them fail.
  void plan_fault(FaultKind kind, int skip, int fail) const {
    plan->skip = skip;
    plan->fail = fail;
    plan->kind = kind;
  }

  FaultPlan* plan = nullptr;
};

}  // namespace psia_tests
