#include "config/launcher_config.h"

#include <sys/stat.h>

#include <cstdlib>
#include <stdexcept>

#include "core/text.h"
#include "tests/config/config_support.h"

namespace quarn::testing {
namespace {

using U16List = std::vector<stdx::u16string>;

class LauncherConfigTest : public ScratchTest {
 protected:
  ConfigEntryList ReadText(std::string_view bytes) { return ReadBytes(root(), bytes); }
  std::string Rewritten(std::string_view bytes) {
    WriteFile(root() / "written.cfg", bytes);
    return WrittenBytes(root(), Read(root() / "written.cfg"));
  }
};

// --- Line syntax -------------------------------------------------------------------------------

struct SyntaxCase {
  const char* rule;
  std::string_view file;
  Entries entries;
};

TEST_F(LauncherConfigTest, LinesAreReadByTheseRules) {
  using namespace std::string_view_literals;
  const SyntaxCase cases[] = {
      {"an empty file has no entries", "", {}},
      {"a line is key and value", "a=1\n", {{u"a", {u"1"}}}},
      {"same key and value in another letter case is one value",
       "a=1\nA=1\nA=2\n",
       {{u"a", {u"1", u"2"}}}},
      {"values are compared regardless of letter case too",
       "a=x\na=X\na=y\n",
       {{u"a", {u"x", u"y"}}}},
      {"the first = ends the key", "k==v\n", {{u"k", {u"=v"}}}},
      {"further = belong to the value", "k=a=b=\n", {{u"k", {u"a=b="}}}},
      {"a line without = is a key with an empty value", "novalue\n", {{u"novalue", {u""}}}},
      {"an empty value is a value", "k=\n", {{u"k", {u""}}}},
      {"a key may be empty", "=v\n", {{u"", {u"v"}}}},
      {"empty lines and a lone = are skipped", "\n=\n\na=1\n\n=\n", {{u"a", {u"1"}}}},
      {"blanks stay where they are", " k \t= v \t\n", {{u" k \t", {u" v \t"}}}},
      {"a line of blanks is a key", "  \n", {{u"  ", {u""}}}},
      {"a carriage return stays in the value", "k=v\r\n", {{u"k", {u"v\r"}}}},
      {"a carriage return stays in a key without =", "k\r\n", {{u"k\r", {u""}}}},
      {"a lone carriage return is a key", "\r\n", {{u"\r", {u""}}}},
      {"values that differ by a carriage return are two", "k=v\nk=v\r\n", {{u"k", {u"v", u"v\r"}}}},
      {"there are no comments and no sections",
       "#a=1\n;b\n[c]\n",
       {{u"#a", {u"1"}}, {u";b", {u""}}, {u"[c]", {u""}}}},
      {"the last line needs no line feed", "a=1\nb=2", {{u"a", {u"1"}}, {u"b", {u"2"}}}},
      {"the last line may be a lone key", "a=1\nb", {{u"a", {u"1"}}, {u"b", {u""}}}},
      {"the last line may be a lone =", "a=1\n=", {{u"a", {u"1"}}}},
      {"entries keep the order of their keys' first lines",
       "b=1\na=1\nB=2\n",
       {{u"b", {u"1", u"2"}}, {u"a", {u"1"}}}},
      {"text is in the locale's encoding", "k\xC3\xA9=\xE6\x97\xA5\n", {{u"k\u00E9", {u"\u65E5"}}}},
      {"letter case counts outside of ASCII in UTF-8",
       "\xC3\xA9=1\n\xC3\x89=1\n",
       {{u"\u00E9", {u"1"}}, {u"\u00C9", {u"1"}}}},
      {"a UTF-8 mark is the first key's first character",
       "\xEF\xBB\xBF"
       "a=1\n",
       {{u"\uFEFFa", {u"1"}}}},
      {"characters beyond U+FFFF lose their upper bits",
       "k=\xF0\x9F\x98\x80\n",
       {{u"k", {u"\uF600"}}}},
      {"a zero byte ends the text of its block",
       "a=1\nb=2\0c=3\n"sv,
       {{u"a", {u"1"}}, {u"b", {u"2"}}}},
  };
  for (const SyntaxCase& c : cases) {
    SCOPED_TRACE(c.rule);
    EXPECT_EQ(EntriesOf(ReadText(c.file)), c.entries);
  }
}

TEST_F(LauncherConfigTest, LinesOfAnyLengthAreReadWhole) {
  for (const std::size_t length : {1023u, 1024u, 1025u, 2047u, 2048u, 2049u, 4096u, 10000u}) {
    SCOPED_TRACE(length);
    const std::string key(length, 'k');
    const std::string value(length, 'v');
    const ConfigEntryList list = ReadText(key + "=" + value + "\na=1\n");
    EXPECT_EQ(EntriesOf(list),
              (Entries{{U16(std::string(length, 'k')), {U16(std::string(length, 'v'))}},
                       {u"a", {u"1"}}}));
  }
}

TEST_F(LauncherConfigTest, ABlockThatIsFullIsReadToItsEnd) {
  for (const std::size_t size : {1023u, 1024u, 1025u, 2048u, 3072u}) {
    SCOPED_TRACE(size);
    const std::string value(size - 2, 'v');
    EXPECT_EQ(EntriesOf(ReadText("k=" + value)),
              (Entries{{u"k", {U16(std::string(size - 2, 'v'))}}}));
  }
}

TEST_F(LauncherConfigTest, FilesAddToWhatTheListHolds) {
  WriteFile(root() / "1", "a=1\n");
  WriteFile(root() / "2", "A=2\nb=1\na=1\n");
  ConfigEntryList list;
  ReadConfigFile(U16(root() / "1"), list);
  ReadConfigFile(U16(root() / "2"), list);
  EXPECT_EQ(EntriesOf(list), (Entries{{u"a", {u"1", u"2"}}, {u"b", {u"1"}}}));
}

TEST_F(LauncherConfigTest, FilesThatCannotBeReadAddNothing) {
  EXPECT_TRUE(Read(root() / "missing").empty());
  EXPECT_TRUE(Read(root() / "missing" / "too").empty());
  EXPECT_TRUE(Read(root()).empty());
  ConfigEntryList list;
  ReadConfigFile(u"/\xD800", list);
  EXPECT_TRUE(list.empty());
}

// --- What the locale cannot decode or express --------------------------------------------------

TEST_F(LauncherConfigTest, ABlockThatCannotBeDecodedEndsTheReadingAndTheRestIsWrittenBack) {
  const std::string good(500, 'g');
  const std::string before = "a=1\nb=" + good + "\nc=" + good + "\n";  // 1010 bytes
  ASSERT_EQ(before.size(), 1010u);
  // The line begins in the first block; the second one is bad somewhere.
  const std::string rest =
      "d=begun in the good block\ne=2\nf=\xFF\ng=3\n" + std::string(2000, 'z') + "\nlast";
  const ConfigEntryList list = ReadText(before + rest);
  const stdx::u16string long_value(500, u'g');
  EXPECT_EQ(EntriesOf(list), (Entries{{u"a", {u"1"}}, {u"b", {long_value}}, {u"c", {long_value}}}));
  EXPECT_EQ(list.unread(), rest);
  EXPECT_EQ(WrittenBytes(root(), list), before + rest);
}

TEST_F(LauncherConfigTest, ALineThatReadingBrokeOffInIsNotTakenHalf) {
  const std::string before(1019, 'x');
  const ConfigEntryList list = ReadText(before + "\nk=v" + "alue\xFF\n");
  EXPECT_EQ(EntriesOf(list), (Entries{{U16(std::string(1019, 'x')), {u""}}}));
  EXPECT_EQ(list.unread(), "k=value\xFF\n");
}

TEST_F(LauncherConfigTest, ACharacterOnTheBorderOfBlocksIsNotPutTogether) {
  const std::string file = std::string(1021, 'x') + "=\n\xC3\xA9=1\n";
  ASSERT_EQ(file.substr(1023, 2), "\xC3\xA9");
  const ConfigEntryList list = ReadText(file);
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(list.unread(), file);
  // One byte earlier it fits.
  EXPECT_EQ(ReadText(file.substr(1)).size(), 2u);
}

TEST_F(LauncherConfigTest, WhatIsChangedGoesBeforeWhatCouldNotBeRead) {
  ConfigEntryList list = ReadText("bad=\xFF\nConfigurationTemplatesLocation=/old");
  SetConfigValues(list, kTemplatesLocationKey, {u"/new"});
  EXPECT_EQ(WrittenBytes(root(), list),
            "ConfigurationTemplatesLocation=/new\nbad=\xFF\nConfigurationTemplatesLocation=/old");
}

TEST_F(LauncherConfigTest, UnreadPartsOfTwoFilesStayOnLinesOfTheirOwn) {
  WriteFile(root() / "1", "x\xFF");
  WriteFile(root() / "2", "y\xFF");
  ConfigEntryList list;
  ReadConfigFile(U16(root() / "1"), list);
  ReadConfigFile(U16(root() / "2"), list);
  EXPECT_EQ(list.unread(), "x\xFF\ny\xFF");
}

TEST_F(LauncherConfigTest, UnitsThatNoConversionCanExpressAreReadAndWrittenBackAsTheyWere) {
  // U+1D800 and U+2D800 both leave the lone surrogate D800 behind.
  const std::string file =
      "a=1\n"
      "CommonInfoBases=/\xF0\x9D\xA0\x80/x\n"
      "CommonInfoBases=/y\n"
      "k\xF0\x9D\xA0\x80=2\n"
      "CommonInfoBases=/\xF0\x9D\xA0\x80/z\n"
      "\xF0\x9D\xA0\x80\n"
      "b=3\n";
  const ConfigEntryList list = ReadText(file);
  EXPECT_EQ(EntriesOf(list), (Entries{{u"a", {u"1"}},
                                      {u"CommonInfoBases", {u"/\xD800/x", u"/y", u"/\xD800/z"}},
                                      {u"k\xD800", {u"2"}},
                                      {u"\xD800", {u""}},
                                      {u"b", {u"3"}}}));
  EXPECT_EQ(WrittenBytes(root(), list),
            "a=1\n"
            "CommonInfoBases=/\xF0\x9D\xA0\x80/x\n"
            "CommonInfoBases=/y\n"
            "CommonInfoBases=/\xF0\x9D\xA0\x80/z\n"
            "k\xF0\x9D\xA0\x80=2\n"
            "\xF0\x9D\xA0\x80\n"
            "b=3\n");
}

TEST_F(LauncherConfigTest, CharactersThatLoseBitsAreWrittenBackAsTheyWere) {
  // The last three leave "=", a line feed and a zero unit behind.
  for (const std::string_view file :
       {"k=a\xF0\x9F\x98\x80z\n", "\xF0\x9F\x98\x80=v\n", "\xF0\x9F\x98\x80\n",
        "k\xF0\x90\x80\xBDv\n", "k=v\xF0\x90\x80\x8A\n", "k=v\xF0\x90\x80\x80z\n"}) {
    SCOPED_TRACE(file);
    EXPECT_EQ(Rewritten(file), file);
    EXPECT_EQ(Rewritten(Rewritten(file)), file);
  }
}

TEST_F(LauncherConfigTest, ARemovedOrReplacedValueTakesItsBytesAlong) {
  ConfigEntryList list = ReadText("k=\xF0\x9F\x98\x80\nl=1\n");
  SetConfigValues(list, u"k", {u"other", u"\uF600"});
  EXPECT_EQ(WrittenBytes(root(), list), "k=other\nk=\xF0\x9F\x98\x80\nl=1\n");
  SetConfigValues(list, u"k", {});
  EXPECT_EQ(WrittenBytes(root(), list), "l=1\n");
}

TEST_F(LauncherConfigTest, CharactersThatBecomeTheSameAreBothKept) {
  EXPECT_EQ(Rewritten("k=\xF0\x9F\x98\x80\nk=\xF0\xAF\x98\x80\nk=\xF0\x9F\x98\x80\nl=1\n"),
            "k=\xF0\x9F\x98\x80\nl=1\nk=\xF0\xAF\x98\x80\n");
}

TEST_F(LauncherConfigTest, BytesThatAZeroByteHidesAreWrittenBack) {
  using namespace std::string_view_literals;
  EXPECT_EQ(Rewritten("a=1\nb=2\0hidden\nc=3\n"sv), "a=1\nb=2\0hidden\nc=3\n"sv);
  EXPECT_EQ(Rewritten("a=1\n\0hidden\nc=3\n"sv), "a=1\n\0hidden\nc=3\n"sv);
  EXPECT_EQ(Rewritten("a=1\na=1\0hidden\nc=3"sv), "a=1\na=1\0hidden\nc=3\n"sv);
}

TEST_F(LauncherConfigTest, AUtf16FileIsNotUnderstoodAndBecomesTextWhenItIsRewritten) {
  const std::u16string text =
      u"\uFEFFa=1\r\nk=\u00E9\u65E5\U0001F600\nConfigurationTemplatesLocation=/old\n";
  std::string bytes;
  for (const char16_t unit : text) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  WriteFile(root() / "16.cfg", bytes);
  ASSERT_FALSE(IsNotUnicodeFile(U16(root() / "16.cfg")));
  ConfigEntryList list = Read(root() / "16.cfg");
  EXPECT_TRUE(list.empty());

  SetConfigValues(list, kTemplatesLocationKey, {u"/new"});
  WriteConfigFile(U16(root() / "16.cfg"), list);
  EXPECT_EQ(ReadFile(root() / "16.cfg"),
            "ConfigurationTemplatesLocation=/new\n"
            "a=1\r\nk=\xC3\xA9\xE6\x97\xA5\xF0\x9F\x98\x80\nConfigurationTemplatesLocation=/old\n");
  EXPECT_TRUE(IsNotUnicodeFile(U16(root() / "16.cfg")));
  EXPECT_EQ(EntriesOf(Read(root() / "16.cfg")),
            (Entries{{kTemplatesLocationKey, {u"/new", u"/old"}},
                     {u"a", {u"1\r"}},
                     {u"k", {u"\u00E9\u65E5\uF600"}}}));
}

TEST_F(LauncherConfigTest, AUtf16FileWithBrokenUnitsBecomesTextAsFarAsItGoes) {
  using namespace std::string_view_literals;
  WriteFile(root() / "16.cfg",
            "\xFF\xFE"
            "a\0\x00\xD8=\0\x00\xDC"
            "b\0c"sv);
  const ConfigEntryList list = Read(root() / "16.cfg");
  WriteConfigFile(U16(root() / "16.cfg"), list);
  EXPECT_EQ(ReadFile(root() / "16.cfg"), "a?=?b");
}

TEST_F(LauncherConfigTest, WithoutAUsableLocaleNothingIsLostEither) {
  setenv("LC_ALL", "C", 1);
  const std::string file = "a=1\nk=\xD0\x98\xD0\xB2\xD0\xB0\xD0\xBD\nb=2\n";
  EXPECT_EQ(Rewritten(file), file);
}

// --- The list ----------------------------------------------------------------------------------

TEST_F(LauncherConfigTest, AValueIsAddedOnceUnderItsKey) {
  ConfigEntryList list;
  EXPECT_TRUE(AddConfigValue(list, u"Key", u"one"));
  EXPECT_TRUE(AddConfigValue(list, u"KEY", u"two"));
  EXPECT_FALSE(AddConfigValue(list, u"key", u"ONE"));
  EXPECT_TRUE(StoreConfigLine(list, u"other", u"one"));
  EXPECT_EQ(EntriesOf(list), (Entries{{u"Key", {u"one", u"two"}}, {u"other", {u"one"}}}));
}

TEST_F(LauncherConfigTest, ComparisonEndsAtAZeroUnit) {
  ConfigEntryList list;
  const stdx::u16string key(u"a\0b", 3);
  EXPECT_TRUE(AddConfigValue(list, key, u"1"));
  EXPECT_FALSE(AddConfigValue(list, u"A", u"1"));
  EXPECT_FALSE(AddConfigValue(list, u"a", stdx::u16string(u"1\0x", 3)));
  EXPECT_EQ(list.size(), 1u);
}

TEST_F(LauncherConfigTest, TextWithNoNarrowFormEqualsOnlyItself) {
  ConfigEntryList list;
  EXPECT_TRUE(AddConfigValue(list, u"k\xD800", u"a\xD800"));
  EXPECT_FALSE(AddConfigValue(list, u"k\xD800", u"a\xD800"));
  EXPECT_TRUE(AddConfigValue(list, u"k\xD800", u"A\xD800"));
  EXPECT_TRUE(AddConfigValue(list, u"K\xD800", u"a\xD800"));
  EXPECT_TRUE(AddConfigValue(list, u"k", u"a"));
  EXPECT_EQ(EntriesOf(list), (Entries{{u"k\xD800", {u"a\xD800", u"A\xD800"}},
                                      {u"K\xD800", {u"a\xD800"}},
                                      {u"k", {u"a"}}}));
  EXPECT_EQ(FindConfigValues(list, u"k\xD801"), nullptr);
  // Nor does it equal a text whose bytes are those of its units.
  EXPECT_TRUE(AddConfigValue(list, u"a\u0600a", u"1"));
  EXPECT_TRUE(AddConfigValue(list, u"\xD861\x6180", u"1"));
}

TEST_F(LauncherConfigTest, LetterCaseIsFoldedAsTheLocaleFoldsIt) {
  // A single-byte locale, in which Cyrillic letters have a case: 0xC1 is the small form of 0xE1.
  const std::string locale = (root() / "koi8.KOI8-R").string();
  if (std::system(("localedef -c -i C -f KOI8-R " + locale + " 2>/dev/null").c_str()) != 0) {
    GTEST_SKIP() << "no sources of locales on this system";
  }
  setenv("LOCPATH", root().c_str(), 1);
  setenv("LC_ALL", "koi8.KOI8-R", 1);
  ConfigEntryList list = ReadText("\xC1=\xC2\n\xE1=\xE2\n\xE1=\xC3\n");
  EXPECT_EQ(EntriesOf(list), (Entries{{u"\u0430", {u"\u0431", u"\u0446"}}}));
  EXPECT_NE(FindConfigValues(list, u"\u0410"), nullptr);
  EXPECT_EQ(WrittenBytes(root(), list), "\xC1=\xC2\n\xC1=\xC3\n");
  unsetenv("LOCPATH");
}

TEST_F(LauncherConfigTest, ValuesAreFoundByTheirKey) {
  ConfigEntryList list;
  AddConfigValue(list, u"Key", u"1");
  ASSERT_NE(FindConfigValues(list, u"kEY"), nullptr);
  EXPECT_EQ(*FindConfigValues(list, u"kEY"), U16List{u"1"});
  EXPECT_EQ(FindConfigValues(list, u"Ke"), nullptr);
  EXPECT_EQ(FindConfigValues(list, u""), nullptr);
}

TEST_F(LauncherConfigTest, SettingValuesKeepsPlaceAndSpellingOfTheKey) {
  ConfigEntryList list = ReadText("a=1\nKey=1\nb=1\n");
  SetConfigValues(list, u"KEY", {u"x", u"y", u"X"});
  EXPECT_EQ(EntriesOf(list),
            (Entries{{u"a", {u"1"}}, {u"Key", {u"x", u"y", u"X"}}, {u"b", {u"1"}}}));
  EXPECT_FALSE(AddConfigValue(list, u"key", u"Y"));
  EXPECT_TRUE(AddConfigValue(list, u"key", u"1"));
}

TEST_F(LauncherConfigTest, SettingNoValuesRemovesTheEntryAndLaterOnesMoveUp) {
  ConfigEntryList list = ReadText("a=1\nb=1\nc=1\n");
  SetConfigValues(list, u"B", {});
  EXPECT_EQ(EntriesOf(list), (Entries{{u"a", {u"1"}}, {u"c", {u"1"}}}));
  EXPECT_TRUE(AddConfigValue(list, u"C", u"2"));
  EXPECT_TRUE(AddConfigValue(list, u"b", u"2"));
  EXPECT_EQ(EntriesOf(list), (Entries{{u"a", {u"1"}}, {u"c", {u"1", u"2"}}, {u"b", {u"2"}}}));
}

TEST_F(LauncherConfigTest, SettingNoValuesOfAnUnknownKeyMakesAnEntryThatWritesNoLine) {
  ConfigEntryList list = ReadText("a=1\n");
  SetConfigValues(list, u"new", {});
  EXPECT_EQ(EntriesOf(list), (Entries{{u"a", {u"1"}}, {u"new", {}}}));
  EXPECT_EQ(WrittenBytes(root(), list), "a=1\n");
}

TEST_F(LauncherConfigTest, AListMayBeGivenPartsOfItself) {
  ConfigEntryList list = ReadText("a=1\na=2\n");
  SetConfigValues(list, u"b", *FindConfigValues(list, u"a"));
  SetConfigValues(list, u"a", *FindConfigValues(list, u"a"));
  EXPECT_EQ(EntriesOf(list), (Entries{{u"a", {u"1", u"2"}}, {u"b", {u"1", u"2"}}}));
}

TEST_F(LauncherConfigTest, TheKeysAreNamedSo) {
  EXPECT_EQ(stdx::u16string(kDefaultVersionKey), u"DefaultVersion");
  EXPECT_EQ(stdx::u16string(kCommonInfoBasesKey), u"CommonInfoBases");
  EXPECT_EQ(stdx::u16string(kInstalledLocationKey), u"InstalledLocation");
  EXPECT_EQ(stdx::u16string(kDistributiveLocationKey), u"DistributiveLocation");
  EXPECT_EQ(stdx::u16string(kCommonCfgLocationKey), u"CommonCfgLocation");
  EXPECT_EQ(stdx::u16string(kInstallComponentsKey), u"InstallComponents");
  EXPECT_EQ(stdx::u16string(kTemplatesLocationKey), u"ConfigurationTemplatesLocation");
}

// --- Writing -----------------------------------------------------------------------------------

TEST_F(LauncherConfigTest, OtherKeysKeepValueAndOrderByteForByte) {
  const std::string before = "# hand-written\n DefaultVersion = 1.2 \r\nCommonInfoBases=/b\nX=\n";
  const std::string after = "CommonInfoBases2=/\xC3\xA9\nZ=a=b\n";
  ConfigEntryList list = ReadText(before + "ConfigurationTemplatesLocation=/old\n" + after);
  SetConfigValues(list, kTemplatesLocationKey, {u"d1", u"d2"});
  EXPECT_EQ(WrittenBytes(root(), list),
            "# hand-written=\n DefaultVersion = 1.2 \r\nCommonInfoBases=/b\nX=\n"
            "ConfigurationTemplatesLocation=d1\nConfigurationTemplatesLocation=d2\n" +
                after);
}

TEST_F(LauncherConfigTest, ValuesOfOneKeyAreWrittenTogetherAtItsFirstPlace) {
  EXPECT_EQ(Rewritten("a=1\nb=1\nA=2\nc=1\nB=2"), "a=1\na=2\nb=1\nb=2\nc=1\n");
}

TEST_F(LauncherConfigTest, AnEmptyListLeavesAnEmptyFile) {
  WriteFile(root() / "written.cfg", "a=1\n");
  EXPECT_EQ(WrittenBytes(root(), ConfigEntryList()), "");
}

TEST_F(LauncherConfigTest, TextIsWrittenUpToAZeroUnit) {
  ConfigEntryList list;
  AddConfigValue(list, stdx::u16string(u"k\0x", 3), stdx::u16string(u"v\0x", 3));
  EXPECT_EQ(WrittenBytes(root(), list), "k=v\n");
}

TEST_F(LauncherConfigTest, PercentSignsAreTextAsAnyOther) {
  EXPECT_EQ(Rewritten("%s%n=%d%%\n"), "%s%n=%d%%\n");
}

TEST_F(LauncherConfigTest, AFileIsRewrittenWhereItIsWithItsModeAndThroughALink) {
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

TEST_F(LauncherConfigTest, AFileIsUnicodeOnlyWithTheLittleEndianMark) {
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
}

// --- Places ------------------------------------------------------------------------------------

TEST_F(LauncherConfigTest, ThePathsAreThese) {
  setenv("HOME", "/h", 1);
  EXPECT_EQ(GetLauncherDir(), u"/h/.Orbex/qlaunch");
  EXPECT_EQ(GetLauncherCfgPath(), u"/h/.Orbex/qlaunch/qlaunch.cfg");
  EXPECT_EQ(GetProductHomeDir(), u"/h/.quarn/");
  EXPECT_EQ(GetProductLauncherDir(), u"/h/.quarn//.Orbex/qlaunch");
  EXPECT_EQ(GetProductLauncherCfgPath(), u"/h/.quarn//.Orbex/qlaunch/qlaunch.cfg");
  EXPECT_EQ(GetAltLauncherDir(), u"/h/.Orbex/qlauncht");
  EXPECT_EQ(GetAltLauncherCfgPath(), u"/h/.Orbex/qlauncht/qlaunch.cfg");
}

class LauncherFilesTest : public LauncherConfigTest {
 protected:
  std::filesystem::path Own() const { return home() / ".Orbex/qlaunch/qlaunch.cfg"; }
  std::filesystem::path Alt() const { return home() / ".Orbex/qlauncht/qlaunch.cfg"; }
  std::filesystem::path Product() const { return home() / ".quarn/.Orbex/qlaunch/qlaunch.cfg"; }
};

TEST_F(LauncherFilesTest, EachProfileReadsItsPairOfFiles) {
  WriteFile(Own(), "which=own\n");
  WriteFile(Alt(), "which=alt\n");
  WriteFile(Product(), "which=product\n");
  LauncherConfig ordinary;
  EXPECT_FALSE(ordinary.altProfile);
  LoadLauncherConfig(ordinary);
  EXPECT_EQ(EntriesOf(ordinary.own), (Entries{{u"which", {u"own"}}}));
  EXPECT_EQ(EntriesOf(ordinary.common), (Entries{{u"which", {u"product"}}}));
  EXPECT_TRUE(ordinary.extra.empty());

  LauncherConfig alternate;
  alternate.altProfile = true;
  LoadLauncherConfig(alternate);
  EXPECT_EQ(EntriesOf(alternate.own), (Entries{{u"which", {u"alt"}}}));
  EXPECT_EQ(EntriesOf(alternate.common), (Entries{{u"which", {u"own"}}}));
  EXPECT_TRUE(alternate.extra.empty());
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

TEST_F(LauncherFilesTest, MissingFilesLeaveTheListsEmpty) {
  LauncherConfig store;
  LoadLauncherConfig(store);
  EXPECT_TRUE(store.own.empty());
  EXPECT_TRUE(store.common.empty());
}

TEST_F(LauncherFilesTest, AHomeWithNoTextFormLeavesTheListsEmpty) {
  setenv("HOME", (home() / "\xFF").c_str(), 1);
  LauncherConfig store;
  LoadLauncherConfig(store);
  EXPECT_TRUE(store.own.empty());
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

TEST_F(LauncherFilesTest, AValueOfTheCommonFileIsWrittenToTheOwnFileAsItWasRead) {
  WriteFile(Product(), "ConfigurationTemplatesLocation=/\xF0\x9D\xA0\x80/\xF0\x9F\x98\x80\n");
  LauncherConfig store;
  LoadLauncherConfig(store);
  SetConfigValues(store.own, kTemplatesLocationKey,
                  *FindConfigValues(store.common, kTemplatesLocationKey));
  SaveLauncherConfig(store);
  EXPECT_EQ(ReadFile(Own()), ReadFile(Product()));
}

}  // namespace
}  // namespace quarn::testing
