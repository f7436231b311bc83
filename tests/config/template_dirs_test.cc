#include "config/template_dirs.h"

#include <cstdlib>
#include <optional>

#include "tests/config/config_support.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using U16List = std::vector<stdx::u16string>;

constexpr const char* kKey = "ConfigurationTemplatesLocation=";

class TemplateDirsTest : public ScratchTest {
 protected:
  fs::path Own() const { return home() / ".Orbex/qlaunch/qlaunch.cfg"; }
  fs::path Alt() const { return home() / ".Orbex/qlauncht/qlaunch.cfg"; }
  fs::path Product() const { return home() / ".quarn/.Orbex/qlaunch/qlaunch.cfg"; }
  stdx::u16string Default() const { return U16(home()) + u"/.quarn/Orbex/quarn/tmplts/"; }

  std::string Line(const std::string& directory) { return kKey + directory + "\n"; }

  U16List Locations(bool own_first = true, bool alternate = false) {
    U16List list;
    GetTemplateLocations(list, own_first, alternate);
    return list;
  }
};

// --- Lists -------------------------------------------------------------------------------------

TEST_F(TemplateDirsTest, OwnDirectoriesComeFirstAndThenTheCommonOnesTheyLack) {
  WriteFile(Own(), Line("/x/t"));
  WriteFile(Product(), Line("/X/T/") + Line("/y"));
  EXPECT_EQ(Locations(), (U16List{u"/x/t", u"/y"}));
  EXPECT_EQ(Locations(false), (U16List{u"/X/T/", u"/y"}));
}

TEST_F(TemplateDirsTest, TheAlternateProfileTakesTheOrdinaryFileForCommon) {
  WriteFile(Own(), Line("/own"));
  WriteFile(Alt(), Line("/alt"));
  WriteFile(Product(), Line("/product"));
  EXPECT_EQ(Locations(true, true), (U16List{u"/alt", u"/own"}));
  EXPECT_EQ(Locations(true, false), (U16List{u"/own", u"/product"}));
}

TEST_F(TemplateDirsTest, TheListsAreVisitedForwardsOrBackwards) {
  LauncherConfig store;
  SetConfigValues(store.own, u"Key", {u"o", u"x"});
  SetConfigValues(store.common, u"key", {u"X", u"c"});
  SetConfigValues(store.extra, u"KEY", {u"e", u"O"});
  U16List forwards, backwards;
  CollectConfigValues(store, true, u"kEy", forwards);
  CollectConfigValues(store, false, u"kEy", backwards);
  EXPECT_EQ(forwards, (U16List{u"o", u"x", u"c", u"e"}));
  EXPECT_EQ(backwards, (U16List{u"e", u"O", u"X", u"c"}));
}

TEST_F(TemplateDirsTest, CollectingAppendsAndDoesNotCompareWithWhatWasThere) {
  LauncherConfig store;
  SetConfigValues(store.own, u"k", {u"a", u"b"});
  U16List out{u"a"};
  CollectConfigValues(store, true, u"k", out);
  EXPECT_EQ(out, (U16List{u"a", u"a", u"b"}));
}

TEST_F(TemplateDirsTest, LoadingNormalisesAndCleansTheWholeList) {
  WriteFile(Own(), Line("/a") + Line("C:\\tmpl\\"));
  U16List list{u"\\a\\"};
  LauncherConfig store;
  LoadTemplateLocations(store, list, true);
  EXPECT_EQ(list, (U16List{u"/a/", u"C:/tmpl/"}));
}

TEST_F(TemplateDirsTest, BackslashesBecomeSlashes) {
  U16List list{u"C:\\tmpl\\", u"\\\\srv\\a", u"/a", u""};
  NormalizeSeparators(list);
  EXPECT_EQ(list, (U16List{u"C:/tmpl/", u"//srv/a", u"/a", u""}));
}

struct DuplicateCase {
  const char* rule;
  U16List list;
  U16List left;
};

TEST_F(TemplateDirsTest, DuplicatesAreRemovedByTheseRules) {
  for (const DuplicateCase& c : std::vector<DuplicateCase>{
           {"the first one stays as it is written", {u"/a/b", u"/A/B/"}, {u"/a/b"}},
           {"also with its separator", {u"/A/B/", u"/a/b"}, {u"/A/B/"}},
           {"a backslash closes a path too, and is not a slash",
            {u"a", u"a\\", u"a/"},
            {u"a", u"a\\"}},
           {"nothing is added to a backslash", {u"a\\", u"a\\/"}, {u"a\\", u"a\\/"}},
           {"only one separator is added", {u"/a/", u"/a//"}, {u"/a/", u"/a//"}},
           {"the empty path and the root are two", {u"", u"/", u""}, {u"", u"/"}},
           {"order stays", {u"c", u"a", u"C/", u"b", u"a"}, {u"c", u"a", u"b"}},
           {"nothing to do", {}, {}},
       }) {
    SCOPED_TRACE(c.rule);
    U16List list = c.list;
    RemoveDuplicatePaths(list);
    EXPECT_EQ(list, c.left);
  }
}

