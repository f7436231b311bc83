#include "config/launcher_config.h"

#include <sys/stat.h>

#include <cstdlib>
#include <stdexcept>

#include "core/text.h"
#include "tests/config/config_support.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
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
  EXPECT_TRUE(Read(root() / "missing").entries.empty());
  EXPECT_TRUE(Read(root() / "missing" / "too").entries.empty());
  EXPECT_TRUE(Read(root()).entries.empty());
  ConfigEntryList list;
  EXPECT_THROW(ReadConfigFile(u"/\xD800", list), std::length_error);
}

// Reading one of these would never end.
TEST_F(LauncherConfigTest, PipesAndCharacterDevicesAreNotRead) {
  fs::create_symlink("/dev/zero", root() / "zero");
  fs::create_symlink("/dev/urandom", root() / "random");
  ASSERT_EQ(mkfifo((root() / "pipe").c_str(), 0600), 0);
  for (const char* const name : {"zero", "random", "pipe"}) {
    EXPECT_TRUE(Read(root() / name).entries.empty()) << name;
  }
}

TEST_F(LauncherConfigTest, ADeviceIsWrittenToWithoutBeingRead) {
  fs::create_symlink("/dev/zero", root() / "zero");
  ConfigEntryList list = ReadText("a=1\n");
  list.is_partial = true;
  WriteConfigFile(U16(root() / "zero"), list);
  EXPECT_FALSE(fs::exists(root() / "zero.orig")) << "nothing in it can be lost";
}

// --- What the locale cannot decode or express --------------------------------------------------

TEST_F(LauncherConfigTest, ABlockThatCannotBeDecodedIsPassedOver) {
  const std::string filler(1024 - 5, '#');
  EXPECT_EQ(EntriesOf(ReadText(Padded("a=1\n", 1024) + Padded("b=2\nc=\xFF\n", 1024) + "d=4\n")),
            (Entries{{u"a", {u"1"}}, {U16(filler), {u""}}, {u"d", {u"4"}}}));
  EXPECT_EQ(EntriesOf(ReadText(Padded("b=2\nc=\xFF\n", 1024) + "d=4\n")), (Entries{{u"d", {u"4"}}}))
      << "also the first one";
}

TEST_F(LauncherConfigTest, ALineThatRunsThroughABlockPassedOverLosesItsMiddle) {
  const std::string head = Padded("a=1\n", 1000) + "k=" + std::string(22, 'x');
  ASSERT_EQ(head.size(), 1024u);
  const ConfigEntryList list = ReadText(head + std::string(1023, 'y') + "\xFF" + "end\nb=2\n");
  const auto* const values = FindConfigValues(list, u"k");
  ASSERT_NE(values, nullptr);
  EXPECT_EQ(*values, (U16List{U16(std::string(22, 'x') + "end")}));
  EXPECT_NE(FindConfigValues(list, u"b"), nullptr);
}

TEST_F(LauncherConfigTest, ACharacterOnTheBorderOfBlocksIsNotPutTogether) {
  const std::string file =
      std::string(1021, 'x') + "=\n\xC3\xA9=1\n" + std::string(1018, 'y') + "=\nz=1\n";
  ASSERT_EQ(file.substr(1023, 2), "\xC3\xA9");
  EXPECT_EQ(EntriesOf(ReadText(file)), (Entries{{u"z", {u"1"}}}));
  // One byte earlier it fits.
  EXPECT_EQ(ReadText(file.substr(1)).entries.size(), 4u);
}

TEST_F(LauncherConfigTest, WhatAZeroByteHidesEndsWithItsBlock) {
  using namespace std::string_literals;
  const std::string block = Padded("a=1\nb=2\0hidden\nc=3\n"s, 1024);
  EXPECT_EQ(EntriesOf(ReadText(block + "x\nd=4\n")),
            (Entries{{u"a", {u"1"}}, {u"b", {u"2x"}}, {u"d", {u"4"}}}));
}

