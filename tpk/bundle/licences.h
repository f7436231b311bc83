// The licences of the libraries that a bundle brings along, and where their sources are.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tpk/bundle/bundled_qt.h"

namespace quarn::tpk {

struct Licence {
  std::string name;  ///< of its file: "NOTICE.txt", "pcre2.txt"
  std::string text;
};

struct Licences {
  std::vector<Licence> files;        ///< the notice, Qt's licences, one for each source
  std::vector<std::string> unknown;  ///< paths in the bundle of which no package is known
};

/// The package of a file is known where dpkg's records below `root` have it.
Licences FindLicences(const std::vector<BundledFile>& files,
                      const std::filesystem::path& root = "/");

}  // namespace quarn::tpk
