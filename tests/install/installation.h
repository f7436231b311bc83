// One pass of an installation as a test sees it.
#pragma once

#include <filesystem>
#include <functional>
#include <ostream>
#include <vector>

#include "core/direct_file_system.h"
#include "core/file_system.h"
#include "install/install_process.h"
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
    FaultScript::Get().Clear();
    SetCurrentLanguage(kEnglish);
    std::filesystem::create_directory(target());
  }
  ~InstallTest() override { FaultScript::Get().Clear(); }

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
    FaultScript::Get().Clear();
  }

  /// Makes one pass.
  std::uint32_t Run() {
    statuses.clear();
    pauses = 0;
    transactions.clear();
    last_ = GetStatus(&record);
    FaultScript::Get().Observe([this](const FaultScript::Call&) { LookAtStatus(); });
    const std::uint32_t result = RunInstall(transactions, &record, [this] { ++pauses; });
    LookAtStatus();
    FaultScript::Get().Observe(nullptr);
    return result;
  }

  Data data;
  BasicInstallProcessData<Data> record;
  InstallTransactions transactions;
  std::vector<InstallStatus> statuses;  ///< what the last pass posted, in order
  int pauses = 0;

 private:
  void LookAtStatus() {
    const InstallStatus status = GetStatus(&record);
    if (!(status == last_)) statuses.push_back(status);
    last_ = status;
  }

  InstallStatus last_;
};

}  // namespace quarn::testing
