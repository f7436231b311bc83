#include "tpk/kit/checks.h"

#include <fmt/format.h>
#include <wctype.h>

#include <algorithm>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "core/file.h"
#include "l10n/string_table.h"
#include "tpk/kit/kit_writer.h"
#include "tpk/kit/names.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

// The longest part of a name that disks keep, and a length that leaves room for the target in a
// path of 4096.
constexpr std::size_t kMaxPart = 255;
constexpr std::size_t kMaxName = 3072;

bool IsSeparator(char16_t unit) { return unit == u'\\' || unit == u'/'; }

stdx::u16string Folded(const stdx::u16string& name) {
  stdx::u16string result;
  result.reserve(name.size());
  for (const char16_t unit : name.view()) {
    result += static_cast<char16_t>(towlower(static_cast<wint_t>(unit)));
  }
  return result;
}

void CheckParts(const stdx::u16string& name, const std::string& shown, Findings& findings) {
  bool has_empty = false;
  bool climbs = false;
  bool has_dot = false;
  std::size_t longest = 0;
  std::u16string_view rest = name.view();
  for (bool last = false; !last;) {
    const std::size_t length = std::min(rest.find_first_of(u"\\/"), rest.size());
    const std::u16string_view part = rest.substr(0, length);
    last = length == rest.size();
    rest.remove_prefix(last ? length : length + 1);
    has_empty |= part.empty();
    climbs |= part == u"..";
    has_dot |= part == u".";
    longest = std::max(longest, Utf8FromUtf16(part).size());
  }
  if (has_empty) {
    findings.Add("name-empty", shown,
                 "has an empty part: two separators in a row, or one at the end");
  }
  if (climbs) findings.Add("name-climbs", shown, "leads out of the folder that the user chose");
  if (has_dot) findings.Add("name-dot", shown, "has \".\" for a part");
  if (longest > kMaxPart) {
    findings.Add("name-long", shown,
                 fmt::format("has a part of {} bytes; disks keep {}", longest, kMaxPart));
  }
}

void CheckProducts(const std::vector<config::ProductInfo>& products,
                   const std::unordered_set<stdx::u16string>& names, Findings& findings) {
  std::unordered_set<stdx::u16string> languages;
  for (const config::ProductInfo& product : products) {
    const std::string shown = Utf8FromUtf16(product.language.view());
    const stdx::u16string language = Folded(product.language);
    if (!IsExpressible(product.language.view())) {
      findings.Add("name-not-text", shown, "is a language code that no locale can express");
    }
    if (!IsExpressible(product.name.view()) || !IsExpressible(product.provider.view())) {
      findings.Add("product-not-text", shown,
                   "has a name or provider with a character that no locale can express");
    }
    if (!languages.insert(language).second) {
      findings.Add("language-twice", shown, "has a second product, which is never shown");
    }
    const bool known = std::any_of(Languages().begin(), Languages().end(), [&](const auto& entry) {
      return Utf16FromUtf8(entry.second.code) == language;
    });
    if (!known) {
      findings.Add("language-unknown", shown, "is no language of the wizard: never shown");
    }
    if (!product.description.empty()) {
      CheckName(product.description, findings);
      if (!names.contains(StoredName(product.description))) {
        findings.Add(
            "description-missing", InstalledName(product.description),
            fmt::format("is the description for \"{}\" but not in the kit", Printable(shown)));
      }
    }
  }
  if (!languages.contains(stdx::u16string(u"en"))) {
    findings.Add("language-missing-en", "",
                 "no product for \"en\": other languages have no description to fall back on");
  }
}

/// Adds one finding for all files that `is_bad` finds, naming the first.
template <class IsBad>
void CheckAll(const std::vector<CheckedFile>& files, KnownCheck check, const char* what,
              IsBad is_bad, Findings& findings) {
  const auto first = std::find_if(files.begin(), files.end(), is_bad);
  if (first == files.end()) return;
  const auto others = std::count_if(first + 1, files.end(), is_bad);
  findings.Add(check, InstalledName(first->name),
               others == 0 ? what
                           : fmt::format("{}; so {} {}", what, others == 1 ? "does" : "do",
                                         others == 1 ? "one other file"
                                                     : fmt::format("{} other files", others)));
}

}  // namespace

