// The answers of the system that no file and no command can bring about: this program answers some
// of the system's calls itself while a test asks it to, and writes down what was asked.
#include <fnmatch.h>
#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/statvfs.h>
#include <wordexp.h>

#include <cstdio>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "core/file_system.h"
#include "core/text.h"
#include "tests/support/scratch.h"

namespace {

struct System {
  std::function<int(const char*)> run;
  std::function<int(struct statvfs*)> volume;
  std::function<int(wordexp_t*)> words;
  std::function<int(const char* mask, const char* name)> match;
  std::vector<std::string> commands;
  std::set<int> match_flags;
  int words_freed = 0;
};
System* answers = nullptr;  // of the test that runs

}  // namespace

extern "C" int system(const char* command) {
  if (answers == nullptr) return -1;
  answers->commands.emplace_back(command);
  return answers->run ? answers->run(command) : 0;
}

extern "C" FILE* popen(const char* command, const char*) {
  if (answers != nullptr) answers->commands.emplace_back(command);
  return nullptr;
}

extern "C" int statvfs(const char*, struct statvfs* volume) noexcept {
  return answers != nullptr && answers->volume ? answers->volume(volume) : -1;
}

extern "C" int fnmatch(const char* mask, const char* name, int flags) {
  if (answers == nullptr) return FNM_NOMATCH;
  answers->match_flags.insert(flags);
  return answers->match ? answers->match(mask, name) : 0;
}

extern "C" int wordexp(const char* text, wordexp_t* words, int) {
  EXPECT_STREQ(text, "~");
  return answers != nullptr && answers->words ? answers->words(words) : WRDE_SYNTAX;
}

extern "C" void wordfree(wordexp_t*) {
  if (answers != nullptr) ++answers->words_freed;
}

namespace quarn::testing {
namespace {

class SystemFaultTest : public ScratchTest {
 protected:
  SystemFaultTest() { answers = &system_; }
  ~SystemFaultTest() override { answers = nullptr; }

