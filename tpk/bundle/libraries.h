// Which libraries a program needs, and where they are on this system.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace quarn::tpk {

struct Library {
  std::filesystem::path path;       ///< the file itself, no link; empty where there is none
  std::vector<std::string> needed;  ///< names of libraries
};

/// By their names, "libz.so.1".
using Libraries = std::map<std::string, Library>;

/// The directories in which the dynamic loader looks for libraries: those that `configuration`
/// and the files included by it list, then the usual ones.
std::vector<std::filesystem::path> LibraryDirectories(
    const std::filesystem::path& configuration = "/etc/ld.so.conf");

/// All libraries that `files`, programs or libraries of one kind of machine, need, and those that
/// these need. A library that a file has a path for is looked for there first. Throws Failure where
/// one of the files found is none of Linux.
Libraries FindLibraries(const std::vector<std::filesystem::path>& files,
                        const std::vector<std::filesystem::path>& directories);

/// Whether a library is left to the system that a bundle runs on: left_out.inc.
bool IsLeftOut(std::string_view name);

/// Of `libraries` those that are put into a bundle: not those that are left out, nor what
/// these need. Throws Failure ("missing-library") where one was not found.
Libraries HandedOut(const Libraries& libraries);

}  // namespace quarn::tpk