// --- Saving ------------------------------------------------------------------------------------

TEST_F(TemplateDirsTest, SavingWritesEachDirectoryOnceAndLeavesOtherKeysAsTheyWere) {
  const std::string before = "DefaultVersion= 8 \r\nCommonInfoBases=/b\nCommonInfoBases=/a\n";
  WriteFile(Own(), before + Line("/old") + "last=\xC3\xA9=\n");
  const U16List list{u"/T", u"/a/", u"/t/", u"/A"};
  SaveTemplateLocations(list, false);
  EXPECT_EQ(ReadFile(Own()), before + Line("/T") + Line("/a/") + "last=\xC3\xA9=\n");
  EXPECT_EQ(list.size(), 4u);
}

TEST_F(TemplateDirsTest, SavingWritesWhatItIsGivenAndNotWhatItFinds) {
  WriteFile(Own(), Line("/old"));
  WriteFile(Product(), Line("/common"));
  SaveTemplateLocations({u"C:\\new\\"}, false);
  EXPECT_EQ(ReadFile(Own()), Line("C:\\new\\"));
  EXPECT_EQ(ReadFile(Product()), Line("/common"));
}

TEST_F(TemplateDirsTest, SavingNothingRemovesTheLines) {
  WriteFile(Own(), "a=1\n" + Line("/x") + "b=2\n" + Line("/y"));
  SaveTemplateLocations({}, false);
  EXPECT_EQ(ReadFile(Own()), "a=1\nb=2\n");
}

TEST_F(TemplateDirsTest, TheKeyKeepsItsPlaceAndSpelling) {
  WriteFile(Own(), "a=1\nconfigurationTEMPLATESlocation=/x\nb=2\n");
  SaveTemplateLocations({u"/t"}, false);
  EXPECT_EQ(ReadFile(Own()), "a=1\nconfigurationTEMPLATESlocation=/t\nb=2\n");
}

TEST_F(TemplateDirsTest, InstallingIntoARecordedDirectoryMovesItToTheFront) {
  WriteFile(Own(), Line("/a") + Line("/t/"));
  U16List locations = Locations();
  RecordTemplateDir(u"/t", locations, false, false);
  EXPECT_EQ(locations, (U16List{u"/t", u"/a", u"/t/"}));
  EXPECT_EQ(ReadFile(Own()), Line("/t") + Line("/a"));
}

TEST_F(TemplateDirsTest, OneSeparatorAtTheEndIsNotRecorded) {
  for (const auto& [directory, recorded] : {std::pair{u"/t", "/t"},
                                            {u"/t/", "/t"},
                                            {u"/t//", "/t/"},
                                            {u"/t\\", "/t"},
                                            {u"/t/\\", "/t/"},
                                            {u"/", ""},
                                            {u"", ""}}) {
    fs::remove(Own());
    U16List locations;
    RecordTemplateDir(directory, locations, false, false);
    EXPECT_EQ(ReadFile(Own()), Line(recorded)) << Path(directory);
  }
}

// --- The directory to offer --------------------------------------------------------------------

TEST_F(TemplateDirsTest, TheDefaultLiesUnderTheHomeDirectory) {
  setenv("HOME", "/h", 1);
  EXPECT_EQ(GetDefaultTemplateBase(), u"/h/.quarn/Orbex/quarn/");
}

TEST_F(TemplateDirsTest, WithoutAnyLauncherFileTheDefaultIsOffered) {
  const TemplateDirs dirs = ResolveTemplateDirs();
  EXPECT_EQ(dirs.chosen, Default());
  EXPECT_TRUE(dirs.locations.empty());
  EXPECT_FALSE(dirs.altProfileExists);
  EXPECT_FALSE(dirs.locationsFromAltProfile);
}

TEST_F(TemplateDirsTest, TheCommonFileAloneIsNeverAsked) {
  WriteFile(Product(), Line(tmp()));
  const TemplateDirs dirs = ResolveTemplateDirs();
  EXPECT_EQ(dirs.chosen, Default());
  EXPECT_TRUE(dirs.locations.empty());
  EXPECT_FALSE(dirs.altProfileExists);
  EXPECT_FALSE(dirs.locationsFromAltProfile);
}

