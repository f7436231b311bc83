// What a pass does over both real policies alike.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <string>

#include "tests/install/installation.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using TreeMap = std::map<std::string, std::string>;

template <class Policy>
class InstallPassTest : public InstallTest {
 protected:
  Installation<Policy> Prepare(const KitBuilder& kit) {
    return Installation<Policy>(kit, this->kit(), this->target());
  }
  /// The staging directory is gone; the image of the kit stays.
  void ExpectNoStaging() {
    for (const auto& entry : fs::directory_iterator(this->tmp())) {
      EXPECT_FALSE(entry.path().filename().string().starts_with("kstage")) << entry.path();
    }
  }
};

using Policies = ::testing::Types<FileSystem, DirectFileSystem>;
TYPED_TEST_SUITE(InstallPassTest, Policies);
using RestoringPassTest = InstallPassTest<DirectFileSystem>;

KitBuilder NestedKit() {
  return KitBuilder()
      .Product(u"en", u"Templates", u"Example", u"")
      .File(u"top.txt", "top", Ticks(1000000000))
      .File(u"a\\b\\c.txt", "deep", Ticks(1100000000))
      .File(u"a\\empty", "", Ticks(1200000000));
}

TYPED_TEST(InstallPassTest, FillsAnEmptyDirectoryWithTheKitsFilesAndTimes) {
  auto installation = this->Prepare(NestedKit());
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(
      Tree(this->target()),
      (TreeMap{
          {"a/", ""}, {"a/b/", ""}, {"a/b/c.txt", "deep"}, {"a/empty", ""}, {"top.txt", "top"}}));
  EXPECT_EQ(MTime(this->target() / "top.txt"), 1000000000);
  EXPECT_EQ(MTime(this->target() / "a/b/c.txt"), 1100000000);
  EXPECT_EQ(MTime(this->target() / "a/empty"), 1200000000);
  this->ExpectNoStaging();
}

TYPED_TEST(InstallPassTest, MakesTheTargetDirectoryWithItsParents) {
  fs::remove(this->target());
  NestedKit().WriteTo(this->kit());
  Installation<TypeParam> installation(NestedKit(), this->kit(), this->target() / "x" / "y");
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(ReadFile(this->target() / "x/y/a/b/c.txt"), "deep");
}

TYPED_TEST(InstallPassTest, ReportsTheEnd) {
  auto installation = this->Prepare(NestedKit());
  installation.Run();
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{0, FinishText(), 100}));
  EXPECT_FALSE(FinishText().empty());
}

TYPED_TEST(InstallPassTest, AKitWithoutFilesInstallsNothing) {
  auto installation = this->Prepare(KitBuilder().SingleProduct(u"", u"", u""));
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(Tree(this->target()), TreeMap());
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{0, FinishText(), 100}));
  this->ExpectNoStaging();
}

TYPED_TEST(InstallPassTest, ASecondPassLeavesEveryFileAsItIs) {
  auto installation = this->Prepare(NestedKit());
  ASSERT_EQ(installation.Run(), 0u);
  const auto inode = [&](const char* file) {
    struct stat status {};
    EXPECT_EQ(stat((this->target() / file).c_str(), &status), 0);
    return std::pair(status.st_ino, status.st_ctime);
  };
  WriteFile(this->target() / "top.txt", "TOP");
  SetMTime(this->target() / "top.txt", 1000000000);
  const auto top = inode("top.txt"), deep = inode("a/b/c.txt");
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(inode("top.txt"), top);
  EXPECT_EQ(inode("a/b/c.txt"), deep);
  EXPECT_EQ(ReadFile(this->target() / "top.txt"), "TOP") << "a file of the kit's time is kept";
}

TYPED_TEST(InstallPassTest, AnOlderFileIsReplaced) {
  WriteFile(this->target() / "top.txt", "an older and much longer file than the kit's");
  SetMTime(this->target() / "top.txt", 1000000000 - 1);
  auto installation = this->Prepare(NestedKit());
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(ReadFile(this->target() / "top.txt"), "top");
  EXPECT_EQ(MTime(this->target() / "top.txt"), 1000000000);
}

TYPED_TEST(InstallPassTest, ANewerFileIsKept) {
  WriteFile(this->target() / "top.txt", "newer");
  SetMTime(this->target() / "top.txt", 1000000000 + 1);
  auto installation = this->Prepare(NestedKit());
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(ReadFile(this->target() / "top.txt"), "newer");
  EXPECT_EQ(MTime(this->target() / "top.txt"), 1000000001);
}

