// Where a string keeps its text: a short one inside the object, a long one in a heap block that
// copies share. How such a block is laid out, counted, grown and rounded is written here, and
// nothing of what a string can do: that is in basic_string.h.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>
#include <type_traits>

namespace stdx {

/// Units compare as unsigned integers, the terminator is the unit 0, and copying is a plain memory
/// move, so source and destination may overlap.
template <class C>
struct fix_char_traits : std::char_traits<C> {
  static C* copy(C* to, const C* from, std::size_t count) noexcept {
    // A null source is allowed for an empty range.
    return count == 0 ? to : static_cast<C*>(std::memmove(to, from, count * sizeof(C)));
  }
};

/// The text of a string of units `C`, always followed by a terminator. Sizes and capacities are in
/// units.
///
/// Object layout: a 32-bit mode, then 24 bytes. A mode below `kInlineCapacity` is the length of the
/// text in those bytes; the mode `kHeapMarker` says that they describe a heap block: a 64-bit count
/// of owners, the text, a terminator. A block with more than one owner is read-only.
///
/// Threads: storages that share a block may be used on different threads at once, one storage may
/// not.
template <class C, class Traits, class Allocator>
class string_storage {
 public:
  /// Units that the object itself holds, with the terminator: 12 of char16_t, 24 of char.
  static constexpr std::size_t kInlineCapacity = 24 / sizeof(C);
  /// The mode of a string with a heap block.
  static constexpr auto kHeapMarker = static_cast<std::uint32_t>(kInlineCapacity);
  /// Units that the count of owners takes at the start of a block: 4 of char16_t, 8 of char.
  static constexpr std::size_t kHeaderUnits = sizeof(std::uint64_t) / sizeof(C);

  /// How large a block becomes that has to grow: as large as needed, or larger by half if that is
  /// more.
  enum class Growth { kExact, kByHalf };

  string_storage() noexcept { SetEmpty(); }
  string_storage(const string_storage& other) noexcept {
    if (!other.is_inline()) CountOwner(other.body_.heap);
    CopyFields(other);
  }
  string_storage(string_storage&& other) noexcept { Take(other); }
  ~string_storage() {
    if (!is_inline()) Release(body_.heap);
  }
  string_storage& operator=(const string_storage& other) noexcept {
    // Counting up first keeps the block when a string is assigned to itself.
    if (!other.is_inline()) CountOwner(other.body_.heap);
    if (!is_inline()) Release(body_.heap);
    if (this != &other) CopyFields(other);
    return *this;
  }
  string_storage& operator=(string_storage&& other) noexcept {
    if (this != &other) {
      if (!is_inline()) Release(body_.heap);
      Take(other);
    }
    return *this;
  }

  std::uint32_t mode() const noexcept { return mode_; }
  bool is_inline() const noexcept { return mode_ != kHeapMarker; }
  std::size_t size() const noexcept { return is_inline() ? mode_ : Length(body_.heap); }
  /// Of the heap block, its header included; 0 for an inline text.
  std::size_t block_capacity() const noexcept { return is_inline() ? 0 : body_.heap.capacity; }
  /// How many strings own the heap block; 0 for an inline text.
  std::uint64_t use_count() const noexcept { return is_inline() ? 0 : Owners(body_.heap).load(); }

  const C* text() const noexcept {
    return is_inline() ? body_.text : body_.heap.begin + kHeaderUnits;
  }
  /// The text for writing; the block must be this string's own.
  C* own_text() noexcept { return is_inline() ? body_.text : body_.heap.begin + kHeaderUnits; }

  /// Fills a new storage.
  void Construct(const C* text, std::size_t count);

  /// Leaves a shared block for an own one that has room for the text alone.
  void MakeUnique() {
    if (!is_inline() && !IsUnique(body_.heap)) Reallocate(kHeaderUnits + size());
  }

  /// Changes the length; units after the old end have any value. A heap text that shrinks below
  /// the inline capacity moves inline, one that grows but stays below it does not.
  void Resize(std::size_t count, Growth growth) {
    if (!is_inline() || count >= kInlineCapacity) return ResizeBlock(count, growth);
    mode_ = static_cast<std::uint32_t>(count);
    body_.text[count] = C();
  }

