// Runs every file of the directories named on the command line through a fuzz target, without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/target.h"

int main(int argc, char** argv) {
  std::vector<std::vector<char>> inputs;  // read beforehand: a target may move to other directories
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      std::ifstream file(entry.path(), std::ios::binary);
      inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
  }
  for (const std::vector<char>& input : inputs)
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
  std::fprintf(stderr, "%zu inputs replayed\n", inputs.size());
  return inputs.empty() ? 1 : 0;
}
