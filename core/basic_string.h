// The strings that carry all text of the system: stdx::u16string for paths, keys, values and
// messages, stdx::string for the narrow text that the operating system takes and gives.
//
// A short text lies inside the object. A long one lies in a heap block that copies share: a copy
// costs one atomic increment, and the block is copied at the first write through a shared string.
//
// Threads: strings that share a block may be used on different threads at once. One string object
// must not be used by two threads at once, as with any standard container.
#pragma once

#include <algorithm>
#include <atomic>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace stdx {

/// Units compare as unsigned integers, the terminator is the zero unit, and copying is a plain
/// memory move, so source and destination may overlap.
template <class C>
struct fix_char_traits : std::char_traits<C> {
  static C* copy(C* to, const C* from, std::size_t count) noexcept {
    // A null source is allowed for an empty range.
    return count == 0 ? to : static_cast<C*>(std::memmove(to, from, count * sizeof(C)));
  }
};

/// An iterator over memory from which units can be copied as they lie.
template <class It, class C>
concept unit_iterator = std::contiguous_iterator<It> && std::same_as<std::iter_value_t<It>, C>;

/// A string of units `C` (char16_t or char). Sizes, positions and capacities are in units.
///
/// Object layout: a 32-bit mode, then 24 bytes of storage. A mode below `kInlineCapacity` is the
/// length of the text in the storage itself; the mode `kHeapMarker` says that the storage holds the
/// descriptor of a heap block: a 64-bit count of owners, the text, a zero unit. Every state keeps
/// a zero unit behind the text.
///
/// A reference, pointer or iterator for writing is good until the string is next copied or
/// changed: a copy made in between shares the block that it writes to.
template <class C, class Traits = fix_char_traits<C>, class Allocator = std::allocator<C>>
class basic_string {
 public:
  using traits_type = Traits;
  using allocator_type = Allocator;
  using value_type = C;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;
  using reference = C&;
  using const_reference = const C&;
  using pointer = C*;
  using const_pointer = const C*;
  using iterator = C*;
  using const_iterator = const C*;
  using reverse_iterator = std::reverse_iterator<iterator>;
  using const_reverse_iterator = std::reverse_iterator<const_iterator>;
  using view_type = std::basic_string_view<C>;

  static constexpr size_type npos = static_cast<size_type>(-1);
  /// Units that the object itself holds, the zero unit included: 12 of char16_t, 24 of char.
  static constexpr size_type kInlineCapacity = 24 / sizeof(C);
  /// The mode of a string whose text lies in a heap block.
  static constexpr std::uint32_t kHeapMarker = static_cast<std::uint32_t>(kInlineCapacity);
  /// Units that the count of owners takes at the start of a heap block: 4 of char16_t, 8 of char.
  static constexpr size_type kHeaderUnits = sizeof(std::uint64_t) / sizeof(C);

  // --- Construction, copy, move -------------------------------------------------------------

  basic_string() noexcept { SetEmpty(); }

  basic_string(const C* text, size_type count) : basic_string() { Construct(text, count); }

  basic_string(const C* text) : basic_string(text, Traits::length(text)) {}  // NOLINT

  explicit basic_string(view_type text) : basic_string(text.data(), text.size()) {}

  // Only letters: a number and a radix of the wrong type must not compile as this one.
  template <class Unit>
  requires(std::same_as<Unit, C> || std::same_as<Unit, char>)
      basic_string(size_type count, Unit unit)
      : basic_string() {
    append(count, static_cast<C>(unit));
  }

  template <std::input_iterator It>
  basic_string(It first, It last) : basic_string() {
    if constexpr (unit_iterator<It, C>) {
      append(first, last);
    } else {
      for (; first != last; ++first) push_back(static_cast<C>(*first));
    }
  }

  basic_string(std::initializer_list<C> units) : basic_string(units.begin(), units.size()) {}

  /// The text of `value` in `radix` (2 to 36) with lower-case letters. Only radix 10 knows a sign:
  /// in every other one the unsigned 32-bit pattern is written. Throws std::out_of_range for any
  /// other radix.
  template <std::same_as<std::int32_t> Value, std::same_as<std::uint32_t> Radix>
  requires std::same_as<C, char16_t> basic_string(Value value, Radix radix) : basic_string() {
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
    Construct(first, static_cast<size_type>(std::end(digits) - first));
  }

