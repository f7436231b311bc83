#include "tpk/kit/manifest.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <toml++/toml.h>

#include <algorithm>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <utility>

#include "core/text.h"
#include "tpk/kit/names.h"
#include "tpk/text/closest_word.h"
#include "tpk/text/failure.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

// Enough for a time rule for each of some 100,000 files, as `extract` may have to write them.
constexpr std::size_t kMaxManifestSize = 16 << 20;
constexpr std::size_t kPieceOfManifest = 1 << 16;
// Enough for a pattern that matches the longest name exactly.
constexpr std::size_t kMaxPattern = 1 << 14;

class Reader {
 public:
  explicit Reader(std::string file) : file_(std::move(file)) {}

  Manifest Read(const toml::table& root, const fs::path& directory) {
    KnownKeys(root, "the manifest", {"format", "kit", "product", "files", "time"});
    ReadFormat(root);
    manifest_.root = directory;
    if (const toml::table* kit = Table(root, "kit")) ReadKit(*kit, directory);
    ForEachTable(root, "product", [this](const toml::table& product) { ReadProduct(product); });
    CheckProducts(root);
    if (const toml::table* files = Table(root, "files")) ReadFiles(*files);
    ForEachTable(root, "time", [this](const toml::table& rule) { ReadTimeRule(rule); });
    return std::move(manifest_);
  }

  void Report(const toml::source_position& at, std::string_view problem,
              std::string_view suggestion) {
    problems_ += fmt::format("{}{}:{}:{}: {}{}{}", problems_.empty() ? "" : "\n", file_, at.line,
                             at.column, problem, suggestion.empty() ? "" : "; ", suggestion);
  }

  void ThrowProblems() const {
    if (!problems_.empty()) throw Failure(ExitCode::kUsage, "manifest", problems_);
  }

 private:
  void Report(const toml::node& node, std::string_view problem, std::string_view suggestion) {
    Report(node.source().begin, problem, suggestion);
  }

  void KnownKeys(const toml::table& table, const char* where,
                 std::initializer_list<const char*> known) {
    for (const auto& [key, value] : table) {
      if (std::find(known.begin(), known.end(), key.str()) != known.end()) continue;
      const std::vector<std::string> words(known.begin(), known.end());
      const std::optional<std::string> meant = ClosestWord(key.str(), words);
      Report(key.source().begin, fmt::format("{} has no key \"{}\"", where, Printable(key.str())),
             meant ? fmt::format("did you mean \"{}\"?", *meant)
                   : fmt::format("it may have {}", fmt::join(known, ", ")));
    }
  }

  const toml::table* Table(const toml::table& in, const char* key) {
    const toml::node* const node = in.get(key);
    if (node != nullptr && !node->is_table()) {
      Report(*node, fmt::format("\"{}\" must be a table", key), fmt::format("write [{}]", key));
      return nullptr;
    }
    return node == nullptr ? nullptr : node->as_table();
  }

  template <class Visit>
  void ForEachTable(const toml::table& in, const char* key, Visit visit) {
    const toml::node* const node = in.get(key);
    if (node == nullptr) return;
    const auto suggestion = fmt::format("write [[{}]]", key);
    if (!node->is_array()) {
      return Report(*node, fmt::format("\"{}\" must be a list of tables", key), suggestion);
    }
    for (const toml::node& item : *node->as_array()) {
      if (const toml::table* const table = item.as_table()) {
        visit(*table);
      } else {
        Report(item, fmt::format("\"{}\" must be a list of tables", key), suggestion);
      }
    }
  }

  /// The text at `key`; null where there is none or it is no text, which is reported.
  const toml::value<std::string>* String(const toml::table& in, const char* key,
                                         const char* example) {
    const toml::node* const node = in.get(key);
    if (node == nullptr) return nullptr;
    if (!node->is_string()) {
      Report(*node, fmt::format("\"{}\" must be a text", key),
             fmt::format("for example {} = \"{}\"", key, example));
      return nullptr;
    }
    return node->as_string();
  }

  stdx::u16string Text(const toml::table& in, const char* key, const char* example) {
    const toml::value<std::string>* const value = String(in, key, example);
    if (value == nullptr) return {};
    // The parser refuses what is not UTF-8, so this always has a value.
    return Utf16FromUtf8(value->get()).value_or(stdx::u16string());
  }

