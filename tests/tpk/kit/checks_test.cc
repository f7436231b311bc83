// The checks one by one are held against the golden kits; here is what no small kit can show.
#include "tpk/kit/checks.h"

#include <gtest/gtest.h>

#include <set>

#include "tpk/kit/kit_writer.h"
#include "tpk/kit/names.h"

namespace quarn::tpk {
namespace {

std::vector<std::string> Codes(const Findings& findings) {
  std::vector<std::string> codes;
  for (const Finding& finding : findings.all()) codes.push_back(finding.check->code);
  return codes;
}

std::vector<std::string> CodesOfName(const char16_t* name) {
  Findings findings;
  CheckName(stdx::u16string(name), findings);
  return Codes(findings);
}

using Strings = std::vector<std::string>;

TEST(Checks, HaveNamesOfTheirOwn) {
  std::set<std::string> codes;
  for (const Check& check : kChecks) EXPECT_TRUE(codes.insert(check.code).second) << check.code;
}

TEST(Checks, RefusalDependsOnErrorsUnlessStrict) {
  Findings findings;
  EXPECT_FALSE(findings.Refuse(true));
  findings.Add("no-files", "", "");
  EXPECT_FALSE(findings.Refuse(false));
  EXPECT_TRUE(findings.Refuse(true));
  findings.Add("name-climbs", "x", "");
  EXPECT_TRUE(findings.Refuse(false));
  EXPECT_EQ(findings.error_count(), 1u);
  EXPECT_EQ(findings.warning_count(), 1u);
}

TEST(Checks, OrdinaryNamesAreFine) {
  for (const char16_t* const name :
       {u"a\\b.txt", u"a b\\c (1).txt", u"..a\\b..", u"a\\...", u"счёт\\ж.xml", u"a\\.hidden",
        u"a;b\\c&d'e|f<g>h.txt", u"ab:c\\d:e", u":a"}) {
    EXPECT_EQ(CodesOfName(name), Strings()) << InstalledName(stdx::u16string(name));
  }
}

TEST(Checks, ANameIsFoundOutAtEveryPlace) {
  EXPECT_EQ(CodesOfName(u".."), Strings{"name-climbs"});
  EXPECT_EQ(CodesOfName(u"..\\a"), Strings{"name-climbs"});
  EXPECT_EQ(CodesOfName(u"a\\.."), Strings{"name-climbs"});
  EXPECT_EQ(CodesOfName(u"a/..\\b"), (Strings{"name-climbs", "name-slash"}));
  EXPECT_EQ(CodesOfName(u"c:a"), Strings{"name-drive"});
  EXPECT_EQ(CodesOfName(u"/a"), (Strings{"name-absolute", "name-slash"}));
  EXPECT_EQ(CodesOfName(u"\\\\server\\share"), Strings{"name-absolute"});
  EXPECT_EQ(CodesOfName(u"a\\b\n"), Strings{"name-control"});
  EXPECT_EQ(CodesOfName(u"\""), Strings{"name-shell"});
}

TEST(Checks, TheWholeNameMustLeaveRoomForATarget) {
  stdx::u16string name;
  for (int i = 0; i < 30; ++i) name += stdx::u16string(std::u16string(100, u'x')) + u"\\";
  name += stdx::u16string(std::u16string(42, u'x'));
  Findings findings;
  CheckName(name, findings);
  EXPECT_EQ(Codes(findings), Strings()) << name.size();
  CheckName(name + u"x", findings);
  EXPECT_EQ(Codes(findings), Strings{"name-long"});
}

TEST(Checks, SourceNamesMustBeUtf8WithoutBackslash) {
  Findings findings;
  CheckSourceName("good/name.txt", findings);
  EXPECT_EQ(Codes(findings), Strings());
  CheckSourceName("a\\b.txt", findings);
  CheckSourceName("bad\xff", findings);
  EXPECT_EQ(Codes(findings), (Strings{"name-backslash", "name-not-text"}));
}

std::vector<std::string> CodesOfData(const std::vector<CheckedFile>& files, std::uint64_t data_area,
                                     std::uint64_t image_size) {
  Findings findings;
  CheckData(files, data_area, image_size, findings);
  return Codes(findings);
}

CheckedFile At(std::uint64_t offset, std::uint64_t size) {
  return {stdx::u16string(u"a\\b"), 0, offset, size};
}

TEST(Checks, AnImageEndsBelowFourGigabytes) {
  const std::uint64_t limit = kImageLimit;
  EXPECT_EQ(CodesOfData({At(100, limit - 101)}, 100, limit - 1), Strings());
  EXPECT_EQ(CodesOfData({At(100, limit - 100)}, 100, limit), Strings{"image-too-large"});
}

TEST(Checks, BytesMustLieInTheDataArea) {
  EXPECT_EQ(CodesOfData({At(100, 50)}, 100, 150), Strings());
  EXPECT_EQ(CodesOfData({At(100, 51)}, 100, 150), Strings{"data-outside"});
  EXPECT_EQ(CodesOfData({At(99, 51)}, 100, 150), Strings{"data-outside"});
  EXPECT_EQ(CodesOfData({At(100, 50), At(5000, 0)}, 100, 150), Strings()) << "no bytes lie nowhere";
}

TEST(Checks, BytesOfNobodyAreCounted) {
  const auto unused = [](const std::vector<CheckedFile>& files) {
    Findings findings;
    CheckData(files, 100, 200, findings);
    return findings.all().empty() ? "" : findings.all().front().message;
  };
  EXPECT_EQ(unused({At(100, 60), At(120, 80)}), "") << "files may share bytes";
  EXPECT_EQ(unused({At(120, 80), At(100, 20)}), "") << "in any order";
  EXPECT_EQ(unused({At(100, 99)}), "the image has 1 byte that no file uses");
  EXPECT_EQ(unused({At(110, 10), At(150, 10)}), "the image has 80 bytes that no file uses");
  EXPECT_EQ(unused({}), "the image has 100 bytes that no file uses");
}

TEST(Checks, OneFindingStandsForAllFilesWithTheSameOddity) {
  Findings findings;
  std::vector<CheckedFile> files;
  for (const char16_t* const name : {u"a", u"b", u"c"}) {
    files.push_back({stdx::u16string(name), 1, 0, 0});
  }
  CheckContents({}, files, findings);
  EXPECT_EQ(Codes(findings), (Strings{"language-missing-en", "file-at-root", "time-part"}));
  EXPECT_NE(findings.all()[1].message.find("so do 2 other files"), std::string::npos);
}

}  // namespace
}  // namespace quarn::tpk
