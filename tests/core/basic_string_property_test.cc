// Both kinds of string and the standard's, driven by the same random operations. A model that
// knows the rules of the states, and none of their code, says after every step where each text
// lies, how large its block is and who shares it.
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "tests/core/units.h"

namespace quarn::testing {
namespace {

/// What a string must be: its text and, when it lies on the heap, its block, owned as often as the
/// pointer is.
template <class S>
class Model {
 public:
  using C = typename S::value_type;
  using Std = std::basic_string<C>;
  static constexpr std::size_t kInline = sizeof(C) == 1 ? 24 : 12;
  static constexpr std::size_t kHeader = sizeof(C) == 1 ? 8 : 4;
  struct Block {
    std::size_t capacity;
  };

  Std text;
  std::shared_ptr<Block> block;

  /// A string made at once, with exactly the room that it needs.
  static Model Made(Std text) {
    Model model;
    if (text.size() >= kInline) model.NewBlock(kHeader + text.size());
    model.text = std::move(text);
    return model;
  }

  void MakeUnique() {
    if (block != nullptr && block.use_count() > 1) NewBlock(kHeader + text.size());
  }
  void Resize(std::size_t count, bool grow, C unit = C()) {
    if (block == nullptr) {
      if (count >= kInline) NewBlock(kHeader + count);
    } else if (count == 0 || (count < kInline && count <= text.size())) {
      block = nullptr;
    } else {
      MakeUnique();
      const std::size_t needed = kHeader + count;
      if (block->capacity < needed) {
        const std::size_t half_more = block->capacity + block->capacity / 2;
        NewBlock(Rounded(grow && half_more > needed ? half_more : needed));
      }
    }
    text.resize(count, unit);
  }
  void Assign(const Std& source) {
    if (text.size() >= source.size()) {
      MakeUnique();
      Resize(source.size(), false);
    } else {
      Resize(source.size(), false);
      MakeUnique();
    }
    text = source;
  }
  void Append(const Std& source) {
    const Std all = text + source;
    Resize(all.size(), true);
    MakeUnique();
    text = all;
  }
  void Insert(std::size_t position, const Std& source) {
    if (source.empty()) return;
    if (position == text.size()) return Append(source);
    Std all = text;
    *this = Made(all.insert(position, source));
  }
  void Erase(std::size_t position, std::size_t count) {
    MakeUnique();
    Std rest = text;
    rest.erase(position, count);
    Resize(rest.size(), false);
    text = rest;
  }
  void Reserve(std::size_t count) {
    if (block == nullptr) {
      if (count >= kInline) NewBlock(kHeader + count);
      return;
    }
    MakeUnique();
    if (block->capacity < kHeader + count) NewBlock(kHeader + count);
  }
  std::int64_t ReplaceAll(const Std& pattern, const Std& replacement) {
    if (pattern.empty()) return 0;
    Std result;
    std::int64_t count = 0;
    std::size_t at = 0;
    while (at < text.size()) {
      if (text.compare(at, pattern.size(), pattern) == 0) {
        result += replacement;
        at += pattern.size();
        ++count;
      } else {
        result += text[at++];
      }
    }
    if (count == 0) return 0;
    if (pattern.size() == replacement.size()) {
      MakeUnique();
      text = result;
    } else {
      *this = Made(result);
    }
    return count;
  }

 private:
  static std::size_t Rounded(std::size_t capacity) {
    static constexpr std::size_t kClasses[][2] = {
        // first size above the class, its step, in bytes
        {257, 8}, {513, 16}, {1024, 32}, {2048, 64}, {4096, 128}, {8192, 256}, {16384, 512}};
    std::size_t bytes = capacity * sizeof(C);
    for (const auto& [end, step] : kClasses) {
      if (bytes >= end) continue;
      while (bytes % step != 0) ++bytes;
      break;
    }
    return bytes / sizeof(C);
  }
  void NewBlock(std::size_t capacity) { block = std::make_shared<Block>(Block{capacity}); }
};

template <class S>
class Drive {
 public:
  using C = typename S::value_type;
  using Std = std::basic_string<C>;
  using View = std::basic_string_view<C>;

