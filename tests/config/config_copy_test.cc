// The copy of a launcher's file that was not understood to its last byte.
#include <cstdlib>

#include "tests/config/config_support.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

class ConfigCopyTest : public ScratchTest {
 protected:
  fs::path File() const { return root() / "q.cfg"; }
  fs::path Copy() const { return root() / "q.cfg.orig"; }

  /// Rewrites a file with these bytes, as the wizard does, and counts the files next to it.
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
      {"far after the lines", Padded("a=1\n", 5000) + "\xFF"},
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

}  // namespace
}  // namespace quarn::testing
