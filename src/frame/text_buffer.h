// The growable text in which a document is put together, so that its length is known before its header goes
// out. Also the one place that decides what a percent sign in a value looks like to the client.
#pragma once

#include <cstddef>

namespace psia {

/// Replaces each "%%" of the `length` bytes at `text` by "%" in place and returns the new length. No text of
/// a request or the database is ever used as a format; this keeps what clients have always been sent for
/// them.
[[nodiscard]] std::size_t fold_percent_signs(char* text, std::size_t length);

/// Starts with room for 1024 bytes and grows in steps of 1024. When memory is short the buffer is no longer
/// valid, further appends do nothing, and whoever sends it answers a device error instead.
class TextBuffer {
 public:
  TextBuffer();
  ~TextBuffer();
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;
  TextBuffer(TextBuffer&&) = delete;
  TextBuffer& operator=(TextBuffer&&) = delete;

  /// Appends the formatted text, whole however long it is; each "%%" in the result becomes "%".
  void append(const char* format, ...) __attribute__((format(printf, 2, 3)));

  /// Folds the percent signs of the whole text once more, as every document is when it is sent.
  void fold() { length_ = fold_percent_signs(data_, length_); }

  [[nodiscard]] bool valid() const { return data_ != nullptr; }
  [[nodiscard]] const char* data() const { return data_; }
  /// Bytes of text, without the terminating zero.
  [[nodiscard]] std::size_t length() const { return length_; }
  /// Bytes of text that fit before the buffer must grow.
  [[nodiscard]] std::size_t capacity() const { return capacity_; }

 private:
  void grow_to_fit(std::size_t more);

  std::size_t length_ = 0;
  std::size_t capacity_;
  char* data_;  // capacity_ + 1 bytes, or null when memory ran short
};

}  // namespace psia
