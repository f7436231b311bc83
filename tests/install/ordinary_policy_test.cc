// What is particular to a pass over the ordinary policy: its shell calls, its whole-buffer reads,
// and a rollback that restores nothing and removes every directory that received a file. All of it
// is the system's defined behaviour.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/install/installation.h"
#include "tests/install/shell_recorder.h"
#include "tests/support/private_mounts.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using TreeMap = std::map<std::string, std::string>;
using Faulty = FaultyFileSystem<FileSystem>;

class OrdinaryPolicyTest : public InstallTest {
 protected:
  std::string Temporary(const std::string& path = "") const { return (tmp() / path).string(); }
  std::string Target(const std::string& path) const { return (target() / path).string(); }
};

// --- Shell calls ---------------------------------------------------------------------------------

TEST_F(OrdinaryPolicyTest, APassMakesFourShellCallsAndThreeForEachCopiedFile) {
  WriteOld("a/old.txt", "old");
  WriteFile(target() / "a/newer.txt", "newer");
  const KitBuilder kit_builder =
      KitBuilder().File(u"a\\old.txt", "1").File(u"a\\newer.txt", "2").File(u"b\\c\\new.txt", "3");
  const ShellRecorder shell(root() / "bin");
  Installation<FileSystem> installation(kit_builder, kit(), target());
  ASSERT_EQ(installation.Run(), 0u);
  const std::string image = Path(installation.data.image_path()).string();
  EXPECT_EQ(shell.Commands(),
            (std::vector<std::string>{
                "touch " + image,
                "mkdir -p " + Temporary(),
                "mkdir -p " + Temporary("kstage0/"),
                "mkdir -p " + Temporary("kstage0/a"),
                "mv " + Target("a/old.txt") + " " + Temporary("kstage0/a/old.txt"),
                "mkdir -p " + Target("a"),
                "mkdir -p " + Temporary("kstage0/b/c"),
                "mv " + Target("b/c/new.txt") + " " + Temporary("kstage0/b/c/new.txt"),
                "mkdir -p " + Target("b/c"),
                "rm -rf " + Temporary("kstage0/"),
            }));
}

TEST_F(OrdinaryPolicyTest, APassThatCopiesNothingMakesThreeShellCalls) {
  for (int i = 0; i < 50; ++i) WriteFile(target() / std::to_string(i), "newer");
  KitBuilder builder;
  for (int i = 0; i < 50; ++i) {
    const std::string name = std::to_string(i);
    builder.File(std::u16string(name.begin(), name.end()), "");
  }
  Installation<FileSystem> installation(builder, kit(), target());
  const ShellRecorder shell(root() / "bin");
  ASSERT_EQ(installation.Run(), 0u);
  EXPECT_EQ(shell.Commands().size(), 3u) << "two directories, one removal";
}

TEST_F(OrdinaryPolicyTest, LookingForAFreeStagingNameStartsNoShell) {
  for (int i = 0; i < 50; ++i) fs::create_directory(tmp() / ("kstage" + std::to_string(i)));
  Installation<FileSystem> installation(KitBuilder(), kit(), target());
  const ShellRecorder shell(root() / "bin");
  ASSERT_EQ(installation.Run(), 0u);
  EXPECT_EQ(shell.Commands().size(), 3u);
}

TEST_F(OrdinaryPolicyTest, AKitThatCannotBeReadCostsTwoShellCalls) {
  WriteFile(kit(), "\x07");
  const ShellRecorder shell(root() / "bin");
  InstallData<LZCompressor, FileSystem> data;
  ASSERT_EQ(data.Read(U16(kit())), 13u);
  const std::vector<std::string> commands = shell.Commands();
  ASSERT_EQ(commands.size(), 2u);
  EXPECT_TRUE(commands[0].starts_with("touch " + Temporary("kpt")));
  EXPECT_EQ(commands[1], "rm -f " + commands[0].substr(6));
}

