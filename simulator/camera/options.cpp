#include "simulator/camera/options.h"

#include <cstddef>
#include <functional>
#include <map>
#include <utility>

#include "simulator/device/device.h"
#include "simulator/front/tcp_socket.h"
#include "simulator/tools/numbers.h"

namespace camera {
namespace {

constexpr int kMaxPort = 65535;
constexpr int kMaxBoot = 3600;  // seconds

// Stores a value. False when the option cannot take it.
using Setter = std::function<bool(const std::string&)>;

struct Option {
  std::string needs;  // what a good value is
  Setter set;
};

Option text(const std::string& needs, std::string& place) {
  return {needs, [&place](const std::string& value) {
            place = value;
            return !value.empty();
          }};
}

template <typename Place>
Option number(int least, int most, Place& place) {
  return {"a number from " + std::to_string(least) + " to " + std::to_string(most),
          [&place, least, most](const std::string& value) {
            const std::optional<int> found = whole_number(value, least, most);
            if (found) place = Place(*found);
            return found.has_value();
          }};
}

Option texts(const std::string& needs, std::vector<std::string>& list) {
  return {needs, [&list](const std::string& value) {
            list.push_back(value);
            return !value.empty();
          }};
}

std::map<std::string, Option> options_with_values(Options& options) {
  return {{"--port", number(0, kMaxPort, options.port)},
          {"--listen",
           {"an IPv4 or IPv6 address, for example 0.0.0.0",
            [&options](const std::string& value) {
              options.listen = value;
              return is_ip_address(value);
            }}},
          {"--allow-host", texts("a host name", options.allowed_hosts)},
          {"--ready-file", text("a file", options.ready_file)},
          {"--page", text("a directory", options.page)},
          {"--run-directory", text("a directory", options.run_directory)},
          {"--socket", text("a path", options.socket)},
          {"--boot", number(0, kMaxBoot, options.boot)},
          {"--keep", text("a directory", options.keep)},
          {"--cameras", number(1, kMaxCameraNumber, options.cameras)},
          {"--set", texts("SQL", options.statements)},
          {"--answer", {kAnswerRuleForm, [&options](const std::string& value) {
                          const std::optional<AnswerRule> rule = parse_answer_rule(value);
                          if (rule) options.rules.push_back(*rule);
                          return rule.has_value();
                        }}}};
}

}  // namespace

std::string read_options(const std::vector<std::string>& arguments, Options& options) {
  const std::map<std::string, Option> known = options_with_values(options);
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
    const auto option = known.find(name);
    if (option == known.end()) return "There is no option " + name + ".";
    if (next == arguments.size() || arguments[next] == "--") {
      return name + " needs " + option->second.needs + ".";
    }
    const std::string& value = arguments[next++];
    if (!option->second.set(value)) {
      return name + " cannot be '" + value + "'; it needs " + option->second.needs + ".";
    }
  }
  if (next + 2 != arguments.size()) return "The service's binary is missing, after --.";
  options.service = arguments[next + 1];
  if (options.cameras > 1 && options.shell) return "--shell opens one camera; leave --cameras out.";
  if (options.cameras > 1 && !options.socket.empty()) return "--cameras cannot be used with --socket.";
  if (options.port.value_or(0) > 0 && *options.port + options.cameras - 1 > kMaxPort) {
    return "There are not enough ports above --port " + std::to_string(*options.port) + " for " +
           std::to_string(options.cameras) + " cameras.";
  }
  return "";
}

}  // namespace camera
