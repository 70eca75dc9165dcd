// Reads the body of a request, either into memory for parsing or straight into a file. A body is truncated
// when the peer is silent for too long; stop.h has the limits.
#pragma once

#include <cstddef>

#include "core/memory.h"
#include "core/request.h"

namespace psia {

/// Largest body taken into memory: 1 MiB. The longest documents clients send are a few kilobytes.
inline constexpr long long kMaxBodyInMemory = 1LL << 20;
/// Largest body stored in a file: 64 MiB, well above a settings file and well below the device's memory.
inline constexpr long long kMaxBodyInFile = 64LL << 20;

/// A request body in memory; owns it.
class Body {
 public:
  /// Reads the whole body. Gives no body when its length is missing, negative, 0 or above kMaxBodyInMemory,
  /// when fewer bytes come than announced, and when memory is short.
  [[nodiscard]] static Body read(const Request& request);

  Body() = default;
  ~Body();
  Body(const Body&) = delete;
  Body& operator=(const Body&) = delete;
  Body(Body&& other) noexcept;
  Body& operator=(Body&& other) = delete;

  explicit operator bool() const { return text_ != nullptr; }
  /// Zero-terminated; a zero byte inside the body ends the text there.
  [[nodiscard]] const char* text() const { return text_.get(); }

 private:
  OwnedText text_;
  std::size_t size_ = 0;
};

/// Stores the body in the file `path`, replacing it. Returns 0 when it was stored. When fewer bytes come than
/// announced, it also returns 0, and the file ends with the last complete piece of 1024 bytes. Returns -1
/// when the length is missing, negative or above kMaxBodyInFile, which leaves the file unchanged, or when the
/// file cannot be opened; -2 when a write failed; -3 when closing the file failed.
[[nodiscard]] int save_body(const Request& request, const char* path);

}  // namespace psia