  basic_string(const basic_string& other) noexcept { ShareFrom(other); }

  basic_string(basic_string&& other) noexcept { TakeFrom(other); }

  ~basic_string() {
    if (!is_inline()) ReleaseBlock(storage_.heap);
  }

  basic_string& operator=(const basic_string& other) noexcept {
    // Counting up first keeps the block when a string is assigned to itself.
    if (!other.is_inline()) OwnerCount(other.storage_.heap).fetch_add(1);
    if (!is_inline()) ReleaseBlock(storage_.heap);
    if (this != &other) CopyRaw(other);
    return *this;
  }

  basic_string& operator=(basic_string&& other) noexcept {
    if (this != &other) {
      if (!is_inline()) ReleaseBlock(storage_.heap);
      TakeFrom(other);
    }
    return *this;
  }

  basic_string& operator=(const C* text) { return assign(text, Traits::length(text)); }
  basic_string& operator=(view_type text) { return assign(text.data(), text.size()); }
  basic_string& operator=(C unit) { return assign(&unit, 1); }

  // --- Size and state -----------------------------------------------------------------------

  size_type size() const noexcept { return is_inline() ? mode_ : HeapLength(storage_.heap); }
  size_type length() const noexcept { return size(); }
  bool empty() const noexcept { return size() == 0; }
  static constexpr size_type max_size() noexcept { return kMaxCapacity - kHeaderUnits; }
  /// Units that fit without a new block.
  size_type capacity() const noexcept {
    return is_inline() ? kInlineCapacity - 1 : storage_.heap.capacity - kHeaderUnits;
  }

  /// The mode value: the length of an inline text, or `kHeapMarker`.
  std::uint32_t mode() const noexcept { return mode_; }
  bool is_inline() const noexcept { return mode_ != kHeapMarker; }
  /// The capacity of the heap block in units, its header included; 0 for an inline text.
  size_type block_capacity() const noexcept { return is_inline() ? 0 : storage_.heap.capacity; }
  /// How many strings own the heap block; 0 for an inline text.
  std::uint64_t use_count() const noexcept {
    return is_inline() ? 0 : OwnerCount(storage_.heap).load();
  }

  // --- Access -------------------------------------------------------------------------------

  /// The text with a zero unit behind it; valid until the string is changed or destroyed.
  const C* data() const noexcept {
    return is_inline() ? storage_.text : storage_.heap.begin + kHeaderUnits;
  }
  const C* c_str() const noexcept { return data(); }
  /// The text for writing, in a block of this string's own.
  C* data() {
    MakeUnique();
    return Text();
  }

  view_type view() const noexcept { return view_type(data(), size()); }
  operator view_type() const noexcept { return view(); }  // NOLINT: as the standard's string

  const C& operator[](size_type position) const noexcept { return data()[position]; }
  C& operator[](size_type position) { return data()[position]; }
  const C& at(size_type position) const {
    CheckIndex(position);
    return data()[position];
  }
  C& at(size_type position) {
    CheckIndex(position);
    return data()[position];
  }
  const C& front() const noexcept { return data()[0]; }
  C& front() { return data()[0]; }
  const C& back() const noexcept { return data()[size() - 1]; }
  C& back() { return data()[size() - 1]; }

  const_iterator begin() const noexcept { return data(); }
  const_iterator end() const noexcept { return data() + size(); }
  const_iterator cbegin() const noexcept { return begin(); }
  const_iterator cend() const noexcept { return end(); }
  iterator begin() { return data(); }
  iterator end() { return data() + size(); }
  const_reverse_iterator rbegin() const noexcept { return const_reverse_iterator(end()); }
  const_reverse_iterator rend() const noexcept { return const_reverse_iterator(begin()); }
  const_reverse_iterator crbegin() const noexcept { return rbegin(); }
  const_reverse_iterator crend() const noexcept { return rend(); }
  reverse_iterator rbegin() { return reverse_iterator(end()); }
  reverse_iterator rend() { return reverse_iterator(begin()); }

  // --- Changing -----------------------------------------------------------------------------

  void clear() { Resize(0, kExact); }

