// The environment variables that libfcgi's accept takes away: it puts the request's variables in place of the
// process's own each time.
#pragma once

#include <string>
#include <vector>

#include "frame/fixed_text.h"

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

  /// Puts the TZ set by set_tz back. Call after every accept.
  void restore_tz();

  /// Makes `rule`, at most 63 characters of it, the current TZ and the process's TZ variable, and re-reads
  /// the zone setting.
  void set_tz(const char* rule);

  /// The TZ last set, empty when none was.
  [[nodiscard]] const char* current_tz() const { return current_tz_.c_str(); }

  /// The device's host name: the request's HOSTNAME variable, else the one from the service's start, else
  /// "(null)".
  [[nodiscard]] const char* host_name() const;

 private:
  std::string host_name_at_start_;
  char** variables_at_start_;
  FixedText<64> current_tz_;
  FixedText<sizeof("TZ=") + 63> tz_variable_;  // "TZ=..."; in the environment itself once it is set
  std::vector<char*> variables_;               // the environment once TZ is set, ended by a null
};

}  // namespace psia
