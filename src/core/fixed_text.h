// A text of bounded size, for values of requests. Longer values are truncated, so that no client decides how
// much memory the service uses.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>

namespace psia {

/// Holds at most `Size` - 1 bytes and a terminating zero.
template <std::size_t Size>
class FixedText {
 public:
  FixedText() = default;
  explicit FixedText(const char* text) { assign(text); }

  /// Replaces the text by at most `Size` - 1 bytes of `text`.
  void assign(const char* text) { assign(text, std::strlen(text)); }

  /// The same for the first `length` bytes of `text`.
  void assign(const char* text, std::size_t length) {
    if (length > Size - 1) length = Size - 1;
    std::memcpy(data_.data(), text, length);
    data_[length] = '\0';
  }

  void clear() { data_[0] = '\0'; }

  [[nodiscard]] const char* c_str() const { return data_.data(); }
  [[nodiscard]] bool empty() const { return data_[0] == '\0'; }
  /// All `Size` bytes. After the terminating zero come zero bytes, or the rest of an earlier, longer text.
  /// The schedule reads these bytes, and its clients rely on the result; see apply_bit_string.
  [[nodiscard]] const std::array<char, Size>& bytes() const { return data_; }

 private:
  std::array<char, Size> data_{};
};

}  // namespace psia