TEST_F(OrdinaryPolicyTest, ARollbackRemovesStagingThenEveryRecordedTree) {
  WriteOld("a/1", "old");
  Installation<Faulty> installation(
      KitBuilder().File(u"a\\1", "1").File(u"a\\2", "2").File(u"b\\3", "3"), kit(), target());
  installation.script.On(Op::kFileWrite, 3, {Fault::Kind::kShort});
  const ShellRecorder shell(root() / "bin");
  ASSERT_EQ(installation.Run(), 87u);
  const auto commands = shell.Commands();
  ASSERT_EQ(commands.size(), 2u + 3 * 3 + 6);
  EXPECT_EQ(std::vector<std::string>(commands.end() - 6, commands.end()),
            (std::vector<std::string>{
                "rm -rf " + Temporary("kstage0/"),
                "rm -rf " + Temporary(),
                "rm -rf " + Temporary("kstage0/"),
                "rm -rf " + Target("a/"),
                "rm -rf " + Target("a/"),
                "rm -rf " + Target("b/"),
            }));
}

// --- Staging -------------------------------------------------------------------------------------

TEST_F(OrdinaryPolicyTest, StagingTakesTheFirstFreeNumber) {
  const KitBuilder kit_builder = KitBuilder().File(u"a", "1");
  struct Case {
    std::vector<const char*> taken;
    const char* staging;
  };
  for (const Case& c : {Case{{}, "kstage0/"},
                        {{"kstage0"}, "kstage1/"},
                        {{"kstage0", "kstage1", "kstage2"}, "kstage3/"},
                        {{"kstage1"}, "kstage0/"},
                        {{"kstage00"}, "kstage0/"}}) {
    for (const char* const name : c.taken) fs::create_directory(tmp() / name);
    Installation<FileSystem> installation(kit_builder, kit(), target());
    EXPECT_EQ(installation.Run(), 0u);
    ASSERT_EQ(installation.transactions.size(), 1u);
    EXPECT_EQ(installation.transactions[0].staging_directory, U16(tmp() / c.staging));
    EXPECT_EQ(installation.transactions[0].target_directory, U16(target()) + u'/');
    for (const char* const name : c.taken) {
      EXPECT_TRUE(fs::is_directory(tmp() / name)) << "a foreign directory stays";
      fs::remove(tmp() / name);
    }
    EXPECT_FALSE(fs::exists(tmp() / c.staging));
    fs::remove_all(target());
  }
}

TEST_F(OrdinaryPolicyTest, AFileNamedLikeAStagingDirectoryIsPassedOver) {
  WriteFile(tmp() / "kstage0", "foreign");
  Installation<FileSystem> installation(KitBuilder().File(u"a", "1"), kit(), target());
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(installation.transactions[0].staging_directory, U16(tmp() / "kstage1/"));
  EXPECT_EQ(ReadFile(tmp() / "kstage0"), "foreign");
}

// --- Records -------------------------------------------------------------------------------------

TEST_F(OrdinaryPolicyTest, EveryDirectoryHandedOverIsRecordedAlsoTwice) {
  WriteOld("a/1", "old");
  Installation<FileSystem> installation(
      KitBuilder().File(u"a\\1", "").File(u"b\\c\\2", "").File(u"a\\3", "").File(u"top", ""), kit(),
      target());
  ASSERT_EQ(installation.Run(), 0u);
  ASSERT_EQ(installation.transactions.size(), 1u);
  const InstallTransaction& transaction = installation.transactions[0];
  EXPECT_EQ(
      transaction.created_directories,
      (std::vector<stdx::u16string>{U16(tmp() / ""), U16(tmp() / "kstage0/"), U16(target() / "a"),
                                    U16(target() / "b/c"), U16(target() / "a"), U16(target())}));
  EXPECT_TRUE(transaction.files_to_delete.empty());
}

TEST_F(OrdinaryPolicyTest, DirectoriesOfFilesThatAreUpToDateAreNotRecorded) {
  WriteFile(target() / "a/1", "newer");
  Installation<FileSystem> installation(KitBuilder().File(u"a\\1", ""), kit(), target());
  ASSERT_EQ(installation.Run(), 0u);
  EXPECT_EQ(installation.transactions[0].created_directories.size(), 2u);
}

// --- Reads ---------------------------------------------------------------------------------------

TEST_F(OrdinaryPolicyTest, ACopyAlwaysReadsAWholeBuffer) {
  Installation<Faulty> installation(KitBuilder()
                                        .File(u"small", "1")
                                        .File(u"large", std::string((1 << 20) + 1, 'x'))
                                        .File(u"empty", ""),
                                    kit(), target());
  ASSERT_EQ(installation.Run(), 0u);
  std::vector<std::uint32_t> reads, writes;
  for (const auto& call : installation.script.calls()) {
    if (call.op == Op::kFileRead) reads.push_back(call.count);
    if (call.op == Op::kFileWrite) writes.push_back(call.count);
  }
  EXPECT_EQ(reads, (std::vector<std::uint32_t>{1048576, 1048576, 1048576}));
  EXPECT_EQ(writes, (std::vector<std::uint32_t>{1, 1048576, 1}));
}

