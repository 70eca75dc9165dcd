// Runs the service tests inside a simulated camera.
#include <gtest/gtest.h>

#include <cstdio>

#include "simulator/device.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!GTEST_FLAG_GET(list_tests)) {
    const std::string fault = camera::enter_private_device();
    if (!fault.empty()) {
      std::fprintf(stderr, "The service tests need a simulated camera: %s\n", fault.c_str());
      return 1;
    }
  }
  return RUN_ALL_TESTS();
}
