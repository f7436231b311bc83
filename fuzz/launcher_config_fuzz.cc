// The user's configuration file with arbitrary contents: read, given a directory, written, and all
// of that once more. Only a text with no narrow form throws, and then the file stays as it is.
// Otherwise the directory is in the file afterwards, and a rewrite that loses anything leaves a
// copy of the file.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "input_limits.h"
#include "scratch.h"

#include "config/launcher_config.h"
#include "core/text.h"

namespace {

using quarn::fuzz::Require;

std::string Contents(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// Reads and writes the file. Whether it was written; a copy is then of the former contents.
bool Rewrite(const std::filesystem::path& file) {
  const std::filesystem::path copy = file.string() + ".orig";
  const std::string before = Contents(file);
  std::filesystem::remove(copy);
  const stdx::u16string path = quarn::ToUtf16(file.c_str());
  quarn::ConfigEntryList list;
  try {
    quarn::ReadConfigFile(path, list);
  } catch (const std::length_error&) {
    list.is_partial = true;
  }
  try {
    quarn::SetConfigValues(list, quarn::kTemplatesLocationKey,
                           {stdx::u16string(u"/d1"), stdx::u16string(u"/d2")});
    quarn::WriteConfigFile(path, list);
  } catch (const std::length_error&) {
    Require(Contents(file) == before, "a text with no narrow form leaves the file as it was");
    return false;
  }
  Require(!std::filesystem::exists(copy) || Contents(copy) == before, "a copy is whole");
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const quarn::fuzz::Limits limits(size, 1 << 16, 512);
  const std::filesystem::path file = quarn::fuzz::Scratch() / "qlaunch.cfg";
  quarn::fuzz::WriteFile(file, {data, size});
  try {
    if (!Rewrite(file)) return 0;
    const std::string rewritten = Contents(file);
    Require(rewritten.size() <= 3 * size + 128, "a rewrite does not blow the file up");
    // The key may be written in the letter case that was there.
    Require(
        rewritten.find("=/d1\n") != rewritten.npos && rewritten.find("=/d2\n") != rewritten.npos,
        "the directories are recorded");
    // The rewrite moves the borders of the blocks, and one may cut a character in two now.
    Require(!Rewrite(file) || Contents(file) == rewritten ||
                std::filesystem::exists(file.string() + ".orig"),
            "a second rewrite changes nothing");
  } catch (...) {
    quarn::fuzz::Broken("reading and rewriting the user's file throws nothing else");
  }
  return 0;
}
