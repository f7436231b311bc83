// What strings do when memory runs out: this program's allocator can be told to fail at the n-th
// request. A program of its own, because the replacement reaches everything in it.
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <utility>

#include "tests/core/units.h"
#include "tests/support/allocations.h"

namespace quarn::testing {
namespace {

template <class S>
class BasicStringFault : public ScratchTest {
 protected:
  using C = typename S::value_type;
  struct Operation {
    const char* name;
    void (*run)(S&, const std::basic_string<C>& text);
  };

  static constexpr std::size_t kLength = 50;

  /// Runs an operation on an own copy of every state, failing at every request in turn.
  static void ExpectThrowsAndChangesNothing(const Operation& operation, bool shared) {
    SCOPED_TRACE(operation.name);
    const auto text = Pattern<C>(200, 3);
    for (std::size_t granted = 0;; ++granted) {
      ASSERT_LT(granted, 10u);
      S string = PatternOf<S>(kLength);
      const S other = shared ? string : S();
      const std::size_t capacity = string.block_capacity();
      const auto owners = string.use_count();
      const std::size_t alive = AllocationsAlive();
      bool failed = false;
      try {
        const AllocationQuota quota(granted);
        operation.run(string, text);
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      if (!failed) {
        EXPECT_GT(granted, 0u) << "asks for no memory";
        return;
      }
      ExpectText(string, Pattern<C>(kLength));
      // Out of a shared block into an own one is no change that anybody sees.
      if (string.use_count() == owners) {
        EXPECT_EQ(AllocationsAlive(), alive);
        EXPECT_EQ(string.block_capacity(), capacity);
      } else {
        EXPECT_EQ(AllocationsAlive(), alive + 1);
        EXPECT_EQ(string.block_capacity(), kLength + S::kHeaderUnits);
        EXPECT_EQ(other.use_count(), 1u);
      }
      if (shared) ExpectText(other, Pattern<C>(kLength));
    }
  }
};
TYPED_TEST_SUITE(BasicStringFault, BothStrings, StringName);

TYPED_TEST(BasicStringFault, AGrowthThatFailsThrowsAndLeavesTheStringAsItWas) {
  using S = TypeParam;
  using Text = std::basic_string<typename S::value_type>;
  static const typename BasicStringFault<S>::Operation kOperations[] = {
      {"assign", [](S& s, const Text& text) { Assign(s, text); }},
      {"append", [](S& s, const Text& text) { s.append(text); }},
      {"append itself", [](S& s, const Text&) { s.append(s); }},
      {"push back",
       [](S& s, const Text&) {
         for (int i = 0; i < 20; ++i) s.push_back('x');
         s.resize(BasicStringFault<S>::kLength);
       }},
      {"insert", [](S& s, const Text& text) { s.insert(3, text); }},
      {"replace", [](S& s, const Text& text) { s.replace(3, 4, text); }},
      {"replace all", [](S& s, const Text& text) { s.replace_all(s.view().substr(0, 1), text); }},
      {"resize", [](S& s, const Text&) { s.resize(200); }},
      {"reserve", [](S& s, const Text&) { s.reserve(200); }},
      {"concatenate", [](S& s, const Text& text) { s = s + text.c_str(); }},
      {"part", [](S& s, const Text&) { s = s.substr(1); }},
  };
  for (const auto& operation : kOperations) this->ExpectThrowsAndChangesNothing(operation, false);
}

TYPED_TEST(BasicStringFault, AWriteThatCannotLeaveASharedBlockThrowsAndLeavesItShared) {
  using S = TypeParam;
  using Text = std::basic_string<typename S::value_type>;
  static const typename BasicStringFault<S>::Operation kOperations[] = {
      {"data", [](S& s, const Text&) { s.data()[1] = 'X'; }},
      {"begin", [](S& s, const Text&) { *s.begin() = 'X'; }},
      {"erase", [](S& s, const Text&) { s.erase(1, 2); }},
      {"erase all", [](S& s, const Text&) { s.erase(); }},
      {"insert", [](S& s, const Text& text) { s.insert(3, text); }},
      {"replace in place",
       [](S& s, const Text& text) { s.replace_all(s.view().substr(0, 1), Text(text, 0, 1)); }},
      {"resize", [](S& s, const Text&) { s.resize(200); }},
      {"shorten", [](S& s, const Text&) { s.resize(40); }},
      {"reserve", [](S& s, const Text&) { s.reserve(200); }},
      {"pop back", [](S& s, const Text&) { s.pop_back(); }},
  };
  for (const auto& operation : kOperations) this->ExpectThrowsAndChangesNothing(operation, true);
}

TYPED_TEST(BasicStringFault, AnInlineStringThatCannotMoveToTheHeapStaysWhatItWas) {
  using S = TypeParam;
  using C = typename S::value_type;
  S string = PatternOf<S>(5);
  const auto text = Pattern<C>(200);
  {
    const AllocationQuota quota(0);
    EXPECT_THROW(Assign(string, text), std::bad_alloc);
    EXPECT_THROW(string.append(text), std::bad_alloc);
    EXPECT_THROW(string.insert(2, text), std::bad_alloc);
    EXPECT_THROW(string.resize(200), std::bad_alloc);
    EXPECT_THROW(string.reserve(200), std::bad_alloc);
    EXPECT_THROW(string = text.c_str(), std::bad_alloc);
    EXPECT_THROW(S(text.data(), text.size()), std::bad_alloc);
    EXPECT_THROW(string + text.c_str(), std::bad_alloc);
  }
  ExpectText(string, Pattern<C>(5));
  ExpectInline(string);
}

TYPED_TEST(BasicStringFault, ShortTextsAndCopiesAskForNoMemory) {
  using S = TypeParam;
  const auto text = Pattern<typename S::value_type>(kShort<S>);
  const S string = PatternOf<S>(50);
  const AllocationQuota quota(0);
  S shorter(text.data(), text.size());
  shorter = shorter + S();
  shorter.erase(2, 3);
  shorter.append(text.data(), 3);
  shorter.insert(1, text.substr(0, 0));
  S copy = string;
  shorter = copy;
  copy = std::move(shorter);
  copy.clear();
  EXPECT_EQ(string.use_count(), 1u);
}

TYPED_TEST(BasicStringFault, NoBlockIsLeftBehind) {
  using S = TypeParam;
  const std::size_t before = AllocationsAlive();
  {
    S string = PatternOf<S>(50);
    S copy = string;
    copy.append(string);
    string = copy.substr(3, 60);
    copy.resize(5);
    string.replace_all(copy.view(), S(copy).view());
    std::swap(string, copy);
  }
  EXPECT_EQ(AllocationsAlive(), before);
}

// The process ends when a shared block cannot be left by an assignment or an append: the string
// must not be left half changed.
template <class S>
class BasicStringDeathTest : public ScratchTest {};
TYPED_TEST_SUITE(BasicStringDeathTest, BothStrings, StringName);

TYPED_TEST(BasicStringDeathTest, AnAssignmentOrAppendThatCannotLeaveASharedBlockEndsTheProcess) {
  using S = TypeParam;
  using Text = std::basic_string<typename S::value_type>;
  struct Operation {
    const char* name;
    void (*run)(S&, const Text& text);
  };
  static const Operation kOperations[] = {
      {"assign a shorter text", [](S& s, const Text& text) { s.assign(text.data(), 40); }},
      {"assign a longer text", [](S& s, const Text& text) { s.assign(text.data(), 200); }},
      {"append", [](S& s, const Text& text) { s.append(text.data(), 1); }},
      {"append much", [](S& s, const Text& text) { s.append(text.data(), 200); }},
      {"append itself", [](S& s, const Text&) { s.append(s); }},
      {"push back", [](S& s, const Text&) { s.push_back('x'); }},
  };
  const auto text = Pattern<typename S::value_type>(200);
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    S string = PatternOf<S>(50);
    const S other = string;
    const auto run = [&] {
      const AllocationQuota quota(0);
      try {
        operation.run(string, text);
      } catch (...) {
        std::_Exit(0);  // an exception that escapes is what must not happen
      }
      std::_Exit(0);
    };
    EXPECT_EXIT(run(), ::testing::KilledBySignal(SIGABRT), "terminate");
  }
}

}  // namespace
}  // namespace quarn::testing
