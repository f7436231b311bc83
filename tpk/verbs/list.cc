#include <fmt/format.h>

#include "tpk/disk/temp_file.h"
#include "tpk/kit/kit_tables.h"
#include "tpk/kit/names.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"
#include "tpk/verbs/command.h"

namespace quarn::tpk {
namespace {

ExitCode List(const std::filesystem::path& kit, Output& output) {
  const KitTables tables = ReadTables(kit, TempDirectory());
  std::uint64_t total = 0;
  for (const CheckedFile& file : tables.files) {
    total += file.size;
    output.Record(
        "file",
        [&] {
          return Json{{"path", InstalledName(file.name)},
                      {"name", Utf8FromUtf16(file.name.view())},
                      {"size", file.size},
                      {"time", FormatTime(file.time)}};
        },
        [&] {
          return fmt::format("{:>10}  {}  {}", file.size, FormatTime(file.time),
                             Printable(InstalledName(file.name)));
        });
  }
  output.Result("list", ExitCode::kFine, {{"files", tables.files.size()}, {"bytes", total}},
                fmt::format("{:>10}  {}", total, Counted(tables.files.size(), "file")));
  return ExitCode::kFine;
}

}  // namespace

void AddList(CommandLine& line, CLI::App* verb) {
  std::filesystem::path& kit = SetAction<std::filesystem::path>(line, verb, List);
  AddKit(verb, kit);
}

}  // namespace quarn::tpk
