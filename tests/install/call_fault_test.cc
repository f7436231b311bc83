// Every call of the system that a restoring pass makes fails once, in every way, and so does every
// request for memory: the target is then as it was or as the kit wants it, and the temporary
// directory as it was.
#include <gtest/gtest.h>
#include <sys/vfs.h>

#include <algorithm>
#include <iostream>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "tests/install/installation.h"
#include "tests/install/tree_state.h"
#include "tests/support/allocations.h"
#include "tests/support/child.h"
#include "tests/support/private_mounts.h"
#include "tests/support/system_calls.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

/// The volumes of a scene. A directory lists its entries in another order on each kind of them.
enum class Ground {
  kMemory,     ///< all of it in memory, where the newest entry is listed first
  kElsewhere,  ///< the staging directory on another volume
  kDisk,       ///< on the disk of the scratch directory, listed by the hashes of the names
};
void PrintTo(Ground ground, std::ostream* out) {
  constexpr const char* kNames[] = {"memory", "elsewhere", "disk"};
  *out << kNames[static_cast<int>(ground)];
}

bool IsInMemory(const fs::path& path) {
  struct statfs status;
  constexpr auto kTmpfsMagic = 0x01021994;
  return statfs(path.c_str(), &status) != 0 || status.f_type == kTmpfsMagic;
}

class CallFaultTest : public InstallTest,
                      public ::testing::WithParamInterface<std::tuple<Scene, Ground>> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(HasPrivateMounts());
    const Ground ground = std::get<Ground>(GetParam());
    if (ground == Ground::kDisk) {
      if (IsInMemory(root())) GTEST_SKIP() << "the scratch directory is in memory";
    } else {
      here_.emplace(root().string(), 64 << 20);
      ASSERT_TRUE(here_->mounted());
    }
    fs::create_directory(home());
    fs::create_directory(tmp());
    if (ground == Ground::kElsewhere) {
      elsewhere_.emplace(tmp().string(), 64 << 20);
      ASSERT_TRUE(elsewhere_->mounted());
    }
    WriteFile(tmp() / "foreign", "not ours");
    WriteFile(tmp() / "kstage0/foreign", "another installer's");
  }

  static Scene scene() { return std::get<Scene>(GetParam()); }

  void Load(const KitBuilder& kit_builder) {
    installation_.emplace(kit_builder, kit(), target());
    SetScene(scene(), target());
    before_ = ReachedFrom(target());
    temporary_before_ = StateOf(tmp());
  }

  void Restore() {
    if (ReachedFrom(target()) != before_) {
      SetScene(scene(), target());
      before_ = ReachedFrom(target());
    }
    fs::remove_all(tmp() / "kstage1");
    installation_->SetTarget(U16(target() / ""));
  }

  /// Runs the pass with the fault; what it called is in `calls_`.
  std::uint32_t RunWith(std::size_t nth, CallFault fault) {
    const stdx::u16string staging = Staged();
    const CallFaultAt fault_at(nth, fault);
    const std::uint32_t code = installation_->RunPass(staging);
    calls_ = CallFaultAt::Calls();
    return code;
  }

  stdx::u16string Staged() const { return U16(tmp() / "kstage1/"); }

  std::optional<PrivateVolume> here_, elsewhere_;
  std::optional<Installation<DirectFileSystem>> installation_;
  TreeState before_, temporary_before_;
  std::vector<std::string> calls_;
};

/// Whether `state` is the installed tree, but for one file: one that could not be seen to be up to
/// date is of the kit then, and one whose time could not be set has another.
bool IsInstalled(const TreeState& state, const TreeState& installed, const TreeState& of_kit,
                 const std::string& failed_call) {
  int differences = 0;
  for (const auto& [name, node] : installed) {
    const auto found = state.find(name);
    if (found == state.end()) return false;
    if (found->second == node) continue;
    ++differences;
    // Of the files that the kit has for it under several names, the one before the last.
    if (found->second.contents.starts_with(kLinkedContents)) continue;
    const auto kit_node = of_kit.find(name);
    if (kit_node == of_kit.end()) return false;
    NodeState expected = kit_node->second;
    if (failed_call == "futimes") {
      expected.seconds = found->second.seconds;
      expected.nanoseconds = found->second.nanoseconds;
    }
    if (!(found->second == expected)) return false;
  }
  return differences <= 1 && state.size() == installed.size();
}

