#include "system/local_time.h"

#include "frame/text_buffer.h"

namespace psia {

std::tm local_time_now() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return local;
}

void append_time(TextBuffer& document, const std::tm& time) {
  document.append("%4d-%02d-%02dT%02d:%02d:%02d", time.tm_year + 1900, time.tm_mon + 1, time.tm_mday,
                  time.tm_hour, time.tm_min, time.tm_sec);
}

}  // namespace psia
