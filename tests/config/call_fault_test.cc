// Every call of the system with which a launcher's file is read and rewritten fails once, in every
// way, and so does every request for memory: the file is then as it was or as it should become, and
// where it is neither, because it was not read to its end, a copy of it is next to it.
#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/config/config_support.h"
#include "tests/support/allocations.h"
#include "tests/support/child.h"
#include "tests/support/private_mounts.h"
#include "tests/support/system_calls.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

/// The contents of the user's file before; nothing for no file.
struct FileRow {
  const char* name;
  std::optional<std::string> before;
  bool is_understood = true;
};

std::string Lines(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += "key " + std::to_string(i) + "=" + std::string(190, 'v') + "\n";
  }
  return text;
}

const FileRow kFiles[] = {
    {"missing", std::nullopt},
    {"empty", ""},
    {"small", "a=1\nConfigurationTemplatesLocation=/old\nb=2\n"},
    // More than the stream's buffer and than the reader's block.
    {"large", Lines(30)},
    {"undecodable", Lines(12) + "bad=\xFF\xFE\nand=more\n" + Lines(12), false},
    {"utf16",
     std::string("\xFF\xFE"
                 "a\0=\0"
                 "1\0\n\0",
                 10),
     false},
    {"above_the_bmp", "key=\xF0\x9F\x98\x80\nb=2\n", false},
};

void PrintTo(const FileRow& row, std::ostream* out) { *out << row.name; }

class ConfigCallFaultTest : public ScratchTest, public ::testing::WithParamInterface<FileRow> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(HasPrivateMounts());
    // In memory, where thousands of files come and go quickly.
    volume_.emplace(root().string(), 1 << 20);
    ASSERT_TRUE(volume_->mounted());
  }

  fs::path own() const { return home() / ".Orbex/qlaunch/qlaunch.cfg"; }

  void Restore() const {
    fs::remove_all(home());
    fs::create_directories(own().parent_path());
    if (GetParam().before) WriteFile(own(), *GetParam().before);
  }
  std::optional<std::string> Contents() const {
    return fs::exists(own()) ? std::optional(ReadFile(own())) : std::nullopt;
  }

  /// A copy is whole or not there. Whether it is there.
  bool HasCopy() const {
    const fs::path copy = own().string() + ".orig";
    if (!fs::exists(copy)) return false;
    EXPECT_EQ(ReadFile(copy), GetParam().before);
    return true;
  }
  /// After a kill: next to the file is at most its copy, or a part of one, which the next rewrite
  /// takes away. Whether there was one.
  bool CheckBeside() const {
    const fs::path copy = own().string() + ".orig", part = copy.string() + ".part";
    for (const auto& entry : fs::directory_iterator(own().parent_path())) {
      const fs::path& path = entry.path();
      EXPECT_TRUE(path == own() || path == copy || path == part) << path;
    }
    if (!fs::exists(part)) return false;
    EXPECT_EQ(Contents(), GetParam().before);
    LauncherConfig store;
    LoadLauncherConfig(store);
    SaveLauncherConfig(store);
    EXPECT_FALSE(fs::exists(part));
    EXPECT_TRUE(HasCopy());
    return true;
  }
  /// After a rewrite that says it succeeded.
  void CheckRewritten(const std::optional<std::string>& rewritten) const {
    const bool has_copy = HasCopy();
    if (!has_copy) {
      ASSERT_EQ(Contents(), rewritten);
    }
    ASSERT_TRUE(has_copy || GetParam().is_understood);
    ASSERT_NE(ReadFile(own()).find("ConfigurationTemplatesLocation=/new\n"), std::string::npos);
  }

  static void AddDirectory(ConfigEntryList& list) {
    SetConfigValues(list, kTemplatesLocationKey, {u"/new", u"/newer"});
  }
  /// All that an installation does with the file.
  static void RewriteStore() {
    LauncherConfig store;
    LoadLauncherConfig(store);
    AddDirectory(store.own);
    SaveLauncherConfig(store);
  }
  /// What a rewrite without a fault makes of the file.
  std::optional<std::string> Rewritten() const {
    Restore();
    ConfigEntryList list = Read(own());
    AddDirectory(list);
    WriteConfigFile(U16(own()), list);
    return Contents();
  }

  /// Runs `action` with every fault at every call. `check` gets what it threw, 0 for nothing, and
  /// -1 for an exception that is no number.
  void FailEverywhere(const std::function<void()>& prepare, const std::function<void()>& action,
                      const std::function<void(int)>& check) {
    std::vector<std::string> calls{""};
    int faults = 0, thrown = 0;
    for (std::size_t nth = 0; nth <= calls.size() - 1; ++nth) {
      for (const CallFault fault : kCallFaults) {
        if (nth != 0 && !CanHave(calls[nth], fault)) continue;
        SCOPED_TRACE("call " + std::to_string(nth) + ", " + calls[nth] + ": " + NameOf(fault));
        Restore();
        prepare();
        int code = 0;
        std::vector<std::string> made;
        {
          const CallFaultAt fault_at(nth, fault);
          try {
            action();
          } catch (int number) {
            code = number;
          } catch (const std::exception&) {
            code = -1;
          }
          made = CallFaultAt::Calls();
        }
        if (nth == 0) {
          ASSERT_EQ(code, 0);
          calls.resize(1);
          calls.insert(calls.end(), made.begin(), made.end());
          continue;
        }
        check(code);
        if (HasFatalFailure()) return;
        ++faults;
        thrown += code != 0 ? 1 : 0;
      }
    }
    std::cout << calls.size() - 1 << " calls, " << faults << " faults tried, " << thrown
              << " of them thrown on\n";
  }

  std::optional<PrivateVolume> volume_;
};

