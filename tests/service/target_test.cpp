// What the device's libraries must bear.
#include <fcntl.h>
#include <sys/stat.h>

#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

using TargetTest = ServiceTest;

// A 32-bit SQLite that was built with a 32-bit time_t cannot open such a file.
TEST_F(TargetTest, ADatabaseFileDated2040IsReadAndWritten) {
  const timespec year_2040{2208988800, 0};
  const timespec times[] = {year_2040, year_2040};
  ASSERT_EQ(utimensat(AT_FDCWD, camera::kDatabase, times, 0), 0);
  start_service();
  expect_effects(R"(
PUT /PSIA/System/deviceInfo DeviceInfo(deviceName=`from 2040`) => Network DDNSHostname=from 2040; status 1
)");
}

}  // namespace
}  // namespace psia_tests
