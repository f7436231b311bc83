// Every call of a pass fails once: by an exception, and over the restoring policy by a code.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tests/install/failure_scene.h"

namespace quarn::testing {
namespace {

using TreeMap = std::map<std::string, std::string>;

template <class Policy>
class AnyCallTest : public FailureScene<Policy> {};
TYPED_TEST_SUITE(AnyCallTest, FaultyPolicies);
using RestoringAnyCallTest = AnyCallTest<FaultyFileSystem<DirectFileSystem>>;

/// Runs the pass once for each of its calls, with `fault` at that call.
template <class Test, class Check>
void FailAtEveryCall(Test& test, const Fault& fault, Check check) {
  test.Prepare();
  ASSERT_EQ(test.installation().Run(), 0u);
  const auto calls = test.script().calls();
  for (std::size_t nth = 1; nth <= calls.size(); ++nth) {
    SCOPED_TRACE("call " + std::to_string(nth) + " of " + std::to_string(calls.size()) +
                 ", operation " + std::to_string(static_cast<int>(calls[nth - 1].op)));
    test.Prepare();
    test.script().OnCall(nth, fault);
    const std::uint32_t result = test.installation().Run();
    // Behind the last copied file the pass only cleans up.
    const bool committing =
        std::none_of(calls.begin() + static_cast<std::ptrdiff_t>(nth) - 1, calls.end(),
                     [](const auto& call) { return call.op == Op::kFileClose; });
    check(result, committing);
  }
}

TYPED_TEST(AnyCallTest, AnExceptionAtAnyCallIsAFailureWithCode87) {
  // One kind will do where every pass runs twenty shells.
  std::vector<Fault::Kind> kinds = {Fault::Kind::kLengthError};
  if (TestFixture::kRestores) kinds.push_back(Fault::Kind::kNoMemory);
  for (const Fault::Kind kind : kinds) {
    FailAtEveryCall(*this, {kind}, [&](std::uint32_t result, bool committing) {
      const InstallStatus last = this->installation().statuses.back();
      if (committing) {
        EXPECT_EQ(result, 0u);
        EXPECT_EQ(last, (InstallStatus{0, FinishText(), 100}));
        EXPECT_EQ(ReadFile(this->target() / "c/late.txt"), "new");
      } else {
        EXPECT_EQ(result, 87u);
        EXPECT_EQ(last.code, 87u);
        EXPECT_EQ(last.message, ErrorText());
        EXPECT_LT(last.percent, 100);
        if (TestFixture::kRestores) {
          EXPECT_EQ(Tree(this->target()), this->Before({}, {}));
        }
      }
    });
  }
}

TEST_F(RestoringAnyCallTest, AFailureAtAnyCallLeavesTheTargetAsItWasOrInstalled) {
  for (const std::uint32_t code : {2u, 87u}) {
    FailAtEveryCall(*this, Code(code), [&](std::uint32_t result, bool) {
      TreeMap expected = Before({}, {});
      if (result == 0) {
        expected["a/old.txt"] = expected["c/late.txt"] = expected["d/e/new.txt"] = "new";
        expected["d/"] = expected["d/e/"] = "";
        // Copied where it could not be seen to be up to date.
        expected["b/same.txt"] = ReadFile(target() / "b/same.txt");
      }
      EXPECT_EQ(Tree(target()), expected);
    });
  }
}

}  // namespace
}  // namespace quarn::testing
