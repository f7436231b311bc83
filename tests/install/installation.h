// One pass of an installation as a test sees it.
#pragma once

#include <filesystem>
#include <functional>
#include <ostream>
#include <type_traits>
#include <vector>

#include "core/direct_file_system.h"
#include "core/file_system.h"
#include "install/ordinary_transaction.h"
#include "install/restoring_transaction.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"
#include "l10n/string_table.h"
#include "tests/support/faulty_file_system.h"
#include "tests/support/kit_builder.h"
#include "tests/support/scratch.h"

namespace quarn {

inline bool operator==(const InstallStatus& a, const InstallStatus& b) {
  return a.code == b.code && a.message == b.message && a.percent == b.percent;
}
inline void PrintTo(const InstallStatus& status, std::ostream* out) {
  *out << '(' << status.code << ", ";
  PrintTo(status.message, out);
  *out << ", " << status.percent << ')';
}

}  // namespace quarn

namespace quarn::testing {

/// The scratch directory of an installation: a kit, a target, the English texts.
class InstallTest : public ScratchTest {
 protected:
  InstallTest() {
    SetCurrentLanguage(kEnglish);
    std::filesystem::create_directory(target());
  }

  std::filesystem::path kit() const { return root() / "quarn.tpk"; }
  std::filesystem::path target() const { return root() / "target"; }
  /// The message that is posted before `file` is installed.
  stdx::u16string Installed(const char* file) const { return U16(target() / file); }

  void WriteOld(const std::filesystem::path& file, const std::string& contents) const {
    WriteFile(target() / file, contents);
    SetMTime(target() / file, kKitTime - 1000);
  }
};

inline stdx::u16string FinishText() { return LoadString("IDS_INSTALL_FINISH"); }
inline stdx::u16string ErrorText() { return LoadString("IDS_INSTALL_ERROR"); }

/// A kit that was read and is ready to be installed. Over a faulty policy every status that a pass
/// posts is seen, because each post is followed by a call of the policy or by the pass's end.
template <class Policy>
class Installation {
 public:
  using Data = InstallData<LZCompressor, Policy>;

  Installation(const KitBuilder& kit, const std::filesystem::path& kit_path,
               const std::filesystem::path& target)
      : Installation((kit.WriteTo(kit_path), kit_path), target) {}
  Installation(const std::filesystem::path& kit_path, const std::filesystem::path& target) {
    EXPECT_EQ(data.Read(U16(kit_path)), 0u);
    SetTarget(U16(target / ""));
    script.Clear();
  }

  /// A new job. `target` ends in a separator unless empty.
  void SetTarget(const stdx::u16string& target) {
    SetJob(&record, nullptr, target);
    target_ = target;
  }

  /// Makes one pass and looks on.
  std::uint32_t Run() {
    statuses.clear();
    last_ = GetStatus(&record);
    script.Observe([this](const FaultScript::Call&) { LookAtStatus(); });
    const std::uint32_t result = RunPass();
    LookAtStatus();
    script.Observe(nullptr);
    return result;
  }

  /// Makes one pass, as a worker does.
  std::uint32_t RunPass() {
    if constexpr (RestoringFileSystem<Policy>) {
      // Staged as an ordinary one is, so that both can be tested in the same words.
      stdx::u16string temporary;
      GetTempDirectory(&temporary);
      return RunPass(temporary + u"kstage0/");
    } else {
      transactions.clear();
      OrdinaryTransaction transaction(data.file_system(), transactions);
      return InstallPass(transaction, &data, target_, &record).Run();
    }
  }

  /// Makes one pass that is staged in the directory `staging`, which ends in "/".
  std::uint32_t RunPass(const stdx::u16string& staging) requires RestoringFileSystem<Policy> {
    RestoringTransaction transaction(data.file_system(), staging);
    const std::uint32_t result = InstallPass(transaction, &data, target_, &record).Run();
    steps = transaction.TakeSteps();
    return result;
  }

  FaultScript script;  ///< of a faulty policy
  Data data{MakeFiles()};
  InstallProcessData record;
  InstallTransactions transactions;     ///< of an ordinary pass
  std::vector<UndoStep> steps;          ///< of a restoring pass: what can still be undone
  std::vector<InstallStatus> statuses;  ///< what the last pass posted, in order

 private:
  Policy MakeFiles() {
    if constexpr (std::is_constructible_v<Policy, FaultScript*>) {
      return Policy(&script);
    } else {
      return Policy();
    }
  }

  void LookAtStatus() {
    const InstallStatus status = GetStatus(&record);
    if (!(status == last_)) statuses.push_back(status);
    last_ = status;
  }

  stdx::u16string target_;
  InstallStatus last_;
};

}  // namespace quarn::testing
