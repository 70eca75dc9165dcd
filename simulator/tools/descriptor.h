// A file descriptor that its owner closes.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace camera {

struct Descriptor {
  explicit Descriptor(int descriptor) : number(descriptor) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&& other) noexcept {
    reset();
    number = std::exchange(other.number, -1);
    return *this;
  }
  ~Descriptor() { reset(); }
  void reset() {
    if (number >= 0) close(number);
    number = -1;
  }
  int number;
};

/// The failed operation `what` with the text of errno.
[[nodiscard]] inline std::string system_error(const std::string& what) {
  return what + ": " + std::strerror(errno);
}

}  // namespace camera
