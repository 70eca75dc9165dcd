// Notices when a client's upload has been stored, and judges it.
#pragma once

#include <optional>
#include <string>

#include "simulator/tools/descriptor.h"

namespace camera {

class Uploads {
 public:
  Uploads();

  /// What is to be said about an upload that has just been stored; nothing when there is none.
  [[nodiscard]] std::optional<std::string> news();

  /// Makes the upload that is waiting, when there is one, the camera's settings, and removes it. Gives what
  /// is to be said about it.
  [[nodiscard]] std::optional<std::string> apply();
  /// Removes it without that.
  void forget();

 private:
  Descriptor watch_;
  bool waiting_ = false;
};

}  // namespace camera