TEST_P(CallFaultTest, AFailureOfAnyCallLeavesTheTargetAsItWasOrInstalled) {
  // What the kit's files are like by themselves.
  SetScene(Scene::kFresh, target());
  Installation<DirectFileSystem>(KitFor(scene()), kit(), target()).Run();
  const TreeState of_kit = ReachedFrom(target());

  Load(KitFor(scene()));
  Restore();
  ASSERT_EQ(RunWith(0, CallFault::kShort), 0u);
  const std::vector<std::string> calls = calls_;
  const TreeState installed = ReachedFrom(target());
  ASSERT_NE(installed, before_);

  int faults = 0, as_before = 0;
  for (std::size_t nth = 1; nth <= calls.size(); ++nth) {
    for (const CallFault fault : kCallFaults) {
      if (!CanHave(calls[nth - 1], fault)) continue;
      SCOPED_TRACE("call " + std::to_string(nth) + ", " + calls[nth - 1] + ": " + NameOf(fault));
      Restore();
      const std::uint32_t code = RunWith(nth, fault);
      const TreeState after = ReachedFrom(target());
      if (code != 0) {
        ASSERT_EQ(after, before_);
        ++as_before;
      } else {
        ASSERT_TRUE(IsInstalled(after, installed, of_kit, calls[nth - 1]))
            << ::testing::PrintToString(after);
      }
      ASSERT_EQ(StateOf(tmp()), temporary_before_);
      ++faults;
    }
  }
  EXPECT_GT(as_before, 0);
  EXPECT_LT(as_before, faults);
  std::cout << calls.size() << " calls, " << faults << " faults tried: " << as_before
            << " left the target as it was, " << faults - as_before << " installed\n";
}

// Two faults, the first of which is in the kit. The old files are then where they were or, where
// that was not to be had, in the staging directory.
TEST_P(CallFaultTest, AFailureOfAnyCallOfARollbackLosesNoFile) {
  // "a/old" comes twice: its predecessor is the user's, not the pass's own. "a/twice" has none.
  Load(KitFor(scene())
           .File(u"a\\twice", "once")
           .File(u"a\\twice", "again", Ticks(kKitTime + 1))
           .File(u"a\\old", "again", Ticks(kKitTime + 1))
           .FileAt(u"z", 0, 0x10000000));
  Restore();
  ASSERT_NE(RunWith(0, CallFault::kShort), 0u);
  ASSERT_EQ(ReachedFrom(target()), before_);
  const std::vector<std::string> calls = calls_;

  int faults = 0, in_staging = 0;
  for (std::size_t nth = 1; nth <= calls.size(); ++nth) {
    for (const CallFault fault : kCallFaults) {
      if (!CanHave(calls[nth - 1], fault)) continue;
      SCOPED_TRACE("call " + std::to_string(nth) + ", " + calls[nth - 1] + ": " + NameOf(fault));
      Restore();
      ASSERT_NE(RunWith(nth, fault), 0u);
      const TreeState after = ReachedFrom(target());
      const TreeState staged = StateOf(tmp() / "kstage1");
      const auto is_staged = [&](const NodeState& node) {
        return std::any_of(staged.begin(), staged.end(),
                           [&](const auto& entry) { return entry.second == node; });
      };
      for (const auto& [name, node] : before_) {
        const auto there = after.find(name);
        if (there != after.end() && there->second == node) continue;
        ASSERT_TRUE(is_staged(node)) << name << " is lost";
        ++in_staging;
      }
      for (const auto& [name, node] : StateOf(tmp())) {
        if (name.starts_with("kstage1/")) continue;
        ASSERT_EQ(node, temporary_before_[name]) << name;
      }
      // Tried again, all of it is undone.
      DirectFileSystem files;
      ASSERT_EQ(Undo(files, Staged(), installation_->steps), 0);
      ASSERT_EQ(ReachedFrom(target()), before_);
      ASSERT_EQ(StateOf(tmp()), temporary_before_);
      ++faults;
    }
  }
  std::cout << calls.size() << " calls, " << faults << " faults tried: " << in_staging
            << " files were kept in the staging directory\n";
}

