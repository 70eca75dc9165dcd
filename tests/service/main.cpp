// Runs the service tests inside a simulated camera.
#include <gtest/gtest.h>

#include <cstdio>

#include "simulator/device/device.h"

namespace {

/// Ends a test at its first failure, however deep in helpers that is.
class EndAtFirstFailure : public testing::EmptyTestEventListener {
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (result.failed()) throw testing::AssertionException(result);
  }
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new EndAtFirstFailure);
  if (!GTEST_FLAG_GET(list_tests)) {
    const std::string fault = camera::enter_private_device();
    if (!fault.empty()) {
      std::fprintf(stderr, "The service tests need a simulated camera: %s\n", fault.c_str());
      return 1;
    }
  }
  return RUN_ALL_TESTS();
}
