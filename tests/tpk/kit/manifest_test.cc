#include "tpk/kit/manifest.h"

#include <gtest/gtest.h>

#include "tests/support/scratch.h"
#include "tpk/text/failure.h"
#include "tpk/text/format.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

class ManifestTest : public testing::ScratchTest {
 protected:
  fs::path Write(const std::string& text) {
    testing::WriteFile(root() / "kit.toml", text);
    fs::create_directories(root() / "files");
    return root() / "kit.toml";
  }

  /// What reading `text` complains of, with the path taken away.
  std::string Problems(const std::string& text) {
    const fs::path path = Write(text);
    try {
      ReadManifest(path);
      return "";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.exit_code(), ExitCode::kUsage);
      std::string problems = failure.what();
      const std::string directory = root().string() + "/";
      for (std::size_t at; (at = problems.find(directory)) != std::string::npos;) {
        problems.erase(at, directory.size());
      }
      return problems;
    }
  }
};

TEST_F(ManifestTest, TheShortestOneTakesEverythingBesideIt) {
  const Manifest manifest = ReadManifest(Write("format = 1\n"));
  EXPECT_EQ(manifest.root, root());
  EXPECT_FALSE(manifest.single_product);
  EXPECT_TRUE(manifest.products.empty());
  EXPECT_EQ(manifest.level, kDefaultLevel);
  EXPECT_TRUE(manifest.Takes("any/thing"));
  EXPECT_EQ(manifest.TimeOf("any/thing"), std::nullopt);
}

