// Numbers as the device's 32-bit processor reads and multiplies them, the same on every host: conversions
// saturate, arithmetic wraps, nothing is undefined.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <limits>

namespace psia {

/// Converts the decimal number at the start of `text` like strtol with a 32-bit long: skips white space,
/// takes a sign, stops at the first other character. Gives 0 without a digit and saturates at the ends of the
/// range.
[[nodiscard]] inline std::int32_t to_int32(const char* text) {
  const long long value = std::strtoll(text, nullptr, 10);
  if (value > std::numeric_limits<std::int32_t>::max()) return std::numeric_limits<std::int32_t>::max();
  if (value < std::numeric_limits<std::int32_t>::min()) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(value);
}

/// Sum of two numbers modulo 2^32.
[[nodiscard]] inline std::int32_t wrapping_add(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

/// Product of two numbers modulo 2^32.
[[nodiscard]] inline std::int32_t wrapping_multiply(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

}  // namespace psia
