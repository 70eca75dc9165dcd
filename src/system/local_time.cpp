#include "system/local_time.h"

#include "core/text_buffer.h"

namespace psia {

std::tm local_time_now() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return local;
}

void append_time(TextBuffer& document, const std::tm& time) {
  document.append(Piece(time.tm_year + 1900, 4, ' '), "-", two_digits(time.tm_mon + 1), "-",
                  two_digits(time.tm_mday), "T", two_digits(time.tm_hour), ":", two_digits(time.tm_min), ":",
                  two_digits(time.tm_sec));
}

}  // namespace psia
