#include <fmt/format.h>

#include <cerrno>

#include "core/file.h"
#include "tpk/disk/installed_file.h"
#include "tpk/disk/temp_file.h"
#include "tpk/kit/kit_tables.h"
#include "tpk/kit/names.h"
#include "tpk/kit/open_kit.h"
#include "tpk/text/cancel.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"
#include "tpk/verbs/command.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

struct Options {
  fs::path kit;
  fs::path against;
  bool strict = false;
};

void CheckStream(const StreamEnd& stream, Findings& findings) {
  if (stream.end == ImageStream::End::kCutOff) {
    findings.Add(
        "stream-cut-off", "",
        fmt::format("the kit is incomplete: its compressed data breaks off {} into the image",
                    FormatSize(stream.image_size)));
  }
  if (stream.trailing_size != 0) {
    findings.Add("stream-trailing", "",
                 fmt::format("{} after the end of the compressed data are never read",
                             Counted(stream.trailing_size, "byte")));
  }
}

ExitCode VerifyKit(const Options& options, Output& output) {
  const KitTables tables = ReadTables(options.kit, TempDirectory());
  const StreamEnd stream = ReadToEnd(options.kit);
  if (stream.end == ImageStream::End::kCorrupt) throw DamagedData(options.kit);
  Findings findings;
  CheckStream(stream, findings);
  CheckContents(tables.products, tables.files, findings);
  CheckData(tables.files, tables.data_area, stream.image_size, findings);
  Print(findings, output);
  const ExitCode code = findings.Refuse(options.strict) ? ExitCode::kBadKit : ExitCode::kFine;
  output.Result(
      "verify", code,
      {{"files", tables.files.size()},
       {"errors", findings.error_count()},
       {"warnings", findings.warning_count()},
       {"image_bytes", stream.image_size}},
      fmt::format("{}: {}, {}, {}",
                  code == ExitCode::kFine ? output.Painted(Output::Color::kGreen, "fine")
                                          : output.Painted(Output::Color::kRed, "not fine"),
                  Counted(tables.files.size(), "file"), Counted(findings.error_count(), "error"),
                  Counted(findings.warning_count(), "warning")));
  return code;
}

/// Whether the bytes of `file` are those of `installed`, which has the same size.
bool SameContents(OpenedKit& kit, const KitData::FileData& file, const InstalledFile& installed) {
  for (std::uint32_t at = 0; at < file.data_size;) {
    const auto block = kit.ReadBlock(file, at);
    if (!installed.NextAre(block)) return false;
    at += static_cast<std::uint32_t>(block.size());
  }
  return true;
}

/// What differs between a file of a kit and its installed copy; empty for nothing.
std::string Difference(OpenedKit& kit, const KitData::FileData& file, const fs::path& directory) {
  const InstalledFile installed(InstalledAt(directory, file.name));
  if (!installed) return installed.error() == ENOENT ? "missing" : "unreadable";
  if (installed.size() != file.data_size) return "contents";
  if (!SameContents(kit, file, installed)) return "contents";
  // A disk keeps whole seconds as the installation writes them.
  const std::uint64_t expected = file.last_write_time / kTicksPerSecond;
  if (installed.time() / kTicksPerSecond == expected) return "";
  return installed.time() / kTicksPerSecond > expected ? "newer" : "older";
}

ExitCode VerifyAgainst(OpenedKit& kit, const fs::path& directory, Output& output) {
  std::uint64_t total = 0;
  for (const KitData::FileData& file : kit.files()) total += file.data_size;
  std::uint64_t done = 0;
  std::uint64_t different = 0;
  {
    Progress progress(output, "comparing", total);
    for (const KitData::FileData& file : kit.files()) {
      ThrowIfCancelled();
      const std::string name = InstalledName(file.name);
      const std::string difference = Difference(kit, file, directory);
      progress.Update(done += file.data_size);
      if (difference.empty()) continue;
      ++different;
      output.Record(
          "difference",
          [&] {
            return Json{{"path", name}, {"difference", difference}};
          },
          [&] { return fmt::format("{:<10}  {}", difference, Printable(name)); });
    }
  }
  const ExitCode code = different != 0 ? ExitCode::kBadKit : ExitCode::kFine;
  output.Result(
      "verify", code,
      {{"directory", directory.string()}, {"files", kit.files().size()}, {"different", different}},
      fmt::format("{}: {}, {} as in the kit",
                  different == 0 ? output.Painted(Output::Color::kGreen, "fine")
                                 : output.Painted(Output::Color::kRed, "different"),
                  Counted(kit.files().size(), "file"), kit.files().size() - different));
  return code;
}

ExitCode Verify(const Options& options, Output& output) {
  if (options.against.empty()) return VerifyKit(options, output);
  std::error_code ignored;
  if (!fs::is_directory(options.against, ignored)) {
    throw NotADirectory(options.against);
  }
  return VerifyAgainst(*OpenKit(options.kit, TempDirectory()), options.against, output);
}

}  // namespace

void AddVerify(CommandLine& line, CLI::App* verb) {
  Options& options = SetAction<Options>(line, verb, Verify);
  AddKit(verb, options.kit);
  verb->add_option("--against", options.against,
                   "Compare every file with its copy in this folder instead")
      ->check(NotEmpty())
      ->option_text("DIR");
  verb->add_flag("--strict", options.strict, "Take warnings for errors");
}

}  // namespace quarn::tpk
