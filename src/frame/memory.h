// Memory that a large request has used goes back to the system.
#pragma once

#include <cstddef>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace psia {

/// Bytes from which on it is worth the while; ordinary requests use a few kilobytes and pay nothing.
inline constexpr std::size_t kLargeUse = 64UL << 10;

/// Call after `used` bytes were freed. Freed memory otherwise stays with the process, in pieces
/// between others that are still in use. Does nothing for the few kilobytes of an ordinary request.
inline void give_back_memory([[maybe_unused]] std::size_t used) {
#ifdef __GLIBC__
  if (used >= kLargeUse) malloc_trim(0);
#endif
}

}  // namespace psia
