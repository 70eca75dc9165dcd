#include "core/body.h"

#include <fcgi_stdio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "core/file.h"
#include "core/numbers.h"
#include "core/stop.h"

namespace psia {

namespace {

/// The announced length in bytes, or -1 when it is missing, negative or above `limit`.
long long announced_length(const Request& request, long long limit) {
  if (request.content_length == nullptr) return -1;
  const long long length = to_int32(request.content_length);
  return length < 0 || length > limit ? -1 : length;
}

/// Takes at most `size` bytes of the body. Waits for the first one, then takes what has already arrived. 0 at
/// the end of the body.
std::size_t take(char* to, std::size_t size) {
  const PeerAwaited awaited(Wait::kBody);
  FCGX_Stream* const stream = FCGI_stdin->fcgx_stream;
  if (stream == nullptr) {  // a plain CGI program; nobody else reads its standard input
    if (!PeerAwaited::until_readable(STDIN_FILENO)) return 0;
    return static_cast<std::size_t>(std::max<ssize_t>(::read(STDIN_FILENO, to, size), 0));
  }
  const int first = FCGX_GetChar(stream);
  if (first == EOF) return 0;
  *to = static_cast<char>(static_cast<unsigned char>(first));
  const auto more = std::min(size - 1, static_cast<std::size_t>(stream->stop - stream->rdNext));
  return 1 + static_cast<std::size_t>(FCGX_GetStr(to + 1, static_cast<int>(more), stream));
}

/// Waits for exactly `size` bytes; false when fewer come.
bool receive(char* to, std::size_t size) {
  while (size > 0) {
    const std::size_t count = take(to, size);
    if (count == 0) return false;
    to += count;
    size -= count;
  }
  return true;
}

}  // namespace

Body Body::read(const Request& request) {
  Body body;
  const long long length = announced_length(request, kMaxBodyInMemory);
  if (length <= 0) return body;
  body.size_ = static_cast<std::size_t>(length);
  OwnedText text = allocate_text(body.size_ + 1);
  if (text == nullptr || !receive(text.get(), body.size_)) return body;
  text[body.size_] = '\0';
  body.text_ = std::move(text);
  return body;
}

Body::~Body() {
  text_.reset();
  give_back_memory(size_);
}

Body::Body(Body&& other) noexcept : text_(std::move(other.text_)), size_(std::exchange(other.size_, 0)) {}

int save_body(const Request& request, const char* path) {
  long long left = announced_length(request, kMaxBodyInFile);
  if (left < 0) return -1;
  File file = open_file(path, "wb");
  if (!file) return -1;
  std::array<char, 1024> piece{};
  while (left > 0) {
    const auto size = static_cast<std::size_t>(std::min<long long>(left, piece.size()));
    if (!receive(piece.data(), size)) break;
    if (std::fwrite(piece.data(), size, 1, file.get()) != 1) return -2;
    left -= static_cast<long long>(size);
  }
  return std::fclose(file.release()) == 0 ? 0 : -3;
}

}  // namespace psia
