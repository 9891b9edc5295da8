// Runs a fuzz target over the inputs that are kept of it: every file of the folders given. An input
// that the target finds fault with ends the process. Without a single input the test has no
// meaning, and fails.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/Fuzz.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : fs::directory_iterator(argv[i])) {
      if (entry.is_regular_file()) inputs.push_back(entry.path());
    }
  }
  std::ranges::sort(inputs);
  for (const fs::path& input : inputs) {
    std::ifstream in(input, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    std::printf("%s\n", input.c_str());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  }
  if (inputs.empty()) {
    std::fprintf(stderr, "expected folders with inputs, found none\n");
    return 2;
  }
  std::printf("%zu inputs\n", inputs.size());
  return 0;
}
