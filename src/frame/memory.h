// Texts on the heap, and giving the memory of a large request back to the system.
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
/// A text that malloc(3) made room for.
using OwnedText = std::unique_ptr<char[], FreeText>;

/// Room for `size` bytes, not cleared; null when memory is short.
[[nodiscard]] inline OwnedText allocate_text(std::size_t size) {
  return OwnedText(static_cast<char*>(std::malloc(size)));
}

/// Bodies above this size, in bytes, are worth trimming the heap for: parsed, each byte can take 25. Ordinary
/// bodies are smaller.
inline constexpr std::size_t kLargeBody = 8UL << 10;

/// Call after everything was freed that a body of `size` bytes led to. Otherwise freed memory stays with the
/// process, in pieces between others that are still in use.
inline void give_back_memory([[maybe_unused]] std::size_t size) {
#ifdef __GLIBC__
  if (size >= kLargeBody) malloc_trim(0);
#endif
}

}  // namespace psia
