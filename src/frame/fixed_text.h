// A text of bounded size: what a request's values are copied into. Longer values are cut without a word, so
// that no client decides how much memory the service uses.
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
  /// All `Size` bytes. Behind the terminating zero stand zero bytes, or what an earlier, longer text left
  /// there: the schedule's bit strings show it to clients, who have always seen the rest of the string
  /// before.
  [[nodiscard]] const std::array<char, Size>& bytes() const { return data_; }

 private:
  std::array<char, Size> data_{};
};

}  // namespace psia
