#include "install/wizard_pass.h"

#include <gtest/gtest.h>

#include "tests/install/installation.h"

namespace quarn::testing {
namespace {

using TreeMap = std::map<std::string, std::string>;

class WizardPassTest : public InstallTest {
 protected:
  WizardPassTest() {
    KitBuilder().File(u"a\\1", "one").WriteTo(kit());
    EXPECT_EQ(data_.Read(U16(kit())), 0u);
  }
  /// One pass, with a sequence of its own.
  std::uint32_t Run(InstallProcessData* record) {
    transactions_.clear();
    return RunInstall(transactions_, record);
  }

  WizardInstallData data_;
  InstallProcessData record_;
  InstallTransactions transactions_;
};

TEST_F(WizardPassTest, TheJobOfTheRecordIsInstalledAndItsEndIsPostedThere) {
  SetJob(&record_, &data_, U16(target()));
  for (int pass = 0; pass < 2; ++pass) {
    EXPECT_EQ(Run(&record_), 0u);
    EXPECT_EQ(GetStatus(&record_), (InstallStatus{0, FinishText(), 100}));
    EXPECT_EQ(Tree(target()), (TreeMap{{"a/", ""}, {"a/1", "one"}}));
    ASSERT_EQ(transactions_.size(), 1u);
    EXPECT_EQ(transactions_[0].target_directory, U16(target() / ""));
    EXPECT_EQ(transactions_[0].staging_directory, U16(tmp() / "kstage0/"));
  }
}

TEST_F(WizardPassTest, ACancelOfTheRecordEndsThePassThatCopiesAFile) {
  SetJob(&record_, &data_, U16(target()));
  SetCancel(&record_, true);
  EXPECT_EQ(Run(&record_), kErrorCancelled);
  EXPECT_EQ(GetStatus(&record_), (InstallStatus{0, Installed("a/1"), 0}));
  EXPECT_EQ(Tree(target()), TreeMap());
}

TEST_F(WizardPassTest, AFailureIsPosted) {
  KitBuilder().FileAt(u"a\\1", 0, 1000).WriteTo(kit());
  WizardInstallData data;
  ASSERT_EQ(data.Read(U16(kit())), 0u);
  SetJob(&record_, &data, U16(target()));
  EXPECT_EQ(Run(&record_), 87u);
  EXPECT_EQ(GetStatus(&record_), (InstallStatus{87, ErrorText(), 0}));
}

TEST_F(WizardPassTest, WithoutARecordOrAJobAPassEndsAtOnce) {
  EXPECT_EQ(Run(nullptr), 0u);
  EXPECT_EQ(Run(&record_), 0u);
  EXPECT_EQ(GetStatus(&record_), (InstallStatus{0, FinishText(), 100}));
  SetJob(&record_, nullptr, U16(target()));
  EXPECT_EQ(Run(&record_), 0u);
  EXPECT_EQ(Tree(target()), TreeMap());
}

}  // namespace
}  // namespace quarn::testing
