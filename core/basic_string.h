// The strings that carry all text of the system: stdx::u16string for paths, keys, values and
// messages, stdx::string for the narrow text that the operating system takes and gives.
//
// A copy of a long text costs one atomic increment; the text itself is copied at the first write
// through a shared string (string_storage.h). A class has the members that the system defines and
// those that it uses. For anything else there is `view`.
//
// Threads: strings that share a block may be used on different threads at once. One string object
// must not be used by two threads at once, as with any standard container.
#pragma once

#include <algorithm>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/string_storage.h"

namespace stdx {

/// A string of units `C` (char16_t or char), always followed by a terminator. Sizes and positions
/// are in units.
///
/// A pointer or iterator for writing is good until the string is next copied or changed: a copy
/// made in between shares the block that it writes to.
template <class C, class Traits = fix_char_traits<C>, class Allocator = std::allocator<C>>
class basic_string {
  using Storage = string_storage<C, Traits, Allocator>;
  using Growth = typename Storage::Growth;

 public:
  using value_type = C;
  using size_type = std::size_t;
  using iterator = C*;
  using const_iterator = const C*;
  using view_type = std::basic_string_view<C>;

  static constexpr size_type npos = static_cast<size_type>(-1);
  static constexpr size_type kInlineCapacity = Storage::kInlineCapacity;
  static constexpr std::uint32_t kHeapMarker = Storage::kHeapMarker;
  static constexpr size_type kHeaderUnits = Storage::kHeaderUnits;

  // --- Construction and assignment. Copies share a heap block. -------------------------------

  basic_string() noexcept = default;
  basic_string(const C* text, size_type count) { storage_.Construct(text, count); }
  basic_string(const C* text) : basic_string(text, Traits::length(text)) {}  // NOLINT
  explicit basic_string(view_type text) : basic_string(text.data(), text.size()) {}

  /// The text of `value` in `radix` (2 to 36) with lower-case letters. Only radix 10 knows a sign:
  /// in every other one the unsigned 32-bit pattern is written. Throws std::out_of_range for any
  /// other radix.
  template <std::same_as<std::int32_t> Value, std::same_as<std::uint32_t> Radix>
  requires std::same_as<C, char16_t> basic_string(Value value, Radix radix) {
    if (radix < 2 || radix > 36) throw std::out_of_range(kRangeText);
    const bool negative = radix == 10 && value < 0;
    auto rest = static_cast<std::uint32_t>(value);
    if (negative) rest = 0u - rest;  // the magnitude, also of the smallest value
    C digits[33];
    C* first = std::end(digits);
    do {
      const std::uint32_t digit = rest % radix;
      *--first = static_cast<C>(digit < 10 ? u'0' + digit : u'a' + (digit - 10));
      rest /= radix;
    } while (rest != 0);
    if (negative) *--first = u'-';
    storage_.Construct(first, static_cast<size_type>(std::end(digits) - first));
  }

  basic_string& operator=(const C* text) { return assign(text, Traits::length(text)); }

  /// Replaces the text. The source may be a part of this string. Throws std::length_error where no
  /// string can be so long. Terminates when there is no memory for leaving a shared block.
  basic_string& assign(const C* text, size_type count) {
    const bool longer = count > size();
    const Source source(*this, text);
    MakeUniqueOrTerminate();
    if (longer) storage_.Resize(count, Growth::kExact);
    Traits::copy(storage_.own_text(), source.In(*this), count);
    if (!longer) storage_.Resize(count, Growth::kExact);
    return *this;
  }

  // --- Size and state -----------------------------------------------------------------------

  size_type size() const noexcept { return storage_.size(); }
  bool empty() const noexcept { return size() == 0; }

  /// The length of an inline text, or `kHeapMarker`.
  std::uint32_t mode() const noexcept { return storage_.mode(); }
  /// The units of the heap block, its header included; 0 for an inline text.
  size_type block_capacity() const noexcept { return storage_.block_capacity(); }
  /// How many strings own the heap block; 0 for an inline text.
  std::uint64_t use_count() const noexcept { return storage_.use_count(); }

  // --- Access -------------------------------------------------------------------------------

  /// The text with its terminator; valid until the string is changed or destroyed.
  const C* data() const noexcept { return storage_.text(); }
  const C* c_str() const noexcept { return data(); }
  /// The text for writing, in a block of this string's own.
  C* data() {
    storage_.MakeUnique();
    return storage_.own_text();
  }

  view_type view() const noexcept { return view_type(data(), size()); }
  operator view_type() const noexcept { return view(); }  // NOLINT: as the standard's string

  /// For reading; write through `data`.
  const C& operator[](size_type position) const noexcept { return storage_.text()[position]; }
  const C& front() const noexcept { return storage_.text()[0]; }

  const_iterator begin() const noexcept { return data(); }
  const_iterator end() const noexcept { return data() + size(); }
  iterator begin() { return data(); }
  iterator end() { return data() + size(); }