  std::optional<std::uint64_t> Time(const toml::table& in, const char* key) {
    const toml::node* const node = in.get(key);
    if (node == nullptr) return std::nullopt;
    std::optional<std::uint64_t> ticks;
    if (const auto* const text = node->as_string()) {
      ticks = ParseTime(text->get());
    } else if (const auto* const date = node->as_date()) {
      ticks = ParseTime(
          fmt::format("{:04}-{:02}-{:02}", date->get().year, date->get().month, date->get().day));
    } else if (const auto* const moment = node->as_date_time();
               moment != nullptr && moment->get().offset && moment->get().offset->minutes == 0) {
      const auto& [day, time, offset] = moment->get();
      ticks = ParseTime(
          fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", day.year, day.month, day.day,
                      time.hour, time.minute, time.second) +
          (time.nanosecond / 100 != 0 ? fmt::format(".{:07}Z", time.nanosecond / 100) : "Z"));
    }
    if (!ticks) {
      Report(*node, fmt::format("\"{}\" must be a time in UTC from 1601 on", key),
             fmt::format("for example {} = \"2024-05-06T08:00:00Z\"", key));
    }
    return ticks;
  }

  void ReadFormat(const toml::table& root) {
    const toml::node* const format = root.get("format");
    if (format == nullptr) {
      return Report(toml::source_position{1, 1}, "the manifest does not say its format",
                    fmt::format("begin it with format = {}", kManifestFormat));
    }
    if (format->value<std::int64_t>() != kManifestFormat) {
      Report(*format, fmt::format("this tpk reads manifests of format {} only", kManifestFormat),
             fmt::format("write format = {}, or take a newer tpk", kManifestFormat));
    }
  }

  void ReadKit(const toml::table& kit, const fs::path& directory) {
    KnownKeys(kit, "[kit]", {"form", "root", "compression", "time"});
    if (const auto* const form = String(kit, "form", "table")) {
      manifest_.single_product = form->get() == "single";
      if (form->get() != "single" && form->get() != "table") {
        Report(*form, fmt::format("there is no form \"{}\"", Printable(form->get())),
               "write \"table\" for products in several languages, \"single\" for one in English");
      }
    }
    if (const auto* const root = String(kit, "root", "files")) {
      manifest_.root = directory / root->get();
      std::error_code ignored;
      if (!fs::is_directory(manifest_.root, ignored)) {
        Report(*root, fmt::format("there is no folder \"{}\"", Printable(root->get())),
               "it is looked for beside the manifest");
      }
    }
    if (const toml::node* const level = kit.get("compression")) {
      const std::optional<std::int64_t> value = level->value_exact<std::int64_t>();
      if (!value || *value < 0 || *value > 9) {
        Report(*level, "\"compression\" must be a number from 0 to 9",
               fmt::format("{} is a good one", kDefaultLevel));
      } else {
        manifest_.level = static_cast<int>(*value);
      }
    }
    if (const auto ticks = Time(kit, "time")) manifest_.times.push_back({Pattern("**"), *ticks});
  }

  void ReadProduct(const toml::table& product) {
    KnownKeys(product, "[[product]]", {"language", "name", "provider", "description"});
    config::ProductInfo info;
    info.language = Text(product, "language", "en");
    if (info.language.empty()) {
      Report(product, "a product needs a language", "for example language = \"en\"");
    }
    // Comparing such a text would fail, here and in the wizard.
    if (!IsExpressible(info.language.view())) {
      Report(product, fmt::format("no locale can express \"{}\"", Shown(info.language)),
             "for example language = \"en\"");
      return;
    }
    for (const config::ProductInfo& other : manifest_.products) {
      if (CompareNoCase(other.language, info.language) == 0) {
        Report(product, fmt::format("there is a product for \"{}\" already", Shown(info.language)),
               "the wizard would only ever show the first one");
      }
    }
    info.name = Text(product, "name", "Brook Ledger");
    info.provider = Text(product, "provider", "Tarnbridge Paperworks");
    info.description = StoredName(Text(product, "description", "docs/about.html"));
    manifest_.products.push_back(std::move(info));
  }

  void CheckProducts(const toml::table& root) {
    const toml::node* const products = root.get("product");
    if (manifest_.single_product &&
        (manifest_.products.size() != 1 || manifest_.products.front().language != u"en")) {
      const toml::node* const form = root["kit"]["form"].node();
      Report(products != nullptr ? *products : *form,
             "the form \"single\" describes exactly one product, in English",
             "keep one [[product]] with language = \"en\", or write form = \"table\"");
    }
  }

  /// Whether `text` is a pattern. Reports it otherwise.
  bool IsPattern(const toml::value<std::string>& text) {
    if (text->find('\\') != std::string::npos) {
      Report(text, fmt::format("the pattern \"{}\" has a backslash", Printable(text.get())),
             "folders are separated by \"/\" in patterns");
    } else if (text->size() > kMaxPattern) {
      Report(text, fmt::format("the pattern has {} bytes", text->size()),
             fmt::format("make it shorter than {}", kMaxPattern));
    } else {
      return true;
    }
    return false;
  }

  std::vector<Pattern> Patterns(const toml::table& files, const char* key) {
    std::vector<Pattern> patterns;
    const toml::node* const node = files.get(key);
    if (node == nullptr) return patterns;
    const toml::array* const list = node->as_array();
    const auto suggestion = fmt::format("for example {} = [\"*.bak\", \"drafts/\"]", key);
    if (list == nullptr) {
      Report(*node, fmt::format("\"{}\" must be a list of patterns", key), suggestion);
      return patterns;
    }
    for (const toml::node& item : *list) {
      const toml::value<std::string>* const text = item.as_string();
      if (text == nullptr || text->get().empty()) {
        Report(item, "a pattern must be a text", suggestion);
      } else if (IsPattern(*text)) {
        patterns.emplace_back(text->get());
      }
    }
    return patterns;
  }

  void ReadFiles(const toml::table& files) {
    KnownKeys(files, "[files]", {"include", "exclude"});
    manifest_.include = Patterns(files, "include");
    manifest_.exclude = Patterns(files, "exclude");
  }

  void ReadTimeRule(const toml::table& rule) {
    KnownKeys(rule, "[[time]]", {"files", "time"});
    const auto* const files = String(rule, "files", "docs/**");
    const std::optional<std::uint64_t> ticks = Time(rule, "time");
    if (rule.get("files") == nullptr || rule.get("time") == nullptr) {
      Report(rule, "[[time]] needs a pattern and a time",
             "for example files = \"docs/**\" and time = \"2024-05-06T08:00:00Z\"");
    }
    if (files != nullptr && IsPattern(*files) && ticks)
      manifest_.times.push_back({Pattern(files->get()), *ticks});
  }

  std::string file_;
  std::string problems_;
  Manifest manifest_;
};

}  // namespace

