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
  return CompareNoCase(a, b) == 0;
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

/// The two-state machine, unit by unit, over blocks that are decoded one by one. Adds to `list` as
/// far as the comparisons go.
void ModelRead(const std::string& bytes, Entries& list) {
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
    for (int i = 0; i < count; ++i) {  // never where there is no count
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
}

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

/// Whether every byte is read as text that can be written again.
bool ModelUnderstands(const std::string& bytes) {
  if (bytes.find('\0') != std::string::npos || bytes.starts_with("\xFF\xFE")) return false;
  for (std::size_t at = 0; at < bytes.size(); at += 1024) {
    std::vector<wchar_t> wide(1025);
    if (std::mbstowcs(wide.data(), bytes.substr(at, 1024).c_str(), 1025) == std::size_t(-1)) {
      return false;
    }
    for (const wchar_t character : wide) {
      if (character > 0xFFFF || (character >= 0xD800 && character < 0xE000)) return false;
    }
  }
  return true;
}

/// Whether `action` ends in a text with no narrow form.
template <class Action>
bool ThrowsOnAText(Action action) {
  try {
    action();
    return false;
  } catch (const std::length_error&) {
    return true;
  }
}

void ModelCollect(const std::vector<Entries>& lists, const stdx::u16string& key, U16List& out) {
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
}

void ModelRemoveDuplicates(U16List& list) {
  U16List seen;
  for (std::size_t i = 0; i < list.size();) {
    stdx::u16string key = list[i];
    if (!key.empty() && !key.ends_with(u'/') && !key.ends_with(u'\\')) key.push_back(u'/');
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
      line += "=";
      line += std::string(lengths[Below(std::size(lengths))], Below(2) == 0 ? 'x' : 'X');
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
    static const U16List pieces = {
        u"a", u"A", u"b", u"/", u"\\", u"\u00E9", stdx::u16string(u"\0", 1)};
    stdx::u16string text(Below(40) == 0 ? u"\xD800" : u"");
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
      Entries expected;
      const bool throws = ThrowsOnAText([&] { ModelRead(file, expected); });
      WriteFile(root() / "f", file);
      ConfigEntryList list;
      ASSERT_EQ(ThrowsOnAText([&] { ReadConfigFile(U16(root() / "f"), list); }), throws) << file;
      ASSERT_EQ(EntriesOf(list), expected) << file;
      entries += expected.size();
    }
    EXPECT_GT(entries, 100u);
  }
}

// Next to a file that the model does not understand is then a copy of it.
TEST_F(ConfigModelTest, RandomFilesAreRewrittenAsTheModelRewritesThem) {
  const std::filesystem::path path = home() / ".Orbex/qlaunch/qlaunch.cfg";
  const std::filesystem::path copy = path.string() + ".orig";
  const U16List values{u"/new", u"/NEW/", u"/x"};
  int rewritten = 0, copied = 0;
  for (const char* const locale : {"C.UTF-8", "C"}) {
    setenv("LC_ALL", locale, 1);
    for (const Mix mix : {Mix::kAscii, Mix::kMultibyte, Mix::kAstral, Mix::kGarbage}) {
      for (int round = 0; round < 40; ++round) {
        const std::string file = generator_.File(mix);
        SCOPED_TRACE(file);
        std::filesystem::remove(copy);
        WriteFile(path, file);
        Entries model;
        ThrowsOnAText([&] { ModelRead(file, model); });
        std::string expected = file;
        const bool throws = ThrowsOnAText([&] {
          ModelSet(model, u"KEY", values);
          expected = ModelWrite(model);
        });
        ASSERT_EQ(ThrowsOnAText([&] {
                    LauncherConfig store;
                    LoadLauncherConfig(store);
                    SetConfigValues(store.own, u"KEY", values);
                    SaveLauncherConfig(store);
                  }),
                  throws);
        ASSERT_EQ(ReadFile(path), expected);
        ASSERT_EQ(std::filesystem::exists(copy), !throws && !ModelUnderstands(file));
        if (std::filesystem::exists(copy)) {
          ASSERT_EQ(ReadFile(copy), file);
          ++copied;
        }
        rewritten += throws ? 0 : 1;
      }
    }
  }
  EXPECT_GT(rewritten, 100);
  EXPECT_GT(copied, 20);
}