void CheckName(const stdx::u16string& name, Findings& findings) {
  const std::string shown = InstalledName(name);
  if (name.empty()) return findings.Add("name-empty", shown, "a file has no name");
  if (IsSeparator(name.front())) {
    findings.Add("name-absolute", shown, "starts with a separator, as a full path does");
  } else {
    if (name.size() > 1 && name[1] == u':') {
      findings.Add("name-drive", shown, "starts with a drive letter");
    }
    CheckParts(name, shown, findings);
  }
  if (IsReservedName(shown)) {
    findings.Add("name-reserved", shown, "lies where tpk install keeps files of its own");
  }
  if (name.find_first_of(u"\"`$") != name.npos) {
    findings.Add("name-shell", shown,
                 "has a quote, backquote or dollar sign, which the wizard's shell would act on");
  }
  if (name.contains(u'\0')) {
    findings.Add("name-zero", shown, "has a zero character in it, where the wizard stops reading");
  }
  if (!IsExpressible(name.view())) {
    findings.Add("name-not-text", shown, "has a character that no locale can express");
  }
  if (shown.size() > kMaxName) {
    findings.Add("name-long", shown,
                 fmt::format("has {} bytes, beyond {}", shown.size(), kMaxName));
  }
  if (std::any_of(name.begin(), name.end(),
                  [](char16_t c) { return (c != 0 && c < 0x20) || c == 0x7F; })) {
    findings.Add("name-control", shown, "has a control character");
  }
  if (name.contains(u'/')) {
    findings.Add("name-slash", shown, "separates folders with \"/\"; a kit does it with \"\\\"");
  }
}

void CheckSourceName(const std::string& name, Findings& findings) {
  if (!Utf16FromUtf8(name)) {
    findings.Add("name-not-text", name, "is not UTF-8 on the disk");
  }
  if (name.find('\\') != std::string::npos) {
    findings.Add("name-backslash", name, "has a backslash, which separates folders in a kit");
  }
}

void CheckContents(const std::vector<config::ProductInfo>& products,
                   const std::vector<CheckedFile>& files, Findings& findings) {
  std::unordered_set<stdx::u16string> names;
  for (const CheckedFile& file : files) names.insert(StoredName(file.name));
  CheckProducts(products, names, findings);
  for (const CheckedFile& file : files) CheckName(file.name, findings);
  CheckCollisions(files, findings);
  CheckAll(
      files, "file-at-root", "lies at the root of the kit",
      [](const CheckedFile& file) {
        return !file.name.empty() && std::none_of(file.name.begin(), file.name.end(), IsSeparator);
      },
      findings);
  CheckAll(
      files, "time-part", "has a time with a part of a second and is copied by every installation",
      [](const CheckedFile& file) { return file.time % kTicksPerSecond != 0; }, findings);
  CheckAll(
      files, "time-late", "has a time that no disk can keep and is copied by every installation",
      [](const CheckedFile& file) { return TicksToUnixSeconds(file.time) > kLastDiskTime; },
      findings);
  if (files.empty()) findings.Add("no-files", "", "the kit installs nothing");
}

void CheckCollisions(const std::vector<CheckedFile>& files, Findings& findings) {
  std::unordered_map<stdx::u16string, const stdx::u16string*> by_case;
  std::unordered_set<stdx::u16string> directories;
  std::unordered_set<stdx::u16string> names;
  for (const CheckedFile& file : files) {
    const stdx::u16string name = StoredName(file.name);
    if (!names.insert(name).second) {
      findings.Add("name-duplicate", InstalledName(file.name), "stands in the kit more than once");
    }
    for (std::size_t end = name.find(u'\\'); end != name.npos; end = name.find(u'\\', end + 1)) {
      directories.insert(name.substr(0, end));
    }
    const auto [other, is_new] = by_case.emplace(Folded(name), &file.name);
    if (!is_new && StoredName(*other->second) != name) {
      findings.Add("name-case", InstalledName(file.name),
                   "differs only in letter case from " + Printable(InstalledName(*other->second)));
    }
  }
  for (const CheckedFile& file : files) {
    if (directories.contains(StoredName(file.name))) {
      findings.Add("name-file-and-folder", InstalledName(file.name),
                   "is a file, and a folder of other files");
    }
  }
}

void CheckData(const std::vector<CheckedFile>& files, std::uint64_t data_area,
               std::uint64_t image_size, Findings& findings) {
  if (image_size >= kImageLimit) {
    findings.Add(
        "image-too-large", "",
        fmt::format("the image has {}; its positions end at 4 GiB", FormatSize(image_size)));
  }
  std::vector<std::pair<std::uint64_t, std::uint64_t>> used;  // from, to
  for (const CheckedFile& file : files) {
    const std::uint64_t end = file.offset + file.size;
    if (file.size != 0 && (end > image_size || file.offset < data_area)) {
      findings.Add("data-outside", InstalledName(file.name),
                   fmt::format("has its bytes from {} to {}, but the data goes from {} to {}",
                               file.offset, end, data_area, image_size));
    }
    if (file.size != 0) used.emplace_back(file.offset, end);
  }
  std::sort(used.begin(), used.end());
  std::uint64_t unused = 0;
  std::uint64_t reached = data_area;
  for (const auto& [from, to] : used) {
    if (from > reached) unused += std::min(from, image_size) - std::min(reached, image_size);
    reached = std::max(reached, to);
  }
  if (image_size > reached) unused += image_size - reached;
  if (unused != 0) {
    findings.Add("data-unused", "",
                 fmt::format("the image has {} that no file uses", Counted(unused, "byte")));
  }
}

}  // namespace quarn::tpk