bool Manifest::Takes(std::string_view name) const {
  const auto matches = [name](const Pattern& pattern) { return pattern.Matches(name); };
  return (include.empty() || std::any_of(include.begin(), include.end(), matches)) &&
         std::none_of(exclude.begin(), exclude.end(), matches);
}

bool Manifest::LeavesOut(std::string_view directory) const {
  return std::any_of(exclude.begin(), exclude.end(), [directory](const Pattern& pattern) {
    return pattern.MatchesAllIn(directory);
  });
}

std::optional<std::uint64_t> Manifest::TimeOf(std::string_view name) const {
  for (auto rule = times.rbegin(); rule != times.rend(); ++rule) {
    if (rule->files.Matches(name)) return rule->ticks;
  }
  return std::nullopt;
}

Manifest ReadManifest(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::string text;
  while (in && text.size() <= kMaxManifestSize) {
    const std::size_t size = text.size();
    text.resize(size + kPieceOfManifest);
    in.read(text.data() + size, kPieceOfManifest);
    text.resize(size + static_cast<std::size_t>(in.gcount()));
  }
  if (!in.is_open() || in.bad()) {
    throw CannotRead(path);
  }
  return ParseManifest(text, path);
}

Manifest ParseManifest(std::string_view text, const fs::path& path) {
  if (text.size() > kMaxManifestSize) {
    throw Failure(ExitCode::kUsage, "manifest", Printable(path.string()) + " is no manifest",
                  "a manifest is a text file of at most 16 MiB");
  }
  Reader reader(Printable(path.string()));
  Manifest manifest;
  try {
    manifest =
        reader.Read(toml::parse(text), path.has_parent_path() ? path.parent_path() : fs::path("."));
  } catch (const toml::parse_error& error) {
    // `Printable`, because the description quotes the text of the manifest.
    reader.Report(error.source().begin, Printable(error.description()), "");
  }
  reader.ThrowProblems();
  return manifest;
}

}  // namespace quarn::tpk
