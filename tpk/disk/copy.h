// Files and directories of a tree that is being made. Failures throw and name the file. Modes do
// not depend on the user's mask: 755 for directories and what can be executed, 644 for the rest.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace quarn::tpk {

void SetMode(const std::filesystem::path& path, bool executable);

/// The directory that leads to it is there already.
void MakeDirectory(const std::filesystem::path& path);

void WriteNewFile(const std::filesystem::path& path, std::string_view contents, bool executable);

void CopyFile(const std::filesystem::path& from, const std::filesystem::path& to, bool executable);

/// A file as it is, a directory with all it holds; links stay links. Throws when the user cancels.
void CopyTree(const std::filesystem::path& from, const std::filesystem::path& to);

/// Gives `root` and all below it one time, in seconds since 1970.
void SetTimes(const std::filesystem::path& root, std::int64_t seconds);

}  // namespace quarn::tpk
