// The growable text in which a document is built: the header, which is sent first, needs its length. This is
// also the only place that decides how clients see a percent sign in a value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace psia {

/// One argument of TextBuffer::append: a zero-terminated text, or a number, which is written in decimal
/// digits. Does not own its text.
class Piece {
 public:
  // Implicit, so that the arguments of append can be texts and numbers.
  // NOLINTBEGIN(google-explicit-constructor)
  Piece(const char* text) : text_(text), value_(static_cast<std::uint32_t>(std::strlen(text))) {}
  Piece(std::int32_t number) : Piece(number, 0, ' ') {}
  // NOLINTEND(google-explicit-constructor)
  /// The number as printf's "%02d" (padding '0') and "%4d" (' ') write it; `width` is at most 11.
  Piece(std::int32_t number, std::uint8_t width, char padding)
      : value_(static_cast<std::uint32_t>(number)), width_(width), padding_(padding) {}

 private:
  friend class TextBuffer;

  const char* text_ = nullptr;  // null for a number
  std::uint32_t value_;         // the text's length, or the number
  std::uint8_t width_ = 0;
  char padding_ = ' ';
};

/// A number of at least two digits, "05".
[[nodiscard]] inline Piece two_digits(std::int32_t number) {
  return {number, 2, '0'};
}

/// Replaces each "%%" of the `length` bytes at `text` by "%" in place and returns the new length. Kept for
/// compatibility: clients have always been sent values in this form. No value is ever used as a format.
[[nodiscard]] std::size_t fold_percent_signs(char* text, std::size_t length);

/// Starts with room for 1024 bytes and grows in steps of 1024. When memory is short the buffer is no longer
/// valid: further appends do nothing, and a device error is sent in its place.
class TextBuffer {
 public:
  TextBuffer();
  ~TextBuffer();
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;
  TextBuffer(TextBuffer&&) = delete;
  TextBuffer& operator=(TextBuffer&&) = delete;

  /// Appends the pieces as one text of any length, in which each "%%" becomes "%".
  template <typename... Pieces>
  void append(Pieces... pieces) {
    const Piece all[] = {pieces...};
    append_all(all, sizeof...(pieces));
  }

  /// Folds the percent signs of the whole text once more. Done to every document before it is sent.
  void fold();

  [[nodiscard]] bool valid() const { return data_ != nullptr; }
  [[nodiscard]] const char* data() const { return data_; }
  /// Bytes of text; no zero byte follows them.
  [[nodiscard]] std::size_t length() const { return length_; }

 private:
  void append_all(const Piece* pieces, std::size_t count);
  // These are false when memory is short; the buffer is then no longer valid.
  [[nodiscard]] bool append_number(const Piece& piece);
  [[nodiscard]] bool grow_to_fit(std::size_t more);

  std::size_t length_ = 0;
  std::size_t capacity_;
  char* data_;                // capacity_ bytes, or null when memory ran short
  bool has_percent_ = false;  // otherwise there is nothing to fold
};

}  // namespace psia
