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

bool TextBuffer::grow_to_fit(std::size_t more) {
  const std::size_t capacity = (length_ + more + kStep - 1) / kStep * kStep;
  auto* const data = static_cast<char*>(std::realloc(data_, capacity));
  if (data == nullptr) {
    std::free(std::exchange(data_, nullptr));
    return false;
  }
  data_ = data;
  capacity_ = capacity;
  return true;
}

void TextBuffer::append_all(const Piece* pieces, std::size_t count) {
  if (!valid()) return;
  const std::size_t start = length_;
  const auto append_bytes = [this](const char* bytes, std::size_t size) {
    if (size > capacity_ - length_ && !grow_to_fit(size)) return false;
    std::memcpy(data_ + length_, bytes, size);
    length_ += size;
    return true;
  };
  for (const Piece* piece = pieces; piece != pieces + count; ++piece) {
    if (piece->text_ != nullptr) {
      if (!append_bytes(piece->text_, piece->value_)) return;
    } else {
      const DecimalText digits(static_cast<std::int32_t>(piece->value_), piece->width_, piece->padding_);
      if (!append_bytes(digits.c_str(), digits.length())) return;
    }
  }
  if (std::memchr(data_ + start, '%', length_ - start) == nullptr) return;
  has_percent_ = true;
  length_ = start + fold_percent_signs(data_ + start, length_ - start);
}

void TextBuffer::fold() {
  if (valid() && has_percent_) length_ = fold_percent_signs(data_, length_);
}

}  // namespace psia