  explicit Drive(std::uint32_t seed) : random_(seed), strings_(kPool), models_(kPool) {}

  void Run(int steps) {
    for (int i = 0; i < steps && !::testing::Test::HasFailure(); ++i) {
      Step();
      Check();
      if (::testing::Test::HasFailure()) ADD_FAILURE() << "after step " << i << ": " << operation_;
    }
  }

  /// The texts at the end, in units of 32 bits, to compare the kinds.
  std::vector<std::u32string> Texts() const {
    std::vector<std::u32string> texts;
    for (const S& string : strings_) texts.emplace_back(string.begin(), string.end());
    return texts;
  }
  /// Every operation has run, and every state was seen.
  void ExpectCovered() const {
    EXPECT_THAT(ran_, ::testing::Each(::testing::Gt(0)));
    EXPECT_GT(shared_seen_, 0);
    EXPECT_GT(short_heap_seen_, 0);
    EXPECT_GT(long_seen_, 0);
  }

 private:
  static constexpr std::size_t kPool = 6;

  std::size_t Upto(std::size_t last) {
    return std::uniform_int_distribution<std::size_t>(0, last)(random_);
  }
  /// Lengths crowd where the states change, and reach through all size classes.
  std::size_t Length() {
    switch (Upto(7)) {
      case 0:
        return Upto(3);
      case 1:
      case 2:
        return 10 + Upto(3);
      case 3:
      case 4:
        return 22 + Upto(3);
      case 5:
        return Upto(60);
      case 6:
        return Upto(600);
      default:
        return Upto(4) == 0 ? Upto(20000) : Upto(150);
    }
  }
  C Unit() { return static_cast<C>('a' + Upto(2)); }
  Std RandomText(std::size_t count) {
    Std text(count, C());
    std::ranges::generate(text, [this] { return Unit(); });
    return text;
  }
  /// A part of any string of the pool, so often of the very string that is changed.
  View Part() {
    const S& string = strings_[Upto(kPool - 1)];
    const std::size_t from = Upto(string.size());
    return View(string.data() + from, Upto(std::min<std::size_t>(string.size() - from, 300)));
  }
  bool Often() { return Upto(2) != 0; }

  /// What an operation works on.
  struct Subject {
    S& s;
    Model<S>& m;  ///< of `s`
    S& other;     ///< may be `s`
    Model<S>& other_m;
    std::size_t size;  ///< of `s`
    std::size_t at;    ///< a position in `s`
  };
  /// Does the same to a string and to its model. All are drawn equally often.
  struct Operation {
    const char* name;
    void (*run)(Drive&, const Subject&);
  };
  static const Operation kOperations[26];

  void Step() {
    const std::size_t a = Upto(kPool - 1);
    const std::size_t b = Upto(kPool - 1);
    const std::size_t size = models_[a].text.size();
    const Subject on{strings_[a], models_[a], strings_[b], models_[b], size, Upto(size)};
    if (size > 40000) {
      on.s.clear();
      on.m.Resize(0, false);
      return;
    }
    const std::size_t which = Upto(std::size(kOperations) - 1);
    ++ran_[which];
    operation_ = kOperations[which].name;
    kOperations[which].run(*this, on);
  }

  void Read(const S& s, const Std& model) {
    const Std text = Often() ? RandomText(Upto(4)) : Std(Part());
    const View view = text;
    const std::size_t at = Often() ? Upto(model.size() + 2) : Std::npos;
    EXPECT_EQ(s.find(view, at), model.find(view, at));
    EXPECT_EQ(s.find(view), model.find(view));
    EXPECT_EQ(s.rfind(view, at), model.rfind(view, at));
    EXPECT_EQ(s.find_first_of(view, at), model.find_first_of(view, at));
    EXPECT_EQ(s.find_last_of(view, at), model.find_last_of(view, at));
    const C unit = Unit();
    EXPECT_EQ(s.find(unit, at), model.find(unit, at));
    EXPECT_EQ(s.rfind(unit, at), model.rfind(unit, at));
    EXPECT_EQ(s.contains(unit), model.find(unit) != Std::npos);
    EXPECT_EQ(s.ends_with(unit), model.ends_with(unit));
    EXPECT_EQ(s <=> S(view), View(model) <=> view);
    EXPECT_EQ(s <=> view, View(model) <=> view);
    EXPECT_EQ(s == view, model == view);
    if (at <= model.size()) {
      EXPECT_EQ(s.substr(at, 7).view(), View(model).substr(at, 7));
    }
  }

