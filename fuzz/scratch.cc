#include "scratch.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace quarn::fuzz {
namespace {

namespace fs = std::filesystem;

class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = (fs::temp_directory_path() / "quarn-fuzz-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) Broken("a scratch directory can be made");
    path = pattern;
    fs::create_directories(path / "home");
    fs::create_directories(path / "tmp");
    setenv("HOME", (path / "home").c_str(), 1);
    setenv("TMPDIR", (path / "tmp").c_str(), 1);
    setenv("LC_ALL", "C.UTF-8", 1);
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  fs::path path;
};

}  // namespace

const fs::path& Scratch() {
  static const ScratchDirectory directory;
  return directory.path;
}

void WriteFile(const fs::path& path, Bytes bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

void Broken(const char* rule) {
  std::fprintf(stderr, "broken: %s\n", rule);
  std::abort();
}

}  // namespace quarn::fuzz
