#include "frame/text_buffer.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

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

TextBuffer::TextBuffer() : capacity_(kStep), data_(static_cast<char*>(std::malloc(kStep + 1))) {
  if (valid()) data_[0] = '\0';
}

TextBuffer::~TextBuffer() {
  std::free(data_);
}

void TextBuffer::grow_to_fit(std::size_t more) {
  const std::size_t steps = (length_ + more - capacity_ + kStep - 1) / kStep;
  const std::size_t capacity = capacity_ + steps * kStep;
  auto* data = static_cast<char*>(std::realloc(data_, capacity + 1));
  if (data == nullptr) {
    std::free(data_);
    length_ = 0;
  } else {
    capacity_ = capacity;
  }
  data_ = data;
}

void TextBuffer::append(const char* format, ...) {
  if (!valid()) return;
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int formatted = std::vsnprintf(data_ + length_, capacity_ - length_ + 1, format, arguments);
  va_end(arguments);
  if (formatted > 0) {
    const auto size = static_cast<std::size_t>(formatted);
    if (size > capacity_ - length_) {
      grow_to_fit(size);
      if (valid()) std::vsnprintf(data_ + length_, capacity_ - length_ + 1, format, again);
    }
    if (valid()) length_ += fold_percent_signs(data_ + length_, size);
  }
  va_end(again);
}

}  // namespace psia
