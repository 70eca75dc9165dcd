// What the program says to a person who starts it by hand. A web server or a supervisor passes no arguments
// and no terminal, and meets none of this.
#pragma once

#include <optional>

namespace psia {

/// Answers --version and --help on standard output, and a start on a terminal that is no request with how the
/// service is meant to be started. Returns the exit status to end with, or nothing when the service is to
/// run. Other arguments are not looked at.
[[nodiscard]] std::optional<int> answer_person(int argument_count, char* const* arguments);

}  // namespace psia
