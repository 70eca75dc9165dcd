// Numbers as the device's 32-bit processor reads and multiplies them, the same on every host: conversions
// saturate, arithmetic wraps, nothing is undefined.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace psia {

/// Converts the decimal number at the start of `text` (white space and a sign may precede it) like strtol
/// with a 32-bit long: stops at the first other character, gives 0 where there is no digit, saturates at the
/// ends.
[[nodiscard]] inline std::int32_t to_int32(const char* text) {
  const long long value = std::strtoll(text, nullptr, 10);
  if (value > std::numeric_limits<std::int32_t>::max()) return std::numeric_limits<std::int32_t>::max();
  if (value < std::numeric_limits<std::int32_t>::min()) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(value);
}

/// A number in decimal digits, as printf writes it with %d; `width` and `padding` are those of "%4d" (' ')
/// and
/// "%02d" ('0').
class DecimalText {
 public:
  static constexpr int kMaxWidth = 11;  ///< that of the smallest 32-bit number

  explicit DecimalText(std::int32_t number, int width = 0, char padding = ' ') {
    char* const end = &text_.back();
    char* const least = end - width;
    const bool negative = number < 0;
    auto left = static_cast<std::uint32_t>(number);
    if (negative) left = 0U - left;
    begin_ = end;
    do {
      *--begin_ = static_cast<char>('0' + left % 10);
      left /= 10;
    } while (left != 0);
    if (padding == '0') {
      while (begin_ > least + (negative ? 1 : 0))
        *--begin_ = '0';
    }
    if (negative) *--begin_ = '-';
    while (begin_ > least)
      *--begin_ = ' ';
  }
  DecimalText(const DecimalText&) = delete;
  DecimalText& operator=(const DecimalText&) = delete;
  DecimalText(DecimalText&&) = delete;
  DecimalText& operator=(DecimalText&&) = delete;
  ~DecimalText() = default;

  [[nodiscard]] const char* c_str() const { return begin_; }
  [[nodiscard]] std::size_t length() const { return static_cast<std::size_t>(&text_.back() - begin_); }

 private:
  std::array<char, kMaxWidth + 1> text_{};
  char* begin_ = nullptr;
};

/// Sum of two numbers modulo 2^32.
[[nodiscard]] inline std::int32_t wrapping_add(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

/// Product of two numbers modulo 2^32.
[[nodiscard]] inline std::int32_t wrapping_multiply(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

}  // namespace psia
