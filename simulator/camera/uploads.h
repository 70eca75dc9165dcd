// Watches for settings that a client uploads, checks them, and applies them at the next boot.
#pragma once

#include <optional>
#include <string>

#include "simulator/tools/descriptor.h"

namespace camera {

class Uploads {
 public:
  Uploads();

  /// The verdict on an upload that has been stored since the last call; null when there is none.
  [[nodiscard]] std::optional<std::string> news();

  /// Replaces the settings by the upload that waits, and removes its file. Gives the result in words; null
  /// when no upload waits.
  [[nodiscard]] std::optional<std::string> apply();
  /// Removes the file without applying it.
  void forget();

 private:
  Descriptor watch_;
  bool waiting_ = false;
};

}  // namespace camera
