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

template <class Data>
concept RestoringData = RestoringFileSystem<typename Data::FileSystemType>;

/// A pass in a restoring transaction, staged as an ordinary one is, so that both can be tested in
/// the same words. `steps` gets what can still be undone.
template <RestoringData Data, class Pause>
std::uint32_t RunRestoring(std::vector<UndoStep>& steps, BasicInstallProcessData<Data>* record,
                           Pause pause) {
  using Direct = DirectFileSystem;
  Data* data = nullptr;
  stdx::u16string target, temporary, staging;
  GetJob(record, &data, &target);
  typename Data::FileSystemType files_of_no_kit;
  GetTempDirectory(&temporary);
  std::int32_t n = 0;
  do {
    staging = temporary + u"kstage" + stdx::u16string(n++, std::uint32_t{10});
  } while (Direct::Look(staging) != Direct::Node::kNothing);
  RestoringTransaction transaction(data != nullptr ? data->file_system() : files_of_no_kit,
                                   staging + u'/');
  const std::uint32_t code =
      InstallPass<Data, decltype(transaction)>(transaction, record).Run(pause);
  steps = transaction.TakeSteps();
  return code;
}

template <RestoringData Data, class Pause>
std::uint32_t RunInstall(InstallTransactions&, BasicInstallProcessData<Data>* record, Pause pause) {
  std::vector<UndoStep> steps;
  return RunRestoring(steps, record, pause);
}

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
               const std::filesystem::path& target) {
    kit.WriteTo(kit_path);
    EXPECT_EQ(data.Read(U16(kit_path)), 0u);
    SetJob(&record, &data, U16(target));
    script.Clear();
  }

  /// Makes one pass.
  std::uint32_t Run() {
    statuses.clear();
    pauses = 0;
    transactions.clear();
    steps.clear();
    last_ = GetStatus(&record);
    script.Observe([this](const FaultScript::Call&) { LookAtStatus(); });
    const auto pause = [this] { ++pauses; };
    std::uint32_t result = 0;
    if constexpr (RestoringFileSystem<Policy>) {
      result = RunRestoring(steps, &record, pause);
    } else {
      result = RunInstall(transactions, &record, pause);
    }
    LookAtStatus();
    script.Observe(nullptr);
    return result;
  }

  FaultScript script;  ///< of a faulty policy
  Data data{MakeFiles()};
  BasicInstallProcessData<Data> record;
  InstallTransactions transactions;     ///< of an ordinary pass
  std::vector<UndoStep> steps;          ///< of a restoring pass, as `RunRestoring` leaves them
  std::vector<InstallStatus> statuses;  ///< what the last pass posted, in order
  int pauses = 0;

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

  InstallStatus last_;
};

}  // namespace quarn::testing