  /// Cuts the text or lengthens it with `unit`. A heap text that becomes shorter than
  /// `kInlineCapacity` moves back into the object; one that grows below it stays on the heap.
  void resize(size_type count, C unit = C()) {
    const size_type old_size = size();
    Resize(count, kExact);
    if (count > old_size) Traits::assign(Text() + old_size, count - old_size, unit);
  }

  /// Makes room for `count` units, exactly. Throws std::length_error where no string can be so
  /// long.
  void reserve(size_type count) {
    if (count >= kReserveLimit) throw std::length_error(kRangeText);
    if (is_inline()) {
      if (count >= kInlineCapacity) MoveToHeap(count);
      return;
    }
    MakeUnique();
    const size_type capacity = BlockCapacityFor(count);
    if (capacity > storage_.heap.capacity) Reallocate(capacity);
  }

  /// Replaces the text. The source may lie in this string. Throws std::length_error where no
  /// string can be so long; running out of memory while the text leaves a shared block ends the
  /// process.
  basic_string& assign(const C* text, size_type count) {
    const bool longer = count > size();
    const Source source(*this, text);
    MakeUniqueOrTerminate();
    if (longer) Resize(count, kExact);
    Traits::copy(Text(), source.In(*this), count);
    if (!longer) Resize(count, kExact);
    return *this;
  }
  basic_string& assign(const basic_string& other) noexcept { return *this = other; }
  basic_string& assign(basic_string&& other) noexcept { return *this = std::move(other); }
  basic_string& assign(view_type text) { return assign(text.data(), text.size()); }
  basic_string& assign(const C* text) { return assign(text, Traits::length(text)); }
  basic_string& assign(size_type count, C unit) { return *this = basic_string(count, unit); }
  template <std::input_iterator It>
  basic_string& assign(It first, It last) {
    return *this = basic_string(first, last);
  }

  /// Appends units, growing the block by half. Source, errors: as `assign`.
  basic_string& append(const C* text, size_type count) {
    const size_type old_size = size();
    const Source source(*this, text);
    MakeUniqueOrTerminate();
    Resize(LongerBy(old_size, count), kGrow);
    Traits::copy(Text() + old_size, source.In(*this), count);
    return *this;
  }
  /// Appends at most `count` units of `other` from `position`. Throws std::out_of_range when
  /// `position` lies behind the end of `other`.
  basic_string& append(const basic_string& other, size_type position, size_type count = npos) {
    const size_type length = other.CheckRange(position, count);
    return append(other.data() + position, length);
  }
  basic_string& append(view_type text) { return append(text.data(), text.size()); }
  basic_string& append(const C* text) { return append(text, Traits::length(text)); }
  basic_string& append(size_type count, C unit) {
    const size_type old_size = size();
    MakeUniqueOrTerminate();
    Resize(LongerBy(old_size, count), kGrow);
    if (count != 0) Traits::assign(Text() + old_size, count, unit);
    return *this;
  }
  template <std::input_iterator It>
  basic_string& append(It first, It last) {
    if constexpr (unit_iterator<It, C>) {
      const auto count = static_cast<size_type>(last - first);
      return append(count == 0 ? nullptr : std::to_address(first), count);
    } else {
      return append(basic_string(first, last).view());  // the range may walk over this string
    }
  }
  basic_string& operator+=(const basic_string& text) { return append(text.data(), text.size()); }
  basic_string& operator+=(view_type text) { return append(text); }
  basic_string& operator+=(const C* text) { return append(text); }
  basic_string& operator+=(C unit) {
    push_back(unit);
    return *this;
  }

  void push_back(C unit) {
    if (!is_inline()) {
      Heap& heap = storage_.heap;
      // The common case of a loop that appends: an own block with room.
      if (heap.end < heap.begin + heap.capacity && IsUnique(heap)) {
        *heap.end++ = unit;
        *heap.end = C();
        return;
      }
    }
    append(1, unit);
  }
  void pop_back() { Resize(size() - 1, kExact); }

  /// Inserts before `position`. Anywhere but at the end the text is assembled anew in a block of
  /// exactly the size needed. Throws std::out_of_range behind the end.
  basic_string& insert(size_type position, const C* text, size_type count) {
    CheckRange(position, 0);
    if (count == 0) return *this;
    if (position == size()) return append(text, count);
    return Assemble(position, 0, view_type(text, count));
  }
  basic_string& insert(size_type position, view_type text) {
    return insert(position, text.data(), text.size());
  }
  basic_string& insert(size_type position, size_type count, C unit) {
    return insert(position, basic_string(count, unit).view());
  }
  template <std::input_iterator It>
  basic_string& insert(size_type position, It first, It last) {
    return insert(position, basic_string(first, last).view());
  }

