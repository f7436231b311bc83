#include "core/shell.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <set>
#include <string>

#include "core/text.h"
#include "tests/support/private_mounts.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

class ShellTest : public ScratchTest {
 protected:
  /// Programs of these names, first on PATH, that write down their name and arguments (one line for
  /// every run) and then do what `ending` says.
  void FakePrograms(const std::string& ending) const {
    for (const char* const name : {"mkdir", "rm", "mv", "touch"}) {
      const fs::path program = root() / "bin" / name;
      WriteFile(program, "#!/bin/sh\nprintf '" + std::string(name) + "' >>\"$RECORD\"\n" +
                             "printf '[%s]' \"$@\" >>\"$RECORD\"\necho >>\"$RECORD\"\n" + ending);
      fs::permissions(program, fs::perms::owner_all);
    }
    fs::remove(root() / "record");
    setenv("RECORD", (root() / "record").c_str(), 1);
    const std::string path = std::getenv("PATH");
    if (!path.starts_with((root() / "bin").string())) {
      setenv("PATH", ((root() / "bin").string() + ":" + path).c_str(), 1);
    }
  }
  std::string Record() const {
    return fs::exists(root() / "record") ? ReadFile(root() / "record") : "";
  }
  stdx::u16string At(const std::string& name) const { return U16(root() / name); }

  ~ShellTest() override { unsetenv("RECORD"); }
};

// --- What reaches the commands
// --------------------------------------------------------------------

TEST_F(ShellTest, EveryOperationRunsItsCommandWithThePathAsOneArgument) {
  FakePrograms("exit 0");
  EXPECT_EQ(ShellMakeDirectory(u"/a path/\u00FCber 'x' *?[a] ; & | > #~"), 0u);
  EXPECT_EQ(ShellRemoveTree(u"/a/b c"), 0u);
  EXPECT_EQ(ShellMove(u"/from  here", u"/to there"), 0u);
  EXPECT_EQ(ShellRemoveFile(u"/a\tfile"), 0u);
  stdx::u16string name;
  EXPECT_EQ(CreateTempFile(U16(tmp()), u"kpt", &name), 0u);
  EXPECT_EQ(Record(),
            "mkdir[-p][/a path/\xC3\xBC"
            "ber 'x' *?[a] ; & | > #~]\n"
            "rm[-rf][/a/b c]\n"
            "mv[/from  here][/to there]\n"
            "rm[-f][/a\tfile]\n"
            "touch[" +
                std::string(ToNarrow(name).view()) + "]\n");
}

TEST_F(ShellTest, WhatTheShellKnowsInsideQuotesChangesTheCommand) {
  FakePrograms("exit 0");
  setenv("NAME", "value", 1);
  ShellRemoveTree(u"/$NAME");
  ShellRemoveTree(u"/`echo inner`");
  ShellRemoveTree(u"/a\" \"/b");
  ShellRemoveTree(u"/back\\\\slash");
  unsetenv("NAME");
  EXPECT_EQ(Record(),
            "rm[-rf][/value]\n"
            "rm[-rf][/inner]\n"
            "rm[-rf][/a][/b]\n"
            "rm[-rf][/back\\slash]\n");
}

TEST_F(ShellTest, APathEndsAtItsFirstZero) {
  FakePrograms("exit 0");
  ShellRemoveTree(stdx::u16string(u"/a\0/b", 5));
  EXPECT_EQ(Record(), "rm[-rf][/a]\n");
}

TEST_F(ShellTest, OnlyRemovingAFileShowsWhatTheCommandComplainsAbout) {
  FakePrograms("echo 'a complaint' >&2; exit 1");
  stdx::u16string name;
  ::testing::internal::CaptureStderr();
  ShellMakeDirectory(u"/a");
  ShellRemoveTree(u"/a");
  ShellMove(u"/a", u"/b");
  CreateTempFile(U16(tmp()), u"kpt", &name);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  ::testing::internal::CaptureStderr();
  ShellRemoveFile(u"/a");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "a complaint\n");
}

// --- What the commands' endings mean
// ----------------------------------------------------------------

