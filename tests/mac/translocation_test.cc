// A wizard that macOS runs from a copy of its bundle finds the kit beside the bundle itself.
#include "wizard/mac/translocation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kit/kit_location.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

using ::testing::ElementsAre;

const stdx::string kCopy =
    "/private/var/folders/xy/T/AppTranslocation/1D2E/d/Setup.app/Contents/MacOS/setup";

class TranslocationTest : public ScratchTest {
 protected:
  TranslocationTest() : before_(std::filesystem::current_path()) {}
  ~TranslocationTest() override { std::filesystem::current_path(before_); }

  void WriteKit() { WriteFile(root() / "quarn.tpk", "kit"); }
  stdx::string Original() const { return (root() / "Setup.app").c_str(); }

  /// The arguments that the wizard starts with.
  std::vector<std::string> Start(std::vector<std::string> arguments, const stdx::string& executable,
                                 const stdx::string& original) {
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    const TranslocatedStart start = FindOriginalPlace(static_cast<int>(argv.size()), argv.data(),
                                                      executable, [&](const stdx::string& bundle) {
                                                        asked_.push_back(bundle.c_str());
                                                        return original;
                                                      });
    is_lost_ = start.is_lost;
    return {start.arguments.begin(), start.arguments.end()};
  }

  std::vector<std::string> asked_;
  bool is_lost_ = false;
  const std::filesystem::path before_;
};

TEST_F(TranslocationTest, ACopyLooksForTheKitBesideTheBundleItself) {
  WriteKit();
  EXPECT_THAT(Start({"setup", "-S"}, kCopy, Original()), ElementsAre("setup", "usecwd", "-S"));
  EXPECT_FALSE(is_lost_);
  EXPECT_THAT(asked_, ElementsAre("/private/var/folders/xy/T/AppTranslocation/1D2E/d/Setup.app"));
  const stdx::u16string kit = GetKitPath(true);
  EXPECT_TRUE(KitExists(kit));
}

TEST_F(TranslocationTest, ABundleInItsOwnPlaceStartsAsItIs) {
  WriteKit();
  const stdx::string executable = Original() + "/Contents/MacOS/setup";
  EXPECT_THAT(Start({"setup", "-S"}, executable, Original()), ElementsAre("setup", "-S"));
  EXPECT_THAT(Start({"setup"}, "/opt/AppTranslocation/setup", Original()), ElementsAre("setup"));
  EXPECT_FALSE(is_lost_);
  EXPECT_TRUE(asked_.empty());
  EXPECT_EQ(std::filesystem::current_path(), before_);
}

TEST_F(TranslocationTest, WhoSaysWhereTheKitIsIsLeftAlone) {
  WriteKit();
  EXPECT_THAT(Start({"setup", "usecwd"}, kCopy, Original()), ElementsAre("setup", "usecwd"));
  EXPECT_FALSE(is_lost_);
}

TEST_F(TranslocationTest, ACopyOfWhichNothingIsKnownIsLost) {
  WriteKit();
  EXPECT_THAT(Start({"setup"}, kCopy, ""), ElementsAre("setup"));
  EXPECT_TRUE(is_lost_);
}

TEST_F(TranslocationTest, ACopyOfABundleWithoutAKitIsLost) {
  EXPECT_THAT(Start({"setup"}, kCopy, Original()), ElementsAre("setup"));
  EXPECT_TRUE(is_lost_);
}

}  // namespace
}  // namespace quarn::testing
