#include <fmt/format.h>

#include <algorithm>
#include <system_error>

#include "tpk/disk/temp_file.h"
#include "tpk/kit/kit_tables.h"
#include "tpk/kit/names.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"
#include "tpk/verbs/command.h"

namespace quarn::tpk {
namespace {

std::string OrDefault(const stdx::u16string& text) {
  return text.empty() ? "(the wizard's default)" : Shown(text);
}

void PrintProduct(const config::ProductInfo& product, Output& output) {
  output.Record(
      "product",
      [&] {
        return Json{{"language", Utf8FromUtf16(product.language.view())},
                    {"name", Utf8FromUtf16(product.name.view())},
                    {"provider", Utf8FromUtf16(product.provider.view())},
                    {"description", InstalledName(product.description)}};
      },
      [&] {
        return fmt::format(
            "{}\n  name         {}\n  provider     {}\n  description  {}",
            output.Painted(Output::Color::kBold, Shown(product.language)), OrDefault(product.name),
            OrDefault(product.provider),
            product.description.empty() ? "(none)" : Printable(InstalledName(product.description)));
      });
}

ExitCode Info(const std::filesystem::path& path, Output& output) {
  const KitTables tables = ReadTables(path, TempDirectory());
  for (const config::ProductInfo& product : tables.products) PrintProduct(product, output);

  std::error_code ignored;
  const std::uint64_t kit_size = std::filesystem::file_size(path, ignored);
  std::uint64_t total = 0;
  for (const CheckedFile& file : tables.files) total += file.size;
  const auto [oldest, newest] = std::minmax_element(
      tables.files.begin(), tables.files.end(),
      [](const CheckedFile& a, const CheckedFile& b) { return a.time < b.time; });
  const char* const form = tables.single_product ? "single" : "table";

  Json fields{{"form", form},
              {"products", tables.products.size()},
              {"files", tables.files.size()},
              {"bytes", total},
              {"kit_bytes", kit_size}};
  std::string text = fmt::format(
      "form           {}, {}\nfiles          {}, {}\nkit            {}", form,
      tables.single_product ? "one product in English" : Counted(tables.products.size(), "product"),
      Counted(tables.files.size(), "file"), FormatSize(total), FormatSize(kit_size));
  if (!tables.files.empty()) {
    fields["oldest"] = FormatTime(oldest->time);
    fields["newest"] = FormatTime(newest->time);
    text += fmt::format("\nwritten        {} to {}", FormatTime(oldest->time),
                        FormatTime(newest->time));
  }
  output.Text(text);
  output.Result("info", ExitCode::kFine, fields, "");
  return ExitCode::kFine;
}

}  // namespace

void AddInfo(CommandLine& line, CLI::App* verb) {
  std::filesystem::path& kit = SetAction<std::filesystem::path>(line, verb, Info);
  AddKit(verb, kit);
}

}  // namespace quarn::tpk