/// The lines of a file, regardless of ASCII letter case and of a "=" at the end.
std::set<std::string> Lines(std::string_view file) {
  std::set<std::string> lines{""};  // empty lines may go
  std::string line;
  const auto end_line = [&] {
    if (line.ends_with('=')) line.pop_back();
    lines.insert(line);
    line.clear();
  };
  for (const char byte : file) {
    if (byte == '\n') {
      end_line();
    } else {
      line += static_cast<char>(byte >= 'A' && byte <= 'Z' ? byte + 32 : byte);
    }
  }
  end_line();
  return lines;
}

TEST_F(ConfigModelTest, NoLineOfARandomFileIsLostWithoutACopy) {
  const std::filesystem::path copy = root() / "f.orig";
  for (const char* const locale : {"C.UTF-8", "C"}) {
    setenv("LC_ALL", locale, 1);
    for (const Mix mix : {Mix::kAscii, Mix::kMultibyte, Mix::kAstral, Mix::kGarbage}) {
      for (int round = 0; round < 40; ++round) {
        const std::string file = generator_.File(mix);
        std::filesystem::remove(copy);
        WriteFile(root() / "f", file);
        ConfigEntryList list;
        list.is_partial = ThrowsOnAText([&] { ReadConfigFile(U16(root() / "f"), list); });
        ThrowsOnAText([&] { WriteConfigFile(U16(root() / "f"), list); });
        if (std::filesystem::exists(copy)) {
          ASSERT_EQ(ReadFile(copy), file);
          continue;
        }
        const std::set<std::string> after = Lines(ReadFile(root() / "f"));
        for (const std::string& line : Lines(file)) {
          ASSERT_TRUE(after.contains(line)) << line << "\nof\n" << file;
        }
      }
    }
  }
}

TEST_F(ConfigModelTest, RandomChangesOfAListGiveWhatTheModelGives) {
  int steps = 0, thrown = 0;
  for (int round = 0; round < 300; ++round) {
    ConfigEntryList list;
    Entries model;
    for (int step = 0; step < 40; ++step) {
      const stdx::u16string key = generator_.Text(), value = generator_.Text();
      const U16List values = generator_.Texts();
      const bool sets = generator_.Below(4) == 0;
      bool added = false, model_added = false;
      const bool throws = ThrowsOnAText([&] {
        sets ? ModelSet(model, key, values) : void(model_added = ModelAdd(model, key, value));
      });
      ASSERT_EQ(ThrowsOnAText([&] {
                  sets ? SetConfigValues(list, key, values)
                       : void(added = AddConfigValue(list, key, value));
                }),
                throws);
      ASSERT_EQ(added, model_added);
      ASSERT_EQ(EntriesOf(list), model);
      const U16List* found = nullptr;
      const U16List* model_found = nullptr;
      ASSERT_EQ(ThrowsOnAText([&] { found = FindConfigValues(list, key); }),
                ThrowsOnAText([&] { model_found = ModelFind(model, key); }));
      ASSERT_EQ(found != nullptr, model_found != nullptr);
      if (found != nullptr) {
        ASSERT_EQ(*found, *model_found);
      }
      ++steps;
      thrown += throws ? 1 : 0;
    }
  }
  EXPECT_GT(thrown, 0);
  EXPECT_LT(thrown, steps / 2);
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
    const U16List before = generator_.Texts();
    for (const bool own_first : {true, false}) {
      if (!own_first) std::swap(model[0], model[2]);
      U16List out = before, expected = before;
      ASSERT_EQ(ThrowsOnAText([&] { CollectConfigValues(store, own_first, u"kEY", out); }),
                ThrowsOnAText([&] { ModelCollect(model, u"kEY", expected); }));
      ASSERT_EQ(out, expected);
    }
  }
}

TEST_F(ConfigModelTest, RandomDuplicatesAreRemovedAsTheModelRemovesThem) {
  std::size_t removed = 0;
  for (int round = 0; round < 500; ++round) {
    U16List list = generator_.Texts();
    U16List expected = list;
    const bool throws = ThrowsOnAText([&] { ModelRemoveDuplicates(expected); });
    removed += list.size() - expected.size();
    ASSERT_EQ(ThrowsOnAText([&] { RemoveDuplicatePaths(list); }), throws);
    if (!throws) {
      ASSERT_EQ(list, expected);
    }
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
  Entries model;
  ModelRead(file, model);
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