  /// Makes room for `count` units, exactly.
  void Reserve(std::size_t count);

  /// Appends to an own block with room, which is the common case of a loop that appends. False
  /// without having done anything otherwise.
  bool AppendInPlace(C unit) noexcept {
    if (is_inline()) return false;
    Heap& heap = body_.heap;
    if (heap.end >= heap.begin + heap.capacity || !IsUnique(heap)) return false;
    *heap.end++ = unit;
    *heap.end = C();
    return true;
  }

  /// `size` and `times` pieces of `count` units together. Throws std::length_error where no string
  /// can be so long.
  static std::size_t LongerBy(std::size_t size, std::size_t count, std::size_t times = 1) {
    if (count > (kMaxLength - size) / times) throw std::length_error(kTooLong);
    return size + count * times;
  }

 private:
  using OwnerCount = std::atomic<std::uint64_t>;
  struct Heap {
    C* begin;              // the block: count of owners, text, terminator
    C* end;                // one past the last unit of text
    std::size_t capacity;  // of the block, with its header and without its terminator
  };
  union Body {
    C text[kInlineCapacity];
    Heap heap;
  };

  static constexpr const char* kTooLong =
      "allocator<T>::allocate(size_t n) 'n' exceeds maximum supported size";
  /// The largest block whose bytes, with the terminator, a signed size can count.
  static constexpr std::size_t kMaxCapacity =
      static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()) / sizeof(C) - 1;
  static constexpr std::size_t kMaxLength = kMaxCapacity - kHeaderUnits;

  // --- The object ---

  void SetEmpty() noexcept {
    mode_ = 0;
    body_.text[0] = C();
  }
  void CopyFields(const string_storage& other) noexcept {
    mode_ = other.mode_;
    std::memcpy(&body_, &other.body_, sizeof(body_));
  }
  void Take(string_storage& other) noexcept {
    CopyFields(other);
    other.SetEmpty();
  }
  /// Copies fewer than 32 bytes as two pieces of a fixed size, which may overlap.
  static void CopyShort(void* to, const void* from, std::size_t bytes) noexcept {
    static_cast<void>(CopyEnds<16>(to, from, bytes) || CopyEnds<8>(to, from, bytes) ||
                      CopyEnds<4>(to, from, bytes) || CopyEnds<2>(to, from, bytes) ||
                      CopyEnds<1>(to, from, bytes));
  }
  template <std::size_t kPiece>
  static bool CopyEnds(void* to, const void* from, std::size_t bytes) noexcept {
    if (bytes < kPiece) return false;
    const std::size_t last = bytes - kPiece;
    std::memcpy(to, from, kPiece);
    std::memcpy(static_cast<char*>(to) + last, static_cast<const char*>(from) + last, kPiece);
    return true;
  }

  // --- The block ---

  static std::size_t Length(const Heap& heap) noexcept {
    return static_cast<std::size_t>(heap.end - heap.begin) - kHeaderUnits;
  }
  static OwnerCount& Owners(const Heap& heap) noexcept {
    return *std::launder(reinterpret_cast<OwnerCount*>(heap.begin));
  }
  static bool IsUnique(const Heap& heap) noexcept {
    // Acquire: what the last other owner did with the block happens before this string writes.
    return Owners(heap).load(std::memory_order_acquire) == 1;
  }
  static void CountOwner(const Heap& heap) noexcept { Owners(heap).fetch_add(1); }
  static void Release(const Heap& heap) noexcept {
    if (Owners(heap).fetch_sub(1) == 1) Allocator().deallocate(heap.begin, heap.capacity + 1);
  }
  static C* Allocate(std::size_t capacity) {
    if (capacity > kMaxCapacity) throw std::length_error(kTooLong);
    C* const block = Allocator().allocate(capacity + 1);
    ::new (static_cast<void*>(block)) OwnerCount(1);
    return block;
  }

