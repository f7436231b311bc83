// The launcher's file against simple models, which walk over everything and compare step by step,
// on random files.

#include <algorithm>
#include <cstdlib>
#include <random>
#include <set>
#include <stdexcept>

#include "config/template_dirs.h"
#include "core/text.h"
#include "tests/config/config_support.h"

namespace quarn::testing {
namespace {

using U16List = std::vector<stdx::u16string>;

// --- Models ------------------------------------------------------------------------------------

bool ModelEqual(const stdx::u16string& a, const stdx::u16string& b) {
  try {
    return CompareNoCase(a, b) == 0;
  } catch (const std::length_error&) {
    return a == b;
  }
}

bool ModelHolds(const U16List& list, const stdx::u16string& text) {
  return std::any_of(list.begin(), list.end(), [&](const auto& t) { return ModelEqual(t, text); });
}

bool ModelAdd(Entries& list, const stdx::u16string& key, const stdx::u16string& value) {
  std::size_t remembered = list.size();
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (!ModelEqual(list[i].first, key)) continue;
    if (ModelHolds(list[i].second, value)) return false;
    remembered = i;
  }
  if (remembered == list.size()) list.push_back({key, {}});
  list[remembered].second.push_back(value);
  return true;
}

const U16List* ModelFind(const Entries& list, const stdx::u16string& key) {
  for (const auto& entry : list) {
    if (ModelEqual(entry.first, key)) return &entry.second;
  }
  return nullptr;
}

void ModelSet(Entries& list, const stdx::u16string& key, const U16List& values) {
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (!ModelEqual(list[i].first, key)) continue;
    if (values.empty()) {
      list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
    } else {
      list[i].second = values;
    }
    return;
  }
  list.push_back({key, values});
}

/// The two-state machine, unit by unit, over blocks that are decoded one by one.
Entries ModelRead(const std::string& bytes) {
  Entries list;
  stdx::u16string key, value;
  bool in_value = false;
  const auto end_line = [&] {
    if (!key.empty() || !value.empty()) ModelAdd(list, key, value);
    key.clear();
    value.clear();
    in_value = false;
  };
  for (std::size_t at = 0; at < bytes.size(); at += 1024) {
    const std::string block = bytes.substr(at, 1024);
    std::vector<char16_t> units(2048);
    const int count = MultibyteToUtf16(block.data(), block.size(), units.data(), units.size());
    if (count < 0) return list;
    for (int i = 0; i < count; ++i) {
      const char16_t unit = units[static_cast<std::size_t>(i)];
      if (unit == u'\n') {
        end_line();
      } else if (unit == u'=' && !in_value) {
        in_value = true;
      } else {
        (in_value ? value : key).push_back(unit);
      }
    }
  }
  end_line();
  return list;
}

/// Only for lists whose text was read without loss.
std::string ModelWrite(const Entries& list) {
  std::string bytes;
  for (const auto& [key, values] : list) {
    for (const auto& value : values) {
      bytes += ToNarrow(key).c_str();
      bytes += "=";
      bytes += ToNarrow(value).c_str();
      bytes += "\n";
    }
  }
  return bytes;
}

U16List ModelCollect(const std::vector<Entries>& lists, const stdx::u16string& key, U16List out) {
  U16List taken;
  for (const Entries& list : lists) {
    const U16List* const values = ModelFind(list, key);
    if (values == nullptr) continue;
    for (const auto& value : *values) {
      if (ModelHolds(taken, value)) continue;
      taken.push_back(value);
      out.push_back(value);
    }
  }
  return out;
}

void ModelRemoveDuplicates(U16List& list) {
  U16List seen;
  for (std::size_t i = 0; i < list.size();) {
    stdx::u16string key = list[i];
    if (!key.empty() && key.back() != u'/' && key.back() != u'\\') key.push_back(u'/');
    if (ModelHolds(seen, key)) {
      list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
    } else {
      seen.push_back(key);
      ++i;
    }
  }
}

// --- Random files ------------------------------------------------------------------------------

/// What a random file may hold besides ASCII.
enum class Mix { kAscii, kMultibyte, kAstral, kGarbage };

class Generator {
 public:
  explicit Generator(std::uint32_t seed) : random_(seed) {}

  std::size_t Below(std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(random_);
  }

