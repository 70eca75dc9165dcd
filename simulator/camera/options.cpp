#include "simulator/camera/options.h"

#include <cstddef>
#include <functional>
#include <map>
#include <optional>

#include "simulator/tools/numbers.h"

namespace camera {
namespace {

using Setter = std::function<bool(const std::string&)>;

Setter text(std::string& place) {
  return [&place](const std::string& value) {
    place = value;
    return !value.empty();
  };
}

Setter number(int& place, int least, int most) {
  return [&place, least, most](const std::string& value) {
    const std::optional<int> found = whole_number(value, least, most);
    place = found.value_or(place);
    return found.has_value();
  };
}

}  // namespace

const char* const kHelp =
    "Usage: camera-simulator [OPTION]... -- SERVICE-BINARY\n"
    "\n"
    "Runs the service in a simulated camera: the device's paths, its eth0, its message queues and its clock,\n"
    "private to this program. Shows each request, what it changed and the messages it caused, until Ctrl-C.\n"
    "\n"
    "  --port N            start a web server on 127.0.0.1:N, with the camera's page\n"
    "  --page DIRECTORY    where the page's files are\n"
    "  --run-directory D   where the web server's configuration and log lie meanwhile (default build/run)\n"
    "  --socket PATH       without --port: the FastCGI socket for a web server of your own (default psia.socket)\n"
    "  --boot SECONDS      how long a restart takes (default 5)\n"
    "  --keep DIRECTORY    keep the settings there from run to run\n"
    "  --set 'SQL'         change rows before the start; may be repeated\n"
    "  --cameras N         so many cameras on successive ports\n"
    "  --shell             a shell inside the running camera (of --port N); when none runs, one with its daemons\n"
    "                      only, to start the service by hand\n"
    "  --answer RULE       how the daemons answer a command: COMMAND=ok|busy|failed|late|never; may be repeated\n"
    "                      late waits 6 seconds before it acts, or as many as in COMMAND=late:SECONDS\n"
    "\n"
    "Commands: 1 picture, 2 encoder, 3 audio, 6 clock, 7 time zone, 8 reboot, 10 factory reset, 11 export,\n"
    "31 addressing, 33 name servers, 37 RTSP port.\n";

std::string read_options(const std::vector<std::string>& arguments, Options& options) {
  int boot = static_cast<int>(options.boot.count());
  const std::map<std::string, Setter> setters = {{"--port", number(options.port, 1, 65535)},
                                                 {"--page", text(options.page)},
                                                 {"--run-directory", text(options.run_directory)},
                                                 {"--socket", text(options.socket)},
                                                 {"--boot", number(boot, 0, 3600)},
                                                 {"--keep", text(options.keep)},
                                                 {"--cameras", number(options.cameras, 1, 100)},
                                                 {"--set",
                                                  [&options](const std::string& value) {
                                                    options.statements.push_back(value);
                                                    return !value.empty();
                                                  }},
                                                 {"--answer", [&options](const std::string& value) {
                                                    const std::optional<AnswerRule> rule =
                                                        parse_answer_rule(value);
                                                    if (rule) options.rules.push_back(*rule);
                                                    return rule.has_value();
                                                  }}};
  std::size_t next = 0;
  while (next < arguments.size() && arguments[next] != "--") {
    const std::string& name = arguments[next++];
    if (name == "--help") {
      options.help = true;
      return "";
    }
    if (name == "--shell") {
      options.shell = true;
      continue;
    }
    const auto setter = setters.find(name);
    if (setter == setters.end()) return "There is no option " + name + ".";
    if (next == arguments.size()) return name + " needs a value.";
    if (!setter->second(arguments[next++])) return name + " cannot be " + arguments[next - 1] + ".";
  }
  options.boot = std::chrono::seconds(boot);
  if (next + 2 != arguments.size()) return "The service's binary is missing, behind --.";
  options.service = arguments[next + 1];
  if (options.cameras > 1 && options.port == 0) return "--cameras needs --port.";
  if (options.cameras > 1 && options.port + options.cameras > 65536) return "There are no so many ports.";
  return "";
}

}  // namespace camera
