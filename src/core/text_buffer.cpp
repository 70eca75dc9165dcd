#include "core/text_buffer.h"

#include <charconv>
#include <cstdlib>
#include <utility>

namespace psia {

namespace {
constexpr std::size_t kStep = 1024;
constexpr std::size_t kMaxDigits = 11;  // a 32-bit number with its sign, and Piece's largest width
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

// Out of line, so that the loop over the pieces, most of which are texts, stays short.
[[gnu::noinline]] bool TextBuffer::append_number(const Piece& piece) {
  if (kMaxDigits > capacity_ - length_ && !grow_to_fit(kMaxDigits)) return false;
  const auto number = static_cast<std::int32_t>(piece.value_);
  char* const begin = data_ + length_;
  char* const end = std::to_chars(begin, begin + kMaxDigits, number).ptr;
  length_ = static_cast<std::size_t>(end - data_);
  if (const auto size = static_cast<std::size_t>(end - begin); size < piece.width_) {
    const std::size_t missing = piece.width_ - size;
    char* const digits = number < 0 && piece.padding_ == '0' ? begin + 1 : begin;  // zeros follow the sign
    std::memmove(digits + missing, digits, static_cast<std::size_t>(end - digits));
    std::memset(digits, piece.padding_, missing);
    length_ += missing;
  }
  return true;
}

void TextBuffer::append_all(const Piece* pieces, std::size_t count) {
  if (!valid()) return;
  const std::size_t start = length_;
  for (const Piece* piece = pieces; piece != pieces + count; ++piece) {
    if (piece->text_ == nullptr) {
      if (!append_number(*piece)) return;
      continue;
    }
    const std::size_t size = piece->value_;
    if (size > capacity_ - length_ && !grow_to_fit(size)) return;
    std::memcpy(data_ + length_, piece->text_, size);
    length_ += size;
  }
  if (std::memchr(data_ + start, '%', length_ - start) == nullptr) return;
  has_percent_ = true;
  length_ = start + fold_percent_signs(data_ + start, length_ - start);
}

void TextBuffer::fold() {
  if (valid() && has_percent_) length_ = fold_percent_signs(data_, length_);
}

}  // namespace psia
