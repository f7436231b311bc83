#include "core/dir_scan.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <gmock/gmock.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "core/text.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

class DirScanTest : public ScratchTest {
 protected:
  DirScanTest() { fs::create_directory(dir()); }

  fs::path dir() const { return root() / "scanned"; }
  void Make(const std::string& name) const { WriteFile(dir() / name, "contents"); }
  /// A pattern below the scanned directory.
  stdx::u16string At(const std::string& mask) const { return U16(dir()) + u"/" + U16(mask); }

  /// The names of the scanned directory in the order in which the system gives them.
  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    DIR* const stream = opendir(dir().c_str());
    while (const dirent* const entry = readdir(stream)) names.emplace_back(entry->d_name);
    closedir(stream);
    return names;
  }
  static std::string Name(const DirScan& scan) {
    return std::string(ToNarrow(GetName(scan)).view());
  }
};

// --- Plain paths -----------------------------------------------------------------------------

TEST_F(DirScanTest, APlainPathTellsWhetherItExistsAndNamesItsLastPart) {
  Make("file.txt");
  DirScan scan;
  EXPECT_TRUE(FindFirst(scan, At("file.txt")));
  EXPECT_EQ(GetName(scan), u"file.txt");
  EXPECT_EQ(GetAttributes(scan), 0u);
  EXPECT_EQ(scan.mask, u"file.txt");
  EXPECT_EQ(scan.pattern, At("file.txt"));
  EXPECT_EQ(scan.stream, nullptr);
  EXPECT_FALSE(FindNext(scan));

  EXPECT_FALSE(FindFirst(scan, At("missing")));
  EXPECT_EQ(GetName(scan), u"missing");
  EXPECT_FALSE(FindFirst(scan, At("file.txt/below")));
}

TEST_F(DirScanTest, ADirectoryHasTheDirectoryAttribute) {
  DirScan scan;
  EXPECT_TRUE(FindFirst(scan, U16(dir())));
  EXPECT_EQ(GetAttributes(scan), 16u);
  EXPECT_EQ(GetAttributes(scan), kDirectoryAttribute);
  EXPECT_EQ(GetName(scan), u"scanned");
}

TEST_F(DirScanTest, EveryScanBeginsWithoutAStatus) {
  DirScan scan;
  ASSERT_TRUE(FindFirst(scan, U16(dir())));
  EXPECT_FALSE(FindFirst(scan, At("missing")));
  EXPECT_EQ(GetAttributes(scan), 0u);
  ASSERT_TRUE(FindFirst(scan, U16(dir())));
  EXPECT_FALSE(FindFirst(scan, At("*")));
  EXPECT_EQ(GetAttributes(scan), 0u);
}

TEST_F(DirScanTest, OnlyAnAsteriskMakesAMask) {
  DirScan scan;
  for (const char* const name : {"a?c", "a[b]c", "[abc]", "{a,c}", "a\\c"}) {
    SCOPED_TRACE(name);
    fs::remove_all(dir());
    fs::create_directory(dir());
    Make("abc");
    Make("a");
    EXPECT_FALSE(FindFirst(scan, At(name)));
    EXPECT_EQ(Name(scan), name);
    EXPECT_EQ(scan.stream, nullptr);
    Make(name);
    EXPECT_TRUE(FindFirst(scan, At(name)));
    EXPECT_EQ(Name(scan), name);
    EXPECT_FALSE(FindNext(scan));
  }
}

TEST_F(DirScanTest, AnAsteriskInTheDirectoryIsAnOrdinaryLetter) {
  WriteFile(dir() / "sub" / "file", "contents");
  DirScan scan;
  EXPECT_FALSE(FindFirst(scan, At("s*/file")));
  EXPECT_EQ(scan.stream, nullptr);
  WriteFile(dir() / "s*" / "file", "contents");
  EXPECT_TRUE(FindFirst(scan, At("s*/file")));
  EXPECT_EQ(GetName(scan), u"file");
  EXPECT_EQ(scan.stream, nullptr);
}

TEST_F(DirScanTest, APathThatEndsInASlashHasAnEmptyName) {
  DirScan scan;
  EXPECT_TRUE(FindFirst(scan, At("")));
  EXPECT_EQ(GetName(scan), u"");
  EXPECT_EQ(GetAttributes(scan), 16u);
  EXPECT_TRUE(FindFirst(scan, u"/"));
  EXPECT_EQ(GetAttributes(scan), 16u);
}