  void Check() {
    for (std::size_t i = 0; i < kPool; ++i) {
      const S& s = strings_[i];
      const Model<S>& m = models_[i];
      SCOPED_TRACE(::testing::Message() << operation_ << ": string " << i);
      EXPECT_TRUE(s.view() == m.text);
      EXPECT_EQ(s.size(), m.text.size());
      EXPECT_EQ(s.data()[s.size()], C());
      const bool heap = m.block != nullptr;
      EXPECT_EQ(s.mode(), heap ? Model<S>::kInline : m.text.size());
      EXPECT_EQ(s.block_capacity(), heap ? m.block->capacity : 0);
      EXPECT_EQ(s.use_count(), static_cast<std::uint64_t>(m.block.use_count()));
      for (std::size_t j = 0; j < i; ++j) {
        EXPECT_EQ(s.data() == std::as_const(strings_[j]).data(),
                  heap && m.block == models_[j].block);
      }
      shared_seen_ += heap && m.block.use_count() > 2;
      short_heap_seen_ += heap && m.text.size() < Model<S>::kInline;
      long_seen_ += heap && m.block->capacity * sizeof(C) > 16384;
    }
  }

  std::mt19937 random_;
  std::vector<S> strings_;
  std::vector<Model<S>> models_;
  const char* operation_ = "";
  int ran_[std::size(kOperations)] = {};
  int shared_seen_ = 0, short_heap_seen_ = 0, long_seen_ = 0;
};

template <class S>
const typename Drive<S>::Operation Drive<S>::kOperations[26] = {
    {"construct",
     [](Drive& d, const Subject& on) {
       const Std text = d.RandomText(d.Length());
       on.s = S(text.data(), text.size());
       on.m = Model<S>::Made(text);
     }},
    {"copy",
     [](Drive&, const Subject& on) {
       on.s = S(on.other);
       on.m = Model<S>(on.other_m);
     }},
    {"copy assign",
     [](Drive&, const Subject& on) {
       on.s = on.other;
       on.m = on.other_m;
     }},
    {"move",
     [](Drive&, const Subject& on) {
       on.s = std::move(on.other);
       if (&on.m != &on.other_m) on.m = std::exchange(on.other_m, {});
     }},
    {"swap",
     [](Drive&, const Subject& on) {
       std::swap(on.s, on.other);
       std::swap(on.m, on.other_m);
     }},
    {"assign",
     [](Drive& d, const Subject& on) {
       const View source = d.Part();
       const Std text(source);
       on.s.assign(source.data(), source.size());
       on.m.Assign(text);
     }},
    {"assign a terminated text",
     [](Drive& d, const Subject& on) {
       const Std text = d.RandomText(d.Length());
       on.s = text.c_str();
       on.m.Assign(text);
     }},
    {"append",
     [](Drive& d, const Subject& on) {
       const View source = d.Part();
       const Std text(source);
       on.s.append(source.data(), source.size());
       on.m.Append(text);
     }},
    {"append a part of another string",
     [](Drive& d, const Subject& on) {
       const std::size_t from = d.Upto(on.other_m.text.size());
       const std::size_t count = d.Upto(40);
       const Std text = on.other_m.text.substr(from, count);
       on.s.append(on.other, from, count);
       on.m.Append(text);
     }},
    {"append units",
     [](Drive& d, const Subject& on) {
       const std::size_t count = d.Length();
       const C unit = d.Unit();
       on.s.append(Std(count, unit));
       on.m.Append(Std(count, unit));
     }},
    {"push back",
     [](Drive& d, const Subject& on) {
       for (std::size_t i = d.Upto(30); i > 0; --i) {
         const C unit = d.Unit();
         on.s.push_back(unit);
         on.m.Append(Std(1, unit));
       }
     }},
    {"add another string",
     [](Drive&, const Subject& on) {
       on.m.Append(Std(on.other_m.text));
       on.s += on.other;
     }},
    {"pop back",
     [](Drive&, const Subject& on) {
       if (on.size == 0) return;
       on.s.pop_back();
       on.m.Resize(on.size - 1, false);
     }},
    {"insert",
     [](Drive& d, const Subject& on) {
       const View source = d.Part();
       const Std text(source);
       on.s.insert(on.at, source);
       on.m.Insert(on.at, text);
     }},
    {"erase",
     [](Drive& d, const Subject& on) {
       const std::size_t count = d.Often() ? d.Upto(20) : d.Upto(on.size);
       on.s.erase(on.at, count);
       on.m.Erase(on.at, count);
     }},
    {"replace",
     [](Drive& d, const Subject& on) {
       const std::size_t count = d.Upto(on.size - on.at);
       const View source = d.Part();
       Std text = on.m.text;
       text.replace(on.at, count, Std(source));
       on.s.replace(on.at, count, source);
       on.m = Model<S>::Made(text);
     }},
    {"replace all",
     [](Drive& d, const Subject& on) {
       const Std pattern = d.RandomText(d.Upto(3));
       const Std replacement =
           d.Often() ? d.RandomText(d.Upto(4)) : d.RandomText(pattern.size());
       const std::int64_t count = on.s.replace_all(pattern, replacement);
       EXPECT_EQ(count, on.m.ReplaceAll(pattern, replacement));
     }},
    {"resize",
     [](Drive& d, const Subject& on) {
       const std::size_t count = d.Often() ? d.Length() : d.Upto(on.size);
       const C unit = d.Unit();
       on.s.resize(count, unit);
       on.m.Resize(count, false, unit);
     }},
    {"reserve",
     [](Drive& d, const Subject& on) {
       const std::size_t count = d.Length();
       on.s.reserve(count);
       on.m.Reserve(count);
     }},
    {"clear",
     [](Drive&, const Subject& on) {
       on.s.clear();
       on.m.Resize(0, false);
     }},
    {"write a unit",
     [](Drive& d, const Subject& on) {
       if (on.size == 0) return;
       on.m.MakeUnique();
       on.m.text[on.at % on.size] = on.s.data()[on.at % on.size] = d.Unit();
     }},
    {"part",
     [](Drive& d, const Subject& on) {
       const std::size_t count = d.Often() ? d.Upto(30) : on.size;
       const std::size_t from = d.Often() ? 0 : on.at;
       Std text = on.m.text.substr(from, count);
       on.s = on.s.substr(from, count);
       if (text.size() != on.size) on.m = Model<S>::Made(std::move(text));
     }},
    {"concatenate",
     [](Drive&, const Subject& on) {
       on.s = on.s + on.other;
       on.m = Model<S>::Made(on.m.text + on.other_m.text);
     }},
    {"sort",
     [](Drive&, const Subject& on) {
       std::ranges::sort(on.s);
       on.m.MakeUnique();
       std::ranges::sort(on.m.text);
     }},
    {"refused",
     [](Drive&, const Subject& on) {
       EXPECT_THROW(on.s.erase(on.size + 1), std::out_of_range);
       EXPECT_THROW(on.s.insert(on.size + 1, View()), std::out_of_range);
       EXPECT_THROW(on.s.append(on.s, on.size + 1), std::out_of_range);
       EXPECT_THROW(on.s.reserve(static_cast<std::size_t>(-1)), std::length_error);
     }},
    {"read", [](Drive& d, const Subject& on) { d.Read(on.s, on.m.text); }},
};

class BasicStringProperty : public ScratchTest {};

TEST_F(BasicStringProperty, RandomOperationsKeepTextTerminatorModeRoomAndOwnersAsTheRulesSay) {
  const std::uint32_t seed = Seed();
  Drive<stdx::string> narrow(seed);
  narrow.Run(20000);
  ASSERT_FALSE(HasFailure()) << "narrow";
  Drive<stdx::u16string> utf16(seed);
  utf16.Run(20000);
  ASSERT_FALSE(HasFailure()) << "utf16";
  EXPECT_EQ(narrow.Texts(), utf16.Texts());
  narrow.ExpectCovered();
  utf16.ExpectCovered();
}

}  // namespace
}  // namespace quarn::testing