TEST_F(ShellTest, EveryEndingOfACommandHasItsCode) {
  // A shell may hand its own process to the command, which then ends it by the signal, or tell the
  // signal as a status.
  FakePrograms("kill -9 $$");
  const std::uint32_t killed = WIFSIGNALED(RunShellCommand("mkdir 2>/dev/null")) ? 0 : 2;
  const struct {
    const char* ending;
    std::uint32_t make, move;
    bool touch;
  } rows[] = {
      {"exit 0", 0, 0, true},    {"exit 1", 2, 2, false},   {"exit 2", 2, 0, false},
      {"exit 127", 2, 0, false}, {"exit 255", 2, 0, false}, {"kill -9 $$", killed, 0, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.ending);
    FakePrograms(row.ending);
    stdx::u16string name;
    ::testing::internal::CaptureStderr();  // a shell may tell who was killed
    EXPECT_EQ(ShellMakeDirectory(u"/a"), row.make);
    EXPECT_EQ(ShellMove(u"/a", u"/b"), row.move);
    EXPECT_EQ(ShellRemoveTree(u"/a"), 0u);
    EXPECT_EQ(CreateTempFile(U16(tmp()), u"kpt", &name), row.touch ? 0u : 1013u);
    EXPECT_FALSE(name.empty());  // whatever became of the file
    EXPECT_EQ(ShellRemoveFile(u"/a"), 0u);
    ::testing::internal::GetCapturedStderr();
  }
}

TEST_F(ShellTest, ACommandThatIsNotThereHasFailedButAMoveHasNot) {
  setenv("PATH", (root() / "empty").c_str(), 1);
  stdx::u16string name;
  EXPECT_EQ(ShellMakeDirectory(At("new")), 2u);
  EXPECT_EQ(ShellMove(At("a"), At("b")), 0u);
  EXPECT_EQ(ShellRemoveTree(At("a")), 0u);
  EXPECT_EQ(CreateTempFile(U16(tmp()), u"kpt", &name), 1013u);
}

TEST_F(ShellTest, AStatusThatNobodyWaitsForIsAShellThatCouldNotBeRun) {
  // Children that are reaped by the system leave nothing to wait for: the status is -1.
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  stdx::u16string name;
  EXPECT_EQ(RunShellCommand("exit 0"), -1);
  EXPECT_EQ(ShellMakeDirectory(At("new")), 87u);
  EXPECT_EQ(ShellMove(At("new"), At("moved")), 87u);
  EXPECT_EQ(ShellRemoveTree(At("moved")), 0u);
  EXPECT_EQ(ShellRemoveFile(At("moved")), 0u);
  EXPECT_EQ(CreateTempFile(U16(tmp()), u"kpt", &name), 1013u);
  std::signal(SIGCHLD, before);
}

TEST_F(ShellTest, ACommandsStatusComesBackUnchanged) {
  EXPECT_EQ(RunShellCommand("exit 0"), 0);
  EXPECT_EQ(RunShellCommand("exit 3"), 3 << 8);
  EXPECT_EQ(WEXITSTATUS(RunShellCommand("no-such-command 2>/dev/null")), 127);
}

// --- What the operations do
// --------------------------------------------------------------------------

TEST_F(ShellTest, MakesDirectoriesWithTheirParents) {
  EXPECT_EQ(ShellMakeDirectory(At("a/b c/\xC3\xBC")), 0u);
  EXPECT_TRUE(fs::is_directory(root() / "a" / "b c" / "\xC3\xBC"));
  EXPECT_EQ(ShellMakeDirectory(At("a/b c")), 0u);  // it is there
}

TEST_F(ShellTest, ADirectoryBelowAFileCannotBeMade) {
  WriteFile(root() / "file", "contents");
  EXPECT_EQ(ShellMakeDirectory(At("file/below")), 2u);
  EXPECT_EQ(ShellMakeDirectory(At("file")), 2u);
}

