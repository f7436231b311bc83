#include "tpk/kit/manifest_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <string_view>

#include "core/file.h"
#include "l10n/string_table.h"
#include "tpk/kit/manifest.h"
#include "tpk/kit/names.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

/// `text` between quotes, as TOML wants it. Must be UTF-8.
std::string Quoted(std::string_view bytes) {
  const std::string text = Utf16FromUtf8(bytes) ? std::string(bytes) : Printable(bytes);
  std::string result = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      result += '\\';
      result += c;
    } else if (byte < 0x20 || byte == 0x7F) {
      result += fmt::format("\\u{:04x}", byte);
    } else {
      result += c;
    }
  }
  return result + '"';
}

std::string Quoted(const stdx::u16string& text) { return Quoted(Utf8FromUtf16(text.view())); }

// Times that a file on disk keeps: the others have to be written down.
bool DiskKeeps(std::uint64_t ticks) {
  const std::int64_t seconds = TicksToUnixSeconds(ticks);
  return ticks % kTicksPerSecond == 0 && seconds >= kFirstDiskTime && seconds <= kLastDiskTime;
}

/// The language that a name such as "about_de" ends in; empty where there is none.
std::string LanguageOf(std::string_view stem) {
  if (stem.size() < 4) return "";
  const char before = stem[stem.size() - 3];
  if (before != '_' && before != '-' && before != '.') return "";
  const std::string code(stem.substr(stem.size() - 2));
  return FindLanguageByCode(stdx::string(code)) != kNoLanguage ? code : "";
}

std::string Lowered(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

/// What looks like a description of the product, by language.
std::map<std::string, std::string> FindDescriptions(const SourceTree& tree) {
  constexpr std::array kWords = {"about", "readme", "description", "welcome"};
  constexpr std::array kExtensions = {".html", ".htm", ".txt", ".md", ".pdf", ".rtf"};
  std::map<std::string, std::string> found;
  for (const SourceFile& file : tree.files) {
    const std::filesystem::path path = Lowered(file.name);
    const std::string stem = path.stem().string();
    const bool named = std::any_of(kWords.begin(), kWords.end(),
                                   [&](const char* word) { return stem.starts_with(word); });
    const std::string extension = path.extension().string();
    if (!named ||
        std::find(kExtensions.begin(), kExtensions.end(), extension) == kExtensions.end()) {
      continue;
    }
    const std::string language = LanguageOf(stem);
    found.emplace(language.empty() ? "en" : language, file.name);
  }
  found.emplace("en", "");
  return found;
}

}  // namespace

std::string ManifestOf(const KitTables& tables, int level) {
  std::string text =
      fmt::format("format = {}\n\n[kit]\nform = \"{}\"\nroot = \"files\"\ncompression = {}\n",
                  kManifestFormat, tables.single_product ? "single" : "table", level);
  for (const config::ProductInfo& product : tables.products) {
    text +=
        fmt::format("\n[[product]]\nlanguage = {}\nname = {}\nprovider = {}\ndescription = {}\n",
                    Quoted(product.language), Quoted(product.name), Quoted(product.provider),
                    Quoted(InstalledName(product.description)));
  }
  for (const CheckedFile& file : tables.files) {
    if (DiskKeeps(file.time)) continue;
    text += fmt::format("\n[[time]]\nfiles = {}\ntime = \"{}\"\n",
                        Quoted(Pattern::Exactly(InstalledName(file.name))), FormatTime(file.time));
  }
  return text;
}

std::string FirstManifest(const SourceTree& tree, const std::string& root,
                          const std::string& name) {
  std::string text = fmt::format(R"(# What goes into the kit, and what the wizard says about it.
format = {}

[kit]
# The folder with the files, relative to this manifest.
root = {}
# "table" for products in several languages, "single" for one in English.
form = "table"
# From 0 (none) to 9 (smallest).
compression = {}
# One time for all files in place of their own. An installation replaces a file only by a newer
# one, so raise it with every release.
# time = "2024-05-06T08:00:00Z"

# A block for each language. Where name or provider is empty the wizard has words of its own. The
# description is a file of the kit that the user may open when the installation is done; where it
# is missing, the English one is opened.
)",
                                 kManifestFormat, Quoted(root), kDefaultLevel);
  for (const auto& [language, description] : FindDescriptions(tree)) {
    text +=
        fmt::format("[[product]]\nlanguage = {}\nname = {}\nprovider = \"\"\ndescription = {}\n\n",
                    Quoted(language), Quoted(name), Quoted(description));
  }
  text += R"([files]
# Patterns: * and ? do not match "/", ** does. Without "/" they are held against the last part of
# the name, in any folder.
# include = ["**"]
exclude = [".DS_Store", "Thumbs.db", "*~", "*.bak", "**/.git/"]

# Another time for some of the files:
# [[time]]
# files = "docs/**"
# time = "2024-05-06T08:00:00Z"
)";
  return text;
}

}  // namespace quarn::tpk
