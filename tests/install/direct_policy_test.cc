// What is particular to a pass over the direct policy: no shell, and a rollback that leaves the
// target exactly as it was.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <tuple>
#include <vector>

#include "tests/install/installation.h"
#include "tests/install/shell_recorder.h"
#include "tests/support/private_mounts.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using TreeMap = std::map<std::string, std::string>;
using Faulty = FaultyFileSystem<DirectFileSystem>;

class DirectPolicyTest : public InstallTest {
 protected:
  /// What a rollback must bring back of every file, beside its contents.
  using Details = std::tuple<time_t, long, mode_t, uid_t, gid_t, nlink_t, std::string>;
  std::map<std::string, Details> AllDetails() const {
    std::map<std::string, Details> all;
    for (const auto& entry : fs::recursive_directory_iterator(target())) {
      struct stat status {};
      EXPECT_EQ(lstat(entry.path().c_str(), &status), 0);
      if (S_ISDIR(status.st_mode)) continue;
      all[entry.path()] = {status.st_mtim.tv_sec,
                           status.st_mtim.tv_nsec,
                           status.st_mode,
                           status.st_uid,
                           status.st_gid,
                           status.st_nlink,
                           entry.is_symlink() ? fs::read_symlink(entry.path()).string() : ""};
    }
    return all;
  }

  static void SetExactTime(const fs::path& path, time_t seconds, long nanoseconds) {
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }

  /// Files of every kind that a pass replaces, and a kit whose last file cannot be installed.
  void WriteVariety() {
    WriteOld("a/plain", "old");
    SetExactTime(target() / "a/plain", 123456789, 987654321);
    WriteOld("a/private", "secret");
    fs::permissions(target() / "a/private", static_cast<fs::perms>(0640));
    WriteOld("a/program", "#!");
    fs::permissions(target() / "a/program", static_cast<fs::perms>(04751));
    WriteOld("a/own", "mine");
    WriteOld("a/linked", "of two names");
    fs::create_hard_link(target() / "a/linked", target() / "a/other name");
    fs::create_symlink("plain", target() / "a/link");
    SetExactTime(target() / "a/link", 1000, 5);
    fs::create_symlink("nowhere", target() / "a/dangling");
    WriteOld("a/*", "star");
    WriteOld("a/a*", "star");
    WriteOld("a/ab", "not a star");
    WriteOld("price $5 `x` \"y\"", "old");
    WriteOld("\u0448/\u4E2D", "old");
  }
  static KitBuilder Variety() {
    KitBuilder builder;
    for (const char16_t* const name :
         {u"a\\plain", u"a\\private", u"a\\program", u"a\\linked", u"a\\link", u"a\\dangling",
          u"a\\*", u"a\\a*", u"a\\ab", u"price $5 `x` \"y\"", u"\u0448\\\u4E2D", u"new",
          u"n\\e\\w"}) {
      builder.File(name, "a new and longer text");
    }
    return builder;
  }
  static KitBuilder FailingVariety() { return Variety().FileAt(u"last\\one", 0, 0x10000000); }

  /// A pass that fails at the end of `FailingVariety` changes nothing.
  void ExpectACompleteRollback() {
    const TreeMap before = Tree(target());
    const auto details = AllDetails();
    Installation<DirectFileSystem> installation(FailingVariety(), kit(), target());
    const TreeMap temporary = Tree(tmp());
    EXPECT_EQ(installation.Run(), 87u);
    EXPECT_EQ(Tree(target()), before);
    EXPECT_EQ(AllDetails(), details);
    EXPECT_EQ(Tree(tmp()), temporary);
  }
};

TEST_F(DirectPolicyTest, ARollbackBringsBackContentsTimesModesOwnersAndLinks) {
  WriteVariety();
  ExpectACompleteRollback();
}

TEST_F(DirectPolicyTest, TheSameKitInstallsWithoutItsLastFile) {
  WriteVariety();
  Installation<DirectFileSystem> installation(Variety(), kit(), target());
  EXPECT_EQ(installation.Run(), 0u);
  for (const auto& [name, contents] : Tree(target())) {
    if (!name.ends_with('/') && name != "a/own" && name != "a/other name") {
      EXPECT_EQ(contents, "a new and longer text") << name;
    }
  }
  EXPECT_EQ(ReadFile(target() / "a/other name"), "of two names");
}

TEST_F(DirectPolicyTest, ARollbackRemovesNewDirectoriesAndNoOthers) {
  fs::create_directories(target() / "empty");
  fs::create_directories(target() / "a/empty");
  const TreeMap before = Tree(target());
  Installation<DirectFileSystem> installation(KitBuilder()
                                                  .File(u"a\\b\\c\\d", "1")
                                                  .File(u"empty\\new", "2")
                                                  .File(u"x\\y\\z", "3")
                                                  .FileAt(u"x\\q", 0, 1000),
                                              kit(), target());
  EXPECT_EQ(installation.Run(), 87u);
  EXPECT_EQ(Tree(target()), before);
}