  std::string Piece(Mix mix) {
    static const std::vector<std::string> ascii = {"a", "A",  "b",  "B",  "key", "KEY", "k",
                                                   "=", "==", " ",  "\t", "\r",  "#",   ";",
                                                   "/", "\\", "%s", "1",  "2",   ""};
    static const std::vector<std::string> multibyte = {
        "\xC3\xA9",     "\xC3\x89",     "\xD0\x96",    "\xD0\xB6",
        "\xE6\x97\xA5", "\xEF\x98\x80", "\xEF\xBB\xBF"};
    // U+1F600, U+2F600, two that leave a lone surrogate, and those that leave "=", a line feed
    // and a zero unit.
    static const std::vector<std::string> astral = {
        "\xF0\x9F\x98\x80", "\xF0\xAF\x98\x80", "\xF0\x9D\xA0\x80", "\xF0\xAD\xA0\x80",
        "\xF0\x90\x80\xBD", "\xF0\x90\x80\x8A", "\xF0\x90\x80\x80"};
    static const std::vector<std::string> garbage = {"\xFF", "\xC3", "\x80", std::string(1, '\0'),
                                                     "\xED\xA0\x80"};
    // Garbage is rare, so that there is something to read before it.
    if (mix == Mix::kGarbage && Below(60) == 0) return garbage[Below(garbage.size())];
    if (mix >= Mix::kAstral && Below(8) == 0) return astral[Below(astral.size())];
    if (mix >= Mix::kMultibyte && Below(4) == 0) return multibyte[Below(multibyte.size())];
    return ascii[Below(ascii.size())];
  }

  std::string Line(Mix mix) {
    std::string line;
    for (std::size_t n = Below(6); n != 0; --n) line += Piece(mix);
    if (Below(25) == 0) {
      static const std::size_t lengths[] = {900, 1023, 1024, 1025, 2047, 2048, 2049, 5000};
      line += "=" + std::string(lengths[Below(std::size(lengths))], Below(2) == 0 ? 'x' : 'X');
    }
    return line;
  }

  std::string File(Mix mix) {
    std::string file;
    for (std::size_t n = Below(120); n != 0; --n) file += Line(mix) + "\n";
    if (Below(2) == 0) file += Line(mix);
    return file;
  }

  stdx::u16string Text() {
    static const U16List pieces = {u"a",  u"A",      u"b",      u"/",
                                   u"\\", u"\u00E9", u"\xD800", stdx::u16string(1, u'\0')};
    stdx::u16string text;
    for (std::size_t n = Below(4); n != 0; --n) text += pieces[Below(pieces.size())];
    return text;
  }

  U16List Texts() {
    U16List texts;
    for (std::size_t n = Below(6); n != 0; --n) texts.push_back(Text());
    return texts;
  }

 private:
  std::mt19937 random_;
};

class ConfigModelTest : public ScratchTest {
 protected:
  Generator generator_{Seed()};
};

TEST_F(ConfigModelTest, RandomFilesAreReadAsTheModelReadsThem) {
  for (const Mix mix : {Mix::kAscii, Mix::kMultibyte, Mix::kAstral, Mix::kGarbage}) {
    std::size_t entries = 0;
    for (int round = 0; round < 60; ++round) {
      const std::string file = generator_.File(mix);
      const Entries expected = ModelRead(file);
      ASSERT_EQ(EntriesOf(ReadBytes(root(), file)), expected) << file;
      entries += expected.size();
    }
    EXPECT_GT(entries, 100u);
  }
}

TEST_F(ConfigModelTest, RandomFilesAreRewrittenAsTheModelRewritesThem) {
  for (int round = 0; round < 100; ++round) {
    const std::string file = generator_.File(Mix::kAscii);
    const U16List values = generator_.Below(2) == 0 ? U16List{u"/new", u"/NEW/", u"/x"} : U16List{};
    Entries model = ModelRead(file);
    ModelSet(model, u"KEY", values);
    ConfigEntryList list = ReadBytes(root(), file);
    SetConfigValues(list, u"KEY", values);
    ASSERT_EQ(WrittenBytes(root(), list), ModelWrite(model)) << file;
  }
}

/// The lines of a file, regardless of ASCII letter case and of a "=" at the end. U+1000A, of which
/// a line feed is left, ends a line too.
std::set<std::string> Lines(std::string_view file) {
  constexpr std::string_view kCutToLineFeed = "\xF0\x90\x80\x8A";
  std::set<std::string> lines{""};  // empty lines may go
  std::string line;
  const auto end_line = [&] {
    if (line.ends_with('=')) line.pop_back();
    lines.insert(line);
    line.clear();
  };
  for (std::size_t i = 0; i < file.size(); ++i) {
    if (file.substr(i).starts_with(kCutToLineFeed)) {
      i += kCutToLineFeed.size() - 1;
      end_line();
    } else if (file[i] == '\n') {
      end_line();
    } else {
      line += static_cast<char>(file[i] >= 'A' && file[i] <= 'Z' ? file[i] + 32 : file[i]);
    }
  }
  end_line();
  return lines;
}

TEST_F(ConfigModelTest, NoLineOfARandomFileIsEverLost) {
  for (const char* const locale : {"C.UTF-8", "C"}) {
    setenv("LC_ALL", locale, 1);
    for (const Mix mix : {Mix::kAscii, Mix::kMultibyte, Mix::kAstral, Mix::kGarbage}) {
      for (int round = 0; round < 40; ++round) {
        const std::string file = generator_.File(mix);
        const std::string rewritten = WrittenBytes(root(), ReadBytes(root(), file));
        const std::set<std::string> before = Lines(file), after = Lines(rewritten);
        for (const std::string& line : before)
          ASSERT_TRUE(after.contains(line)) << line << "\nof\n" << file;
        // And again: what was written is read and written in its turn.
        const std::set<std::string> again =
            Lines(WrittenBytes(root(), ReadBytes(root(), rewritten)));
        for (const std::string& line : before)
          ASSERT_TRUE(again.contains(line)) << line << "\nof\n" << file;
      }
    }
  }
}