TEST_F(ShellTest, RemovingWhatIsMissingSucceeds) {
  EXPECT_EQ(ShellRemoveTree(At("missing")), 0u);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(ShellRemoveFile(At("missing")), 0u);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(ShellTest, RemovesTreesAndFiles) {
  WriteFile(root() / "tree" / "sub" / "file", "contents");
  WriteFile(root() / "a file", "contents");
  EXPECT_EQ(ShellRemoveTree(At("tree")), 0u);
  EXPECT_FALSE(fs::exists(root() / "tree"));
  EXPECT_EQ(ShellRemoveFile(At("a file")), 0u);
  EXPECT_FALSE(fs::exists(root() / "a file"));
}

TEST_F(ShellTest, RemovingADirectoryAsAFileLeavesItAndSucceeds) {
  fs::create_directory(root() / "dir");
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(ShellRemoveFile(At("dir")), 0u);
  EXPECT_NE(::testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(fs::exists(root() / "dir"));
}

TEST_F(ShellTest, MovesFilesAndTrees) {
  WriteFile(root() / "tree" / "file", "contents");
  EXPECT_EQ(ShellMove(At("tree"), At("moved tree")), 0u);
  EXPECT_EQ(ShellMove(At("moved tree/file"), At("file")), 0u);
  EXPECT_EQ(ReadFile(root() / "file"), "contents");
  EXPECT_TRUE(fs::is_empty(root() / "moved tree"));
  EXPECT_FALSE(fs::exists(root() / "tree"));
}

TEST_F(ShellTest, MovingWhatIsMissingFails) {
  EXPECT_EQ(ShellMove(At("missing"), At("there")), 2u);
}

TEST_F(ShellTest, PathsThatTheLocaleCannotExpressThrowBeforeAnyCommand) {
  FakePrograms("exit 0");
  const stdx::u16string path(u"/\xD800");
  stdx::u16string name;
  std::uint32_t size;
  EXPECT_THROW(ShellMakeDirectory(path), std::length_error);
  EXPECT_THROW(ShellRemoveTree(path), std::length_error);
  EXPECT_THROW(ShellMove(path, u"/b"), std::length_error);
  EXPECT_THROW(ShellMove(u"/a", path), std::length_error);
  EXPECT_THROW(ShellRemoveFile(path), std::length_error);
  EXPECT_THROW(CreateTempFile(path, u"kpt", &name), std::length_error);
  EXPECT_THROW(GetFileSize32(path, &size), std::length_error);
  EXPECT_EQ(Record(), "");
}

// --- Temporary files
// -----------------------------------------------------------------------------------

TEST_F(ShellTest, TheTemporaryDirectoryIsTmpdirWhereThatIsADirectory) {
  WriteFile(root() / "file", "contents");
  fs::create_directory_symlink(tmp(), root() / "link");
  fs::create_symlink("nowhere", root() / "dangling");
  const std::string base = root().string();
  const struct {
    std::string tmpdir, directory;
  } rows[] = {
      {base + "/tmp", base + "/tmp/"},
      {base + "/tmp/", base + "/tmp/"},
      {base + "/tmp//", base + "/tmp//"},
      {base + "/link", base + "/link/"},
      {"/tmp", "/tmp/"},
      {"/", "/"},
      {base + "/file", "/var/tmp/"},
      {base + "/missing", "/var/tmp/"},
      {base + "/dangling", "/var/tmp/"},
      {"", "/var/tmp/"},
      {".", "./"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.tmpdir);
    setenv("TMPDIR", row.tmpdir.c_str(), 1);
    stdx::u16string directory(u"before");
    EXPECT_EQ(GetTempDirectory(&directory), 0u);
    EXPECT_EQ(directory, U16(row.directory));
  }
  unsetenv("TMPDIR");
  stdx::u16string directory;
  EXPECT_EQ(GetTempDirectory(&directory), 0u);
  EXPECT_EQ(directory, u"/var/tmp/");
}

TEST_F(ShellTest, ATemporaryFileIsNewEmptyAndNamedByItsPrefix) {
  std::set<std::string> names;
  for (int i = 0; i < 5; ++i) {
    stdx::u16string name(u"before");
    EXPECT_EQ(CreateTempFile(U16(tmp()), u"kpt", &name), 0u);
    EXPECT_TRUE(Path(name).filename().string().starts_with("kpt"));
    EXPECT_EQ(ReadFile(Path(name)), "");
    names.insert(Path(name).string());
  }
  EXPECT_EQ(names.size(), 5u);
}

TEST_F(ShellTest, ATemporaryFileGoesToTmpdirBeforeTheDirectoryAskedFor) {
  fs::create_directory(root() / "asked for");
  stdx::u16string name;
  EXPECT_EQ(CreateTempFile(At("asked for"), u"kpt", &name), 0u);
  EXPECT_EQ(Path(name).parent_path(), tmp());
  setenv("TMPDIR", (root() / "missing").c_str(), 1);
  EXPECT_EQ(CreateTempFile(At("asked for"), u"kpt", &name), 0u);
  EXPECT_EQ(Path(name).parent_path(), root() / "asked for");
  unsetenv("TMPDIR");
  EXPECT_EQ(CreateTempFile(At("asked for/"), u"kpt", &name), 0u);
  EXPECT_EQ(Path(name).parent_path(), root() / "asked for");
}

// What the file's name is worth, its user has to ask before.
TEST_F(ShellTest, ATemporaryFileIsMadeAndNamedAlsoWhereItsNameLosesBits) {
  for (const char* const lossy : {"\U00020000", "\U0001F600", "\U0001D800"}) {
    const fs::path directory = root() / lossy;
    fs::create_directory(directory);
    setenv("TMPDIR", directory.c_str(), 1);
    stdx::u16string name(u"before");
    EXPECT_EQ(CreateTempFile(U16(tmp()), u"kpt", &name), 0u);
    ASSERT_EQ(std::distance(fs::directory_iterator(directory), {}), 1) << "in TMPDIR itself";
    const fs::path file = fs::directory_iterator(directory)->path();
    EXPECT_EQ(name, ToUtf16(file.c_str()));
  }
}

TEST_F(ShellTest, ATemporaryFileWhoseNameIsNoTextIsNotMade) {
  const fs::path directory = root() / "\xFF";
  fs::create_directory(directory);
  setenv("TMPDIR", directory.c_str(), 1);
  stdx::u16string name;
  EXPECT_THROW(CreateTempFile(U16(tmp()), u"kpt", &name), std::length_error);
  EXPECT_TRUE(fs::is_empty(directory));
}

TEST_F(ShellTest, TheTemporaryDirectoryIsNamedWhereItsNameSurvivesUtf16) {
  const struct {
    const char* directory;
    bool named;
  } rows[] = {
      {"plain", true},       {"шаблоны/模板", true}, {"\U00020000", false},
      {"\U0001F600", false}, {"\U0001D800", false},  {"\xFF", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.directory);
    setenv("TMPDIR", (root() / row.directory).c_str(), 1);
    EXPECT_TRUE(IsTempDirectoryNamed()) << "there is none, so it is /var/tmp/";
    fs::create_directories(root() / row.directory);
    EXPECT_EQ(IsTempDirectoryNamed(), row.named);
  }
  unsetenv("TMPDIR");
  EXPECT_TRUE(IsTempDirectoryNamed());
}

TEST_F(ShellTest, TheNameMayReplaceTheDirectory) {
  unsetenv("TMPDIR");
  stdx::u16string name = U16(tmp());
  EXPECT_EQ(CreateTempFile(name, u"kpt", &name), 0u);
  EXPECT_EQ(Path(name).parent_path(), tmp());
}

// --- Queries
// ---------------------------------------------------------------------------------------

class FreeSpaceTest : public PrivateMountTest {
 protected:
  /// The free space that an empty temporary directory of `bytes` bytes shows.
  std::uint32_t FreeSpaceOf(std::size_t bytes) {
    const PrivateVolume volume(tmp().string(), bytes);
    EXPECT_TRUE(volume.mounted());
    return FreeSpace();
  }
  static std::uint32_t FreeSpace() {
    std::uint32_t bytes = 77;
    EXPECT_EQ(GetFreeTempSpace(&bytes), 0u);
    return bytes;
  }
  static constexpr std::size_t kGiB = std::size_t{1} << 30;
};

TEST_F(FreeSpaceTest, OfTenGigabytesReadsAsAllOnes) {
  EXPECT_EQ(FreeSpaceOf(10 * kGiB), 4294967295u);
}

TEST_F(FreeSpaceTest, OfFourGigabytesReadsAsAllOnes) {
  EXPECT_EQ(FreeSpaceOf(4 * kGiB), 4294967295u);
}

TEST_F(FreeSpaceTest, JustBelowFourGigabytesIsExact) {
  EXPECT_EQ(FreeSpaceOf(4 * kGiB - 4096), 4294963200u);
}

TEST_F(FreeSpaceTest, ShrinksByWhatIsWritten) {
  const PrivateVolume volume(tmp().string(), 1 << 20);
  ASSERT_TRUE(volume.mounted());
  EXPECT_EQ(FreeSpace(), 1048576u);
  WriteFile(tmp() / "file", std::string(10000, 'x'));  // three pages
  EXPECT_EQ(FreeSpace(), 1048576u - 3 * 4096);
}

TEST_F(FreeSpaceTest, IsThatOfTmpdirAlsoWhereItsNameLosesBits) {
  const fs::path lossy = root() / "\U0001F600";
  fs::create_directory(lossy);
  const PrivateVolume volume(lossy.string(), 1 << 20);
  ASSERT_TRUE(volume.mounted());
  setenv("TMPDIR", lossy.c_str(), 1);
  EXPECT_EQ(FreeSpace(), 1048576u);
}

TEST_F(ShellTest, FreeSpaceNeedsAnOutParameter) { EXPECT_EQ(GetFreeTempSpace(nullptr), 87u); }

TEST_F(ShellTest, AFilesSizeIsItsLow32Bits) {
  static constexpr struct {
    std::uintmax_t bytes;
    std::uint32_t size;
  } kRows[] = {
      {0, 0},
      {5, 5},
      {0xFFFFFFFF, 0xFFFFFFFF},
      {std::uintmax_t{4} << 30, 0},
      {std::uintmax_t{5} << 30, 1073741824},
  };
  WriteFile(root() / "file", "");
  for (const auto& row : kRows) {
    fs::resize_file(root() / "file", row.bytes);
    std::uint32_t size = 77;
    EXPECT_EQ(GetFileSize32(At("file"), &size), 0u);
    EXPECT_EQ(size, row.size);
  }
}

TEST_F(ShellTest, ADirectoryHasASizeToo) {
  struct stat status;
  ASSERT_EQ(stat(root().c_str(), &status), 0);
  std::uint32_t size = 77;
  EXPECT_EQ(GetFileSize32(U16(root()), &size), 0u);
  EXPECT_EQ(size, static_cast<std::uint32_t>(status.st_size));
}

TEST_F(ShellTest, ALinkHasTheSizeOfWhatItLeadsTo) {
  WriteFile(root() / "file", std::string(1000, 'x'));
  fs::create_symlink("file", root() / "link");
  fs::create_symlink("link", root() / "link to the link");
  fs::create_symlink("nowhere", root() / "dangling");
  std::uint32_t size = 77;
  EXPECT_EQ(GetFileSize32(At("link"), &size), 0u);
  EXPECT_EQ(size, 1000u);
  EXPECT_EQ(GetFileSize32(At("link to the link"), &size), 0u);
  EXPECT_EQ(size, 1000u);
  EXPECT_EQ(GetFileSize32(At("dangling"), &size), 1u);
}

TEST_F(ShellTest, WhatIsMissingHasNoSize) {
  std::uint32_t size = 77;
  EXPECT_EQ(GetFileSize32(At("missing"), &size), 1u);
  EXPECT_EQ(GetFileSize32(u"", &size), 1u);
  EXPECT_EQ(size, 77u);
  EXPECT_EQ(GetFileSize32(U16(root()), nullptr), 1u);
}

// --- A command's output
// ------------------------------------------------------------------------------

TEST_F(ShellTest, TheFirstLineOfACommandLosesItsLastCharacter) {
  const std::string many(300, 'x');
  const struct {
    std::string command, line;
  } rows[] = {
      {"echo hello", "hello"},
      {"printf 'one\\ntwo\\n'", "one"},
      {"printf abc", "ab"},  // also where it is no line end
      {"printf a", ""},
      {"echo", ""},
      {"true", ""},
      {"exit 3", ""},
      {"printf '\\303\\274x\\n'", "\xC3\xBCx"},
      {"echo " + many, many.substr(0, 253)},  // 254 characters fit
      {"echo " + many.substr(0, 253), many.substr(0, 253)},
      {"echo " + many.substr(0, 254), many.substr(0, 253)},
      {"no-such-command 2>/dev/null", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ReadCommandLine(U16(row.command)), U16(row.line)) << row.command;
  }
}

TEST_F(ShellTest, NothingIsLeftOfACommandThatWasRead) {
  const auto open_descriptors = [] {
    return std::distance(fs::directory_iterator("/dev/fd"), fs::directory_iterator());
  };
  const auto before = open_descriptors();
  // Also of one that prints nothing, of one that fails and of one that prints what nobody reads.
  for (const char16_t* const command :
       {u"echo hello", u"true", u"exit 3", u"seq 100000 2>/dev/null"}) {
    ReadCommandLine(command);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "it has not been waited for";
    EXPECT_EQ(errno, ECHILD);
  }
}

TEST_F(ShellTest, ACommandIsWaitedForToItsEnd) {
  ReadCommandLine(u"echo line; exec >/dev/null; sleep 0.1; touch \"$TMPDIR/end\"");
  EXPECT_TRUE(fs::exists(tmp() / "end"));
}

TEST_F(ShellTest, ACommandThatCannotBeRunPrintsNothing) {
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none = {0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const stdx::u16string line = ReadCommandLine(u"echo hello");
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(line, u"");
}

TEST_F(ShellTest, OutputThatIsNoTextOfTheLocaleThrows) {
  EXPECT_THROW(ReadCommandLine(u"printf '\\377\\n'"), std::length_error);
}

}  // namespace
}  // namespace quarn::testing