TEST_F(DirectPolicyTest, ARollbackRemovesATargetThatThePassHasMade) {
  fs::remove(target());
  Installation<DirectFileSystem> installation(KitBuilder().File(u"a", "1").FileAt(u"b", 0, 1000),
                                              kit(), target() / "x");
  EXPECT_EQ(installation.Run(), 87u);
  EXPECT_FALSE(fs::exists(target()));
}

TEST_F(DirectPolicyTest, FilesThatAKitNamesTwiceAreRestored) {
  for (const int times : {2, 3, 4}) {
    WriteOld("old", "old");
    WriteOld("dir/old", "old");
    const TreeMap before = Tree(target());
    KitBuilder builder;
    for (int i = 0; i < times; ++i) {
      for (const char16_t* const name : {u"old", u"new", u"dir\\old", u"dir2\\new", u".\\old"}) {
        builder.File(name, std::to_string(i), Ticks(kKitTime + i));
      }
    }
    Installation<DirectFileSystem> installation(builder.FileAt(u"z", 0, 1000), kit(), target());
    EXPECT_EQ(installation.Run(), 87u);
    EXPECT_EQ(Tree(target()), before) << times;
    EXPECT_EQ(MTime(target() / "old"), kKitTime - 1000);
  }
}

TEST_F(DirectPolicyTest, EveryStepIsNotedInTheOrderInWhichItWasMade) {
  WriteOld("old", "old");
  Installation<DirectFileSystem> installation(
      KitBuilder().File(u"old", "1").File(u"d\\e\\new", "2"), kit(), target());
  ASSERT_EQ(installation.Run(), 0u);
  using Kind = UndoStep::Kind;
  std::vector<std::pair<Kind, stdx::u16string>> steps;
  for (const UndoStep& step : installation.steps) steps.push_back({step.kind, step.path});
  EXPECT_EQ(steps, (std::vector<std::pair<Kind, stdx::u16string>>{
                       {Kind::kDirectoryMade, U16(tmp() / "kstage0/")},
                       {Kind::kFileReplaced, U16(target() / "old")},
                       {Kind::kFileMade, U16(target() / "old")},
                       {Kind::kDirectoryMade, U16(target() / "d")},
                       {Kind::kDirectoryMade, U16(target() / "d/e")},
                       {Kind::kFileMade, U16(target() / "d/e/new")}}));
  for (const UndoStep& step : installation.steps) {
    if (step.kind != Kind::kFileMade) continue;
    EXPECT_EQ(step.made.size, 1u);
    EXPECT_EQ(step.made.seconds, kKitTime);
    EXPECT_FALSE(step.made.is_in_work);
  }
}

TEST_F(DirectPolicyTest, ADirectoryWhereAFileIsToGoIsAFailureAndStays) {
  for (const time_t time : {time_t{0}, time_t{4000000000}}) {
    WriteFile(target() / "name/own.txt", "mine");
    SetMTime(target() / "name", time);
    const TreeMap before = Tree(target());
    Installation<DirectFileSystem> installation(
        KitBuilder().File(u"first", "1").File(u"name", "new"), kit(), target());
    EXPECT_EQ(installation.Run(), 87u);
    EXPECT_EQ(Tree(target()), before);
  }
}

TEST_F(DirectPolicyTest, APlainFileWhereADirectoryIsToGoIsAFailureAndStays) {
  WriteFile(target() / "a", "plain");
  const TreeMap before = Tree(target());
  Installation<DirectFileSystem> installation(
      KitBuilder().File(u"first", "1").File(u"a\\b\\c", "new"), kit(), target());
  EXPECT_NE(installation.Run(), 0u);
  EXPECT_EQ(Tree(target()), before);
}

TEST_F(DirectPolicyTest, ALinkToADirectoryThatAFileReplacesComesBack) {
  WriteOld("dir/file", "old");
  fs::create_symlink("dir", target() / "link");
  const TreeMap before = Tree(target());
  for (const bool file_below_first : {false, true}) {
    KitBuilder builder;
    if (file_below_first) builder.File(u"link\\file", "new");
    builder.File(u"link", "a file now").File(u"link\\file", "cannot be");
    Installation<DirectFileSystem> installation(builder, kit(), target());
    EXPECT_NE(installation.Run(), 0u);
    EXPECT_EQ(Tree(target()), before);
    EXPECT_TRUE(fs::is_symlink(target() / "link"));
  }
}

