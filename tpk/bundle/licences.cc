#include "tpk/bundle/licences.h"

#include <fmt/format.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

constexpr unsigned char kNotice[] = {
#include "notice.inc"
};
constexpr unsigned char kLesserLicence[] = {
#include "lgpl_3.inc"
};
constexpr unsigned char kLicence[] = {
#include "gpl_3.inc"
};

struct Package {
  std::string version;
  std::string source;  ///< the name of the source package
};

template <std::size_t kSize>
std::string Embedded(const unsigned char (&bytes)[kSize]) {
  return std::string(bytes, bytes + kSize);
}

/// Empty where it cannot be read.
std::string ReadText(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

/// The packages of files, by the files' paths. Systems where /lib is a link to /usr/lib have files
/// of packages that were made when it was none.
std::map<std::string, std::string> PackagesOf(const std::vector<BundledFile>& files,
                                              const fs::path& root) {
  std::map<std::string, std::string> wanted;  // the path in a package's list to that of the file
  for (const BundledFile& file : files) {
    const std::string path = file.from.string();
    wanted[path] = path;
    if (path.starts_with("/usr/")) wanted[path.substr(4)] = path;
  }
  std::map<std::string, std::string> packages;
  std::error_code error;
  fs::directory_iterator lists(root / "var/lib/dpkg/info", error);
  for (; !error && lists != fs::directory_iterator(); lists.increment(error)) {
    if (lists->path().extension() != ".list") continue;
    const std::string name = lists->path().stem().string();
    std::ifstream in(lists->path());
    for (std::string line; std::getline(in, line);) {
      const auto found = wanted.find(line);
      if (found != wanted.end()) packages[found->second] = name.substr(0, name.find(':'));
    }
  }
  return packages;
}

/// Every package's version, by its name.
std::map<std::string, Package> ReadStatus(const fs::path& root) {
  std::map<std::string, Package> packages;
  std::ifstream in(root / "var/lib/dpkg/status");
  std::string name;
  for (std::string line; std::getline(in, line);) {
    const auto value = [&line](std::string_view key) {
      return line.starts_with(key) ? line.substr(key.size()) : std::string();
    };
    if (const std::string package = value("Package: "); !package.empty()) {
      name = package;
      packages[name].source = package;
    } else if (const std::string version = value("Version: "); !version.empty()) {
      packages[name].version = version;
    } else if (const std::string source = value("Source: "); !source.empty()) {
      packages[name].source = source;
    }
  }
  return packages;
}

/// The names of the licences that a text leaves to the system to have.
std::set<std::string> CommonLicences(const std::string& text) {
  static const std::regex reference("/usr/share/common-licenses/([A-Za-z0-9.+-]*[A-Za-z0-9+])");
  std::set<std::string> names;
  for (std::sregex_iterator it(text.begin(), text.end(), reference), end; it != end; ++it) {
    names.insert((*it)[1]);
  }
  return names;
}

}  // namespace

Licences FindLicences(const std::vector<BundledFile>& files, const fs::path& root) {
  const std::map<std::string, std::string> packages = PackagesOf(files, root);
  const std::map<std::string, Package> status = ReadStatus(root);
  std::map<std::string, std::string> texts;
  Licences licences;
  std::string notice = Embedded(kNotice);
  for (const BundledFile& file : files) {
    const auto found = packages.find(file.from.string());
    const std::string name = found == packages.end() ? "" : found->second;
    const std::string text =
        name.empty() ? "" : ReadText(root / "usr/share/doc" / name / "copyright");
    if (text.empty()) {
      licences.unknown.push_back(file.to.string());
      notice += fmt::format("{}\n    of no package\n", file.to.string());
      continue;
    }
    const auto known = status.find(name);
    const Package package = known == status.end() ? Package{"", name} : known->second;
    // "name (version)" where the source's version is another.
    const std::string source = package.source.substr(0, package.source.find(' '));
    notice += fmt::format("{}\n    {} {}, source {}: {}.txt\n", file.to.string(), name,
                          package.version, package.source, source);
    texts[source] = text;
    for (const std::string& common : CommonLicences(text)) {
      texts[common] = ReadText(root / "usr/share/common-licenses" / common);
    }
  }
  texts["NOTICE"] = notice;
  texts["LGPL-3"] = Embedded(kLesserLicence);
  texts["GPL-3"] = Embedded(kLicence);
  for (const auto& [name, text] : texts) {
    if (!text.empty()) licences.files.push_back({name + ".txt", text});
  }
  return licences;
}

}  // namespace quarn::tpk
