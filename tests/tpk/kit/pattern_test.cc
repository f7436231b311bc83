#include "tpk/kit/pattern.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "tests/support/scratch.h"

namespace quarn::tpk {
namespace {

using testing::Seed;

TEST(Pattern, MatchesAsWritten) {
  const struct {
    const char* pattern;
    const char* name;
    bool matches;
  } kRows[] = {
      // Without a separator the last part counts, in any folder.
      {"a.txt", "a.txt", true},
      {"a.txt", "x/y/a.txt", true},
      {"a.txt", "xa.txt", false},
      {"a.txt", "a.txt/b", false},
      {"A.txt", "a.txt", false},
      {"*.bak", "x/y.bak", true},
      {"*.bak", ".bak", true},
      {"*.bak", "x.bak/y", false},
      {"*", "x/y/z", true},
      // With one the whole name does.
      {"docs/a.txt", "docs/a.txt", true},
      {"docs/a.txt", "x/docs/a.txt", false},
      {"docs/*", "docs/a.txt", true},
      {"docs/*", "docs/x/a.txt", false},
      {"docs/**", "docs/x/a.txt", true},
      {"docs/**", "docs", false},
      {"docs/", "docs/x/a.txt", true},
      {"docs/", "x/docs/a.txt", false},
      {"**/docs/", "x/docs/a.txt", true},
      {"**/docs/", "docs/a.txt", true},
      {"**/a.txt", "a.txt", true},
      {"**/a.txt", "x/y/a.txt", true},
      {"**/a.txt", "xa.txt", false},
      {"x/**/a.txt", "x/a.txt", true},
      {"x/**/a.txt", "x/y/z/a.txt", true},
      {"x/**/a.txt", "xa.txt", false},
      {"x**y/z", "xa/by/z", true},
      {"/a.txt", "a.txt", true},
      {"/a.txt", "x/a.txt", false},
      {"/docs/", "docs/a", true},
      {"**", "x/y", true},
      // One character, also of several bytes.
      {"?", "a", true},
      {"?", "ё", true},
      {"?", "ab", false},
      {"x/?", "x/", false},
      {"x?y/z", "x/y/z", false},
      {"[ab].txt", "b.txt", true},
      {"[ab].txt", "c.txt", false},
      {"[a-c]", "b", true},
      {"[а-я]", "ж", true},
      {"[а-я]", "w", false},
      {"[!a-c]", "d", true},
      {"[!a-c]", "b", false},
      {"[^a]", "b", true},
      {"x[!a]y/z", "x/y/z", false},
      {"*[!ё]", "ё", false},
      {"*??", "ё", false},
      {"[]]", "]", true},
      {"[a-]", "-", true},
      {"[", "[", true},
      {"[ab", "[ab", true},
      {"", "", true},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(Pattern(row.pattern).Matches(row.name), row.matches)
        << row.pattern << " against " << row.name;
  }
}

/// The rules read aloud, trying everything: for short patterns and names without sets.
bool MatchesByTrying(std::string_view glob, std::string_view name, bool at_folder = true) {
  if (glob.empty()) return name.empty();
  const auto rest_matches = [&](std::size_t glob_size, std::size_t name_size) {
    return MatchesByTrying(glob.substr(glob_size), name.substr(name_size),
                           glob[glob_size - 1] == '/');
  };
  if (glob.starts_with("**")) {
    if (at_folder && glob.starts_with("**/") && rest_matches(3, 0)) return true;
    for (std::size_t i = 0; i <= name.size(); ++i) {
      if (rest_matches(2, i)) return true;
    }
    return false;
  }
  if (glob[0] == '*') {
    for (std::size_t i = 0; i <= name.size(); ++i) {
      if (rest_matches(1, i)) return true;
      if (i < name.size() && name[i] == '/') return false;
    }
    return false;
  }
  if (name.empty()) return false;
  return (glob[0] == '?' ? name[0] != '/' : glob[0] == name[0]) && rest_matches(1, 1);
}

TEST(Pattern, AgreesWithTryingEverything) {
  std::mt19937 random(Seed());
  const auto text = [&random](const char* characters, std::size_t count, unsigned length) {
    std::string made;
    for (auto i = random() % length; i != 0; --i) made += characters[random() % count];
    return made;
  };
  int matched = 0;
  for (int round = 0; round < 100000; ++round) {
    // A pattern that begins with a separator is compared with the whole name.
    const std::string glob = text("ab*?/*", 6, 9);
    const std::string name = text("ab/", 3, 9);
    const bool matches = Pattern("/" + glob).Matches(name);
    const std::string whole = glob.ends_with('/') || glob.empty() ? glob + "**" : glob;
    ASSERT_EQ(matches, MatchesByTrying(whole, name)) << glob << " against " << name;
    matched += matches;
  }
  EXPECT_GT(matched, 1000);
}

TEST(Pattern, OneThatEndsInTwoStarsMatchesAllInAFolder) {
  for (const char* const pattern : {"a/b/", "/a/b/**", "a/**", "**/b/", "**", "a**", "*/b/"}) {
    EXPECT_TRUE(Pattern(pattern).MatchesAllIn("a/b")) << pattern;
  }
  // Not even those that match every file that happens to be there.
  for (const char* const pattern : {"b", "a/b", "a/b/*", "*", "**/*", "b/", "a/b/c/", "ab/"}) {
    EXPECT_FALSE(Pattern(pattern).MatchesAllIn("a/b")) << pattern;
  }
}

TEST(Pattern, KeepsItsText) { EXPECT_EQ(Pattern("docs/").text(), "docs/"); }

TEST(Pattern, ExactlyMatchesANameAndNothingElse) {
  std::mt19937 random(Seed());
  const auto name = [&random] {
    constexpr char kCharacters[] = "ab*?[]!-/";
    std::string text = "x";
    for (unsigned i = random() % 8; i != 0; --i) text += kCharacters[random() % 9];
    return text + "y";
  };
  for (int round = 0; round < 20000; ++round) {
    const std::string a = name();
    const std::string b = name();
    const Pattern exactly(Pattern::Exactly(a));
    ASSERT_TRUE(exactly.Matches(a)) << exactly.text();
    ASSERT_EQ(exactly.Matches(b), a == b) << exactly.text() << " against " << b;
    ASSERT_FALSE(exactly.Matches("z/" + a)) << exactly.text();
  }
}

TEST(Pattern, ManyStarsDoNotTakeForever) {
  std::string stars;
  for (int i = 0; i < 30; ++i) stars += "*a";
  const std::string name(300, 'a');
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(Pattern(stars).Matches(name));
  EXPECT_FALSE(Pattern(stars + "b").Matches(name));
  EXPECT_FALSE(Pattern("**" + stars + "/b").Matches(name));
  // Without a memory of what was tried this takes longer than anybody lives.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  // Nor does a long pattern take the stack.
  EXPECT_TRUE(Pattern(std::string(1 << 20, '*')).Matches("a/b"));
}

}  // namespace
}  // namespace quarn::tpk