// --- Rollback ------------------------------------------------------------------------------------

TEST_F(OrdinaryPolicyTest, AFailureMovesNothingBackAndRemovesWhatReceivedAFile) {
  WriteOld("a/old.txt", "old");
  WriteFile(target() / "a/own.txt", "mine");
  WriteFile(target() / "a/sub/own.txt", "mine");
  WriteOld("b/old.txt", "old");
  WriteFile(target() / "later/own.txt", "mine");
  WriteFile(target() / "own.txt", "mine");
  WriteFile(tmp() / "foreign/file", "not ours");
  Installation<Faulty> installation(KitBuilder()
                                        .File(u"a\\old.txt", "new")
                                        .File(u"b\\old.txt", "new")
                                        .File(u"c\\d\\new.txt", "new")
                                        .File(u"later\\new.txt", "new"),
                                    kit(), target());
  installation.script.On(Op::kFileWrite, 3, {Fault::Kind::kFailedWrite});
  EXPECT_EQ(installation.Run(), 87u);
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{87, ErrorText(), 50}));
  EXPECT_EQ(Tree(target()),
            (TreeMap{{"c/", ""}, {"later/", ""}, {"later/own.txt", "mine"}, {"own.txt", "mine"}}));
  EXPECT_FALSE(fs::exists(tmp())) << "with the kit's image and what else was there";
}

TEST_F(OrdinaryPolicyTest, AFailureBehindAFileAtTheTopCostsTheWholeTarget) {
  WriteFile(target() / "own/own.txt", "mine");
  Installation<Faulty> installation(KitBuilder().File(u"top", "1").File(u"b\\2", "2"), kit(),
                                    target());
  installation.script.On(Op::kFileWrite, 2, {Fault::Kind::kFailedWrite});
  EXPECT_EQ(installation.Run(), 87u);
  EXPECT_FALSE(fs::exists(target()));
}

TEST_F(OrdinaryPolicyTest, APlainFileInTheWayCostsTheDirectoryThatHoldsItAndThenThePassMaySucceed) {
  WriteFile(target() / "own.txt", "mine");
  WriteFile(target() / "a/b", "a plain file where the kit has a directory");
  WriteFile(target() / "a/own.txt", "mine");
  Installation<FileSystem> installation(KitBuilder().File(u"a\\b\\c\\d.txt", "new"), kit(),
                                        target());
  EXPECT_EQ(installation.Run(), FILE_ERR_COMMAND_FAILED);
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{2, ErrorText(), 0}));
  EXPECT_EQ(Tree(target()), (TreeMap{{"own.txt", "mine"}})) << "\"a\" was recorded on the way up";

  fs::create_directory(tmp());
  EXPECT_EQ(installation.Run(), 0u) << "the image is gone by name, but still open";
  EXPECT_EQ(ReadFile(target() / "a/b/c/d.txt"), "new");
}

TEST_F(OrdinaryPolicyTest, AScanFindsNothingUnlessAFileIsNamedLikeItsMask) {
  FileSystem files;
  InstallTransactions transactions;
  OrdinaryTransaction transaction(files, transactions);
  const stdx::u16string staging = U16(tmp() / "kstage0/"), into = U16(target()) + u'/';
  WriteFile(tmp() / "kstage0/a", "a");
  transaction.RestoreTree(into, staging);
  EXPECT_EQ(Tree(target()), TreeMap()) << "a scan for \"*\" finds nothing";

  fs::remove(tmp() / "kstage0/a");
  WriteFile(tmp() / "kstage0/*", "star");
  transaction.RestoreTree(into, staging);
  EXPECT_EQ(Tree(target()), (TreeMap{{"*", "star"}})) << "unless a file has that name";
}

// --- Without a target ----------------------------------------------------------------------------

