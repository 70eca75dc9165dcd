// The environment variables that libfcgi's accept takes away: it puts the request's variables in place of the
// process's own each time.
#pragma once

#include <cstddef>

#include "frame/fixed_text.h"
#include "frame/owned_text.h"

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

  /// Puts the TZ set by set_tz back. Call after every accept. When memory is too short for that the request
  /// goes without.
  void restore_tz();

  /// Makes `rule`, at most 63 characters of it, the current TZ and the process's TZ variable, and re-reads
  /// the zone setting.
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