// In a child process, because a string that cannot have the memory for a copy of its own ends it.
TEST_P(CallFaultTest, ARequestForMemoryThatFailsLeavesTheTargetAsItWasOrInstalled) {
  Load(KitFor(scene()));
  Restore();
  std::size_t requests = 0;
  {
    const stdx::u16string staging = Staged();
    const AllocationFault counting(0);
    ASSERT_EQ(installation_->RunPass(staging), 0u);
    requests = AllocationFault::requests();
  }
  const TreeState installed = ReachedFrom(target());
  int as_before = 0;
  for (std::size_t nth = 1; nth <= requests; ++nth) {
    SCOPED_TRACE("request " + std::to_string(nth));
    Restore();
    const int result = ResultOfChild([&] {
      const stdx::u16string staging = Staged();
      const AllocationFault fault(nth);
      return installation_->RunPass(staging) == 0 ? 0 : 1;
    });
    ASSERT_GE(result, 0) << "ended by signal " << -result;
    const bool failed = result != 0;
    as_before += failed ? 1 : 0;
    ASSERT_EQ(ReachedFrom(target()), failed ? before_ : installed);
    ASSERT_EQ(StateOf(tmp()), temporary_before_);
  }
  EXPECT_GT(as_before, 0);
  std::cout << requests << " requests for memory, each failed once: " << as_before
            << " left the target as it was\n";
}

class ReadFaultTest : public InstallTest {
 protected:
  using Data = InstallData<LZCompressor, DirectFileSystem>;

  /// The tables as text.
  static std::string TablesOf(const Data& data) {
    std::string text;
    for (const auto& product : data.products()) text += ::testing::PrintToString(product.name);
    for (const auto& file : data.files()) {
      text += ::testing::PrintToString(file.name) + std::to_string(file.last_write_time) + " " +
              std::to_string(file.data_offset) + " " + std::to_string(file.data_size) + "\n";
    }
    return text;
  }
};

TEST_F(ReadFaultTest, AFailureOfAnyCallWhileAKitIsReadLeavesNothingOpenAndNoImage) {
  SceneKit().Product(u"en", u"name", u"provider", u"").WriteTo(kit());
  std::vector<std::string> calls{""};
  std::string tables;
  int faults = 0, refused = 0;
  for (std::size_t nth = 0; nth < calls.size(); ++nth) {
    for (const CallFault fault : kCallFaults) {
      if (nth != 0 && !CanHave(calls[nth], fault)) continue;
      SCOPED_TRACE("call " + std::to_string(nth) + ", " + calls[nth] + ": " + NameOf(fault));
      fs::remove_all(tmp());
      fs::create_directory(tmp());
      Data data;
      std::uint32_t code = 0;
      {
        const CallFaultAt fault_at(nth, fault);
        try {
          code = data.Read(U16(kit()));
        } catch (const std::exception&) {
          code = 1;
        }
        if (nth == 0) {
          calls.resize(1);
          for (const std::string& call : CallFaultAt::Calls()) calls.push_back(call);
        }
      }
      if (nth == 0) {
        ASSERT_EQ(code, 0u);
        tables = TablesOf(data);
        continue;
      }
      ++faults;
      if (calls[nth] == "read" && fault == CallFault::kShort) {
        ASSERT_EQ(code, 0u) << "the rest is read as well";
      }
      if (code == 0) {
        // A write that failed while the image was made is found when a file is missing in it.
        if (calls[nth] != "write") {
          ASSERT_EQ(TablesOf(data), tables);
        }
        continue;
      }
      ++refused;
      ASSERT_TRUE(data.files().empty());
      ASSERT_EQ(data.image_handle(), kInvalidFile);
      // The temporary directory may be the fallback one when the first could not be asked about.
      ASSERT_TRUE(fs::is_empty(tmp()));
    }
  }
  EXPECT_GT(refused, 0);
  std::cout << calls.size() - 1 << " calls, " << faults << " faults tried: " << refused
            << " refused the kit\n";
}

std::string RowName(const ::testing::TestParamInfo<CallFaultTest::ParamType>& row) {
  constexpr const char* kGrounds[] = {"", "AcrossVolumes", "OnDisk"};
  return std::string(NameOf(std::get<Scene>(row.param))) +
         kGrounds[static_cast<int>(std::get<Ground>(row.param))];
}

INSTANTIATE_TEST_SUITE_P(Matrix, CallFaultTest,
                         ::testing::Combine(::testing::Values(Scene::kFresh, Scene::kUpgrade,
                                                              Scene::kMixed, Scene::kLinked),
                                            ::testing::Values(Ground::kMemory, Ground::kElsewhere)),
                         RowName);
INSTANTIATE_TEST_SUITE_P(Disk, CallFaultTest,
                         ::testing::Combine(::testing::Values(Scene::kMixed, Scene::kLinked),
                                            ::testing::Values(Ground::kDisk)),
                         RowName);

}  // namespace
}  // namespace quarn::testing