  /// Removes at most `count` units from `position`. Throws std::out_of_range behind the end.
  basic_string& erase(size_type position = 0, size_type count = npos) {
    const size_type removed = CheckRange(position, count);
    const size_type old_size = size();
    MakeUnique();
    C* const text = Text();
    Traits::copy(text + position, text + position + removed, old_size - position - removed);
    Resize(old_size - removed, kExact);
    return *this;
  }
  /// Removes what lies between two iterators of this string; the iterator behind it comes back.
  template <std::convertible_to<const_iterator> It>
  requires std::is_pointer_v<It> iterator erase(It first, It last) {
    const auto position = static_cast<size_type>(first - cbegin());
    erase(position, static_cast<size_type>(last - first));
    return begin() + position;
  }

  /// Puts `text` in the place of at most `count` units from `position`. Throws std::out_of_range
  /// behind the end.
  basic_string& replace(size_type position, size_type count, view_type text) {
    return Assemble(position, CheckRange(position, count), text);
  }

  /// Replaces every occurrence of `pattern`, from the left and without overlap. Returns how many.
  std::int64_t replace_all(view_type pattern, view_type replacement) {
    if (pattern.empty() || size() < pattern.size()) return 0;
    std::vector<size_type> positions;
    for (size_type at = find(pattern); at != npos; at = find(pattern, at + pattern.size())) {
      positions.push_back(at);
    }
    if (positions.empty()) return 0;
    if (pattern.size() == replacement.size()) {
      const basic_string own(replacement);  // the replacement may lie in this string
      C* const text = data();
      for (const size_type at : positions) Traits::copy(text + at, own.data(), own.size());
    } else {
      basic_string result = OfLength(LongerBy(size() - positions.size() * pattern.size(),
                                              replacement.size(), positions.size()));
      const view_type old = view();
      C* to = result.Text();
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

  void swap(basic_string& other) noexcept {
    basic_string old(std::move(*this));
    *this = std::move(other);
    other = std::move(old);
  }
  friend void swap(basic_string& a, basic_string& b) noexcept { a.swap(b); }

  // --- Reading ------------------------------------------------------------------------------

  /// The part of at most `count` units from `position`. Throws std::out_of_range behind the end.
  basic_string substr(size_type position = 0, size_type count = npos) const {
    const size_type length = CheckRange(position, count);
    if (length == size()) return *this;
    return basic_string(data() + position, length);
  }
  size_type copy(C* to, size_type count, size_type position = 0) const {
    const size_type length = CheckRange(position, count);
    Traits::copy(to, data() + position, length);
    return length;
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
  size_type find(const C* text, size_type position, size_type count) const noexcept {
    return view().find(text, position, count);
  }
  size_type find(C unit, size_type position = 0) const noexcept {
    return view().find(unit, position);
  }
  size_type rfind(view_type text, size_type position = npos) const noexcept {
    return view().rfind(text, position);
  }
  size_type rfind(const C* text, size_type position, size_type count) const noexcept {
    return view().rfind(text, position, count);
  }
  size_type rfind(C unit, size_type position = npos) const noexcept {
    return view().rfind(unit, position);
  }
  size_type find_first_of(view_type units, size_type position = 0) const noexcept {
    return view().find_first_of(units, position);
  }
  size_type find_first_of(C unit, size_type position = 0) const noexcept {
    return find(unit, position);
  }
  size_type find_last_of(view_type units, size_type position = npos) const noexcept {
    return view().find_last_of(units, position);
  }
  size_type find_last_of(C unit, size_type position = npos) const noexcept {
    return rfind(unit, position);
  }
  size_type find_first_not_of(view_type units, size_type position = 0) const noexcept {
    return view().find_first_not_of(units, position);
  }
  size_type find_first_not_of(C unit, size_type position = 0) const noexcept {
    return view().find_first_not_of(unit, position);
  }
  size_type find_last_not_of(view_type units, size_type position = npos) const noexcept {
    return view().find_last_not_of(units, position);
  }
  size_type find_last_not_of(C unit, size_type position = npos) const noexcept {
    return view().find_last_not_of(unit, position);
  }
  bool contains(view_type text) const noexcept { return find(text) != npos; }
  bool contains(C unit) const noexcept { return find(unit) != npos; }
  bool starts_with(view_type text) const noexcept { return view().starts_with(text); }
  bool starts_with(C unit) const noexcept { return view().starts_with(unit); }
  bool ends_with(view_type text) const noexcept { return view().ends_with(text); }
  bool ends_with(C unit) const noexcept { return view().ends_with(unit); }

  int compare(view_type text) const noexcept { return view().compare(text); }
  int compare(size_type position, size_type count, view_type text) const {
    const size_type length = CheckRange(position, count);
    return view().substr(position, length).compare(text);
  }

  friend bool operator==(const basic_string& a, const basic_string& b) noexcept {
    return a.view() == b.view();
  }
  friend bool operator==(const basic_string& a, view_type b) noexcept { return a.view() == b; }
  friend bool operator==(const basic_string& a, const C* b) noexcept { return a.view() == b; }
  friend std::strong_ordering operator<=>(const basic_string& a, const basic_string& b) noexcept {
    return a.compare(b.view()) <=> 0;
  }
  friend std::strong_ordering operator<=>(const basic_string& a, view_type b) noexcept {
    return a.compare(b) <=> 0;
  }
  friend std::strong_ordering operator<=>(const basic_string& a, const C* b) noexcept {
    return a.compare(view_type(b)) <=> 0;
  }

  // --- Concatenation: a new string of exactly the total length --------------------------------

  friend basic_string operator+(const basic_string& a, const basic_string& b) {
    return Concat(a.view(), b.view());
  }
  friend basic_string operator+(const basic_string& a, view_type b) { return Concat(a.view(), b); }
  friend basic_string operator+(view_type a, const basic_string& b) { return Concat(a, b.view()); }
  friend basic_string operator+(const basic_string& a, const C* b) { return Concat(a.view(), b); }
  friend basic_string operator+(const C* a, const basic_string& b) { return Concat(a, b.view()); }
  friend basic_string operator+(const basic_string& a, C b) {
    return Concat(a.view(), view_type(&b, 1));
  }
  friend basic_string operator+(C a, const basic_string& b) {
    return Concat(view_type(&a, 1), b.view());
  }

 private:
  // The layout below is shared with whoever inspects a string's memory.
  struct Heap {
    C* begin;            // the block: owner count, text, zero unit
    C* end;              // just past the last unit of text
    size_type capacity;  // units of the block, header included, the last zero unit not
  };
  union Storage {
    C text[kInlineCapacity];
    Heap heap;
  };
  enum Growth : bool { kExact, kGrow };

  static constexpr const char* kRangeText = "basic_string";
  static constexpr const char* kAllocateText =
      "allocator<T>::allocate(size_t n) 'n' exceeds maximum supported size";
  static constexpr size_type kReserveLimit = 0x7fffffffffffffff;
  /// The largest block whose bytes, with the zero unit, a signed size can count.
  static constexpr size_type kMaxCapacity =
      static_cast<size_type>(std::numeric_limits<difference_type>::max()) / sizeof(C) - 1;

  void SetEmpty() noexcept {
    mode_ = 0;
    storage_.text[0] = C();
  }
  void CopyRaw(const basic_string& other) noexcept {
    mode_ = other.mode_;
    std::memcpy(&storage_, &other.storage_, sizeof(storage_));
  }
  void ShareFrom(const basic_string& other) noexcept {
    if (!other.is_inline()) OwnerCount(other.storage_.heap).fetch_add(1);
    CopyRaw(other);
  }
  void TakeFrom(basic_string& other) noexcept {
    CopyRaw(other);
    other.SetEmpty();
  }
  /// Copies fewer than 32 bytes as two pieces of a fixed size, which may overlap.
  static void CopyShort(void* to, const void* from, size_type bytes) noexcept {
    static_cast<void>(CopyEnds<16>(to, from, bytes) || CopyEnds<8>(to, from, bytes) ||
                      CopyEnds<4>(to, from, bytes) || CopyEnds<2>(to, from, bytes) ||
                      CopyEnds<1>(to, from, bytes));
  }
  template <size_type kPiece>
  static bool CopyEnds(void* to, const void* from, size_type bytes) noexcept {
    if (bytes < kPiece) return false;
    const size_type last = bytes - kPiece;
    std::memcpy(to, from, kPiece);
    std::memcpy(static_cast<char*>(to) + last, static_cast<const char*>(from) + last, kPiece);
    return true;
  }

  /// The text for writing; the block must be this string's own.
  C* Text() noexcept { return is_inline() ? storage_.text : storage_.heap.begin + kHeaderUnits; }
  static size_type HeapLength(const Heap& heap) noexcept {
    return static_cast<size_type>(heap.end - heap.begin) - kHeaderUnits;
  }

  static std::atomic_ref<std::uint64_t> OwnerCount(const Heap& heap) noexcept {
    return std::atomic_ref<std::uint64_t>(*reinterpret_cast<std::uint64_t*>(heap.begin));
  }
  static bool IsUnique(const Heap& heap) noexcept {
    // Acquire: what the last other owner did with the block lies before our writing.
    return OwnerCount(heap).load(std::memory_order_acquire) == 1;
  }
  static void ReleaseBlock(const Heap& heap) noexcept {
    if (OwnerCount(heap).fetch_sub(1) == 1) Allocator().deallocate(heap.begin, heap.capacity + 1);
  }
  static C* AllocateBlock(size_type capacity) {
    if (capacity > kMaxCapacity) throw std::length_error(kAllocateText);
    C* const block = Allocator().allocate(capacity + 1);
    ::new (static_cast<void*>(block)) std::uint64_t(1);
    return block;
  }

  static size_type BlockCapacityFor(size_type count) {
    if (count > max_size()) throw std::length_error(kAllocateText);
    return count + kHeaderUnits;
  }
  /// `size` and `times` pieces of `count` units together.
  static size_type LongerBy(size_type size, size_type count, size_type times = 1) {
    if (count > (max_size() - size) / times) throw std::length_error(kAllocateText);
    return size + count * times;
  }
  /// Rounds a capacity up to the allocator's size classes, which count bytes.
  static constexpr size_type RoundCapacity(size_type capacity) noexcept {
    const size_type bytes = capacity * sizeof(C);
    const size_type step = bytes <= 256    ? 8
                           : bytes <= 512  ? 16
                           : bytes < 1024  ? 32
                           : bytes < 2048  ? 64
                           : bytes < 4096  ? 128
                           : bytes < 8192  ? 256
                           : bytes < 16384 ? 512
                                           : 1;
    return (bytes + step - 1) / step * step / sizeof(C);
  }

  // The ways between blocks are written outside the class and compiled once, so that the short ways
  // above stay small where they are used.

  /// Makes a new string one of `count` units of `text`.
  void Construct(const C* text, size_type count);
  /// Moves the heap text to a block of its own with `capacity` units, which must hold it.
  void Reallocate(size_type capacity);
  /// Moves the inline text to a block with room for exactly `count` units.
  void MoveToHeap(size_type count);
  /// `Resize` where a block is left, entered or changed.
  void ResizeBlock(size_type count, Growth growth);

  void MakeUnique() {
    if (is_inline() || IsUnique(storage_.heap)) return;
    Reallocate(static_cast<size_type>(storage_.heap.end - storage_.heap.begin));
  }
  // Assigning and appending may not fail half-way through leaving a shared block.
  void MakeUniqueOrTerminate() noexcept { MakeUnique(); }

  /// Changes the length; units behind the old end are left as they come. A heap text that shrinks
  /// below the inline capacity moves inline, one that grows but stays below it does not.
  void Resize(size_type count, Growth growth) {
    if (!is_inline() || count >= kInlineCapacity) return ResizeBlock(count, growth);
    mode_ = static_cast<std::uint32_t>(count);
    storage_.text[count] = C();
  }

  bool Holds(const C* text) const noexcept {
    const std::less_equal<const C*> not_after;
    return not_after(data(), text) && not_after(text, data() + size());
  }
  /// A source of units that is found again when the string it lies in has moved to a new block.
  class Source {
   public:
    Source(const basic_string& string, const C* text) noexcept
        : text_(text), inside_(string.Holds(text)) {
      if (inside_) offset_ = static_cast<size_type>(text - string.data());
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
    result.Resize(count, kExact);
    return result;
  }
  static basic_string Join(view_type a, view_type b, view_type c) {
    basic_string result = OfLength(LongerBy(LongerBy(a.size(), b.size()), c.size()));
    C* const to = result.Text();
    Traits::copy(to, a.data(), a.size());
    Traits::copy(to + a.size(), b.data(), b.size());
    Traits::copy(to + a.size() + b.size(), c.data(), c.size());
    return result;
  }
  static basic_string Concat(view_type a, view_type b) { return Join(a, b, view_type()); }
  basic_string& Assemble(size_type position, size_type removed, view_type text) {
    const view_type old = view();
    return *this = Join(old.substr(0, position), text, old.substr(position + removed));
  }

  void CheckIndex(size_type position) const {
    if (position >= size()) throw std::out_of_range(kRangeText);
  }
  size_type CheckRange(size_type position, size_type count) const {
    if (position > size()) throw std::out_of_range(kRangeText);
    return std::min(size() - position, count);
  }

  std::uint32_t mode_;
  Storage storage_;

  static_assert(std::is_empty_v<Allocator>, "the object has no room for an allocator");
  static_assert(sizeof(Storage) == 24);

 public:
  /// Where the fields lie, for those who check the layout.
  static constexpr size_type ModeOffset() { return offsetof(basic_string, mode_); }
  static constexpr size_type StorageOffset() { return offsetof(basic_string, storage_); }
};

template <class C, class Traits, class Allocator>
void basic_string<C, Traits, Allocator>::Construct(const C* text, size_type count) {
  Resize(count, kExact);
  if (count < kInlineCapacity) {
    CopyShort(storage_.text, text, count * sizeof(C));
  } else {
    Traits::copy(Text(), text, count);
  }
}

template <class C, class Traits, class Allocator>
void basic_string<C, Traits, Allocator>::Reallocate(size_type capacity) {
  Heap& heap = storage_.heap;
  C* const block = AllocateBlock(capacity);
  const size_type length = HeapLength(heap);
  Traits::copy(block + kHeaderUnits, heap.begin + kHeaderUnits, length + 1);
  ReleaseBlock(heap);
  heap = {block, block + kHeaderUnits + length, capacity};
}

template <class C, class Traits, class Allocator>
void basic_string<C, Traits, Allocator>::MoveToHeap(size_type count) {
  const size_type capacity = BlockCapacityFor(count);
  C* const block = AllocateBlock(capacity);
  const size_type length = mode_;
  Traits::copy(block + kHeaderUnits, storage_.text, length + 1);
  storage_.heap = {block, block + kHeaderUnits + length, capacity};
  mode_ = kHeapMarker;
}

template <class C, class Traits, class Allocator>
void basic_string<C, Traits, Allocator>::ResizeBlock(size_type count, Growth growth) {
  Heap& heap = storage_.heap;
  if (is_inline()) {
    MoveToHeap(count);
  } else if (count < kInlineCapacity && count <= HeapLength(heap)) {
    const Heap left = heap;
    mode_ = 0;
    Resize(count, kExact);
    Traits::copy(storage_.text, left.begin + kHeaderUnits, count);
    return ReleaseBlock(left);
  }
  MakeUnique();
  const size_type needed = BlockCapacityFor(count);
  if (heap.capacity < needed) {
    const size_type wanted =
        growth == kGrow ? std::max(needed, heap.capacity + heap.capacity / 2) : needed;
    Reallocate(RoundCapacity(std::min(wanted, kMaxCapacity)));
  }
  heap.end = heap.begin + kHeaderUnits + count;
  *heap.end = C();
}

using string = basic_string<char>;
using u16string = basic_string<char16_t>;

extern template class basic_string<char>;
extern template class basic_string<char16_t>;

static_assert(sizeof(string) == 32 && sizeof(u16string) == 32);
static_assert(string::ModeOffset() == 0 && string::StorageOffset() == 8);
static_assert(u16string::ModeOffset() == 0 && u16string::StorageOffset() == 8);
static_assert(string::kInlineCapacity == 24 && u16string::kInlineCapacity == 12);

}  // namespace stdx

template <class C, class Traits, class Allocator>
struct std::hash<stdx::basic_string<C, Traits, Allocator>> {
  std::size_t operator()(const stdx::basic_string<C, Traits, Allocator>& text) const noexcept {
    return std::hash<std::basic_string_view<C>>()(text.view());
  }
};
