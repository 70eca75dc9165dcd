// Answers a person who starts the program by hand. A web server or a supervisor gives it neither arguments
// nor a terminal and never gets here.
#pragma once

#include <optional>

namespace psia {

/// Prints the answers to --version and --help on standard output. On a terminal, without a request in the
/// environment, prints how to start the service. Returns the exit status to end with, or nothing when the
/// service is to run. Other arguments are ignored.
[[nodiscard]] std::optional<int> answer_person(int argument_count, char* const* arguments);

}  // namespace psia
