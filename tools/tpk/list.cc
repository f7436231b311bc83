#include <fmt/format.h>

#include <memory>

#include "tools/tpk/command.h"
#include "tools/tpk/format.h"
#include "tools/tpk/kit_data.h"
#include "tools/tpk/utf.h"

namespace quarn::tpk {
namespace {

struct Options {
  std::filesystem::path kit;
};

template <class Kit>
ExitCode List(const Kit& kit, Output& output) {
  std::uint64_t total = 0;
  for (const auto& file : kit.files()) {
    total += file.data_size;
    output.Record(
        "file",
        [&] {
          return Json{{"name", Utf8FromUtf16(file.name.view())},
                      {"size", file.data_size},
                      {"time", FormatTime(file.last_write_time)}};
        },
        [&] {
          return fmt::format("{:>10}  {}  {}", file.data_size, FormatTime(file.last_write_time),
                             Shown(file.name));
        });
  }
  output.Result("list", ExitCode::kFine, {{"files", kit.files().size()}, {"bytes", total}},
                fmt::format("{:>10}  {}", total, Counted(kit.files().size(), "file")));
  return ExitCode::kFine;
}

}  // namespace

void AddList(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  CLI::App* const verb =
      AddVerb(line, "list", "List the files in a kit", [options](Output& output) {
        return WithKit(options->kit, [&](const auto& kit) { return List(kit, output); });
      });
  verb->add_option("KIT", options->kit, "The kit")->required();
}

}  // namespace quarn::tpk
