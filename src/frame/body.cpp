#include "frame/body.h"

#include <fcgi_stdio.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "frame/memory.h"
#include "frame/numbers.h"

namespace psia {

namespace {

/// The announced length in bytes, or -1 when it is missing, negative or above `limit`.
long long announced_length(const Request& request, long long limit) {
  if (request.content_length == nullptr) return -1;
  const long long length = to_int32(request.content_length);
  return length < 0 || length > limit ? -1 : length;
}

}  // namespace

Body Body::read(const Request& request) {
  Body body;
  const long long length = announced_length(request, kMaxBodyInMemory);
  if (length <= 0) return body;
  body.size_ = static_cast<std::size_t>(length);
  body.text_ = static_cast<char*>(std::calloc(body.size_ + 1, 1));
  if (body.text_ != nullptr && FCGI_fread(body.text_, body.size_, 1, FCGI_stdin) != 1) {
    std::free(std::exchange(body.text_, nullptr));
  }
  return body;
}

Body::~Body() {
  std::free(text_);
  give_back_memory(size_);
}

Body::Body(Body&& other) noexcept
    : text_(std::exchange(other.text_, nullptr)), size_(std::exchange(other.size_, 0)) {}

int save_body(const Request& request, const char* path) {
  long long left = announced_length(request, kMaxBodyInFile);
  if (left < 0) return -1;
  FCGI_FILE* file = FCGI_fopen(path, "wb");
  if (file == nullptr) return -1;
  std::array<char, 1024> piece{};
  while (left > 0) {
    const auto size = static_cast<std::size_t>(std::min<long long>(left, piece.size()));
    if (FCGI_fread(piece.data(), size, 1, FCGI_stdin) != 1) break;
    if (FCGI_fwrite(piece.data(), size, 1, file) != 1) {
      FCGI_fclose(file);
      return -2;
    }
    left -= static_cast<long long>(size);
  }
  return FCGI_fclose(file) == 0 ? 0 : -3;
}

}  // namespace psia
