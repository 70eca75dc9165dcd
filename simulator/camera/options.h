// The command line of camera-simulator.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "simulator/camera/daemons.h"

namespace camera {

struct Options {
  bool help = false;
  int port = 0;  ///< of the web server; 0: none is started
  std::string page;
  std::string run_directory = "build/run";
  std::string socket = "psia.socket";
  std::string keep;
  int cameras = 1;
  bool shell = false;
  std::chrono::seconds boot{5};
  std::vector<AnswerRule> rules;
  std::vector<std::string> statements;
  std::string service;
};

extern const char* const kHelp;

/// Reads the arguments into the options. Returns an empty text, or what is wrong with which argument.
[[nodiscard]] std::string read_options(const std::vector<std::string>& arguments, Options& options);

}  // namespace camera