  // --- Changing -----------------------------------------------------------------------------

  void clear() { storage_.Resize(0, Growth::kExact); }

  /// Cuts the text or lengthens it with `unit`. A heap text that becomes shorter than
  /// `kInlineCapacity` moves back into the object; one that grows below it stays on the heap.
  void resize(size_type count, C unit = C()) {
    const size_type old_size = size();
    storage_.Resize(count, Growth::kExact);
    if (count > old_size) Traits::assign(storage_.own_text() + old_size, count - old_size, unit);
  }

  /// Makes room for `count` units, exactly. Throws std::length_error where no string can be so
  /// long.
  void reserve(size_type count) {
    if (count >= kReserveLimit) throw std::length_error(kRangeText);
    storage_.Reserve(count);
  }

  /// Appends units, growing the block by half. Source, errors: as `assign`.
  basic_string& append(const C* text, size_type count) {
    const size_type old_size = size();
    const Source source(*this, text);
    MakeUniqueOrTerminate();
    storage_.Resize(Storage::LongerBy(old_size, count), Growth::kByHalf);
    Traits::copy(storage_.own_text() + old_size, source.In(*this), count);
    return *this;
  }
  basic_string& append(view_type text) { return append(text.data(), text.size()); }
  /// Appends at most `count` units of `other` from `position`. Throws std::out_of_range when
  /// `position` is beyond the end of `other`.
  basic_string& append(const basic_string& other, size_type position, size_type count = npos) {
    const size_type length = other.CheckRange(position, count);
    return append(other.data() + position, length);
  }
  basic_string& operator+=(const basic_string& text) { return append(text.data(), text.size()); }
  basic_string& operator+=(C unit) {
    push_back(unit);
    return *this;
  }
  void push_back(C unit) {
    if (!storage_.AppendInPlace(unit)) append(&unit, 1);
  }
  void pop_back() { storage_.Resize(size() - 1, Growth::kExact); }

  /// Inserts before `position`. Anywhere but at the end the text is assembled anew in a block of
  /// exactly the size needed. Throws std::out_of_range beyond the end.
  basic_string& insert(size_type position, view_type text) {
    CheckRange(position, 0);
    if (text.empty()) return *this;
    return position == size() ? append(text) : Assemble(position, 0, text);
  }

  /// Removes at most `count` units from `position`. Throws std::out_of_range beyond the end.
  basic_string& erase(size_type position = 0, size_type count = npos) {
    const size_type removed = CheckRange(position, count);
    const size_type old_size = size();
    C* const text = data();
    Traits::copy(text + position, text + position + removed, old_size - position - removed);
    storage_.Resize(old_size - removed, Growth::kExact);
    return *this;
  }

  /// Replaces at most `count` units from `position` by `text`. Throws std::out_of_range beyond the
  /// end.
  basic_string& replace(size_type position, size_type count, view_type text) {
    return Assemble(position, CheckRange(position, count), text);
  }

  /// Replaces every occurrence of `pattern`, from the left and without overlap. Returns how many.
  std::int64_t replace_all(view_type pattern, view_type replacement);

  // --- Reading ------------------------------------------------------------------------------

  /// The part of at most `count` units from `position`. Throws std::out_of_range beyond the end.
  basic_string substr(size_type position = 0, size_type count = npos) const {
    const size_type length = CheckRange(position, count);
    if (length == size()) return *this;
    return basic_string(data() + position, length);
  }

  /// The number that the text begins with; 0 where it does not begin with a digit. Neither sign
  /// nor white space is accepted; a number above 64 bits wraps.
  std::uint64_t parse_decimal() const noexcept requires std::same_as<C, char16_t> {
    std::uint64_t value = 0;
    for (const C unit : view()) {
      if (unit < u'0' || unit > u'9') break;
      value = value * 10 + static_cast<std::uint64_t>(unit - u'0');
    }
    return value;
  }

  size_type find(view_type text, size_type position = 0) const noexcept {
    return view().find(text, position);
  }
  size_type find(C unit, size_type position = 0) const noexcept {
    return view().find(unit, position);
  }
  size_type rfind(view_type text, size_type position = npos) const noexcept {
    return view().rfind(text, position);
  }
  size_type rfind(C unit, size_type position = npos) const noexcept {
    return view().rfind(unit, position);
  }
  size_type find_first_of(view_type units, size_type position = 0) const noexcept {
    return view().find_first_of(units, position);
  }
  size_type find_last_of(view_type units, size_type position = npos) const noexcept {
    return view().find_last_of(units, position);
  }
  bool contains(C unit) const noexcept { return find(unit) != npos; }
  bool ends_with(C unit) const noexcept { return view().ends_with(unit); }

  // Units compare as unsigned numbers. Views of the standard library compare with strings too, by
  // its own operators.
  friend bool operator==(const basic_string& a, const basic_string& b) noexcept {
    return a.view() == b.view();
  }
  friend bool operator==(const basic_string& a, const C* b) noexcept { return a.view() == b; }
  friend std::strong_ordering operator<=>(const basic_string& a, const basic_string& b) noexcept {
    return a.view().compare(b.view()) <=> 0;
  }

