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

/// `text` and a filler line, `size` bytes in all.
std::string Padded(std::string text, std::size_t size) {
  return text + std::string(size - text.size() - 1, '#') + "\n";
}

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

// Two equal values have one place among the compared ones.
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

// --- The copy beside the file ------------------------------------------------------------------

class ConfigCopyTest : public LauncherConfigTest {
 protected:
  fs::path File() const { return root() / "q.cfg"; }
  fs::path Copy() const { return root() / "q.cfg.orig"; }

  /// Rewrites a file with these bytes, as the wizard does. What else lies about is counted.
  void Rewrite(std::string_view bytes) {
    WriteFile(File(), bytes);
    RewriteAgain();
  }
  void RewriteAgain() {
    ConfigEntryList list = Read(File());
    SetConfigValues(list, kTemplatesLocationKey, {u"/t"});
    WriteConfigFile(U16(File()), list);
  }
  std::size_t FilesBeside() const {
    std::size_t files = 0;
    for (const auto& entry : fs::directory_iterator(root())) files += entry.is_regular_file();
    return files - 1;
  }
};

TEST_F(ConfigCopyTest, IsMadeOfAFileThatIsNotUnderstoodToItsLastByte) {
  using namespace std::string_literals;
  const std::pair<const char*, std::string> rows[] = {
      {"an undecodable byte", "a=1\nb=\xFF\n"},
      {"far behind", Padded("a=1\n", 5000) + "\xFF"},
      {"a character on the border of blocks", std::string(1023, 'x') + "\xC3\xA9\n"},
      {"a cut character", "a=\xF0\x9F\x98\x80\n"},
      {"a cut character with no narrow form",
       "a=1\nConfigurationTemplatesLocation=\xF0\x9D\xA0\x80\n"},
      {"a zero byte", "a=1\0\n"s},
      {"UTF-16",
       "\xFF\xFE"
       "a\0=\0"
       "1\0\n\0"s},
  };
  for (const auto& [rule, bytes] : rows) {
    SCOPED_TRACE(rule);
    fs::remove(Copy());
    Rewrite(bytes);
    ASSERT_TRUE(fs::exists(Copy()));
    EXPECT_EQ(ReadFile(Copy()), bytes);
    EXPECT_TRUE(ReadFile(File()).ends_with("ConfigurationTemplatesLocation=/t\n"));
    EXPECT_EQ(FilesBeside(), 1u) << "nothing else is left";
    EXPECT_EQ(fs::status(Copy()).permissions(), fs::perms::owner_read | fs::perms::owner_write)
        << "it is the user's alone";
  }
}

// In an eight-bit locale every byte is a character, also those of the mark.
TEST_F(ConfigCopyTest, IsMadeOfAUtf16FileInALocaleThatDecodesIt) {
  const std::string locale = (root() / "koi8.KOI8-R").string();
  if (std::system(("localedef -c -i C -f KOI8-R " + locale + " 2>/dev/null").c_str()) != 0) {
    GTEST_SKIP() << "no sources of locales on this system";
  }
  setenv("LOCPATH", root().c_str(), 1);
  setenv("LC_ALL", "koi8.KOI8-R", 1);
  WriteFile(File(), "\xFF\xFE\x14\x04\x3E\x04");  // the mark, and a word of two Cyrillic letters
  RewriteAgain();
  EXPECT_TRUE(fs::exists(Copy()));
  fs::remove(Copy());
  Rewrite("\xC4\xCF\xCD=1\n");
  EXPECT_FALSE(fs::exists(Copy())) << "what the locale reads and writes needs none";
  unsetenv("LOCPATH");
}

TEST_F(ConfigCopyTest, IsNotMadeOfAFileThatIsUnderstood) {
  for (const std::string& bytes : {std::string(), std::string("# a\r\n\n=\nA=1\na=1\nk"),
                                   Padded("k=\xC3\xA9\xE6\x97\xA5\n", 3000)}) {
    Rewrite(bytes);
    EXPECT_EQ(FilesBeside(), 0u) << bytes;
  }
  fs::remove(File());
  RewriteAgain();
  EXPECT_EQ(FilesBeside(), 0u) << "of no file neither";
}

TEST_F(ConfigCopyTest, IsMadeOfAFileThatWasNotReadToItsEnd) {
  WriteFile(File(), "a=1\nb=2\n");
  ConfigEntryList list;
  AddConfigValue(list, u"a", u"1");
  list.is_partial = true;
  WriteConfigFile(U16(File()), list);
  EXPECT_EQ(ReadFile(Copy()), "a=1\nb=2\n");
  EXPECT_EQ(ReadFile(File()), "a=1\n");
}

TEST_F(ConfigCopyTest, IsMadeOnceAndNeverWrittenOver) {
  Rewrite("first=\xFF\n");
  Rewrite("second=\xFF\n");
  EXPECT_EQ(ReadFile(Copy()), "first=\xFF\n");
  EXPECT_EQ(ReadFile(File()), "ConfigurationTemplatesLocation=/t\n") << "the rewrite goes on";

  fs::remove(Copy());
  fs::create_symlink("nowhere", Copy());
  Rewrite("third=\xFF\n");
  EXPECT_TRUE(fs::is_symlink(Copy())) << "whatever has the name keeps it";
  EXPECT_FALSE(fs::exists(root() / "nowhere"));
  EXPECT_EQ(FilesBeside(), 0u);
}

TEST_F(ConfigCopyTest, ThatCannotBeMadeKeepsTheFileFromBeingRewritten) {
  // The name is as long as a name may be, so there is none for a copy.
  const fs::path file = root() / std::string(255, 'n');
  WriteFile(file, "a=1\nb=\xFF\n");
  int code = 0;
  try {
    WriteConfigFile(U16(file), Read(file));
  } catch (int thrown) {
    code = thrown;
  }
  EXPECT_EQ(code, 1);
  EXPECT_EQ(ReadFile(file), "a=1\nb=\xFF\n");
  WriteFile(file, "a=1\n");
  WriteConfigFile(U16(file), Read(file));  // where none is needed, none is missed
}

// --- The file ----------------------------------------------------------------------------------

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
  EXPECT_TRUE(IsNotUnicodeFile(U16(root()))) << "opens, and cannot be read";
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
