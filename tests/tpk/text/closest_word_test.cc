#include "tpk/text/closest_word.h"

#include <gtest/gtest.h>

namespace quarn::tpk {
namespace {

TEST(ClosestWord, FindsWhatWasMeant) {
  const std::vector<std::string> verbs = {"init", "pack", "list", "install", "verify"};
  EXPECT_EQ(ClosestWord("pack", verbs), "pack");
  EXPECT_EQ(ClosestWord("pak", verbs), "pack");
  EXPECT_EQ(ClosestWord("apck", verbs), "pack");
  EXPECT_EQ(ClosestWord("instal", verbs), "install");
  EXPECT_EQ(ClosestWord("verfiy", verbs), "verify");
}

TEST(ClosestWord, DoesNotGuessWildly) {
  const std::vector<std::string> verbs = {"init", "pack", "list"};
  EXPECT_EQ(ClosestWord("zzzz", verbs), std::nullopt);
  EXPECT_EQ(ClosestWord("", verbs), std::nullopt);
  EXPECT_EQ(ClosestWord("frobnicate", verbs), std::nullopt);
  EXPECT_EQ(ClosestWord("pack", {}), std::nullopt);
}

}  // namespace
}  // namespace quarn::tpk
