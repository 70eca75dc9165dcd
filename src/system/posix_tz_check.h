// Checks a POSIX TZ rule, such as "CET-1CEST,M3.5.0,M10.5.0/3", before it is put into the environment: the C
// library silently takes a bad one for UTC.
#pragma once

#include <string_view>

namespace psia {

/// 0 when `text` is an acceptable POSIX TZ rule (POSIX.1-2017, Base Definitions, 8.3), else a negative code:
///   -1 standard name, -2 standard offset, -3 daylight name, -4 daylight offset,
///   -5 start rule, -6 start time, -7 end rule, -8 end time:
///      a character that does not belong there, or more than 31 characters;
///   -9 an offset, -10 a rule, -11 a time out of its range.
/// Of several errors the last range error is reported, before any bad character. A text that ends early, even
/// an empty one, is acceptable. Names in angle brackets and offsets of 24 hours and more are not.
[[nodiscard]] int posix_tz_check(std::string_view text);

}  // namespace psia
