// Both kinds of string against the standard's. "Short" fits into either object, "small" only into
// ours. Copies of long texts are kept for a while, as a system keeps them; the row of those that
// are dropped at once is the best case of the standard's, whose allocator hands the same block out
// again and again.
#include <array>
#include <string>

#if __has_include(<malloc.h>)
#include <malloc.h>
#endif

#include "bench/core/side_by_side.h"

#include "core/basic_string.h"

namespace quarn::bench {
namespace {

using benchmark::DoNotOptimize;

template <class S>
auto Create(const typename S::value_type* text, std::size_t count) {
  return [text, count]() mutable {
    DoNotOptimize(text);
    DoNotOptimize(count);
    S string(text, count);
    DoNotOptimize(string);
  };
}

template <class S>
auto CreateTerminated(const typename S::value_type* text) {
  return [text]() mutable {
    DoNotOptimize(text);
    S string(text);
    DoNotOptimize(string);
  };
}

template <class S>
S Filled(std::size_t count) {
  S string;
  string.resize(count, 'x');
  return string;
}

template <class S>
auto Copy(std::size_t count) {
  return [string = Filled<S>(count)]() mutable {
    DoNotOptimize(string);
    S copy(string);
    DoNotOptimize(copy);
  };
}

constexpr std::size_t kKept = 100;

template <class S>
auto CopyAndKeep(std::size_t count) {
  return [string = Filled<S>(count)]() mutable {
    std::array<S, kKept> copies;
    for (S& copy : copies) {
      DoNotOptimize(string);
      copy = S(string);
    }
    DoNotOptimize(copies);
  };
}

template <class S>
auto CopyAssign(std::size_t count) {
  return [string = Filled<S>(count), target = S()]() mutable {
    DoNotOptimize(string);
    target = string;
    DoNotOptimize(target);
  };
}

template <class S>
auto AppendOneByOne(std::size_t count) {
  return [count] {
    S string;
    for (std::size_t i = 0; i < count; ++i) string.push_back('x');
    DoNotOptimize(string);
  };
}

/// A copy and one write to it: where sharing costs instead of saving.
template <class S>
auto CopyAndWrite(std::size_t count) {
  return [string = Filled<S>(count)]() mutable {
    DoNotOptimize(string);
    S copy(string);
    copy.data()[0] = 'y';
    DoNotOptimize(copy);
  };
}

template <class Ours>
void Compare(SideBySide& table, const std::string& kind) {
  using C = typename Ours::value_type;
  using Theirs = std::basic_string<C>;
  static constexpr C kText[] = {'/', 't', 'm', 'p', '/', 'x', 'y'};
  static constexpr C kTerminated[] = {'/', 't', 'm', 'p', '/', 'x', 0};
  constexpr std::size_t kShort = 7;
  constexpr std::size_t kSmall = Ours::kInlineCapacity - 1;
  constexpr std::size_t kKiB = 1024 / sizeof(C);
  const std::basic_string<C> small(kSmall, 'x');

  table.Row(kind + ": create short", 1, Create<Ours>(kText, kShort), Create<Theirs>(kText, kShort));
  table.Row(kind + ": create short, terminated", 1, CreateTerminated<Ours>(kTerminated),
            CreateTerminated<Theirs>(kTerminated));
  table.Row(kind + ": copy short", 1, Copy<Ours>(kShort), Copy<Theirs>(kShort));
  table.Row(kind + ": assign short", 1, CopyAssign<Ours>(kShort), CopyAssign<Theirs>(kShort));
  table.Row(kind + ": create small", 1, Create<Ours>(small.data(), kSmall),
            Create<Theirs>(small.data(), kSmall));
  table.Row(kind + ": copy small", 1, Copy<Ours>(kSmall), Copy<Theirs>(kSmall));
  table.Row(kind + ": copy 1 KiB, 100 times", 1.0 / 2, CopyAndKeep<Ours>(kKiB),
            CopyAndKeep<Theirs>(kKiB));
  table.Row(kind + ": copy 64 KiB, 100 times", 1.0 / 50, CopyAndKeep<Ours>(64 * kKiB),
            CopyAndKeep<Theirs>(64 * kKiB));
  table.Row(kind + ": copy 1 KiB, dropped at once", 0, Copy<Ours>(kKiB), Copy<Theirs>(kKiB));
  table.Row(kind + ": copy 64 KiB, dropped at once", 1.0 / 50, Copy<Ours>(64 * kKiB),
            Copy<Theirs>(64 * kKiB));
  table.Row(kind + ": append a million units one by one", 1.5, AppendOneByOne<Ours>(1000000),
            AppendOneByOne<Theirs>(1000000));
  table.Row(kind + ": copy 1 KiB and write", 0, CopyAndWrite<Ours>(kKiB),
            CopyAndWrite<Theirs>(kKiB));
}

}  // namespace
}  // namespace quarn::bench

int main() {
#ifdef M_TRIM_THRESHOLD
  // Freed memory stays in the process, so that the kernel's page faults count for neither string.
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
#endif
  quarn::bench::SideBySide table;
  quarn::bench::Compare<stdx::u16string>(table, "u16string");
  quarn::bench::Compare<stdx::string>(table, "string");
  return table.ExitCode();
}
