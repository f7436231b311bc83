// The paths of the launcher's files, and which of them are read and written.
#include <sys/stat.h>

#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "tests/config/config_support.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

class LauncherFilesTest : public ScratchTest {
 protected:
  std::filesystem::path Own() const { return home() / ".Orbex/qlaunch/qlaunch.cfg"; }
  std::filesystem::path Alt() const { return home() / ".Orbex/qlauncht/qlaunch.cfg"; }
  std::filesystem::path Product() const { return home() / ".quarn/.Orbex/qlaunch/qlaunch.cfg"; }
};

TEST_F(LauncherFilesTest, ThePathsAreThese) {
  setenv("HOME", "/h", 1);
  EXPECT_EQ(GetLauncherDir(), u"/h/.Orbex/qlaunch");
  EXPECT_EQ(GetLauncherCfgPath(), u"/h/.Orbex/qlaunch/qlaunch.cfg");
  EXPECT_EQ(GetProductHomeDir(), u"/h/.quarn/");
  EXPECT_EQ(GetProductLauncherDir(), u"/h/.quarn//.Orbex/qlaunch");
  EXPECT_EQ(GetProductLauncherCfgPath(), u"/h/.quarn//.Orbex/qlaunch/qlaunch.cfg");
  EXPECT_EQ(GetAltLauncherDir(), u"/h/.Orbex/qlauncht");
  EXPECT_EQ(GetAltLauncherCfgPath(), u"/h/.Orbex/qlauncht/qlaunch.cfg");
}

TEST_F(LauncherFilesTest, AFileIsRewrittenWhereItIsWithItsModeAndThroughALink) {
  WriteFile(root() / "real.cfg", "a=1\na long line that has to go\n");
  chmod((root() / "real.cfg").c_str(), 0604);
  std::filesystem::create_symlink("real.cfg", root() / "link.cfg");
  struct stat old_status, status;
  ASSERT_EQ(stat((root() / "real.cfg").c_str(), &old_status), 0);
  ConfigEntryList list;
  AddConfigValue(list, u"b", u"2");
  WriteConfigFile(U16(root() / "link.cfg"), list);
  EXPECT_TRUE(std::filesystem::is_symlink(root() / "link.cfg"));
  EXPECT_EQ(ReadFile(root() / "real.cfg"), "b=2\n");
  ASSERT_EQ(stat((root() / "real.cfg").c_str(), &status), 0);
  EXPECT_EQ(status.st_ino, old_status.st_ino);
  EXPECT_EQ(status.st_mode & 0777u, 0604u);
}

struct MarkCase {
  const char* rule;
  std::string_view bytes;
  bool not_unicode;
};

TEST_F(LauncherFilesTest, AFileIsUnicodeOnlyWithTheLittleEndianMark) {
  using namespace std::string_view_literals;
  for (const MarkCase& c :
       {MarkCase{"mark alone", "\xFF\xFE", false},
        MarkCase{"mark and text",
                 "\xFF\xFE"
                 "a\0"sv,
                 false},
        MarkCase{"big-endian mark", "\xFE\xFF\0a"sv, true}, MarkCase{"half a mark", "\xFF", true},
        MarkCase{"empty", "", true}, MarkCase{"text", "a=1\n", true}}) {
    SCOPED_TRACE(c.rule);
    WriteFile(root() / "mark", c.bytes);
    EXPECT_EQ(IsNotUnicodeFile(U16(root() / "mark")), c.not_unicode);
  }
  EXPECT_FALSE(IsNotUnicodeFile(U16(root() / "missing")));
  EXPECT_TRUE(IsNotUnicodeFile(U16(root()))) << "opens, and cannot be read";
}

TEST_F(LauncherFilesTest, EachProfileReadsItsPairOfFiles) {
  WriteFile(Own(), "which=own\n");
  WriteFile(Alt(), "which=alt\n");
  WriteFile(Product(), "which=product\n");
  LauncherConfig ordinary;
  EXPECT_FALSE(ordinary.altProfile);
  LoadLauncherConfig(ordinary);
  EXPECT_EQ(EntriesOf(ordinary.own), (Entries{{u"which", {u"own"}}}));
  EXPECT_EQ(EntriesOf(ordinary.common), (Entries{{u"which", {u"product"}}}));
  EXPECT_TRUE(ordinary.extra.entries.empty());

  LauncherConfig alternate;
  alternate.altProfile = true;
  LoadLauncherConfig(alternate);
  EXPECT_EQ(EntriesOf(alternate.own), (Entries{{u"which", {u"alt"}}}));
  EXPECT_EQ(EntriesOf(alternate.common), (Entries{{u"which", {u"own"}}}));
  EXPECT_TRUE(alternate.extra.entries.empty());
}