// Deliberate: installed times are whole seconds, so such a file is always older than the kit's.
TYPED_TEST(InstallPassTest, AFileWithAPartOfASecondIsCopiedByEveryPass) {
  auto installation = this->Prepare(KitBuilder().File(u"a", "kit", Ticks(1000000000, 1)));
  ASSERT_EQ(installation.Run(), 0u);
  for (int pass = 0; pass < 3; ++pass) {
    WriteFile(this->target() / "a", "changed");
    SetMTime(this->target() / "a", 1000000000);
    ASSERT_EQ(installation.Run(), 0u);
    EXPECT_EQ(ReadFile(this->target() / "a"), "kit");
    EXPECT_EQ(MTime(this->target() / "a"), 1000000000);
  }
}

// Times are unsigned: what has the highest bit is far in the future and no date before all others.
TYPED_TEST(InstallPassTest, AKitTimeWithTheHighestBitIsNewerThanAnyFile) {
  WriteFile(this->target() / "a", "installed");
  SetMTime(this->target() / "a", 4000000000);
  auto installation = this->Prepare(KitBuilder().File(u"a", "kit", std::uint64_t{1} << 63));
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(ReadFile(this->target() / "a"), "kit");
}

TYPED_TEST(InstallPassTest, ASuccessRemovesOnlyTheStagingDirectory) {
  WriteFile(this->tmp() / "foreign" / "file", "foreign");
  WriteFile(this->target() / "a" / "own.txt", "mine");
  this->WriteOld("top.txt", "old");
  auto installation = this->Prepare(NestedKit());
  const TreeMap temporary = Tree(this->tmp());
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(Tree(this->tmp()), temporary) << "with the image of the kit";
  EXPECT_EQ(ReadFile(this->target() / "a/own.txt"), "mine");
}

TYPED_TEST(InstallPassTest, FilesOfAllSizesAroundTheBufferAreCopied) {
  constexpr std::size_t kMiB = 1 << 20;
  KitBuilder kit;
  std::map<std::string, std::string> expected;
  std::mt19937 random(1);
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, kMiB - 1, kMiB, kMiB + 1, 2 * kMiB, 3 * kMiB + 5}) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; i += 97) bytes[i] = static_cast<char>(random());
    const std::string name = std::to_string(size);
    kit.File(std::u16string(name.begin(), name.end()), bytes);
    expected[name] = bytes;
  }
  auto installation = this->Prepare(kit);
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_TRUE(Tree(this->target()) == expected);
}

TYPED_TEST(InstallPassTest, FilesThatShareTheirContentsEachGetACopy) {
  auto installation =
      this->Prepare(KitBuilder().File(u"a", "shared").FileAt(u"b", 0, 6).FileAt(u"c", 2, 3));
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(Tree(this->target()), (TreeMap{{"a", "shared"}, {"b", "shared"}, {"c", "are"}}));
}

TYPED_TEST(InstallPassTest, AnOffsetThatWrapsReadsFromTheTables) {
  auto installation = this->Prepare(KitBuilder().File(u"a", "data").FileAt(u"b", 0xFFFFFFFF, 3));
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(ReadFile(this->target() / "b").substr(1), "da");
}

TYPED_TEST(InstallPassTest, ContentsThatTheImageDoesNotHoldAreAFailure) {
  for (const auto& [offset, size] :
       {std::pair{0u, 5u}, {4u, 1u}, {5u, 1u}, {0u, 0xFFFFFFFFu}, {0x7FFFFFFFu, 1u}}) {
    fs::create_directories(this->tmp());
    auto installation =
        this->Prepare(KitBuilder().File(u"a\\a", "data").FileAt(u"b\\b", offset, size));
    EXPECT_EQ(installation.Run(), FILE_ERR_INVALID_PARAMETER) << offset << ' ' << size;
    EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{87, ErrorText(), 50}));
    EXPECT_EQ(Tree(this->target()), TreeMap());
  }
}

TYPED_TEST(InstallPassTest, AnEmptyFileMayLieAnywhere) {
  auto installation = this->Prepare(KitBuilder().FileAt(u"a", 0x7FFFFFFF, 0));
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(Tree(this->target()), (TreeMap{{"a", ""}}));
}

TYPED_TEST(InstallPassTest, NamesWithBlanksAndLettersOfAllScriptsAreInstalled) {
  auto installation = this->Prepare(KitBuilder()
                                        .File(u"with blanks \\a file (1).txt", "1")
                                        .File(u"\u0448\u0430\u0431\u043B\u043E\u043D\\\u4E2D", "2")
                                        .File(u"'quoted'\\& ; | *?[x].txt", "3"));
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(Tree(this->target()), (TreeMap{{"with blanks /", ""},
                                           {"with blanks /a file (1).txt", "1"},
                                           {"шаблон/", ""},
                                           {"шаблон/中", "2"},
                                           {"'quoted'/", ""},
                                           {"'quoted'/& ; | *?[x].txt", "3"}}));
  WriteFile(this->target() / "'quoted'/& ; | *?[x].txt", "older");
  SetMTime(this->target() / "'quoted'/& ; | *?[x].txt", 0);
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(ReadFile(this->target() / "'quoted'/& ; | *?[x].txt"), "3");
}