TEST_F(LauncherConfigTest, WhatIsWrittenIsTheTextThatWasReadAndNothingElse) {
  using namespace std::string_view_literals;
  struct Row {
    const char* rule;
    std::string_view before, after;
  };
  for (const Row& row : {
           Row{"an undecodable block goes", "a=1\nb=\xFF\n", ""},
           Row{"what a zero byte hides goes", "a=1\nb=2\0c\nd=4\n"sv, "a=1\nb=2\n"},
           Row{"a character above U+FFFF is cut", "k=a\xF0\x9F\x98\x80z\n", "k=a\xEF\x98\x80z\n"},
           Row{"also in a key", "\xF0\x9F\x98\x80=v\n", "\xEF\x98\x80=v\n"},
           Row{"values that are the same after the cut become one",
               "k=\xF0\x9F\x98\x80\nk=\xF0\xAF\x98\x80\nk=\xEF\x98\x80\nl=1\n",
               "k=\xEF\x98\x80\nl=1\n"},
           Row{"in any letter case", "K=a\xF0\x9F\x98\x80\nk=A\xEF\x98\x80\n", "K=a\xEF\x98\x80\n"},
           Row{"keys too", "\xF0\x9F\x98\x80=1\n\xEF\x98\x80=2\n",
               "\xEF\x98\x80=1\n\xEF\x98\x80=2\n"},
           Row{"U+1003D leaves a =", "k\xF0\x90\x80\xBDv\n", "k=v\n"},
           Row{"U+1000A leaves a line feed", "k=v\xF0\x90\x80\x8Al\n", "k=v\nl=\n"},
           Row{"U+10000 leaves a zero unit, which ends the text written", "k=v\xF0\x90\x80\x80z\n",
               "k=v\n"},
           Row{"a UTF-16 file is not understood",
               "\xFF\xFE"
               "a\0=\0"
               "1\0\n\0"sv,
               ""},
       }) {
    SCOPED_TRACE(row.rule);
    EXPECT_EQ(Rewritten(row.before), row.after);
  }
}

// The first text is compared with nothing.
TEST_F(LauncherConfigTest, ComparingATextWithNoNarrowFormThrows) {
  ConfigEntryList list;
  EXPECT_TRUE(AddConfigValue(list, u"k", u"a\xD800"));
  EXPECT_THROW(AddConfigValue(list, u"k", u"b"), std::length_error);
  EXPECT_THROW(AddConfigValue(list, u"K", u"a\xD800"), std::length_error);
  EXPECT_THROW(AddConfigValue(list, u"l\xD800", u"b"), std::length_error);
  EXPECT_THROW(FindConfigValues(list, u"k\xD800"), std::length_error);
  EXPECT_THROW(SetConfigValues(list, u"k\xD800", {}), std::length_error);
  EXPECT_TRUE(AddConfigValue(list, u"l", u"b"));
  EXPECT_EQ(EntriesOf(list), (Entries{{u"k", {u"a\xD800"}}, {u"l", {u"b"}}}));

  ConfigEntryList first;
  EXPECT_EQ(FindConfigValues(first, u"\xD800"), nullptr);
  EXPECT_TRUE(AddConfigValue(first, u"k\xD800", u"1"));
  EXPECT_THROW(AddConfigValue(first, u"l", u"1"), std::length_error);
  EXPECT_THROW(FindConfigValues(first, u"l"), std::length_error);
}

TEST_F(LauncherConfigTest, ValuesAreComparedInTheirOrderUpToAnEqualOne) {
  ConfigEntryList list;
  SetConfigValues(list, u"k", {u"a", u"\xD800", u"b"});
  EXPECT_FALSE(AddConfigValue(list, u"k", u"A"));
  EXPECT_THROW(AddConfigValue(list, u"k", u"b"), std::length_error);
}

TEST_F(LauncherConfigTest, ReadingEndsAtAComparisonThatThrowsAndKeepsTheLinesBefore) {
  WriteFile(root() / "f", "a=1\nk=\xF0\x9D\xA0\x80\nk=2\nb=3\n");
  ConfigEntryList list;
  EXPECT_THROW(ReadConfigFile(U16(root() / "f"), list), std::length_error);
  EXPECT_TRUE(list.is_partial);
  EXPECT_EQ(EntriesOf(list), (Entries{{u"a", {u"1"}}, {u"k", {u"\xD800"}}}));
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
  EXPECT_EQ(list.entries.size(), 1u);
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

// Two equal values are compared as one.
TEST_F(LauncherConfigTest, EveryValueAddedToEqualOnesIsFoundAgain) {
  ConfigEntryList list;
  SetConfigValues(list, u"k", {u"x", u"X", u"y"});
  EXPECT_TRUE(AddConfigValue(list, u"k", u"z"));
  for (const char16_t* const value : {u"x", u"y", u"z"}) {
    EXPECT_FALSE(AddConfigValue(list, u"k", value));
  }
  EXPECT_EQ(EntriesOf(list), (Entries{{u"k", {u"x", u"X", u"y", u"z"}}}));
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

}  // namespace
}  // namespace quarn::testing
