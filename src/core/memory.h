// Texts on the heap, and returning the memory of a large request to the system.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace psia {

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};
/// A text allocated with malloc(3).
using OwnedText = std::unique_ptr<char[], FreeText>;

/// Allocates `size` bytes, not cleared; null when memory is short.
[[nodiscard]] inline OwnedText allocate_text(std::size_t size) {
  return OwnedText(static_cast<char*>(std::malloc(size)));
}

/// Bodies of at least this many bytes trigger malloc_trim(3). A parsed document can take 25 bytes for each
/// byte of its text. Ordinary bodies are smaller.
inline constexpr std::size_t kLargeBody = 8UL << 10;

/// Call after a body of `size` bytes and everything made from it was freed. Without this the process keeps
/// the freed memory, because it lies between blocks that are still in use.
inline void give_back_memory([[maybe_unused]] std::size_t size) {
#ifdef __GLIBC__
  if (size >= kLargeBody) malloc_trim(0);
#endif
}

}  // namespace psia