  System system_;
};

TEST_F(SystemFaultTest, TheCommandLinesAreExactlyThese) {
  stdx::u16string name;
  ShellMakeDirectory(u"/a \"b\" $c");
  ShellRemoveTree(u"/t");
  ShellMove(u"/from", u"/to");
  ShellRemoveFile(u"/f");
  CreateTempFile(U16(tmp()), u"kpt", &name);
  RunShellCommand("as it is");
  ReadCommandLine(u"as it is, too");
  EXPECT_THAT(
      system_.commands,
      ::testing::ElementsAre("mkdir -p \"/a \"b\" $c\" 2>/dev/null", "rm -rf \"/t\" 2>/dev/null",
                             "mv \"/from\" \"/to\" 2>/dev/null", "rm -f \"/f\"",
                             "touch \"" + std::string(ToNarrow(name).view()) + "\" 2>/dev/null",
                             "as it is", "as it is, too"));
}

TEST_F(SystemFaultTest, EveryStatusHasItsCode) {
  static constexpr struct {
    int status;
    std::uint32_t make, move, create;
  } kRows[] = {
      {0, 0, 0, 0},
      {-1, 87, 87, 1013},
      {1 << 8, 2, 2, 1013},
      {2 << 8, 2, 0, 1013},
      {127 << 8, 2, 0, 1013},
      {255 << 8, 2, 0, 1013},
      {9, 0, 0, 1013},         // killed: no exit status
      {0x80 | 6, 0, 0, 1013},  // with a core file
      {1, 0, 0, 1013},         // killed by signal 1, which is not exit status 1
      {(1 << 16) | (1 << 8), 2, 2, 1013},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.status);
    system_.run = [&row](const char*) { return row.status; };
    stdx::u16string name;
    EXPECT_EQ(ShellMakeDirectory(u"/a"), row.make);
    EXPECT_EQ(ShellMove(u"/a", u"/b"), row.move);
    EXPECT_EQ(ShellRemoveTree(u"/a"), 0u);
    EXPECT_EQ(ShellRemoveFile(u"/a"), 0u);
    EXPECT_EQ(CreateTempFile(U16(tmp()), u"kpt", &name), row.create);
    EXPECT_FALSE(name.empty());
    EXPECT_EQ(RunShellCommand("x"), row.status);
  }
}

TEST_F(SystemFaultTest, AskingAboutFilesNeverStartsAShell) {
  WriteFile(root() / "file", "contents");
  std::uint32_t size, space;
  stdx::u16string directory;
  DirScan scan;
  GetFileSize32(U16(root() / "file"), &size);
  GetFileSize32(U16(root() / "missing"), &size);
  FindFirst(scan, U16(root() / "file"));
  FindFirst(scan, U16(root() / "*"));
  FindNext(scan);
  CloseScan(scan);
  GetTempDirectory(&directory);
  GetFreeTempSpace(&space);
  GetHomeDirectory();
  FileHandle handle = kInvalidFile;
  FileOpen(U16(root() / "file"), FILE_ACCESS_READ, 0, FILE_OPEN_EXISTING, FILE_NORMAL, &handle);
  FileClose(handle);
  EXPECT_THAT(system_.commands, ::testing::IsEmpty());
}

TEST_F(SystemFaultTest, FreeSpaceIsFreeBlocksTimesFragmentSize) {
  static constexpr struct {
    fsblkcnt_t blocks;
    unsigned long fragment;
    std::uint32_t bytes;
  } kRows[] = {
      {0, 4096, 0},
      {10, 512, 5120},
      {1048575, 4096, 4294963200},
      {1048576, 4096, 4294967295},  // 4 GiB
      {4294967295, 1, 4294967295},
      {2147483647, 2, 4294967294},
      {2147483648, 2, 4294967295},
      {2621440, 4096, 4294967295},              // 10 GiB
      {fsblkcnt_t{1} << 52, 4096, 4294967295},  // 2^64 bytes wrap to nothing
      {(fsblkcnt_t{1} << 52) + 1, 4096, 4294967295},
      {~fsblkcnt_t{0}, 4096, 4294967295},
      {1000, 0, 0},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(::testing::Message() << row.blocks << " of " << row.fragment);
    system_.volume = [&row](struct statvfs* volume) {
      *volume = {};
      volume->f_bfree = row.blocks;  // what the superuser alone may use counts as free
      volume->f_bavail = row.blocks / 2;
      volume->f_frsize = row.fragment;  // blocks are counted in these
      volume->f_bsize = 8 * row.fragment;
      volume->f_blocks = ~fsblkcnt_t{0};
      return 0;
    };
    std::uint32_t bytes = 77;
    EXPECT_EQ(GetFreeTempSpace(&bytes), 0u);
    EXPECT_EQ(bytes, row.bytes);
  }
}

TEST_F(SystemFaultTest, FreeSpaceThatCannotBeKnownIsNone) {
  system_.volume = [](struct statvfs* volume) {
    volume->f_bfree = volume->f_frsize = 4096;
    return -1;
  };
  std::uint32_t bytes = 77;
  EXPECT_EQ(GetFreeTempSpace(&bytes), 0u);
  EXPECT_EQ(bytes, 0u);
}

TEST_F(SystemFaultTest, WithoutANameThereIsNoTemporaryFile) {
  // A directory whose name leaves no room for a file's.
  std::string directory = tmp().string();
  while (directory.size() + 2 < 4094) directory += "/.";
  setenv("TMPDIR", directory.c_str(), 1);
  ASSERT_TRUE(std::filesystem::is_directory(directory));
  stdx::u16string name(u"before");
  EXPECT_EQ(CreateTempFile(U16(tmp()), u"kpt", &name), 1013u);
  EXPECT_EQ(name, u"");
  EXPECT_THAT(system_.commands, ::testing::IsEmpty());
}

TEST_F(SystemFaultTest, NamesAreMatchedAsPartsOfAPathAndWithNothingElseToIt) {
  WriteFile(root() / "scanned" / "file", "");
  DirScan scan;
  FindFirst(scan, U16(root() / "scanned" / "f*\\*"));
  while (scan.stream != nullptr) FindNext(scan);
  EXPECT_EQ(system_.match_flags, std::set<int>{FNM_PATHNAME});
}

TEST_F(SystemFaultTest, AMatchThatFailsIsNoResultAndNotTheEnd) {
  for (const int error : {-1, 2, FNM_NOMATCH + 2}) {
    SCOPED_TRACE(error);
    // With a file of the pattern's name every step could answer true.
    WriteFile(root() / "scanned" / "*", "");
    int calls = 0;
    system_.match = [&](const char*, const char*) { return ++calls == 2 ? error : 0; };
    DirScan scan;
    EXPECT_TRUE(FindFirst(scan, U16(root() / "scanned") + u"/*"));
    const stdx::u16string name = GetName(scan);
    EXPECT_FALSE(FindNext(scan));
    EXPECT_EQ(calls, 2) << "what failed is not passed over";
    EXPECT_EQ(GetName(scan), name);
    EXPECT_TRUE(FindNext(scan));
  }
}

TEST_F(SystemFaultTest, TheHomeDirectoryIsTheFirstWord) {
  std::string first = "/home/\xC3\xBC", second = "/other";
  char* list[] = {first.data(), second.data(), nullptr};
  system_.words = [&list](wordexp_t* words) {
    words->we_wordc = 2;
    words->we_wordv = list;
    return 0;
  };
  EXPECT_EQ(GetHomeDirectory(), u"/home/\u00FC");
  EXPECT_EQ(system_.words_freed, 1);
  first = "/\xFF";
  EXPECT_THROW(GetHomeDirectory(), std::length_error);
  EXPECT_EQ(system_.words_freed, 2);
  system_.words = [](wordexp_t*) { return 0; };  // no word at all
  EXPECT_EQ(GetHomeDirectory(), u"");
  EXPECT_EQ(system_.words_freed, 3);
}

TEST_F(SystemFaultTest, TheHomeIsNamedWhereTheNameThatTheSystemGivesComesBack) {
  std::string word;
  char* list[] = {nullptr, nullptr};
  system_.words = [&](wordexp_t* words) {
    list[0] = word.data();
    words->we_wordc = 1;
    words->we_wordv = list;
    return 0;
  };
  unsetenv("HOME");  // the account's is taken then, and may lose bits as any other
  for (const char* const name : {"/h", "/", "", "/h\xC3\xA9"}) {
    word = name;
    EXPECT_TRUE(IsHomeNamed()) << name;
  }
  for (const char* const name : {"/\xFF", "/\U0001F600", "/\U00020000/t", "/\U0001D800"}) {
    word = name;
    EXPECT_FALSE(IsHomeNamed()) << name;
  }
  system_.words = [](wordexp_t*) { return WRDE_SYNTAX; };
  EXPECT_TRUE(IsHomeNamed()) << "no home is the empty name";
}

TEST_F(SystemFaultTest, AHomeDirectoryThatCannotBeExpandedIsEmptyAndOnlyNoMemoryLeavesWordsToFree) {
  for (const int code : {WRDE_BADCHAR, WRDE_BADVAL, WRDE_CMDSUB, WRDE_SYNTAX, WRDE_NOSPACE}) {
    SCOPED_TRACE(code);
    system_.words_freed = 0;
    system_.words = [code](wordexp_t*) { return code; };
    EXPECT_EQ(GetHomeDirectory(), u"");
    EXPECT_EQ(system_.words_freed, code == WRDE_NOSPACE ? 1 : 0);
  }
}

}  // namespace
}  // namespace quarn::testing
