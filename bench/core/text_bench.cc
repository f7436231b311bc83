// Conversions against the same ones with the locale selected around each of them.
#include <clocale>
#include <cstdlib>
#include <memory>
#include <string>

#include "bench/core/side_by_side.h"

#include "core/text.h"

namespace quarn::bench {
namespace {

using benchmark::DoNotOptimize;

/// Selects the environment's locale before and once more after the conversion.
template <class Convert>
auto SelectingTwice(Convert convert) {
  return [convert] {
    const std::string name = std::setlocale(LC_ALL, "");
    convert();
    std::setlocale(LC_ALL, name.c_str());
  };
}

}  // namespace
}  // namespace quarn::bench

int main() {
  using namespace quarn;
  setenv("LC_ALL", "C.UTF-8", 1);
  bench::SideBySide table;
  const stdx::u16string short_name(u"template.txt");
  const stdx::u16string path(
      u"/home/user/.local/share/quarn/templates/R\u00E9sum\u00E9/letter.xml");
  for (const stdx::u16string& text : {short_name, path}) {
    const stdx::string narrow = ToNarrow(text);
    const auto to_narrow = [&] { benchmark::DoNotOptimize(ToNarrow(text)); };
    const auto to_utf16 = [&] { benchmark::DoNotOptimize(ToUtf16(narrow)); };
    const std::string of = " of " + std::to_string(text.size()) + " units";
    table.Row("to narrow" + of, 1.0 / 4, to_narrow, bench::SelectingTwice(to_narrow));
    table.Row("to UTF-16" + of, 1.0 / 4, to_utf16, bench::SelectingTwice(to_utf16));
  }
  return table.ExitCode();
}