TEST_F(LauncherFilesTest, EachProfileWritesItsOwnFileAndNoOther) {
  for (const bool alternate : {false, true}) {
    SCOPED_TRACE(alternate);
    WriteFile(Own(), "which=own\n");
    WriteFile(Alt(), "which=alt\n");
    WriteFile(Product(), "which=product\n");
    LauncherConfig store;
    store.altProfile = alternate;
    LoadLauncherConfig(store);
    SetConfigValues(store.own, u"new", {u"1"});
    SaveLauncherConfig(store);
    EXPECT_EQ(ReadFile(Own()), alternate ? "which=own\n" : "which=own\nnew=1\n");
    EXPECT_EQ(ReadFile(Alt()), alternate ? "which=alt\nnew=1\n" : "which=alt\n");
    EXPECT_EQ(ReadFile(Product()), "which=product\n");
  }
}

TEST_F(LauncherFilesTest, MissingFilesAddNothing) {
  LauncherConfig store;
  AddConfigValue(store.own, u"a", u"1");
  AddConfigValue(store.common, u"b", u"2");
  LoadLauncherConfig(store);
  EXPECT_EQ(EntriesOf(store.own), (Entries{{u"a", {u"1"}}}));
  EXPECT_EQ(EntriesOf(store.common), (Entries{{u"b", {u"2"}}}));
}

TEST_F(LauncherFilesTest, AFileWhoseReadingBreaksOffDoesNotHinderTheOther) {
  const std::string breaks_off = "a=1\nk=\xF0\x9D\xA0\x80\nk=2\nb=3\n";
  const Entries before{{u"a", {u"1"}}, {u"k", {u"\xD800"}}}, whole{{u"c", {u"1"}}};
  for (const bool own_breaks_off : {false, true}) {
    WriteFile(Own(), own_breaks_off ? breaks_off : "c=1\n");
    WriteFile(Product(), own_breaks_off ? "c=1\n" : breaks_off);
    LauncherConfig store;
    LoadLauncherConfig(store);
    EXPECT_EQ(EntriesOf(store.own), own_breaks_off ? before : whole);
    EXPECT_EQ(EntriesOf(store.common), own_breaks_off ? whole : before);
    EXPECT_EQ(store.own.is_partial, own_breaks_off);
  }
}

TEST_F(LauncherFilesTest, AnUnreadableCommonFileIsMissing) {
  WriteFile(Own(), "a=1\n");
  fs::create_directories(Product());  // opens, and cannot be read
  LauncherConfig store;
  LoadLauncherConfig(store);
  EXPECT_EQ(EntriesOf(store.own), (Entries{{u"a", {u"1"}}}));
  EXPECT_TRUE(store.common.entries.empty());
}

TEST_F(LauncherFilesTest, AHomeWithNoTextFormAddsNothing) {
  setenv("HOME", (home() / "\xFF").c_str(), 1);
  LauncherConfig store;
  AddConfigValue(store.own, u"a", u"1");
  LoadLauncherConfig(store);
  EXPECT_EQ(EntriesOf(store.own), (Entries{{u"a", {u"1"}}}));
  EXPECT_THROW(SaveLauncherConfig(store), std::length_error);
}

TEST_F(LauncherFilesTest, SavingMakesTheDirectoryOfTheFile) {
  for (const bool alternate : {false, true}) {
    LauncherConfig store;
    store.altProfile = alternate;
    AddConfigValue(store.own, u"a", u"1");
    SaveLauncherConfig(store);
    EXPECT_EQ(ReadFile(alternate ? Alt() : Own()), "a=1\n");
  }
  EXPECT_EQ(Tree(home()),
            (std::map<std::string, std::string>{{".Orbex/", ""},
                                                {".Orbex/qlaunch/", ""},
                                                {".Orbex/qlaunch/qlaunch.cfg", "a=1\n"},
                                                {".Orbex/qlauncht/", ""},
                                                {".Orbex/qlauncht/qlaunch.cfg", "a=1\n"}}));
}

}  // namespace
}  // namespace quarn::testing
