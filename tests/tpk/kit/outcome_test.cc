#include "tpk/kit/outcome.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace quarn::tpk {
namespace {

TEST(OutcomeTest, TheFirstProblemIsToldWithItsPathWhereThatIsWanted) {
  Outcome outcome;
  outcome.NoteProblem(ExitCode::kInputOutput, u"/t/a", "no room");
  outcome.NoteProblem(ExitCode::kBadKit, u"/t/b", "damaged");
  try {
    outcome.ThrowProblem("cannot");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_STREQ(failure.what(), "cannot: no room");
    EXPECT_EQ(failure.exit_code(), ExitCode::kInputOutput);
    EXPECT_EQ(failure.code(), "input-output");
  }
  try {
    outcome.ThrowProblemAt("cannot", "so");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_STREQ(failure.what(), "cannot: /t/a: no room; so");
  }
}

TEST(OutcomeTest, ADamagedKitHasACodeOfItsOwn) {
  Outcome outcome;
  outcome.NoteProblem(ExitCode::kBadKit, {}, "damaged");
  try {
    outcome.ThrowProblemAt("cannot", "so");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_STREQ(failure.what(), "cannot: damaged; so");
    EXPECT_EQ(failure.exit_code(), ExitCode::kBadKit);
    EXPECT_EQ(failure.code(), "damaged-kit");
  }
}

TEST(OutcomeTest, AFailureWithoutAProblemIsToldAllTheSame) {
  const Outcome outcome;
  try {
    outcome.ThrowProblem("cannot");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_STREQ(failure.what(), "cannot");
    EXPECT_EQ(failure.exit_code(), ExitCode::kInputOutput);
  }
}

TEST(OutcomeTest, ItIsOneForAllThreadsAndForOneKit) {
  Outcome outcome;
  const Outcome other;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&outcome] {
      for (int round = 0; round < 1000; ++round) {
        outcome.CountFile();
        outcome.CountBytes(3);
        outcome.NoteProblem(ExitCode::kInputOutput, {}, "a problem");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(outcome.files_written(), 4000u);
  EXPECT_EQ(outcome.bytes_written(), 12000u);
  EXPECT_EQ(other.files_written(), 0u);
  EXPECT_THROW(outcome.ThrowProblem("cannot"), Failure);
}

}  // namespace
}  // namespace quarn::tpk