TEST_F(ManifestTest, EveryKeyIsUnderstood) {
  const Manifest manifest = ReadManifest(Write(R"(format = 1
[kit]
form = "table"
root = "files"
compression = 9
time = 2024-05-06T08:00:00Z

[[product]]
language = "en"
name = "Brook Ledger"
provider = "Tarnbridge"
description = "about/en.html"

[[product]]
language = "ru"
name = "Ручей"

[files]
include = ["docs/", "*.xml"]
exclude = ["*.bak"]

[[time]]
files = "docs/**"
time = "2024-05-07"

[[time]]
files = "docs/old.txt"
time = 2023-01-01
)"));
  EXPECT_EQ(manifest.root, root() / "files");
  EXPECT_EQ(manifest.level, 9);
  ASSERT_EQ(manifest.products.size(), 2u);
  EXPECT_EQ(manifest.products[0].language, u"en");
  EXPECT_EQ(manifest.products[0].name, u"Brook Ledger");
  EXPECT_EQ(manifest.products[0].provider, u"Tarnbridge");
  EXPECT_EQ(manifest.products[0].description, u"about\\en.html");
  EXPECT_EQ(manifest.products[1].name, u"Ручей");
  EXPECT_EQ(manifest.products[1].description, u"");
  EXPECT_TRUE(manifest.Takes("docs/a/b.txt"));
  EXPECT_TRUE(manifest.Takes("x/y.xml"));
  EXPECT_FALSE(manifest.Takes("x/y.txt"));
  EXPECT_FALSE(manifest.Takes("docs/y.bak")) << "what is excluded never comes in";
  EXPECT_EQ(manifest.TimeOf("x/y.xml"), ParseTime("2024-05-06T08:00:00Z"));
  EXPECT_EQ(manifest.TimeOf("docs/a.txt"), ParseTime("2024-05-07"));
  EXPECT_EQ(manifest.TimeOf("docs/old.txt"), ParseTime("2023-01-01")) << "the last rule counts";
}

TEST_F(ManifestTest, ASingleProductNeedsTheShortForm) {
  EXPECT_TRUE(
      ReadManifest(Write("format = 1\nkit.form = \"single\"\n[[product]]\nlanguage = \"en\"\n"))
          .single_product);
}

TEST_F(ManifestTest, ATimeMayHaveAPartOfASecond) {
  const Manifest manifest =
      ReadManifest(Write("format = 1\nkit.time = 2024-05-06T08:00:00.1234567Z\n"));
  EXPECT_EQ(manifest.TimeOf("x"), ParseTime("2024-05-06T08:00:00.1234567Z"));
}

TEST_F(ManifestTest, EveryMistakeIsReportedWithItsPlaceAndASuggestion) {
  const struct {
    const char* text;
    const char* problems;
  } kRows[] = {
      {"", "kit.toml:1:1: the manifest does not say its format; begin it with format = 1"},
      {"format = 2",
       "kit.toml:1:10: this tpk reads manifests of format 1 only; write format = 1, "
       "or take a newer tpk"},
      {"format = \"1\"",
       "kit.toml:1:10: this tpk reads manifests of format 1 only; write format = "
       "1, or take a newer tpk"},
      {"format = 1\nprodukt = 1",
       "kit.toml:2:1: the manifest has no key \"produkt\"; did you mean "
       "\"product\"?"},
      {"format = 1\nxyzzy = 1",
       "kit.toml:2:1: the manifest has no key \"xyzzy\"; it may have "
       "format, kit, product, files, time"},
      {"format = 1\nkit = 3", "kit.toml:2:7: \"kit\" must be a table; write [kit]"},
      {"format = 1\n[product]\n",
       "kit.toml:2:1: \"product\" must be a list of tables; write [[product]]"},
      {"format = 1\nproduct = [1]",
       "kit.toml:2:12: \"product\" must be a list of tables; write [[product]]"},
      {"format = 1\n[kit]\nfrom = \"table\"",
       "kit.toml:3:1: [kit] has no key \"from\"; did you mean "
       "\"form\"?"},
      {"format = 1\n[kit]\nform = \"tables\"",
       "kit.toml:3:8: there is no form \"tables\"; write \"table\" for products in several "
       "languages, \"single\" for one in English"},
      {"format = 1\n[kit]\nform = true",
       "kit.toml:3:8: \"form\" must be a text; for example form = \"table\""},
      {"format = 1\n[kit]\nroot = \"fils\"",
       "kit.toml:3:8: there is no folder \"fils\"; it is looked "
       "for beside the manifest"},
      {"format = 1\n[kit]\ncompression = 10",
       "kit.toml:3:15: \"compression\" must be a number from 0 to 9; 6 is a good one"},
      {"format = 1\n[kit]\ncompression = 5.5",
       "kit.toml:3:15: \"compression\" must be a number from 0 to 9; 6 is a good one"},
      {"format = 1\n[kit]\ntime = \"yesterday\"",
       "kit.toml:3:8: \"time\" must be a time in UTC from 1601 on; for example time = "
       "\"2024-05-06T08:00:00Z\""},
      {"format = 1\n[kit]\ntime = 2024-05-06T08:00:00+02:00",
       "kit.toml:3:8: \"time\" must be a time in UTC from 1601 on; for example time = "
       "\"2024-05-06T08:00:00Z\""},
      {"format = 1\n[[product]]\nname = \"x\"",
       "kit.toml:2:1: a product needs a language; for example language = \"en\""},
      {"format = 1\n[[product]]\nlanguage = \"en\"\n[[product]]\nlanguage = \"EN\"",
       "kit.toml:4:1: there is a product for \"EN\" already; the wizard would only ever show the "
       "first one"},
      {"format = 1\n[[product]]\nlanguage = \"en\"\n[[product]]\nlanguage = \"\U0001f600\"",
       "kit.toml:4:1: no locale can express \"\U0001f600\"; for example language = \"en\""},
      {"format = 1\n[kit]\nform = \"single\"",
       "kit.toml:3:8: the form \"single\" describes exactly one product, in English; keep one "
       "[[product]] with language = \"en\", or write form = \"table\""},
      {"format = 1\nkit.form = \"single\"\n[[product]]\nlanguage = \"de\"",
       "kit.toml:3:1: the form \"single\" describes exactly one product, in English; keep one "
       "[[product]] with language = \"en\", or write form = \"table\""},
      {"format = 1\n[files]\nexclude = \"*.bak\"",
       "kit.toml:3:11: \"exclude\" must be a list of patterns; for example exclude = [\"*.bak\", "
       "\"drafts/\"]"},
      {"format = 1\n[files]\ninclude = [\"a\", 5]",
       "kit.toml:3:17: a pattern must be a text; for example include = [\"*.bak\", \"drafts/\"]"},
      {"format = 1\n[files]\ninclude = ['a\\b']",
       "kit.toml:3:12: the pattern \"a\\b\" has a backslash; folders are separated by \"/\" in "
       "patterns"},
      {"format = 1\n[[time]]\nfiles = 'a\\b'\ntime = 2024-05-06",
       "kit.toml:3:9: the pattern \"a\\b\" has a backslash; folders are separated by \"/\" in "
       "patterns"},
      {"format = 1\n[[time]]\nfiles = \"x\"",
       "kit.toml:2:1: [[time]] needs a pattern and a time; for example files = \"docs/**\" and "
       "time "
       "= \"2024-05-06T08:00:00Z\""},
  };
  for (const auto& row : kRows) EXPECT_EQ(Problems(row.text), row.problems) << row.text;
}

TEST_F(ManifestTest, APatternIsNoLongerThanAnyNameNeeds) {
  const auto manifest = [](std::size_t size) {
    return "format = 1\nfiles.include = [\"" + std::string(size, '*') + "\"]";
  };
  EXPECT_EQ(Problems(manifest(16384)), "");
  EXPECT_EQ(Problems(manifest(16385)),
            "kit.toml:2:18: the pattern has 16385 bytes; make it shorter than 16384");
  EXPECT_LE(Pattern::Exactly(std::string(3072, '*')).size(), 16384u);
}

TEST_F(ManifestTest, AllMistakesAreReportedAtOnce) {
  EXPECT_EQ(Problems("format = 1\n[kit]\nfrom = 1\n[files]\nexlude = []\n"),
            "kit.toml:3:1: [kit] has no key \"from\"; did you mean \"form\"?\n"
            "kit.toml:5:1: [files] has no key \"exlude\"; did you mean \"exclude\"?");
}

TEST_F(ManifestTest, WhatIsNoTomlIsReportedWithItsPlace) {
  const std::string problems = Problems("format = 1\n[kit\nroot = 5\n");
  EXPECT_TRUE(problems.starts_with("kit.toml:2:")) << problems;
}

TEST_F(ManifestTest, AMistakeCannotSteerTheTerminal) {
  EXPECT_EQ(Problems("format = 1\n\"\\u001b[2J\" = 1").find('\x1b'), std::string::npos);
  EXPECT_EQ(Problems("format = t\n").find('\n'), std::string::npos);
}

TEST_F(ManifestTest, AMissingAnEmptyAndAHugeFileAreRefused) {
  EXPECT_THROW(ReadManifest(root() / "nowhere.toml"), Failure);
  EXPECT_THROW(ReadManifest(root()), Failure);
  EXPECT_FALSE(Problems("").empty());
  EXPECT_NE(Problems(std::string((16 << 20) + 1, '#')).find("is no manifest"), std::string::npos);
}

}  // namespace
}  // namespace quarn::tpk
