#include "tpk/work/plan_install.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_set>
#include <utility>
#include <vector>

#include "core/direct_file_system.h"
#include "install/install_process.h"
#include "kit/records.h"
#include "tpk/kit/checks.h"
#include "tpk/kit/kit_tables.h"
#include "tpk/kit/names.h"
#include "tpk/text/cancel.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"
#include "tpk/work/install_place.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

enum class Prospect {
  kMissing,  ///< would be written
  kOlder,    ///< would be replaced
  kSame,     ///< would be left alone
  kNewer,    ///< would be left alone
  kBlocked,  ///< would make the installation fail
};

struct PlannedFile {
  std::string path;  ///< relative to the target
  Prospect prospect;
  std::string reason;  ///< for people
  /// Blocked because of what the kit says, not because of what the disk holds.
  bool dangerous = false;
};

constexpr std::array<const char*, 5> kProspects = {"missing", "older", "same", "newer", "blocked"};

const char* Name(Prospect prospect) { return kProspects[static_cast<std::size_t>(prospect)]; }

/// The reason why nothing can be written at `path`; empty if something can.
std::string Obstacle(const fs::path& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return "a folder is in the way";
  // The nearest directory that exists is where something would have to be made.
  fs::path parent = path;
  do {
    parent = parent.parent_path();
    if (stat(parent.c_str(), &status) == 0) break;
    if (errno != ENOENT && errno != ENOTDIR) {
      return fmt::format("{}: {}", Printable(parent.string()),
                         std::generic_category().message(errno));
    }
    if (lstat(parent.c_str(), &status) == 0) {
      return Printable(parent.string()) + " is a link that leads nowhere";
    }
  } while (parent != parent.root_path());
  if (!S_ISDIR(status.st_mode)) return Printable(parent.string()) + " is not a folder";
  if (access(parent.c_str(), W_OK | X_OK) != 0) {
    return fmt::format("{}: {}", Printable(parent.string()),
                       std::generic_category().message(errno));
  }
  return "";
}

PlannedFile Look(const CheckedFile& file, const fs::path& target) {
  const std::string name = InstalledName(file.name);
  Findings findings;
  CheckName(file.name, findings);
  for (const Finding& finding : findings.all()) {
    if (finding.check->is_error) return {name, Prospect::kBlocked, finding.message, true};
  }
  const fs::path path = target / name;
  DirectFileSystem files;
  const std::optional<std::uint64_t> installed =
      InstalledTime(files, InstalledPath(EnginePath(target), u'/' + file.name));
  if (IsUpToDate(installed, file.time)) {
    return *installed == file.time
               ? PlannedFile{name, Prospect::kSame, "", false}
               : PlannedFile{name, Prospect::kNewer, "installed " + FormatTime(*installed), false};
  }
  if (std::string obstacle = Obstacle(path); !obstacle.empty()) {
    return {name, Prospect::kBlocked, std::move(obstacle), false};
  }
  if (installed) return {name, Prospect::kOlder, "installed " + FormatTime(*installed), false};
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return {name, Prospect::kMissing, "", false};
  return {name, Prospect::kOlder, "what is there cannot be read", false};
}

std::vector<PlannedFile> MakePlan(const std::vector<CheckedFile>& files, const fs::path& target) {
  std::vector<PlannedFile> plan;
  plan.reserve(files.size());
  // What the kit itself puts in its way.
  Findings findings;
  CheckCollisions(files, findings);
  std::unordered_set<std::string> directories;
  for (const Finding& finding : findings.all()) {
    if (std::string_view(finding.check->code) == "name-file-and-folder") {
      directories.insert(finding.name);
    }
  }
  for (const CheckedFile& file : files) {
    ThrowIfCancelled();
    PlannedFile planned = Look(file, target);
    if (planned.prospect != Prospect::kBlocked && directories.contains(planned.path)) {
      planned = {planned.path, Prospect::kBlocked, "the kit has it for a folder as well", true};
    }
    plan.push_back(std::move(planned));
  }
  return plan;
}

}  // namespace

ExitCode PlanInstall(const fs::path& kit, const fs::path& given_target, const fs::path& temporary,
                     const char* verb, Output& output) {
  const fs::path target = RequireEnginePath(fs::absolute(given_target));
  const std::vector<PlannedFile> plan = MakePlan(ReadTables(kit, temporary).files, target);
  std::array<std::size_t, kProspects.size()> counts{};
  ExitCode code = ExitCode::kFine;
  for (const PlannedFile& file : plan) {
    ++counts[static_cast<std::size_t>(file.prospect)];
    if (file.dangerous) {
      code = ExitCode::kBadKit;
    } else if (file.prospect == Prospect::kBlocked && code == ExitCode::kFine) {
      code = ExitCode::kInputOutput;
    }
    output.Record(
        "file",
        [&] {
          Json fields{{"path", file.path}, {"state", Name(file.prospect)}};
          if (!file.reason.empty()) fields["reason"] = file.reason;
          return fields;
        },
        [&] {
          return fmt::format("{:<8}{}{}", Name(file.prospect), Printable(file.path),
                             file.reason.empty() ? "" : ": " + file.reason);
        });
  }
  if (InstallPlace::LeftBehind(target, temporary)) {
    output.Note(
        "another installation into this folder has not ended; if it was interrupted, the next one "
        "undoes it first");
  }
  Json fields{{"target", target.string()}, {"files", plan.size()}};
  std::string text;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    fields[kProspects[i]] = counts[i];
    if (counts[i] != 0)
      text += fmt::format("{}{} {}", text.empty() ? "" : ", ", counts[i], kProspects[i]);
  }
  output.Result(
      verb, code, fields,
      fmt::format("{}: {}", Counted(plan.size(), "file"), text.empty() ? "nothing to do" : text));
  return code;
}

}  // namespace quarn::tpk