TEST_F(DirScanTest, LinksAreFollowed) {
  fs::create_symlink(dir(), dir() / "link");
  fs::create_symlink("nowhere", dir() / "dangling");
  DirScan scan;
  EXPECT_TRUE(FindFirst(scan, At("link")));
  EXPECT_EQ(GetAttributes(scan), 16u);
  EXPECT_FALSE(FindFirst(scan, At("dangling")));
}

TEST_F(DirScanTest, TheDirectoryBitIsAllThatTheAttributesLookAt) {
  static constexpr struct {
    mode_t mode;
    std::uint32_t attributes;
  } kRows[] = {
      {S_IFDIR | 0755, 16},
      {S_IFREG | 0777, 0},
      {S_IFIFO, 0},
      {S_IFCHR, 0},
      {S_IFLNK, 0},
      {S_IFBLK, 16},
      {S_IFSOCK, 16},  // share the bit
      {S_IFREG | S_ISUID | S_ISGID, 0},
      {0, 0},
  };
  DirScan scan;
  for (const auto& row : kRows) {
    scan.status.st_mode = row.mode;
    EXPECT_EQ(GetAttributes(scan), row.attributes) << std::oct << row.mode;
  }
}

// --- Masks -----------------------------------------------------------------------------------

TEST_F(DirScanTest, AMaskOnAMissingDirectoryFindsNothingAndOpensNothing) {
  DirScan scan;
  EXPECT_FALSE(FindFirst(scan, At("missing/*")));
  EXPECT_EQ(scan.stream, nullptr);
  EXPECT_EQ(GetName(scan), u"");
  EXPECT_FALSE(FindNext(scan));
  Make("file");
  EXPECT_FALSE(FindFirst(scan, At("file/*")));
  EXPECT_EQ(scan.stream, nullptr);
}

TEST_F(DirScanTest, AMaskStoresTheFirstNameAnswersFalseAndLeavesTheStreamOpen) {
  for (const char* const name : {"one", "two", "three"}) Make(name);
  DirScan scan;
  EXPECT_FALSE(FindFirst(scan, At("*")));  // for no file has the pattern for its name
  EXPECT_EQ(Name(scan), Entries().front());
  EXPECT_EQ(GetAttributes(scan), 0u);
  ASSERT_NE(scan.stream, nullptr);
  CloseScan(scan);
  EXPECT_EQ(scan.stream, nullptr);
  EXPECT_FALSE(FindNext(scan));
}

TEST_F(DirScanTest, EveryFurtherStepStoresANameAndAnswersFalse) {
  for (const char* const name : {"one", "two", "three", ".hidden"}) Make(name);
  DirScan scan;
  std::vector<std::string> names;
  EXPECT_FALSE(FindFirst(scan, At("*")));
  while (scan.stream != nullptr) {
    names.push_back(Name(scan));
    EXPECT_FALSE(FindNext(scan));
  }
  EXPECT_EQ(names, Entries());  // in the directory's order, "." and ".." and all
}

TEST_F(DirScanTest, AFileNamedLikeThePatternLetsTheScanGoOnWithItsStatus) {
  for (const char* const name : {"one", "two", "*"}) Make(name);
  fs::create_directory(dir() / "sub");
  DirScan scan;
  std::vector<std::string> names;
  for (bool found = FindFirst(scan, At("*")); found; found = FindNext(scan)) {
    names.push_back(Name(scan));
    EXPECT_EQ(GetAttributes(scan), 0u);  // of the directory, too
    EXPECT_EQ(scan.status.st_size, 8);
  }
  EXPECT_EQ(names, Entries());
  EXPECT_EQ(scan.stream, nullptr);
}

TEST_F(DirScanTest, ADirectoryNamedLikeThePatternMakesEveryEntryADirectory) {
  Make("t-one");
  Make("other");
  fs::create_directory(dir() / "t-*");
  DirScan scan;
  std::set<std::string> names;
  for (bool found = FindFirst(scan, At("t-*")); found; found = FindNext(scan)) {
    names.insert(Name(scan));
    EXPECT_EQ(GetAttributes(scan), 16u);
  }
  EXPECT_EQ(names, (std::set<std::string>{"t-one", "t-*"}));
}

TEST_F(DirScanTest, AMaskThatNothingMatchesEndsTheScan) {
  Make("file");
  DirScan scan;
  EXPECT_FALSE(FindFirst(scan, At("x*")));
  EXPECT_EQ(GetName(scan), u"");
  EXPECT_EQ(scan.stream, nullptr);
}

