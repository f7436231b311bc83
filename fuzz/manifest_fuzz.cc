// A manifest: every mistake is reported with its position, nothing else is thrown; what is accepted
// can be used; and the manifest that unpacking a kit with these products writes is accepted as well
// and says the same.
#include <algorithm>
#include <string>
#include <string_view>

#include "input_limits.h"
#include "scratch.h"

#include "tpk/kit/checks.h"
#include "tpk/kit/manifest.h"
#include "tpk/kit/manifest_text.h"
#include "tpk/text/failure.h"

namespace {

namespace tpk = quarn::tpk;
using quarn::fuzz::Require;

constexpr std::string_view kName = "kit.toml";

/// Takes a number and a colon off the front.
std::size_t TakeNumber(std::string_view& text) {
  std::size_t number = 0;
  const std::size_t end = std::min(text.find_first_not_of("0123456789"), text.size());
  Require(end != 0 && end < 10 && text.substr(end).starts_with(':'), "a mistake has a position");
  for (const char c : text.substr(0, end)) number = number * 10 + static_cast<std::size_t>(c - '0');
  text.remove_prefix(end + 1);
  return number;
}

void CheckMistakes(const tpk::Failure& failure, std::string_view manifest) {
  Require(failure.exit_code() == tpk::ExitCode::kUsage, "a mistake is the user's");
  const auto lines = static_cast<std::size_t>(std::count(manifest.begin(), manifest.end(), '\n'));
  std::string_view rest = failure.what();
  Require(!rest.empty(), "a mistake is told");
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    Require(line.starts_with(kName) && line.substr(kName.size()).starts_with(':'),
            "a mistake names the manifest");
    line.remove_prefix(kName.size() + 1);
    const std::size_t row = TakeNumber(line);
    Require(row >= 1 && row <= lines + 2, "a mistake is within the manifest");
    TakeNumber(line);
    Require(line.size() > 2, "a mistake is described");
    Require(std::none_of(line.begin(), line.end(),
                         [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }),
            "a mistake cannot steer the terminal");
  }
}

void CheckUse(const tpk::Manifest& manifest, std::string_view text) {
  Require(manifest.level >= 0 && manifest.level <= 9, "a level is one of zlib's");
  Require(!manifest.single_product || manifest.products.size() == 1, "a single product is one");
  for (const std::string_view name : {std::string_view("a"), std::string_view("docs/a b/c.txt"),
                                      text.substr(0, std::min<std::size_t>(text.size(), 100))}) {
    const bool excluded =
        std::any_of(manifest.exclude.begin(), manifest.exclude.end(),
                    [name](const tpk::Pattern& pattern) { return pattern.Matches(name); });
    Require(!(manifest.Takes(name) && excluded), "what is excluded stays out");
    const tpk::Pattern exactly(tpk::Pattern::Exactly(name));
    Require(name.empty() || name.starts_with('/') || name.ends_with('/') || exactly.Matches(name),
            "an exact pattern matches its name");
    static_cast<void>(manifest.TimeOf(name));
  }
}

void CheckWayBack(const tpk::Manifest& manifest) {
  tpk::KitTables tables;
  tables.single_product = manifest.single_product;
  tables.products = manifest.products;
  for (const tpk::Manifest::TimeRule& rule : manifest.times) {
    tables.files.push_back({stdx::u16string(u"d\\f"), rule.ticks, 0, 0});
  }
  const std::string text = tpk::ManifestOf(tables, manifest.level);
  try {
    const tpk::Manifest again = tpk::ParseManifest(text, quarn::fuzz::Scratch() / kName);
    Require(again.level == manifest.level && again.single_product == manifest.single_product,
            "the settings come back");
    Require(again.products.size() == manifest.products.size(), "all products come back");
    for (std::size_t i = 0; i < again.products.size(); ++i) {
      const auto& a = again.products[i];
      const auto& b = manifest.products[i];
      Require(a.language == b.language && a.name == b.name && a.provider == b.provider,
              "the texts of a product come back");
      Require(a.description == b.description, "the description comes back");
    }
    if (!again.times.empty()) {
      Require(again.TimeOf("d/f") == again.times.back().ticks, "the last time counts");
    }
  } catch (const tpk::Failure&) {
    quarn::fuzz::Broken("what the tool writes the tool reads");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool made = std::filesystem::create_directory(quarn::fuzz::Scratch() / "files");
  static_cast<void>(made);
  const quarn::fuzz::Limits limits(size, 1 << 20, 1 << 12);
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    const tpk::Manifest manifest = tpk::ParseManifest(text, std::filesystem::path(kName));
    CheckUse(manifest, text);
    CheckWayBack(manifest);
  } catch (const tpk::Failure& failure) {
    CheckMistakes(failure, text);
  } catch (...) {
    quarn::fuzz::Broken("nothing but mistakes is thrown");
  }
  return 0;
}
