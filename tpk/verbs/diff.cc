#include <fmt/format.h>

#include <cstring>
#include <map>
#include <memory>

#include "tpk/disk/temp_file.h"
#include "tpk/kit/names.h"
#include "tpk/kit/open_kit.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"
#include "tpk/verbs/command.h"

namespace quarn::tpk {
namespace {

struct Options {
  std::filesystem::path before;
  std::filesystem::path after;
  bool exit_code = false;
};

using FileData = KitData::FileData;

/// The files of a kit by name; of several with one name the last one is what gets installed.
std::map<stdx::u16string, const FileData*> ByName(const OpenedKit& kit) {
  std::map<stdx::u16string, const FileData*> files;
  for (const FileData& file : kit.files()) {
    // Compared as UTF-16: in UTF-8 all broken units would become the same character.
    files[StoredName(file.name)] = &file;
  }
  return files;
}

bool SameBytes(OpenedKit& a, const FileData& in_a, OpenedKit& b, const FileData& in_b) {
  if (in_a.data_size != in_b.data_size) return false;
  for (std::uint32_t at = 0; at < in_a.data_size;) {
    const auto block = a.ReadBlock(in_a, at);
    if (std::memcmp(block.data(), b.ReadBlock(in_b, at).data(), block.size()) != 0) return false;
    at += static_cast<std::uint32_t>(block.size());
  }
  return true;
}

class Comparison {
 public:
  Comparison(OpenedKit& before, OpenedKit& after, Output& output)
      : before_(before), after_(after), output_(output) {}

  std::size_t Run() {
    CompareProducts();
    const auto before = ByName(before_);
    const auto after = ByName(after_);
    // Both are sorted: go through them side by side.
    auto a = before.begin();
    auto b = after.begin();
    while (a != before.end() || b != after.end()) {
      if (b == after.end() || (a != before.end() && a->first < b->first)) {
        Tell("removed", InstalledName(a->first), Json::object(), "");
        ++a;
      } else if (a == before.end() || b->first < a->first) {
        Tell("added", InstalledName(b->first), Json::object(), "");
        ++b;
      } else {
        CompareFiles(InstalledName(a->first), *a->second, *b->second);
        ++a, ++b;
      }
    }
    return count_;
  }

 private:
  void Tell(const char* change, const std::string& path, Json fields, const std::string& details) {
    ++count_;
    output_.Record(
        "change",
        [&] {
          Json object{{"change", change}, {"path", path}};
          object.update(fields);
          return object;
        },
        [&] {
          const auto color = *change == 'a'   ? Output::Color::kGreen
                             : *change == 'r' ? Output::Color::kRed
                                              : Output::Color::kYellow;
          return fmt::format("{}  {}{}", output_.Painted(color, fmt::format("{:<8}", change)),
                             Printable(path), details);
        });
  }

  void CompareFiles(const std::string& path, const FileData& a, const FileData& b) {
    const bool same_bytes = SameBytes(before_, a, after_, b);
    const bool same_time = a.last_write_time == b.last_write_time;
    if (same_bytes && same_time) return;
    Json fields{{"contents", !same_bytes}};
    std::string details;
    if (a.data_size != b.data_size) {
      fields["size"] = {a.data_size, b.data_size};
      details = fmt::format("  size {} -> {}", a.data_size, b.data_size);
    } else if (!same_bytes) {
      details = "  contents";
    }
    if (!same_time) {
      fields["time"] = {FormatTime(a.last_write_time), FormatTime(b.last_write_time)};
      details += fmt::format("  time {} -> {}", FormatTime(a.last_write_time),
                             FormatTime(b.last_write_time));
    } else {
      // Where the old file is installed, it stays.
      details += "  same time: not installed over the old one";
    }
    Tell("changed", path, fields, details);
  }

  void TellProduct(const config::ProductInfo& product, const char* field,
                   const stdx::u16string& before, const stdx::u16string& after) {
    if (before == after) return;
    ++count_;
    output_.Record(
        "product",
        [&] {
          return Json{{"language", Utf8FromUtf16(product.language.view())},
                      {"field", field},
                      {"before", Utf8FromUtf16(before.view())},
                      {"after", Utf8FromUtf16(after.view())}};
        },
        [&] {
          return fmt::format("{}  {} for \"{}\": \"{}\" -> \"{}\"",
                             output_.Painted(Output::Color::kYellow, "product "), field,
                             Shown(product.language), Shown(before), Shown(after));
        });
  }

  void CompareProduct(const config::ProductInfo& a, const config::ProductInfo& b) {
    const config::ProductInfo& named = a.language.empty() ? b : a;
    TellProduct(named, "language", a.language, b.language);
    TellProduct(named, "name", a.name, b.name);
    TellProduct(named, "provider", a.provider, b.provider);
    TellProduct(named, "description", a.description, b.description);
  }

  void CompareProducts() {
    std::map<stdx::u16string, std::pair<config::ProductInfo, config::ProductInfo>> by_language;
    // Of several in one language the first one is shown.
    for (auto it = before_.products().rbegin(); it != before_.products().rend(); ++it) {
      by_language[it->language].first = *it;
    }
    for (auto it = after_.products().rbegin(); it != after_.products().rend(); ++it) {
      by_language[it->language].second = *it;
    }
    for (const auto& [language, pair] : by_language) CompareProduct(pair.first, pair.second);
  }

  OpenedKit& before_;
  OpenedKit& after_;
  Output& output_;
  std::size_t count_ = 0;
};

ExitCode Diff(const Options& options, Output& output) {
  const auto before = OpenImage(options.before, TempDirectory());
  const auto after = OpenImage(options.after, TempDirectory());
  const std::size_t count = Comparison(*before, *after, output).Run();
  const ExitCode code = options.exit_code && count != 0 ? ExitCode::kBadKit : ExitCode::kFine;
  output.Result("diff", code, {{"changes", count}},
                count == 0 ? "no difference" : Counted(count, "difference"));
  return code;
}

}  // namespace

void AddDiff(CommandLine& line, CLI::App* verb) {
  Options& options = SetAction<Options>(line, verb, Diff);
  verb->add_option("BEFORE", options.before, "The older kit")
      ->check(NotEmpty())
      ->required()
      ->option_text(" ");
  verb->add_option("AFTER", options.after, "The newer kit")
      ->check(NotEmpty())
      ->required()
      ->option_text(" ");
  verb->add_flag("--exit-code", options.exit_code, "End with 2 when the kits differ");
}

}  // namespace quarn::tpk