TEST_F(DirScanTest, LeadingDotsAreNotSpecial) {
  DirScan scan;
  EXPECT_FALSE(FindFirst(scan, At("*")));
  EXPECT_THAT(Name(scan), ::testing::AnyOf(".", ".."));
  CloseScan(scan);
  Make(".hidden");
  EXPECT_FALSE(FindFirst(scan, At("*den")));
  EXPECT_EQ(Name(scan), ".hidden");
}

TEST_F(DirScanTest, ThePatternOfAMaskIsKeptAsItWasPassed) {
  DirScan scan;
  FindFirst(scan, At("a*c"));
  EXPECT_EQ(scan.mask, u"a*c");
  EXPECT_EQ(scan.pattern, At("a*c"));
}

TEST_F(DirScanTest, AScanStartedAgainIsANewOne) {
  Make("one");
  DirScan scan;
  FindFirst(scan, At("o*"));
  EXPECT_EQ(GetName(scan), u"one");
  CloseScan(scan);
  EXPECT_FALSE(FindFirst(scan, At("two*")));
  EXPECT_EQ(GetName(scan), u"");
  EXPECT_TRUE(FindFirst(scan, At("one")));
}

TEST_F(DirScanTest, AnotherScanDoesNotCloseTheStreamOfTheOneBefore) {
  Make("one");
  DirScan scan;
  FindFirst(scan, At("*"));
  DIR* const stream = scan.stream;
  ASSERT_NE(stream, nullptr);
  EXPECT_TRUE(FindFirst(scan, At("one")));
  EXPECT_EQ(scan.stream, stream);
  FindFirst(scan, At("*"));
  EXPECT_NE(scan.stream, stream);
  EXPECT_EQ(closedir(stream), 0);  // was its caller's to close
  CloseScan(scan);
}