  // --- Concatenation: a new string of exactly the total length --------------------------------

  friend basic_string operator+(const basic_string& a, const basic_string& b) {
    return Join(a.view(), b.view());
  }
  friend basic_string operator+(const basic_string& a, const C* b) { return Join(a.view(), b); }
  friend basic_string operator+(const C* a, const basic_string& b) { return Join(a, b.view()); }
  friend basic_string operator+(const basic_string& a, C b) {
    return Join(a.view(), view_type(&b, 1));
  }
  friend basic_string operator+(C a, const basic_string& b) {
    return Join(view_type(&a, 1), b.view());
  }

 private:
  static constexpr const char* kRangeText = "basic_string";
  static constexpr size_type kReserveLimit = 0x7fffffffffffffff;

  // Terminates when memory runs out: the string must not be left half changed.
  void MakeUniqueOrTerminate() noexcept { storage_.MakeUnique(); }

  /// A source of units that is found again when it is a part of the string and the string has moved
  /// to a new block.
  class Source {
   public:
    Source(const basic_string& string, const C* text) noexcept : text_(text) {
      const std::less_equal<const C*> not_after;
      const C* const begin = string.data();
      inside_ = not_after(begin, text) && not_after(text, begin + string.size());
      if (inside_) offset_ = static_cast<size_type>(text - begin);
    }
    const C* In(const basic_string& string) const noexcept {
      return inside_ ? string.data() + offset_ : text_;
    }

   private:
    const C* text_;
    bool inside_;
    size_type offset_ = 0;
  };

  /// A string of `count` units yet to be written, in a block of exactly that room.
  static basic_string OfLength(size_type count) {
    basic_string result;
    result.storage_.Resize(count, Growth::kExact);
    return result;
  }
  static basic_string Join(view_type a, view_type b, view_type c = {}) {
    const size_type both = Storage::LongerBy(a.size(), b.size());
    basic_string result = OfLength(Storage::LongerBy(both, c.size()));
    C* const to = result.storage_.own_text();
    Traits::copy(to, a.data(), a.size());
    Traits::copy(to + a.size(), b.data(), b.size());
    Traits::copy(to + a.size() + b.size(), c.data(), c.size());
    return result;
  }
  basic_string& Assemble(size_type position, size_type removed, view_type text) {
    const view_type old = view();
    return *this = Join(old.substr(0, position), text, old.substr(position + removed));
  }

  size_type CheckRange(size_type position, size_type count) const {
    if (position > size()) throw std::out_of_range(kRangeText);
    return std::min(size() - position, count);
  }

  Storage storage_;
};

template <class C, class Traits, class Allocator>
std::int64_t basic_string<C, Traits, Allocator>::replace_all(view_type pattern,
                                                             view_type replacement) {
  if (pattern.empty() || size() < pattern.size()) return 0;
  std::vector<size_type> positions;
  for (size_type at = find(pattern); at != npos; at = find(pattern, at + pattern.size())) {
    positions.push_back(at);
  }
  if (positions.empty()) return 0;
  if (pattern.size() == replacement.size()) {
    const basic_string own(replacement);  // the replacement may be a part of this string
    C* const text = data();
    for (const size_type at : positions) Traits::copy(text + at, own.data(), own.size());
  } else {
    basic_string result = OfLength(Storage::LongerBy(size() - positions.size() * pattern.size(),
                                                     replacement.size(), positions.size()));
    const view_type old = view();
    C* to = result.storage_.own_text();
    const auto put = [&to](view_type part) {
      Traits::copy(to, part.data(), part.size());
      to += part.size();
    };
    size_type from = 0;
    for (const size_type at : positions) {
      put(old.substr(from, at - from));
      put(replacement);
      from = at + pattern.size();
    }
    put(old.substr(from));
    *this = std::move(result);
  }
  return static_cast<std::int64_t>(positions.size());
}

using string = basic_string<char>;
using u16string = basic_string<char16_t>;

extern template class string_storage<char, fix_char_traits<char>, std::allocator<char>>;
extern template class string_storage<char16_t, fix_char_traits<char16_t>, std::allocator<char16_t>>;
extern template class basic_string<char>;
extern template class basic_string<char16_t>;

static_assert(sizeof(string) == 32 && std::is_standard_layout_v<string>);
static_assert(sizeof(u16string) == 32 && std::is_standard_layout_v<u16string>);
static_assert(string::kInlineCapacity == 24 && u16string::kInlineCapacity == 12);

}  // namespace stdx

template <class C, class Traits, class Allocator>
struct std::hash<stdx::basic_string<C, Traits, Allocator>> {
  std::size_t operator()(const stdx::basic_string<C, Traits, Allocator>& text) const noexcept {
    return std::hash<std::basic_string_view<C>>()(text.view());
  }
};