TEST_F(DirectPolicyTest, SpecialFilesAreReplacedAndComeBack) {
  ASSERT_EQ(mkfifo((target() / "fifo").c_str(), 0600), 0);
  Installation<DirectFileSystem> installation(
      KitBuilder().File(u"fifo", "new").FileAt(u"z", 0, 1000), kit(), target());
  EXPECT_EQ(installation.Run(), 87u);
  EXPECT_TRUE(fs::is_fifo(target() / "fifo"));
}

TEST_F(DirectPolicyTest, NoShellIsEverStarted) {
  WriteVariety();
  const ShellRecorder shell(root() / "bin");
  const std::string path = (root() / "bin").string();
  setenv("PATH", path.c_str(), 1);
  Installation<DirectFileSystem> installation(FailingVariety(), kit(), target());
  EXPECT_EQ(installation.Run(), 87u);
  Installation<DirectFileSystem> sound(Variety(), kit(), target());
  EXPECT_EQ(sound.Run(), 0u);
  EXPECT_TRUE(shell.Commands().empty());
}

TEST_F(DirectPolicyTest, ACopyReadsNoMoreThanTheFile) {
  Installation<Faulty> installation(
      KitBuilder().File(u"small", "1").File(u"large", std::string((1 << 20) + 1, 'x')), kit(),
      target());
  ASSERT_EQ(installation.Run(), 0u);
  std::vector<std::uint32_t> reads;
  for (const auto& call : installation.script.calls()) {
    if (call.op == Op::kFileRead) reads.push_back(call.count);
  }
  EXPECT_EQ(reads, (std::vector<std::uint32_t>{1, 1048576, 1}));
}

// The staging directory then holds the only copy that is left.
TEST_F(DirectPolicyTest, AFileThatCannotBePutBackKeepsTheStagingDirectoryAndTheStepsBeforeIt) {
  for (const Fault& fault : {Code(87), Fault{Fault::Kind::kLengthError}}) {
    WriteOld("a/one", "old one");
    WriteOld("b/two", "old two");
    const TreeMap before = Tree(target());
    Installation<Faulty> installation(KitBuilder()
                                          .File(u"a\\one", "new")
                                          .File(u"b\\two", "new")
                                          .File(u"new\\new", "new")
                                          .FileAt(u"z", 0, 1000),
                                      kit(), target());
    installation.script.OnPath(Op::kMove, std::u16string(U16(tmp() / "kstage0/1").view()), fault);
    EXPECT_EQ(installation.Run(), 87u);
    EXPECT_FALSE(fs::exists(target() / "new")) << "undone before";
    EXPECT_FALSE(fs::exists(target() / "z"));
    EXPECT_EQ(ReadFile(tmp() / "kstage0/0"), "old one");
    EXPECT_EQ(ReadFile(tmp() / "kstage0/1"), "old two");
    // The second try has only what is left to do.
    DirectFileSystem files;
    EXPECT_EQ(Undo(files, U16(tmp() / "kstage0/"), installation.steps), 0);
    EXPECT_EQ(Tree(target()), before);
    EXPECT_TRUE(installation.steps.empty());
    EXPECT_FALSE(fs::exists(tmp() / "kstage0"));
  }
}

// --- What others do meanwhile --------------------------------------------------------------------

TEST_F(DirectPolicyTest, AFileThatOthersMakeInTheWayIsAFailureAndNeitherOfTheTwoIsLost) {
  for (const Op op : {Op::kFileOpen, Op::kLook}) {
    SCOPED_TRACE(static_cast<int>(op));
    WriteOld("f", "old");
    Installation<Faulty> installation(KitBuilder().File(u"f", "new"), kit(), target());
    // After the move, before the file is created.
    installation.script.OnPath(
        Op::kMove, std::u16string(U16(target() / "f").view()), Meanwhile([&] {
          installation.script.OnPath(Op::kFileOpen, std::u16string(U16(target() / "f").view()),
                                     Meanwhile([&] { WriteFile(target() / "f", "foreign"); }));
        }));
    EXPECT_EQ(installation.Run(), 87u);
    EXPECT_EQ(ReadFile(target() / "f"), "foreign");
    EXPECT_EQ(ReadFile(tmp() / "kstage0/0"), "old");
    EXPECT_FALSE(installation.steps.empty());
    fs::remove(target() / "f");
    fs::remove_all(tmp() / "kstage0");
  }
}

TEST_F(DirectPolicyTest, AnInstalledFileThatOthersChangeBeforeTheRollbackStays) {
  Installation<Faulty> installation(KitBuilder().File(u"a", "new").FileAt(u"z", 0, 1000), kit(),
                                    target());
  installation.script.OnPath(Op::kFileOpen, std::u16string(U16(target() / "z").view()),
                             Meanwhile([&] { WriteFile(target() / "a", "changed"); }));
  EXPECT_EQ(installation.Run(), 87u);
  EXPECT_EQ(Tree(target()), (TreeMap{{"a", "changed"}}));
}

