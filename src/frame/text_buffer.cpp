#include "frame/text_buffer.h"

#include <cstdlib>
#include <utility>

#include "frame/numbers.h"

namespace psia {

namespace {
constexpr std::size_t kStep = 1024;
}  // namespace

std::size_t fold_percent_signs(char* text, std::size_t length) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < length; ++i) {
    text[kept++] = text[i];
    if (text[i] == '%' && i + 1 < length && text[i + 1] == '%') ++i;
  }
  return kept;
}

TextBuffer::TextBuffer() : capacity_(kStep), data_(static_cast<char*>(std::malloc(kStep))) {}

TextBuffer::~TextBuffer() {
  std::free(data_);
}

void TextBuffer::append_bytes(const char* bytes, std::size_t count) {
  if (count > capacity_ - length_) {
    const std::size_t capacity = (length_ + count + kStep - 1) / kStep * kStep;
    auto* const data = static_cast<char*>(std::realloc(data_, capacity));
    if (data == nullptr) {
      std::free(std::exchange(data_, nullptr));
      return;
    }
    data_ = data;
    capacity_ = capacity;
  }
  std::memcpy(data_ + length_, bytes, count);
  length_ += count;
}

void TextBuffer::append_all(const Piece* pieces, std::size_t count) {
  const std::size_t start = length_;
  for (const Piece* piece = pieces; piece != pieces + count; ++piece) {
    if (!valid()) return;
    if (piece->text_ != nullptr) {
      append_bytes(piece->text_, piece->value_);
    } else {
      const DecimalText digits(static_cast<std::int32_t>(piece->value_), piece->width_, piece->padding_);
      append_bytes(digits.c_str(), digits.length());
    }
  }
  if (!valid() || std::memchr(data_ + start, '%', length_ - start) == nullptr) return;
  has_percent_ = true;
  length_ = start + fold_percent_signs(data_ + start, length_ - start);
}

void TextBuffer::fold() {
  if (valid() && has_percent_) length_ = fold_percent_signs(data_, length_);
}

}  // namespace psia
