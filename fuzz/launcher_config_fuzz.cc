// The user's configuration file with arbitrary contents: read, given a directory, written, and all
// of that once more. Nothing is thrown, the directory is there afterwards, what cannot be read
// survives, and a second rewrite of a file that was read whole changes nothing.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const quarn::fuzz::Limits limits(size, 1 << 16, 512);
  const std::filesystem::path file = quarn::fuzz::Scratch() / "qlaunch.cfg";
  quarn::fuzz::WriteFile(file, {data, size});
  const stdx::u16string path = quarn::ToUtf16(file.c_str());
  const std::vector<stdx::u16string> directories = {stdx::u16string(u"/d1"),
                                                    stdx::u16string(u"/d2")};
  try {
    quarn::ConfigEntryList list;
    quarn::ReadConfigFile(path, list);
    quarn::SetConfigValues(list, quarn::kTemplatesLocationKey, directories);
    quarn::WriteConfigFile(path, list);
    const std::string rewritten = Contents(file);
    const std::string unread(list.unread().view());
    // The rest of a UTF-16 file becomes text.
    const bool utf16 = size >= 2 && data[0] == 0xFF && data[1] == 0xFE;
    Require(utf16 || rewritten.ends_with(unread), "what could not be read is kept as it was");
    Require(rewritten.size() <= 3 * size + 128, "a rewrite does not blow the file up");

    quarn::ConfigEntryList again;
    quarn::ReadConfigFile(path, again);
    quarn::WriteConfigFile(path, again);
    // The rewrite moves the borders of the blocks: a character that one cuts in two now ends this
    // reading, or ended the first one. A zero byte hides what stands behind it in its block.
    const bool hidden = std::find(data, data + size, 0) != data + size;
    if (unread.empty() && again.unread().empty() && !hidden) {
      Require(Contents(file) == rewritten, "a second rewrite changes nothing");
      const auto* const values = quarn::FindConfigValues(again, quarn::kTemplatesLocationKey);
      Require(values != nullptr && *values == directories, "the directories are recorded");
    }
  } catch (...) {
    quarn::fuzz::Broken("reading and rewriting the user's file throws nothing");
  }
  return 0;
}
