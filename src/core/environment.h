// Environment variables that must survive: each accepted request replaces the process's environment by its
// own variables.
#pragma once

#include <cstddef>

#include "core/fixed_text.h"
#include "core/memory.h"

namespace psia {

class Environment {
 public:
  /// Remembers what must survive the first accept. Call at start.
  Environment();
  ~Environment();
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;
  Environment(Environment&&) = delete;
  Environment& operator=(Environment&&) = delete;

  /// Puts the TZ set by set_tz back. Call after every accept. When memory is short, the request is served
  /// without it.
  void restore_tz();

  /// Makes `rule`, truncated to 63 characters, the current TZ and the process's TZ variable, and reads the
  /// zone anew.
  void set_tz(const char* rule);

  /// The TZ last set, empty when none was.
  [[nodiscard]] const char* current_tz() const;

  /// The device's host name: the request's HOSTNAME variable, else the one from the service's start, else
  /// "(null)".
  [[nodiscard]] const char* host_name() const;

 private:
  OwnedText host_name_at_start_;  // null when there was none
  char** variables_at_start_;
  FixedText<sizeof("TZ=") + 63>
      tz_variable_;             // "TZ=..."; empty until a TZ is set, then in the environment itself
  char** variables_ = nullptr;  // the environment once TZ is set, ended by a null
  std::size_t room_ = 0;        // for so many pointers
};

}  // namespace psia