TEST_F(ConfigModelTest, RandomChangesOfAListGiveWhatTheModelGives) {
  for (int round = 0; round < 200; ++round) {
    ConfigEntryList list;
    Entries model;
    for (int step = 0; step < 40; ++step) {
      const stdx::u16string key = generator_.Text();
      if (generator_.Below(4) == 0) {
        const U16List values = generator_.Texts();
        SetConfigValues(list, key, values);
        ModelSet(model, key, values);
      } else {
        const stdx::u16string value = generator_.Text();
        ASSERT_EQ(AddConfigValue(list, key, value), ModelAdd(model, key, value));
      }
      ASSERT_EQ(EntriesOf(list), model);
      const U16List* const values = FindConfigValues(list, key);
      const U16List* const model_values = ModelFind(model, key);
      ASSERT_EQ(values != nullptr, model_values != nullptr);
      if (values != nullptr) {
        ASSERT_EQ(*values, *model_values);
      }
    }
  }
}

TEST_F(ConfigModelTest, RandomListsAreCollectedAsTheModelCollectsThem) {
  for (int round = 0; round < 300; ++round) {
    LauncherConfig store;
    std::vector<Entries> model(3);
    ConfigEntryList* const lists[] = {&store.own, &store.common, &store.extra};
    for (std::size_t i = 0; i < 3; ++i) {
      if (generator_.Below(4) == 0) continue;
      const U16List values = generator_.Texts();
      SetConfigValues(*lists[i], u"Key", values);
      ModelSet(model[i], u"Key", values);
    }
    U16List out = generator_.Texts();
    U16List reversed = out;
    const U16List expected = ModelCollect(model, u"kEY", out);
    CollectConfigValues(store, true, u"kEY", out);
    ASSERT_EQ(out, expected);
    const U16List expected_reversed =
        ModelCollect({model[2], model[1], model[0]}, u"kEY", reversed);
    CollectConfigValues(store, false, u"kEY", reversed);
    ASSERT_EQ(reversed, expected_reversed);
  }
}

TEST_F(ConfigModelTest, RandomDuplicatesAreRemovedAsTheModelRemovesThem) {
  std::size_t removed = 0;
  for (int round = 0; round < 500; ++round) {
    U16List list = generator_.Texts();
    U16List expected = list;
    ModelRemoveDuplicates(expected);
    removed += list.size() - expected.size();
    RemoveDuplicatePaths(list);
    ASSERT_EQ(list, expected);
  }
  EXPECT_GT(removed, 0u);
}

// --- Long files --------------------------------------------------------------------------------

/// `count` lines: half of them of keys of their own, half of them values of one key; every tenth
/// one repeats an earlier line in another letter case.
std::string LongFile(int count) {
  std::string file;
  for (int i = 0; i < count; ++i) {
    const std::string number = std::to_string(i % 10 == 9 ? i - 6 : i);
    if (i % 2 == 0) {
      file += "Key" + number + "=value\n";
    } else {
      file += (i % 10 == 9 ? "BASES=/SRV/" : "Bases=/srv/") + number + "\n";
    }
  }
  return file;
}

TEST_F(ConfigModelTest, ALongFileIsReadAndRewrittenAsTheModelDoesIt) {
  const std::string file = LongFile(2000);
  Entries model = ModelRead(file);
  ConfigEntryList list = ReadBytes(root(), file);
  ASSERT_EQ(EntriesOf(list), model);
  SetConfigValues(list, u"key500", {});
  ModelSet(model, u"key500", {});
  SetConfigValues(list, kTemplatesLocationKey, {u"/t"});
  ModelSet(model, kTemplatesLocationKey, {u"/t"});
  EXPECT_EQ(WrittenBytes(root(), list), ModelWrite(model));
}

// A walk per line would take most of an hour for this one, and the test's time runs out.
TEST_F(ConfigModelTest, AHundredThousandLinesAreReadUpdatedAndWritten) {
  constexpr int kLines = 100000;
  ConfigEntryList list = ReadBytes(root(), LongFile(kLines));
  SetConfigValues(list, u"KEY0", {});
  SetConfigValues(list, kTemplatesLocationKey, {u"/t"});
  // All values of the one key are at its first line, the repeated ones gone.
  std::string bases, others;
  for (int i = 1; i < kLines; ++i) {
    if (i % 2 == 0) {
      others += "Key" + std::to_string(i) + "=value\n";
    } else if (i % 10 != 9) {
      bases += "Bases=/srv/" + std::to_string(i) + "\n";
    }
  }
  EXPECT_TRUE(WrittenBytes(root(), list) == bases + others + "ConfigurationTemplatesLocation=/t\n");
}

}  // namespace
}  // namespace quarn::testing