  static std::size_t BlockCapacityFor(std::size_t count) {
    return LongerBy(0, count) + kHeaderUnits;
  }
  /// Rounds a capacity up to the allocator's size classes, which count bytes.
  static constexpr std::size_t RoundCapacity(std::size_t capacity) noexcept {
    const std::size_t bytes = capacity * sizeof(C);
    const std::size_t step = bytes <= 256    ? 8
                             : bytes <= 512  ? 16
                             : bytes < 1024  ? 32
                             : bytes < 2048  ? 64
                             : bytes < 4096  ? 128
                             : bytes < 8192  ? 256
                             : bytes < 16384 ? 512
                                             : 1;
    return (bytes + step - 1) / step * step / sizeof(C);
  }

  // --- From block to block: compiled once, so that the short ways above stay small where they are
  // used ---

  /// Moves the heap text to an own block of `capacity` units, which must hold it.
  void Reallocate(std::size_t capacity);
  /// Moves the inline text to a block with room for exactly `count` units.
  void MoveToHeap(std::size_t count);
  /// `Resize` where a block is left, entered or changed.
  void ResizeBlock(std::size_t count, Growth growth);

  std::uint32_t mode_;
  Body body_;

  static_assert(std::is_empty_v<Allocator>, "the object has no room for an allocator");
  static_assert(sizeof(Body) == 24);
  static_assert(sizeof(OwnerCount) == 8 && OwnerCount::is_always_lock_free);
};

template <class C, class Traits, class Allocator>
void string_storage<C, Traits, Allocator>::Construct(const C* text, std::size_t count) {
  Resize(count, Growth::kExact);
  if (count < kInlineCapacity) {
    CopyShort(body_.text, text, count * sizeof(C));
  } else {
    Traits::copy(own_text(), text, count);
  }
}

template <class C, class Traits, class Allocator>
void string_storage<C, Traits, Allocator>::Reserve(std::size_t count) {
  if (is_inline()) {
    if (count >= kInlineCapacity) MoveToHeap(count);
    return;
  }
  MakeUnique();
  const std::size_t capacity = BlockCapacityFor(count);
  if (capacity > body_.heap.capacity) Reallocate(capacity);
}

template <class C, class Traits, class Allocator>
void string_storage<C, Traits, Allocator>::Reallocate(std::size_t capacity) {
  Heap& heap = body_.heap;
  C* const block = Allocate(capacity);
  const std::size_t length = Length(heap);
  Traits::copy(block + kHeaderUnits, heap.begin + kHeaderUnits, length + 1);
  Release(heap);
  heap = {block, block + kHeaderUnits + length, capacity};
}

template <class C, class Traits, class Allocator>
void string_storage<C, Traits, Allocator>::MoveToHeap(std::size_t count) {
  const std::size_t capacity = BlockCapacityFor(count);
  C* const block = Allocate(capacity);
  const std::size_t length = mode_;
  Traits::copy(block + kHeaderUnits, body_.text, length + 1);
  body_.heap = {block, block + kHeaderUnits + length, capacity};
  mode_ = kHeapMarker;
}

template <class C, class Traits, class Allocator>
void string_storage<C, Traits, Allocator>::ResizeBlock(std::size_t count, Growth growth) {
  Heap& heap = body_.heap;
  if (is_inline()) {
    MoveToHeap(count);
  } else if (count < kInlineCapacity && count <= Length(heap)) {
    const Heap old = heap;
    mode_ = 0;
    Resize(count, Growth::kExact);
    Traits::copy(body_.text, old.begin + kHeaderUnits, count);
    return Release(old);
  }
  MakeUnique();
  const std::size_t needed = BlockCapacityFor(count);
  if (heap.capacity < needed) {
    const std::size_t wanted =
        growth == Growth::kByHalf ? std::max(needed, heap.capacity + heap.capacity / 2) : needed;
    Reallocate(RoundCapacity(std::min(wanted, kMaxCapacity)));
  }
  heap.end = heap.begin + kHeaderUnits + count;
  *heap.end = C();
}

}  // namespace stdx
