// The device's local time as its documents show it.
#pragma once

#include <ctime>

namespace psia {

class TextBuffer;

/// The present time in the time zone last read by tzset(3); does not read it again.
[[nodiscard]] std::tm local_time_now();

/// Appends "2024-03-01T10:00:00", without a zone designator.
void append_time(TextBuffer& document, const std::tm& time);

}  // namespace psia