TEST_F(DirectPolicyTest, AFailureWhoseRollbackLacksMemoryIsRolledBackOnce) {
  WriteOld("a", "old");
  Installation<Faulty> installation(KitBuilder().File(u"a", "new").FileAt(u"z", 0, 1000), kit(),
                                    target());
  installation.script.OnPath(Op::kRemoveFile, std::u16string(U16(target() / "z").view()),
                             {Fault::Kind::kNoMemory});
  EXPECT_EQ(installation.Run(), 87u);
  EXPECT_FALSE(installation.steps.empty()) << "it did not work twice either";
  DirectFileSystem files;
  EXPECT_EQ(Undo(files, U16(tmp() / "kstage0/"), installation.steps), 0);
  EXPECT_EQ(Tree(target()), (TreeMap{{"a", "old"}}));
}

// --- Staging on another volume -------------------------------------------------------------------

class DirectPolicyVolumeTest : public DirectPolicyTest {
 protected:
  void SetUp() override { ASSERT_TRUE(HasPrivateMounts()); }
};

TEST_F(DirectPolicyVolumeTest, ARollbackFromAnotherVolumeBringsEverythingBack) {
  WriteVariety();
  // A copy is a file of its own, and a link's copy has a time of its own.
  fs::remove(target() / "a/other name");
  fs::remove(target() / "a/dangling");
  const PrivateVolume volume(tmp().string(), 16 << 20);
  ASSERT_TRUE(volume.mounted());
  ExpectACompleteRollback();
}

TEST_F(DirectPolicyVolumeTest, AnInstallationWithItsStagingOnAnotherVolumeSucceeds) {
  WriteVariety();
  const PrivateVolume volume(tmp().string(), 16 << 20);
  Installation<DirectFileSystem> installation(Variety(), kit(), target());
  const TreeMap temporary = Tree(tmp());
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(ReadFile(target() / "a/plain"), "a new and longer text");
  EXPECT_EQ(Tree(tmp()), temporary);
}

TEST_F(DirectPolicyVolumeTest, AStagingVolumeThatFillsUpIsAFailureAndAllComesBack) {
  WriteOld("a", "old");
  WriteOld("b", std::string(2 << 20, 'o'));
  const TreeMap before = Tree(target());
  const PrivateVolume volume(tmp().string(), 1 << 20);
  Installation<DirectFileSystem> installation(KitBuilder().File(u"a", "new").File(u"b", "new"),
                                              kit(), target());
  const TreeMap temporary = Tree(tmp());
  EXPECT_EQ(installation.Run(), 87u);
  EXPECT_TRUE(Tree(target()) == before);
  EXPECT_EQ(Tree(tmp()), temporary);
}

// The copies replace the new files when they come back, because there is no room for both.
TEST_F(DirectPolicyVolumeTest, ATargetVolumeThatFillsUpIsAFailureAndAllComesBack) {
  fs::create_directory(target() / "volume");
  const PrivateVolume volume((target() / "volume").string(), 1 << 20);
  ASSERT_TRUE(volume.mounted());
  WriteOld("volume/a", std::string(400000, '1'));
  WriteOld("volume/b", std::string(400000, '2'));
  const TreeMap before = Tree(target());
  Installation<DirectFileSystem> installation(KitBuilder()
                                                  .File(u"volume\\a", std::string(450000, 'A'))
                                                  .File(u"volume\\new", std::string(100000, 'N'))
                                                  .File(u"volume\\b", std::string(700000, 'B')),
                                              kit(), target());
  EXPECT_EQ(installation.Run(), 87u);
  EXPECT_TRUE(Tree(target()) == before);
  EXPECT_EQ(MTime(target() / "volume/a"), kKitTime - 1000);
  EXPECT_EQ(MTime(target() / "volume/b"), kKitTime - 1000);
}

TEST_F(DirectPolicyVolumeTest, ANameAsLongAsNamesCanBeIsMovedAcross) {
  const std::string name(255, 'n');
  WriteOld(name, "old");
  const TreeMap before = Tree(target());
  const PrivateVolume volume(tmp().string(), 16 << 20);
  Installation<DirectFileSystem> installation(
      KitBuilder().File(std::u16string(255, u'n'), "new").FileAt(u"z", 0, 1000), kit(), target());
  EXPECT_EQ(installation.Run(), 87u);
  EXPECT_EQ(Tree(target()), before);
}

}  // namespace
}  // namespace quarn::testing