TEST_P(ConfigCallFaultTest, AWriteThatFailsLeavesTheFormerContentsAndSaysSo) {
  const auto rewritten = Rewritten();
  ConfigEntryList list;
  FailEverywhere(
      [&] {
        list = Read(own());
        AddDirectory(list);
      },
      [&] { WriteConfigFile(U16(own()), list); },
      [&](int code) {
        ASSERT_TRUE(code == 0 || code == 1 || code == 2) << code;
        ASSERT_EQ(Contents(), code == 0 ? rewritten : GetParam().before);
        ASSERT_TRUE(code != 0 || HasCopy() != GetParam().is_understood);
      });
}

TEST_P(ConfigCallFaultTest, ACopyThatIsThereIsNotWrittenOver) {
  const fs::path copy = own().string() + ".orig";
  ConfigEntryList list;
  FailEverywhere(
      [&] {
        WriteFile(copy, "the first one");
        list = Read(own());
        AddDirectory(list);
      },
      [&] { WriteConfigFile(U16(own()), list); },
      [&](int) { ASSERT_EQ(ReadFile(copy), "the first one"); });
}

TEST_P(ConfigCallFaultTest, AFailureWhileAFileIsReadCostsNoLine) {
  const auto rewritten = Rewritten();
  FailEverywhere([] {}, [] { RewriteStore(); },
                 [&](int code) {
                   ASSERT_EQ(code, 0) << "a save is tried twice";
                   CheckRewritten(rewritten);
                 });
}

TEST_P(ConfigCallFaultTest, ASaveGetsOverOneFailure) {
  const auto rewritten = Rewritten();
  LauncherConfig store;
  FailEverywhere(
      [&] {
        store = {};
        LoadLauncherConfig(store);
        AddDirectory(store.own);
      },
      [&] { SaveLauncherConfig(store); },
      [&](int code) {
        ASSERT_EQ(code, 0);
        ASSERT_EQ(Contents(), rewritten);
        ASSERT_EQ(HasCopy(), !GetParam().is_understood);
      });
}

// In a child process, because a string that cannot have the memory for a copy of its own ends it.
TEST_P(ConfigCallFaultTest, ARequestForMemoryThatFailsCostsNoLine) {
  const auto rewritten = Rewritten();
  Restore();
  std::size_t requests = 0;
  {
    const AllocationFault counting(0);
    RewriteStore();
    requests = AllocationFault::requests();
  }
  int as_before = 0;
  for (std::size_t nth = 1; nth <= requests; ++nth) {
    SCOPED_TRACE("request " + std::to_string(nth));
    Restore();
    const int result = ResultOfChild([&] {
      const AllocationFault fault(nth);
      try {
        RewriteStore();
      } catch (...) {
        return 1;
      }
      return 0;
    });
    ASSERT_GE(result, 0) << "ended by signal " << -result;
    const bool failed = result != 0;
    as_before += failed ? 1 : 0;
    if (failed) {
      ASSERT_EQ(Contents(), GetParam().before);
    } else {
      CheckRewritten(rewritten);
    }
  }
  std::cout << requests << " requests for memory, each failed once: " << as_before
            << " left the file as it was\n";
}

// A rewrite truncates the file and writes it anew, through a stream: what comes between is known.
TEST_P(ConfigCallFaultTest, AKillAtAnyMomentLeavesTheOldFileOrABeginningOfTheNewOne) {
  const std::string rewritten = Rewritten().value();
  const std::string old = GetParam().before.value_or("");
  constexpr std::size_t kStreamBuffer = 4096;
  int kept = 0, torn = 0, complete = 0, parts = 0;
  for (std::size_t nth = 1;; ++nth) {
    SCOPED_TRACE("call " + std::to_string(nth));
    Restore();
    const int result = ResultOfChild([&] {
      const CallFaultAt kill_at(nth, CallFault::kKill);
      RewriteStore();
      return 0;
    });
    const std::string contents = Contents().value_or("");
    parts += CheckBeside();
    if (result >= 0) {
      EXPECT_EQ(contents, rewritten);
      break;
    }
    EXPECT_TRUE(contents == old || GetParam().is_understood || HasCopy());
    if (contents == old) {
      ++kept;
    } else if (contents == rewritten) {
      ++complete;
    } else {
      ++torn;
      EXPECT_TRUE(rewritten.starts_with(contents)) << contents;
      EXPECT_EQ(contents.size() % kStreamBuffer, 0u) << "what the stream had handed on";
    }
  }
  std::cout << kept + torn + complete << " kills: " << kept << " left the old file, " << torn
            << " a beginning of the new one, " << complete << " the new one; " << parts
            << " left a part of a copy\n";
}

INSTANTIATE_TEST_SUITE_P(Matrix, ConfigCallFaultTest, ::testing::ValuesIn(kFiles),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace quarn::testing
