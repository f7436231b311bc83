// The hand-off between the wizard and its worker under load: everything that the two can do to each
// other, at random moments. The thread sanitizer looks for races in it as well.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "install/install_thread.h"
#include "tests/install/installation.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using TreeMap = std::map<std::string, std::string>;
using Microseconds = std::chrono::microseconds;

constexpr int kFiles = 4;
constexpr int kInstallations = 200;

KitBuilder KitOfFour() {
  KitBuilder kit;
  for (int i = 0; i < kFiles; ++i) {
    const std::string name = "directory " + std::to_string(i % 2) + "\\file " + std::to_string(i);
    kit.File(std::u16string(name.begin(), name.end()), "contents " + std::to_string(i));
  }
  return kit;
}

TreeMap InstalledTree() {
  TreeMap tree{{"directory 0/", ""}, {"directory 1/", ""}};
  for (int i = 0; i < kFiles; ++i) {
    tree["directory " + std::to_string(i % 2) + "/file " + std::to_string(i)] =
        "contents " + std::to_string(i);
  }
  return tree;
}

template <class Policy>
class ThreadStressTest : public InstallTest {
 protected:
  void SetUp() override { ASSERT_TRUE(HasPrivateMounts()); }

  /// Whether a worker that installs into `target` may have posted this. Before its first post the
  /// message is that of the job before, `carried_over`.
  static bool IsPosted(const InstallStatus& status, const fs::path& target,
                       const stdx::u16string& carried_over) {
    if (status.code != 0) return false;
    if (status.percent == 100) return status.message == FinishText();
    if (status.percent == 0 && status.message == carried_over) return true;
    const int file = status.percent * kFiles / 100;
    return file * 100 / kFiles == status.percent &&
           status.message == U16(target / ("directory " + std::to_string(file % 2)) /
                                 ("file " + std::to_string(file)));
  }
};

using Policies = ::testing::Types<FileSystem, DirectFileSystem>;
TYPED_TEST_SUITE(ThreadStressTest, Policies);

TYPED_TEST(ThreadStressTest, TwoHundredInstallationsPolledAsFastAsTheWizardPolls) {
  Installation<TypeParam> installation(KitOfFour(), this->kit(), this->target());
  InstallThread thread;
  std::uint64_t polls = 0;
  for (int i = 0; i < kInstallations; ++i) {
    const fs::path target = this->target() / std::to_string(i);
    const stdx::u16string carried_over = GetStatus(&installation.record).message;
    installation.SetTarget(U16(target / ""));
    thread.Start([&] { return installation.RunPass(); });
    ASSERT_EQ(thread.creation_result(), 0);
    InstallStatus status;
    std::int32_t last = 0;
    do {
      const bool ended = thread.has_ended();
      status = GetStatus(&installation.record);
      ASSERT_TRUE(this->IsPosted(status, target, carried_over)) << ::testing::PrintToString(status);
      ASSERT_GE(status.percent, last);
      ASSERT_FALSE(ended && status.percent < 100);
      last = status.percent;
      ++polls;
    } while (status.code == 0 && status.percent < 100);
    thread.RequestStop();
    if (i % 50 == 0) {
      EXPECT_EQ(Tree(target), InstalledTree());
    }
  }
  thread.Join();
  EXPECT_EQ(std::distance(fs::directory_iterator(this->target()), fs::directory_iterator()),
            kInstallations);
  std::cout << kInstallations << " installations, " << polls << " polls\n";
}

using RestoringThreadStressTest = ThreadStressTest<DirectFileSystem>;

TEST_F(RestoringThreadStressTest, PollersACancellerAndStopsAtRandomMomentsSeeAllOrNothing) {
  std::mt19937 random(Seed());
  const auto within = [&random](int most) {
    return std::uniform_int_distribution<int>(0, most)(random);
  };
  Installation<DirectFileSystem> installation(KitOfFour(), kit(), target());
  const TreeMap temporary = Tree(tmp());
  int installed = 0, stopped = 0, cancelled = 0;
  for (int round = 0; round < kInstallations; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    const fs::path folder = target() / std::to_string(round);
    const stdx::u16string carried_over = GetStatus(&installation.record).message;
    installation.SetTarget(U16(folder / ""));
    std::atomic<bool> over = false;
    std::atomic<int> surprises = 0;
    std::vector<std::thread> others;
    for (int i = 0; i < 2; ++i) {
      others.emplace_back([&] {
        while (!over) {
          InstallStatus status = GetStatus(&installation.record);
          if (!IsPosted(status, folder, carried_over)) ++surprises;
          status.message += u"...";  // a text that the worker may share
        }
      });
    }
    if (within(1) == 0) {
      others.emplace_back([&, wait = Microseconds(within(1000))] {
        std::this_thread::sleep_for(wait);
        SetCancel(&installation.record, true);
      });
    }
    InstallThread thread;
    thread.Start([&, stops_itself = within(1) == 0] {
      if (stops_itself) thread.RequestStop();
      return installation.RunPass();
    });
    std::this_thread::sleep_for(Microseconds(within(3000)));
    thread.RequestStop();
    thread.Join();
    over = true;
    for (std::thread& other : others) other.join();
    EXPECT_EQ(surprises, 0);
    const TreeMap tree = Tree(folder);
    // A pass in work when the stop came has run to its end.
    const InstallStatus last = GetStatus(&installation.record);
    if (last.percent == 100) {
      ++installed;
      EXPECT_EQ(tree, InstalledTree());
    } else {
      (thread.last_result() == kErrorCancelled ? cancelled : stopped) += 1;
      EXPECT_EQ(tree, TreeMap());
    }
    EXPECT_EQ(Tree(tmp()), temporary);
    fs::remove_all(folder);
  }
  EXPECT_GT(installed, 0);
  EXPECT_EQ(installed + stopped + cancelled, kInstallations);
  std::cout << installed << " installed, " << cancelled << " cancelled, " << stopped
            << " stopped before they began\n";
}

}  // namespace
}  // namespace quarn::testing