// Without a target nothing is staged, and names count from the current directory.
TEST_F(OrdinaryPolicyTest, AnEmptyTargetPreparesNoStaging) {
  fs::current_path(target());
  WriteOld("d/old", "old");
  Installation<FileSystem> installation(KitBuilder().File(u"d\\old", "new").File(u"e\\f", "new"),
                                        kit(), target());
  installation.SetTarget(u"");
  EXPECT_EQ(installation.Run(), 0u);
  ASSERT_EQ(installation.transactions.size(), 1u);
  EXPECT_EQ(installation.transactions[0].staging_directory, u"");
  EXPECT_EQ(Tree(target()), (TreeMap{{"d/", ""}, {"d/old", "new"}, {"e/", ""}, {"e/f", "new"}}));
}

// Deliberate: without any "/" the whole path stands for the parent directory.
TEST_F(OrdinaryPolicyTest, ANameAloneWithoutATargetBecomesADirectoryAndFails) {
  fs::current_path(target());
  Installation<FileSystem> installation(KitBuilder().File(u"name", "contents"), kit(), target());
  installation.SetTarget(u"");
  EXPECT_EQ(installation.Run(), FILE_ERR_INVALID_PARAMETER);
  EXPECT_EQ(Tree(target()), TreeMap());
}

// --- Where the shell shows -----------------------------------------------------------------------

// The shell sees such a path otherwise than the file layer. The file is written over in place.
TEST_F(OrdinaryPolicyTest, AFileWhoseNameTheShellExpandsIsNotMovedAside) {
  WriteOld("price $5.txt", "old and longer");
  Installation<FileSystem> installation(KitBuilder().File(u"price $5.txt", "new"), kit(), target());
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(Tree(target()), (TreeMap{{"price $5.txt", "new"}}));
}

TEST_F(OrdinaryPolicyTest, ADirectoryThatIsOlderThanAFileOfItsNameIsMovedAway) {
  WriteFile(target() / "name/own.txt", "mine");
  SetMTime(target() / "name", kKitTime - 1);
  Installation<FileSystem> installation(KitBuilder().File(u"name", "new"), kit(), target());
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(Tree(target()), (TreeMap{{"name", "new"}}));
}

TEST_F(OrdinaryPolicyTest, ADirectoryThatIsNewerThanAFileOfItsNameIsUpToDate) {
  WriteFile(target() / "name/own.txt", "mine");
  Installation<FileSystem> installation(KitBuilder().File(u"name", "new"), kit(), target());
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(ReadFile(target() / "name/own.txt"), "mine");
}

// --- Faults without a policy of the tests --------------------------------------------------------

class OrdinaryPolicyVolumeTest : public OrdinaryPolicyTest {
 protected:
  void SetUp() override { ASSERT_TRUE(HasPrivateMounts()); }
};

TEST_F(OrdinaryPolicyVolumeTest, AFullTargetVolumeIsAFailureThatRemovesWhatWasWritten) {
  WriteFile(target() / "own.txt", "mine");
  fs::create_directory(target() / "volume");
  const PrivateVolume volume(Target("volume"), 1 << 20);
  ASSERT_TRUE(volume.mounted());
  WriteFile(target() / "volume/a/own.txt", "mine");
  Installation<FileSystem> installation(
      KitBuilder().File(u"volume\\a\\1", "1").File(u"volume\\a\\2", std::string(2 << 20, 'x')),
      kit(), target());
  EXPECT_EQ(installation.Run(), 87u);
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{87, ErrorText(), 50}));
  EXPECT_EQ(Tree(target()), (TreeMap{{"own.txt", "mine"}, {"volume/", ""}}));
}

TEST_F(OrdinaryPolicyVolumeTest, AReadOnlyTemporaryDirectoryIsAFailureThatCostsNothing) {
  const fs::path directory = root() / "volume";
  fs::create_directory(directory);
  PrivateVolume volume(directory.string(), 1 << 20);
  ASSERT_TRUE(volume.mounted());
  WriteFile(directory / "foreign", "not ours");
  ASSERT_TRUE(volume.MakeReadOnly());
  Installation<FileSystem> installation(KitBuilder().File(u"a\\1", "1"), kit(), target());
  setenv("TMPDIR", directory.c_str(), 1);
  EXPECT_EQ(installation.Run(), FILE_ERR_COMMAND_FAILED);
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{2, ErrorText(), 0}));
  EXPECT_EQ(Tree(target()), TreeMap());
  EXPECT_EQ(Tree(directory), (TreeMap{{"foreign", "not ours"}}));
}

}  // namespace
}  // namespace quarn::testing