TEST_F(TemplateDirsTest, TheFirstWritableDirectoryIsOffered) {
  unsetenv("TMPDIR");
  fs::create_directories(root() / "one");
  fs::create_directories(root() / "two");
  // Nobody, not even root, makes files there.
  WriteFile(Own(), Line("/proc") + Line(root() / "one") + Line(root() / "two"));
  EXPECT_EQ(ResolveTemplateDirs().chosen, U16(root() / "one"));
  EXPECT_TRUE(fs::is_empty(root() / "one"));
}

TEST_F(TemplateDirsTest, WhereNoneIsWritableTheDefaultIsOfferedAndTheListIsKept) {
  setenv("TMPDIR", "/proc", 1);
  WriteFile(Own(), Line("/a") + Line("/b"));
  const TemplateDirs dirs = ResolveTemplateDirs();
  EXPECT_EQ(dirs.chosen, Default());
  EXPECT_EQ(dirs.locations, (U16List{u"/a", u"/b"}));
}

TEST_F(TemplateDirsTest, WhetherADirectoryIsWritableIsAskedOfTheTemporaryDirectory) {
  EXPECT_TRUE(IsDirectoryWritable(u"/proc"));
  EXPECT_TRUE(fs::is_empty(tmp()));
  setenv("TMPDIR", "/proc", 1);
  EXPECT_FALSE(IsDirectoryWritable(U16(root())));
  unsetenv("TMPDIR");
  EXPECT_TRUE(IsDirectoryWritable(U16(root())));
  EXPECT_FALSE(IsDirectoryWritable(u"/proc"));
}

// A command of that name in front of the system's sees what file is made.
TEST_F(TemplateDirsTest, TheTemporaryFileThatAsksIsNamedAfterThePlatform) {
  WriteFile(root() / "bin/touch", "#!/bin/sh\necho \"$1\" > " + (root() / "seen").string() + "\n");
  fs::permissions(root() / "bin/touch", fs::perms::owner_all);
  const std::string path = std::getenv("PATH");
  setenv("PATH", ((root() / "bin").string() + ":" + path).c_str(), 1);
  EXPECT_TRUE(IsDirectoryWritable(U16(root())));
  setenv("PATH", path.c_str(), 1);
  const std::string seen = ReadFile(root() / "seen");
  EXPECT_TRUE(seen.starts_with((tmp() / "Orbex").string())) << seen;
}

TEST_F(TemplateDirsTest, NoFileIsMadeInATemporaryDirectoryWhoseNameLosesBits) {
  const fs::path lossy = root() / "\U0001F600";
  fs::create_directory(lossy);
  setenv("TMPDIR", lossy.c_str(), 1);
  EXPECT_FALSE(IsDirectoryWritable(U16(root())));
  EXPECT_TRUE(fs::is_empty(lossy));
}

TEST_F(TemplateDirsTest, ADirectoryWithNoNarrowFormIsNotWritable) {
  EXPECT_FALSE(IsDirectoryWritable(u"/\xD800"));
  EXPECT_FALSE(IsDirectoryWritable(stdx::u16string(u"/tmp/\0/t", 8)));
}

TEST_F(TemplateDirsTest, OfTwoLauncherFilesTheOrdinaryOneGivesTheList) {
  WriteFile(Own(), "a=1\n");
  WriteFile(Alt(), Line("/alt"));
  const TemplateDirs dirs = ResolveTemplateDirs();
  EXPECT_TRUE(dirs.locations.empty());
  EXPECT_TRUE(dirs.altProfileExists);
  EXPECT_FALSE(dirs.locationsFromAltProfile);
}

// An empty first line is an empty directory, to which the system prefers its own.
TEST_F(TemplateDirsTest, ARecordedEmptyLineMakesTheChosenDirectoryEmpty) {
  fs::create_directories(root() / "good");
  WriteFile(Own(), Line("") + Line(root() / "good"));
  const TemplateDirs dirs = ResolveTemplateDirs();
  EXPECT_EQ(dirs.chosen, u"");
  EXPECT_EQ(dirs.locations, (U16List{u"", U16(root() / "good")}));
}

TEST_F(TemplateDirsTest, ADirectoryBehindABlockThatCannotBeDecodedIsOffered) {
  WriteFile(Own(), "bad=\xFF" + std::string(1018, '#') + "\n" + Line(tmp()));
  EXPECT_EQ(ResolveTemplateDirs().chosen, U16(tmp()));
}

TEST_F(TemplateDirsTest, ADirectoryThatCannotBeComparedEndsTheList) {
  WriteFile(Own(), Line("\\\xF0\x9D\xA0\x80"));
  WriteFile(Product(), Line(tmp()));
  const TemplateDirs dirs = ResolveTemplateDirs();
  EXPECT_EQ(dirs.locations, (U16List{u"/\xD800"}));
  EXPECT_EQ(dirs.chosen, Default());
}

