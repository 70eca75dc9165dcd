#include "core/sleep.h"

#include <cerrno>
#include <ctime>

namespace psia {

void sleep_milliseconds(int milliseconds) {
  timespec left{milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1000000};
  while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
  }
}

}  // namespace psia
