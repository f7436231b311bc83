// What the tests of the launcher's file share: lists as plain data, and files read and written in
// one go.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config/launcher_config.h"
#include "tests/support/scratch.h"

namespace quarn::testing {

/// A list as plain data.
using Entries = std::vector<std::pair<stdx::u16string, std::vector<stdx::u16string>>>;

inline Entries EntriesOf(const ConfigEntryList& list) {
  Entries entries;
  for (const ConfigEntry& entry : list.entries) entries.emplace_back(entry.key, entry.values);
  return entries;
}

inline ConfigEntryList Read(const std::filesystem::path& path) {
  ConfigEntryList list;
  ReadConfigFile(U16(path), list);
  return list;
}

/// The list that a file with these bytes is read as.
inline ConfigEntryList ReadBytes(const std::filesystem::path& directory, std::string_view bytes) {
  WriteFile(directory / "read.cfg", bytes);
  return Read(directory / "read.cfg");
}

/// The bytes that a list is written as.
inline std::string WrittenBytes(const std::filesystem::path& directory,
                                const ConfigEntryList& list) {
  WriteConfigFile(U16(directory / "written.cfg"), list);
  return ReadFile(directory / "written.cfg");
}

/// `text` and a filler line, `size` bytes in all.
inline std::string Padded(std::string text, std::size_t size) {
  return text + std::string(size - text.size() - 1, '#') + "\n";
}

}  // namespace quarn::testing
