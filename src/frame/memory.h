// Memory that a large request has used goes back to the system.
#pragma once

#include <cstddef>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace psia {

/// Bytes of a body from which on that is worth the while: parsed, each can take 25. Ordinary requests have
/// fewer.
inline constexpr std::size_t kLargeBody = 8UL << 10;

/// Call when what a body of `size` bytes led to was freed. Freed memory otherwise stays with the process, in
/// pieces between others that are still in use.
inline void give_back_memory([[maybe_unused]] std::size_t size) {
#ifdef __GLIBC__
  if (size >= kLargeBody) malloc_trim(0);
#endif
}

}  // namespace psia