TEST_F(DirScanTest, TheDestructorClosesTheStream) {
  int descriptor;
  {
    DirScan scan;
    FindFirst(scan, At("*"));
    descriptor = dirfd(scan.stream);
    EXPECT_NE(fcntl(descriptor, F_GETFD), -1);
  }
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST_F(DirScanTest, ClosingTwiceIsHarmless) {
  DirScan scan;
  CloseScan(scan);
  FindFirst(scan, At("*"));
  CloseScan(scan);
  CloseScan(scan);
  EXPECT_EQ(scan.stream, nullptr);
}

TEST_F(DirScanTest, ANameIsASharedCopy) {
  Make("a name that is too long for an object");
  DirScan scan;
  ASSERT_TRUE(FindFirst(scan, At("a name that is too long for an object")));
  const stdx::u16string name = GetName(scan);
  EXPECT_EQ(name.data(), std::as_const(scan.name).data());
}

TEST_F(DirScanTest, APatternWithoutASlashLooksIntoTheCurrentDirectory) {
  Make("one");
  fs::current_path(dir());
  DirScan scan;
  EXPECT_TRUE(FindFirst(scan, u"one"));
  EXPECT_EQ(GetName(scan), u"one");
  EXPECT_FALSE(FindFirst(scan, u"o*"));
  EXPECT_EQ(GetName(scan), u"one");
  CloseScan(scan);
}

TEST_F(DirScanTest, AMaskRightBelowTheRootHasNoDirectoryAndFindsNothing) {
  DirScan scan;
  EXPECT_FALSE(FindFirst(scan, u"/*"));
  EXPECT_EQ(scan.stream, nullptr);
}

TEST_F(DirScanTest, NamesOfTheLocaleAreReadAndOthersThrow) {
  Make("\xC3\xBC.txt");
  DirScan scan;
  EXPECT_TRUE(FindFirst(scan, At("\xC3\xBC.txt")));
  EXPECT_EQ(GetName(scan), u"\u00FC.txt");
  EXPECT_FALSE(FindFirst(scan, At("*.txt")));
  EXPECT_EQ(GetName(scan), u"\u00FC.txt");
  CloseScan(scan);
  Make("\xFF.bin");
  EXPECT_THROW(FindFirst(scan, At("*.bin")), std::length_error);
  EXPECT_NE(scan.stream, nullptr);  // open until it is closed, as in every scan
  CloseScan(scan);
  EXPECT_THROW(FindFirst(scan, U16(dir()) + u"/\xD800"), std::length_error);
  EXPECT_THROW(FindFirst(scan, U16(dir()) + u"\xD800/*"), std::length_error);
}

TEST_F(DirScanTest, RandomMasksFindWhatTheSystemsOwnMatchingFinds) {
  std::mt19937 random(Seed());
  const auto upto = [&random](std::size_t last) {
    return std::uniform_int_distribution<std::size_t>(0, last)(random);
  };
  const auto text = [&](std::string result, std::string_view letters, std::size_t more) {
    for (; more > 0; --more) result.push_back(letters[upto(letters.size() - 1)]);
    return result;
  };
  for (int i = 0; i < 60; ++i) Make(text("f", "ab.*?[]-", upto(4)));
  Make("f*");
  constexpr std::string_view kLetters = "fab*?[]-.";
  std::size_t matches = 0, goes_on = 0;
  for (int i = 0; i < 500; ++i) {
    const std::size_t before = upto(3);
    const std::string mask =
        i % 50 == 0 ? "f*" : text(text("", kLetters, before) + '*', kLetters, upto(3));
    SCOPED_TRACE(mask);
    std::vector<std::string> expected;
    for (const std::string& name : Entries()) {
      if (fnmatch(mask.c_str(), name.c_str(), FNM_PATHNAME) == 0) expected.push_back(name);
    }
    const bool exists = fs::exists(dir() / mask);
    std::vector<std::string> names;
    DirScan scan;
    bool found = FindFirst(scan, At(mask));
    while (scan.stream != nullptr) {
      EXPECT_EQ(found, exists);
      names.push_back(Name(scan));
      found = FindNext(scan);
    }
    EXPECT_FALSE(found);
    EXPECT_EQ(names, expected);
    matches += names.size();
    goes_on += exists;
  }
  EXPECT_GT(matches, 100u);
  EXPECT_GT(goes_on, 0u);
}

// --- The home directory and paths --------------------------------------------------------------

TEST_F(DirScanTest, TheHomeDirectoryIsWhatHomeNames) {
  EXPECT_EQ(GetHomeDirectory(), U16(home()));
  for (const char* const path :
       {"/home/with a blank", "/home/\xC3\xBC", "/$HOME/`x`/*", "/'\"", "/"}) {
    setenv("HOME", path, 1);
    EXPECT_EQ(GetHomeDirectory(), U16(path));
  }
}

TEST_F(DirScanTest, WithoutHomeTheHomeDirectoryIsTheUsersOwn) {
  const passwd* const user = getpwuid(getuid());
  if (user == nullptr) GTEST_SKIP() << "needs a user whom the system knows";
  unsetenv("HOME");
  EXPECT_EQ(GetHomeDirectory(), U16(user->pw_dir));
}

TEST_F(DirScanTest, AnEmptyHomeIsTheEmptyText) {
  setenv("HOME", "", 1);
  EXPECT_EQ(GetHomeDirectory(), u"");
}

TEST_F(DirScanTest, AHomeIsNamedWhereItsNameComesBack) {
  for (const char* const name : {"/h", "/", "", "/h\xC3\xA9"}) {
    setenv("HOME", name, 1);
    EXPECT_TRUE(IsHomeNamed()) << name;
  }
  for (const char* const name : {"/\xFF", "/\U0001F600", "/\U00020000/t", "/\U0001D800"}) {
    setenv("HOME", name, 1);
    EXPECT_FALSE(IsHomeNamed()) << name;
  }
  unsetenv("HOME");
  EXPECT_TRUE(IsHomeNamed()) << "that of the account then";
}

TEST_F(DirScanTest, JoiningInsertsNoSeparator) {
  EXPECT_EQ(ConcatPath(u"/tmp", u"x"), u"/tmpx");
  EXPECT_EQ(ConcatPath(u"/tmp/", u"*"), u"/tmp/*");
  EXPECT_EQ(ConcatPath(u"", u"x"), u"x");
  EXPECT_EQ(ConcatPath(u"/tmp", u""), u"/tmp");
  EXPECT_EQ(ConcatPath(u"", u""), u"");
  EXPECT_EQ(ConcatPath(u"/a//", u"//b"), u"/a////b");
}

TEST_F(DirScanTest, AJoinedPathIsOnTheHeapFromTwelveUnitsOnWithExactlyItsRoom) {
  EXPECT_EQ(ConcatPath(u"/eleven", u"unit").mode(), 11u);
  for (const char16_t* const left : {u"/twelve", u"/twelve/units", u""}) {
    const stdx::u16string path = ConcatPath(left, u"a tail of a path");
    EXPECT_EQ(path.block_capacity(), path.size() + 4);
  }
  EXPECT_EQ(ConcatPath(u"/twelve/units/", u"").block_capacity(), 18u);
}

}  // namespace
}  // namespace quarn::testing
