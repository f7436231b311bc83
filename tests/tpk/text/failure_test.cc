#include "tpk/text/failure.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace quarn::tpk {
namespace {

TEST(Failure, OfASystemCallTellsTheReasonOfTheLastOne) {
  errno = ENOSPC;
  const Failure failure = CannotWrite("a/b");
  EXPECT_STREQ(failure.what(), "cannot write a/b: No space left on device");
  EXPECT_EQ(failure.exit_code(), ExitCode::kInputOutput);
  EXPECT_EQ(failure.code(), "input-output");
}

TEST(Failure, OfASystemCallTakesTheReasonThatIsGiven) {
  errno = ENOSPC;
  EXPECT_STREQ(CannotReadKit("k", ENOENT).what(),
               "cannot read the kit k: No such file or directory");
}

TEST(Failure, ShowsNoCharacterThatSteersATerminal) {
  EXPECT_STREQ(CannotMake("a\x1b[1m", EACCES).what(), "cannot make a\\u001b[1m: Permission denied");
  EXPECT_STREQ(NotADirectory("a\nb").what(), "a\\u000ab is not a folder");
  EXPECT_STREQ(ExistsAlready("a\rb", "").what(), "a\\u000db exists already");
}

}  // namespace
}  // namespace quarn::tpk
