// What the string tests share: both kinds of string as type parameters, texts made for either
// kind, and the check of everything that must hold in every state of a string.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "core/basic_string.h"
#include "tests/support/scratch.h"

namespace quarn::testing {

using BothStrings = ::testing::Types<stdx::string, stdx::u16string>;

struct StringName {
  template <class S>
  static std::string GetName(int) {
    return sizeof(typename S::value_type) == 1 ? "narrow" : "utf16";
  }
};

/// ASCII text in units of either kind.
template <class C>
std::basic_string<C> Units(std::string_view ascii) {
  return std::basic_string<C>(ascii.begin(), ascii.end());
}
template <class S>
S Of(std::string_view ascii) {
  const auto units = Units<typename S::value_type>(ascii);
  return S(units.data(), units.size());
}

/// A text of `count` units in which neighbours differ.
template <class C>
std::basic_string<C> Pattern(std::size_t count, std::size_t from = 0) {
  std::basic_string<C> text;
  for (std::size_t i = from; i < from + count; ++i) text.push_back(static_cast<C>('a' + i % 23));
  return text;
}
template <class S>
S PatternOf(std::size_t count, std::size_t from = 0) {
  const auto units = Pattern<typename S::value_type>(count, from);
  return S(units.data(), units.size());
}

/// Assigns a text of the standard library's.
template <class S>
void Assign(S& string, std::basic_string_view<typename S::value_type> text) {
  string.assign(text.data(), text.size());
}

/// The shortest text that has to be on the heap, and the longest that does not.
template <class S>
constexpr std::size_t kLong = S::kInlineCapacity;
template <class S>
constexpr std::size_t kShort = S::kInlineCapacity - 1;

/// Contents, terminator, and a mode that fits them.
template <class S>
void ExpectText(const S& string, std::basic_string_view<typename S::value_type> text) {
  EXPECT_EQ(string.view(), text);
  EXPECT_EQ(string.size(), text.size());
  EXPECT_EQ(string.data()[string.size()], typename S::value_type());
  if (string.mode() != S::kInlineCapacity) {
    EXPECT_EQ(string.mode(), text.size());
    EXPECT_EQ(string.use_count(), 0u);
    EXPECT_EQ(string.block_capacity(), 0u);
  } else {
    EXPECT_GE(string.use_count(), 1u);
    EXPECT_GE(string.block_capacity(), S::kHeaderUnits + text.size());
  }
}
template <class S>
void ExpectText(const S& string,
                std::string_view ascii) requires(!std::is_same_v<typename S::value_type, char>) {
  ExpectText(string,
             std::basic_string_view<typename S::value_type>(Units<typename S::value_type>(ascii)));
}

template <class S>
void ExpectInline(const S& string) {
  EXPECT_LT(string.mode(), S::kInlineCapacity);
  EXPECT_EQ(string.mode(), string.size());
}
/// On the heap, in a block of `capacity` units with its header, which `owners` strings own.
template <class S>
void ExpectHeap(const S& string, std::size_t capacity, std::size_t owners = 1) {
  EXPECT_EQ(string.mode(), S::kInlineCapacity);
  EXPECT_EQ(string.block_capacity(), capacity);
  EXPECT_EQ(string.use_count(), owners);
}

}  // namespace quarn::testing
