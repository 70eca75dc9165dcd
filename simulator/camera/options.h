// The command line of camera-simulator and scripts/run. help.txt describes it.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "simulator/camera/daemons.h"

namespace camera {

struct Options {
  bool help = false;
  std::optional<int> port;  ///< 0: any free one; none: 8080 or the next free one
  std::string listen = "127.0.0.1";
  std::vector<std::string> allowed_hosts;
  std::string ready_file;
  std::string page;
  std::string run_directory = "build/run";
  std::string socket;  ///< the service's FastCGI socket without a web server; empty: there is a web server
  std::string keep;
  int cameras = 1;
  int number = 1;  ///< of this camera among them
  bool shell = false;
  std::chrono::seconds boot{5};
  std::vector<AnswerRule> rules;
  std::vector<std::string> statements;
  std::string service;
};

/// Reads the arguments into the options. Returns an empty text, or what is wrong with which argument.
[[nodiscard]] std::string read_options(const std::vector<std::string>& arguments, Options& options);

}  // namespace camera
