// A text whose memory comes from malloc(3) and is released with it.
#pragma once

#include <cstdlib>
#include <memory>

namespace psia {

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};
using OwnedText = std::unique_ptr<char[], FreeText>;

/// Room for `size` bytes, not cleared; null when memory is short.
[[nodiscard]] inline OwnedText allocate_text(std::size_t size) {
  return OwnedText(static_cast<char*>(std::malloc(size)));
}

}  // namespace psia
