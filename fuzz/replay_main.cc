// Runs inputs through a fuzz target without a fuzzing engine: files, or directories of files.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "scratch.h"

namespace fs = std::filesystem;

namespace {

void RunFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      RunFile(argv[i]);
      ++count;
      continue;
    }
    for (const auto& entry : fs::directory_iterator(argv[i])) {
      RunFile(entry.path());
      ++count;
    }
  }
  std::cout << count << " inputs\n";
  return count == 0 ? 1 : 0;  // a corpus that is not found proves nothing
}
