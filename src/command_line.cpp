#include "command_line.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace psia {

namespace {

constexpr const char* kVersion = "psia.fcgi " PSIA_VERSION "\n";

constexpr const char* kHelp =
    "This is the PSIA management service of a network camera, a FastCGI program. A web server or a supervisor\n"
    "starts it with a listening Unix socket as descriptor 0 and passes it every URL under /PSIA. It takes no\n"
    "options and reads no configuration file: its settings are in " PSIA_SETTINGS_DIR
    "/morvid.db.\n"
    "\n"
    "With anything else as descriptor 0 and REQUEST_METHOD in the environment it serves that one CGI request.\n"
    "Do not do so beside a running service: each start empties the message queues that both would use.\n"
    "\n"
    "  --version   the version\n"
    "  --help      this text\n"
    "\n"
    "Ready set-ups for lighttpd, nginx with systemd and BusyBox come with it, in share/psia.\n";

}  // namespace

std::optional<int> answer_person(int argument_count, char* const* arguments) {
  const std::string_view first = argument_count > 1 ? arguments[1] : "";
  if (first == "--version") {
    std::fputs(kVersion, stdout);
    return EXIT_SUCCESS;
  }
  if (first == "--help") {
    std::fputs(kHelp, stdout);
    return EXIT_SUCCESS;
  }
  if (isatty(STDIN_FILENO) == 1 && std::getenv("REQUEST_METHOD") == nullptr) {
    std::fputs(kHelp, stderr);
    return EXIT_FAILURE;
  }
  return std::nullopt;
}

}  // namespace psia