// --- Who gets rewritten ------------------------------------------------------------------------

struct RecordCase {
  const char* rule;
  std::optional<std::string> own, alt, product;  // before; nothing: no such file
  std::optional<std::string> own_after, alt_after;
};

TEST_F(TemplateDirsTest, AnInstallationIsRecordedInTheseFiles) {
  const std::string t = Line("/t"), a = Line("/a"), b = Line("/b"), c = Line("/c");
  const std::optional<std::string> none;
  const RecordCase cases[] = {
      {"no file: the ordinary one is made", none, none, none, t, none},
      {"only the product's: the ordinary one is made, without its directories", none, none, c, t,
       none},
      {"the ordinary one", "x=1\n" + a, none, none, "x=1\n" + t + a, none},
      {"the ordinary one without directories", "x=1\n", none, none, "x=1\n" + t, none},
      {"the ordinary one, with the product's directories", a, none, c, t + a + c, none},
      {"the alternate one with directories: it alone", none, "y=1\n" + b, none, none,
       "y=1\n" + t + b},
      {"the alternate one with directories, and the product's: it alone", none, b, c, none, t + b},
      {"the alternate one without directories: both", none, "y=1\n", none, t, "y=1\n" + t},
      {"both: both, with the list of the ordinary one", "x=1\n" + a, "y=1\n" + b, none,
       "x=1\n" + t + a, "y=1\n" + t + a},
      {"both, no directories in the ordinary one: the alternate one's are replaced", "x=1\n",
       b + "y=1\n", none, "x=1\n" + t, t + "y=1\n"},
      {"an empty ordinary file counts as one", "", b, none, t, t},
      {"the directory is in the list already", a + Line("/T/"), none, none, t + a, none},
      {"what cannot be decoded goes", "x=1\n" + a + "\xFF\n", none, none, t, none},
      {"what a character has lost is lost in the file", Line("/\xF0\x9F\x98\x80"), none, none,
       t + Line("/\xEF\x98\x80"), none},
  };
  for (const RecordCase& row : cases) {
    SCOPED_TRACE(row.rule);
    fs::remove_all(home());
    fs::create_directories(home());
    if (row.own) WriteFile(Own(), *row.own);
    if (row.alt) WriteFile(Alt(), *row.alt);
    if (row.product) WriteFile(Product(), *row.product);

    TemplateDirs dirs = ResolveTemplateDirs();
    RecordTemplateDir(u"/t", dirs.locations, dirs.locationsFromAltProfile, dirs.altProfileExists);

    const auto now = [](const fs::path& path) {
      return fs::exists(path) ? std::optional(ReadFile(path)) : std::nullopt;
    };
    EXPECT_EQ(now(Own()), row.own_after);
    EXPECT_EQ(now(Alt()), row.alt_after);
    EXPECT_EQ(now(Product()), row.product);
  }
}

// U+29E3D loses its upper bits and is U+9E3D then: two names of one directory, of which the one
// that was installed into is written.
TEST_F(TemplateDirsTest, TheDirectoryInstalledIntoIsRecordedAlsoWhereACutOneLooksLikeIt) {
  const std::string cut = "/\xF0\xA9\xB8\xBD", real = "/\xE9\xB8\xBD";
  WriteFile(Own(), "X=" + real + "\n" + Line(cut));
  WriteFile(Product(), "X=" + cut + "\n");
  TemplateDirs dirs = ResolveTemplateDirs();
  RecordTemplateDir(U16(real), dirs.locations, dirs.locationsFromAltProfile, dirs.altProfileExists);
  EXPECT_EQ(ReadFile(Own()), "X=" + real + "\n" + Line(real));
}

TEST_F(TemplateDirsTest, ARecordedLineWithNoNarrowFormIsReplacedByWhatIsSaved) {
  WriteFile(Own(), "configurationtemplateslocation=\\\xF0\x9D\xA0\x80\n");
  SaveTemplateLocations({u"/t"}, false);
  EXPECT_EQ(ReadFile(Own()), "configurationtemplateslocation=/t\n");
}

TEST_F(TemplateDirsTest, EachOfTwoFilesIsSavedWhateverBecomesOfTheOther) {
  for (const bool own_fails : {true, false}) {
    SCOPED_TRACE(own_fails);
    fs::remove_all(home());
    fs::create_directories(own_fails ? Own() : Alt());  // a directory in its place
    WriteFile(own_fails ? Alt() : Own(), Line("/b"));
    U16List locations{u"/b"};
    EXPECT_THROW(RecordTemplateDir(u"/t", locations, false, true), int);
    EXPECT_EQ(ReadFile(own_fails ? Alt() : Own()), Line("/t") + Line("/b"));
  }
}

}  // namespace
}  // namespace quarn::testing