TYPED_TEST(InstallPassTest, ANameThatTheLocaleCannotExpressIsAFailureAndNoCrash) {
  auto installation = this->Prepare(KitBuilder().File(u"a\\a", "").File(u"b\\\xD800", ""));
  EXPECT_EQ(installation.Run(), FILE_ERR_INVALID_PARAMETER);
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{87, ErrorText(), 50}));
  EXPECT_EQ(Tree(this->target()), TreeMap());
}

TYPED_TEST(InstallPassTest, ATextThatTheLocaleCannotExpressFailsBeforeAnythingIsTouched) {
  auto installation = this->Prepare(NestedKit());
  const TreeMap temporary = Tree(this->tmp());
  SetCurrentLanguage(FindLanguageByCode("ru"));
  setenv("LC_ALL", "C", 1);
  EXPECT_EQ(installation.Run(), FILE_ERR_INVALID_PARAMETER);
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{87, u"", 0}));
  EXPECT_EQ(Tree(this->target()), TreeMap());
  EXPECT_EQ(Tree(this->tmp()), temporary);
}

TYPED_TEST(InstallPassTest, TextsAreInTheCurrentLanguage) {
  SetCurrentLanguage(FindLanguageByCode("de"));
  const stdx::u16string german = FinishText();
  auto installation = this->Prepare(NestedKit());
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(GetStatus(&installation.record).message, german);
  SetCurrentLanguage(kEnglish);
  EXPECT_NE(FinishText(), german);
}

TYPED_TEST(InstallPassTest, ALinkToAnUpToDateFileIsKept) {
  WriteFile(this->root() / "elsewhere", "newer");
  fs::create_symlink(this->root() / "elsewhere", this->target() / "top.txt");
  auto installation = this->Prepare(NestedKit());
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_TRUE(fs::is_symlink(this->target() / "top.txt"));
}

TYPED_TEST(InstallPassTest, ALinkToAnOlderFileIsReplacedAndTheFileLeftAlone) {
  WriteFile(this->root() / "elsewhere", "older");
  SetMTime(this->root() / "elsewhere", 0);
  fs::create_symlink(this->root() / "elsewhere", this->target() / "top.txt");
  auto installation = this->Prepare(NestedKit());
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_FALSE(fs::is_symlink(this->target() / "top.txt"));
  EXPECT_EQ(ReadFile(this->target() / "top.txt"), "top");
  EXPECT_EQ(ReadFile(this->root() / "elsewhere"), "older");
}

TYPED_TEST(InstallPassTest, AKitThatNamesAFileTwiceInstallsTheNewerOne) {
  for (const bool newer_first : {false, true}) {
    const auto first = Ticks(newer_first ? 2000 : 1000), second = Ticks(newer_first ? 1000 : 2000);
    this->WriteOld("a", "older");
    SetMTime(this->target() / "a", 500);
    auto installation = this->Prepare(KitBuilder().File(u"a", "1", first).File(u"a", "2", second));
    EXPECT_EQ(installation.Run(), 0u);
    EXPECT_EQ(ReadFile(this->target() / "a"), newer_first ? "1" : "2");
    EXPECT_EQ(MTime(this->target() / "a"), 2000);
  }
}

TYPED_TEST(InstallPassTest, ATimeBefore1970IsInstalled) {
  auto installation = this->Prepare(KitBuilder().File(u"a", "old", Ticks(-1000000)));
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(MTime(this->target() / "a"), -1000000);
  WriteFile(this->target() / "a", "newer");
  EXPECT_EQ(installation.Run(), 0u);
  EXPECT_EQ(ReadFile(this->target() / "a"), "newer");
}

TEST_F(RestoringPassTest, ANameAloneWithoutATargetIsInstalledAndUndoneInTheCurrentDirectory) {
  fs::current_path(target());
  WriteOld("old", "old");
  for (const bool fails : {false, true}) {
    KitBuilder kit_builder = KitBuilder().File(u"old", "new").File(u"name", "contents");
    if (fails) kit_builder.FileAt(u"z", 0, 1000);
    WriteOld("old", "old");
    fs::remove(target() / "name");
    auto installation = Prepare(kit_builder);
    installation.SetTarget(u"");
    EXPECT_EQ(installation.Run(), fails ? 87u : 0u);
    EXPECT_EQ(Tree(target()),
              fails ? (TreeMap{{"old", "old"}}) : (TreeMap{{"name", "contents"}, {"old", "new"}}));
  }
}

}  // namespace
}  // namespace quarn::testing
