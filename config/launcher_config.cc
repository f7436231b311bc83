#include "config/launcher_config.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "core/dir_scan.h"
#include "core/shell.h"
#include "core/text.h"

namespace quarn {
namespace {

/// What the writer throws.
constexpr int kCannotOpen = 1;
constexpr int kCannotWrite = 2;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

stdx::u16string LineText(const stdx::u16string& key, const stdx::u16string& value) {
  return key + u'=' + value;
}

bool EqualNoCase(const stdx::string& a, const stdx::string& b) {
  const auto fold = [](char byte) { return std::tolower(static_cast<unsigned char>(byte)); };
  return std::ranges::equal(a, b, {}, fold, fold);
}

/// All bytes from the stream's position on. False when they can't be read.
bool ReadRest(std::FILE* file, stdx::string& bytes) {
  std::array<char, 65536> block;
  for (std::size_t count; (count = std::fread(block.data(), 1, block.size(), file)) != 0;) {
    bytes.append(block.data(), count);
  }
  return std::ferror(file) == 0;
}

}  // namespace

// --- Contents ----------------------------------------------------------------------------------

std::pair<std::size_t, bool> ConfigEntryList::Place(const stdx::u16string& key) {
  const auto [place, is_new] = keys_.Insert(key);
  if (is_new) {
    try {
      entries_.push_back({key, {}});
      values_.emplace_back();
    } catch (...) {
      if (entries_.size() > place) entries_.pop_back();
      keys_.Erase(place);
      throw;
    }
  }
  return {place, is_new};
}

bool AddConfigValue(ConfigEntryList& list, const stdx::u16string& key,
                    const stdx::u16string& value) {
  const std::size_t place = list.Place(key).first;
  std::vector<stdx::u16string>& values = list.entries_[place].values;
  // Most keys have one value: an index is worth its room from the second one on.
  if (!values.empty()) {
    NoCaseIndex& index = list.values_[place];
    if (index.empty()) {
      for (const auto& present : values) index.Insert(present);
    }
    if (!index.Insert(value).second) return false;
  }
  values.push_back(value);
  return true;
}

bool StoreConfigLine(ConfigEntryList& list, stdx::u16string key,  // NOLINT: copies are meant
                     stdx::u16string value) {                     // NOLINT
  return AddConfigValue(list, key, value);
}

const std::vector<stdx::u16string>* FindConfigValues(const ConfigEntryList& list,
                                                     const stdx::u16string& key) {
  const auto place = list.keys_.Find(key);
  return place ? &list.entries_[*place].values : nullptr;
}

void SetConfigValues(ConfigEntryList& list, const stdx::u16string& key,
                     const std::vector<stdx::u16string>& values) {
  std::vector<stdx::u16string> copy = values;  // they may lie in an entry, and entries move
  const auto [place, is_new] = list.Place(key);
  if (is_new || !copy.empty()) {
    list.entries_[place].values = std::move(copy);
    list.values_[place] = {};
    return;
  }
  const auto offset = static_cast<std::ptrdiff_t>(place);
  list.entries_.erase(list.entries_.begin() + offset);
  list.values_.erase(list.values_.begin() + offset);
  list.keys_.Erase(place);
}

// --- Reading -----------------------------------------------------------------------------------

/// Puts decoded blocks together to lines, and keeps the bytes of each line beside its text.
class ConfigReader {
 public:
  static constexpr std::size_t kBlockSize = 1024;

  explicit ConfigReader(ConfigEntryList& list) : list_(list) {}

  /// Takes in the next block of the file; false, and nothing taken, when it can't be decoded.
  bool Take(const char* bytes, std::size_t size) {
    std::array<char16_t, 2 * kBlockSize> units;
    const std::int32_t decoded = MultibyteToUtf16(bytes, size, units.data(), units.size());
    if (decoded < 0) return false;
    const auto count = static_cast<std::size_t>(decoded);
    const Starts starts = FindStarts(bytes, size, count);

    std::size_t line = 0;  // where its bytes begin in this block
    std::size_t text = 0;  // where the units begin that are not in key or value yet
    for (std::size_t i = 0; i < count; ++i) {
      const bool ends_line = units[i] == u'\n';
      if (!ends_line && (units[i] != u'=' || in_value_)) continue;
      Text().append(&units[text], i - text);
      text = i + 1;
      if (ends_line) {
        // A character of which a line feed is left is not one: its bytes stay.
        const bool is_line_feed = starts[i + 1] - starts[i] == 1;
        bytes_.append(bytes + line, (is_line_feed ? starts[i] : starts[i + 1]) - line);
        line = starts[i + 1];
        EndLine();
      } else {
        in_value_ = true;
      }
    }
    Text().append(&units[text], count - text);
    // A zero byte ends the block's text; what it hides goes along with the line's bytes.
    bytes_.append(bytes + line, size - line);
    return true;
  }

  void EndLine() {
    const bool gives_back = GivesBackItsBytes();
    if (!gives_back && bytes_.ends_with('\n')) bytes_.pop_back();  // the writer adds one
    if (!key_.empty() || !value_.empty()) {
      const bool added = StoreConfigLine(list_, key_, value_);
      KeepBytes(added, gives_back);
    } else if (!gives_back) {
      KeepUnread(bytes_ + "\n");
    }
    key_.clear();
    value_.clear();
    bytes_.clear();
    in_value_ = false;
  }

  /// Gives up the line begun and keeps its bytes and those of the file behind it.
  void KeepRest(const char* block, std::size_t size, std::FILE* file) {
    bytes_.append(block, size);
    if (!ReadRest(file, bytes_)) MarkPartial();
    KeepUnread(bytes_);
  }

  /// There is more in the file than could be read.
  void MarkPartial() { list_.is_partial_ = true; }

 private:
  using Starts = std::array<std::size_t, kBlockSize + 1>;

  /// Where in the block each of its `count` characters begins, and where the last one ends.
  static Starts FindStarts(const char* bytes, std::size_t size, std::size_t count) {
    Starts starts;
    std::mbstate_t state{};
    std::size_t at = 0;
    for (std::size_t i = 0; i < count; ++i) {
      starts[i] = at;
      at += count == size ? 1 : std::min(std::mbrlen(bytes + at, size - at, &state), size - at);
    }
    starts[count] = at;
    return starts;
  }

  stdx::u16string& Text() { return in_value_ ? value_ : key_; }

  /// Whether the line's text, written, is what was read. So it is when no character took more than
  /// a byte, for then none was cut off.
  bool GivesBackItsBytes() const {
    const std::size_t units = key_.size() + (in_value_ ? 1 : 0) + value_.size();
    if (units == bytes_.size()) return true;
    try {
      return bytes_ == ToNarrow(in_value_ ? LineText(key_, value_) : key_);
    } catch (const std::length_error&) {
      return false;
    }
  }

  /// Keeps the bytes that the list would not give back: in the place of the line's text or, where
  /// the list had an equal text that stands for other bytes, behind all lines.
  void KeepBytes(bool added, bool gives_back) {
    if (gives_back && (added || list_.originals_.empty())) return;
    const std::size_t place = *list_.keys_.Find(key_);
    const ConfigEntry& entry = list_[place];
    const std::size_t value_place = list_.values_[place].Find(value_).value_or(0);
    const stdx::u16string line = LineText(entry.key, entry.values[value_place]);
    if (added) {
      list_.originals_[line] = bytes_;
      return;
    }
    const auto original = list_.originals_.find(line);
    const bool is_there =
        original != list_.originals_.end() ? EqualNoCase(original->second, bytes_) : gives_back;
    if (!is_there) KeepUnread(bytes_ + "\n");
  }

  void KeepUnread(const stdx::string& bytes) {
    if (!list_.unread_.empty() && !list_.unread_.ends_with('\n')) list_.unread_.push_back('\n');
    list_.unread_ += bytes;
  }

  ConfigEntryList& list_;
  stdx::u16string key_, value_;
  bool in_value_ = false;
  stdx::string bytes_;  // of the line so far
};

namespace {

void ReadOpenFile(std::FILE* file, ConfigEntryList& list) {
  ConfigReader reader(list);
  for (;;) {
    std::array<char, ConfigReader::kBlockSize> block{};
    const std::size_t size = std::fread(block.data(), 1, block.size(), file);
    if (size == 0) break;
    if (!reader.Take(block.data(), size)) {
      reader.KeepRest(block.data(), size, file);
      return;
    }
  }
  if (std::ferror(file) != 0) reader.MarkPartial();
  reader.EndLine();
}

}  // namespace

void ReadConfigFile(const stdx::u16string& path, ConfigEntryList& list) {
  try {
    const File file(OpenStdioFile(path.c_str(), u"rt, ccs=UNICODE"));
    if (file != nullptr) {
      ReadOpenFile(file.get(), list);
    } else {
      if (errno != ENOENT && errno != ENOTDIR) ConfigReader(list).MarkPartial();
      // Some platforms refuse one form of the mode and accept the other; no more than a probe.
      const File probe(OpenStdioFile(path.c_str(), u"rt, ccs=UTF-8"));
    }
  } catch (const std::length_error&) {
    // The path has no narrow form, so there is no such file.
  }
}

// --- Writing -----------------------------------------------------------------------------------

namespace {

constexpr std::string_view kUtf16Mark = "\xFF\xFE";

/// Little-endian UTF-16 behind its mark as text of the locale, with "?" for what it can't express.
stdx::string TextOfUtf16(std::string_view bytes) {
  const auto unit_at = [bytes](std::size_t i) -> std::uint32_t {
    if (i + 1 >= bytes.size()) return 0;
    return static_cast<unsigned char>(bytes[i]) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i + 1])) << 8;
  };
  stdx::string text;
  for (std::size_t i = kUtf16Mark.size(); i + 1 < bytes.size(); i += 2) {
    std::uint32_t code = unit_at(i);
    const std::uint32_t next = unit_at(i + 2);
    if ((code & 0xFC00) == 0xD800 && (next & 0xFC00) == 0xDC00) {
      code = 0x10000 + ((code & 0x3FF) << 10) + (next & 0x3FF);
      i += 2;
    }
    std::array<char, 64> narrow;
    std::mbstate_t state{};
    const std::size_t size = std::wcrtomb(narrow.data(), static_cast<wchar_t>(code), &state);
    if (size == static_cast<std::size_t>(-1)) {
      text.push_back('?');
    } else {
      text.append(narrow.data(), size);
    }
  }
  return text;
}

/// What a file holds before it is rewritten, for the case that the rewriting fails.
class FormerContents {
 public:
  /// Throws 1 when there is a file that can't be read.
  explicit FormerContents(const stdx::string& path) : path_(path) {
    const File file(std::fopen(path.c_str(), "rb"));
    exists_ = file != nullptr;
    if (exists_ ? !ReadRest(file.get(), bytes_) : errno != ENOENT) throw kCannotOpen;
  }

  /// The room that the truncated file gave up is what they need, so this works on a full disk.
  void PutBack() const {
    if (!exists_) {
      std::remove(path_.c_str());
    } else if (const File file{std::fopen(path_.c_str(), "wb")}) {
      std::fwrite(bytes_.data(), 1, bytes_.size(), file.get());
    }
  }

 private:
  const stdx::string& path_;
  bool exists_;
  stdx::string bytes_;
};

}  // namespace

/// The bytes that a list becomes, all of them made before a file is touched.
class ConfigWriter {
 public:
  /// Throws std::length_error for a text with no narrow form, 1 for a list that lacks lines.
  ConfigWriter(const ConfigEntryList& list, bool unicode) {
    if (list.is_partial_) throw kCannotOpen;
    for (const ConfigEntry& entry : list) {
      for (const auto& value : entry.values) AddLine(list, entry.key, value);
    }
    const bool is_utf16 = unicode && list.unread_.starts_with(kUtf16Mark);
    rest_ = is_utf16 ? TextOfUtf16(list.unread_) : list.unread_;
  }

  /// False when not everything could be written.
  bool WriteTo(std::FILE* file) const {
    for (const Line& line : lines_) {
      const bool written = line.original != nullptr ? WriteBytes(file, *line.original)
                                                    : std::fprintf(file, "%s=%s", line.key.c_str(),
                                                                   line.value.c_str()) >= 0;
      if (!written || std::fputc('\n', file) == EOF) return false;
    }
    return WriteBytes(file, rest_);
  }

 private:
  struct Line {
    stdx::string key, value;
    const stdx::string* original;
  };

  static bool WriteBytes(std::FILE* file, const stdx::string& bytes) {
    return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  }

  void AddLine(const ConfigEntryList& list, const stdx::u16string& key,
               const stdx::u16string& value) {
    if (!list.originals_.empty()) {
      const auto it = list.originals_.find(LineText(key, value));
      if (it != list.originals_.end()) {
        lines_.push_back({{}, {}, &it->second});
        return;
      }
    }
    lines_.push_back({ToNarrow(key), ToNarrow(value), nullptr});
  }

  std::vector<Line> lines_;
  stdx::string rest_;
};

bool IsNotUnicodeFile(const stdx::u16string& path) {
  const File file(std::fopen(ToNarrow(path).c_str(), "rb"));
  if (file == nullptr) return false;
  std::array<char, 2> mark{};
  const std::size_t size = std::fread(mark.data(), 1, mark.size(), file.get());
  if (std::ferror(file.get()) != 0) throw kCannotOpen;
  return std::string_view(mark.data(), size) != kUtf16Mark;
}

void WriteConfigFile(const stdx::u16string& path, const ConfigEntryList& list) {
  const bool not_unicode = IsNotUnicodeFile(path);
  const ConfigWriter writer(list, !not_unicode);
  const stdx::string narrow_path = ToNarrow(path);
  const FormerContents former(narrow_path);
  File file(std::fopen(narrow_path.c_str(), "wt"));
  if (file == nullptr) throw kCannotOpen;
  const bool written = writer.WriteTo(file.get());
  // A full disk may show only when the last block goes out.
  const bool closed = std::fclose(file.release()) == 0;
  if (written && closed) return;
  former.PutBack();
  throw kCannotWrite;
}

// --- The user's files --------------------------------------------------------------------------

namespace {

constexpr const char16_t* kLauncherFolder = u".Orbex/qlaunch";
// A directory of its own that differs by the one letter.
constexpr const char16_t* kAltLauncherFolder = u".Orbex/qlauncht";
constexpr const char16_t* kCfgFile = u"qlaunch.cfg";

/// `left`, a "/" whatever `left` ends in, and `right`.
stdx::u16string Below(const stdx::u16string& left, const char16_t* right) {
  return ConcatPath(ConcatPath(left, u"/"), right);
}

stdx::u16string CommonPath(const LauncherConfig& store) {
  return store.altProfile ? GetLauncherCfgPath() : GetProductLauncherCfgPath();
}

stdx::u16string OwnPath(const LauncherConfig& store) {
  return store.altProfile ? GetAltLauncherCfgPath() : GetLauncherCfgPath();
}

}  // namespace

stdx::u16string GetLauncherDir() { return Below(GetHomeDirectory(), kLauncherFolder); }
stdx::u16string GetLauncherCfgPath() { return Below(GetLauncherDir(), kCfgFile); }
stdx::u16string GetProductHomeDir() {
  return ConcatPath(Below(GetHomeDirectory(), u".quarn"), u"/");
}
stdx::u16string GetProductLauncherDir() { return Below(GetProductHomeDir(), kLauncherFolder); }
stdx::u16string GetProductLauncherCfgPath() { return Below(GetProductLauncherDir(), kCfgFile); }
stdx::u16string GetAltLauncherDir() { return Below(GetHomeDirectory(), kAltLauncherFolder); }
stdx::u16string GetAltLauncherCfgPath() { return Below(GetAltLauncherDir(), kCfgFile); }

void LoadLauncherConfig(LauncherConfig& store) {
  try {
    ReadConfigFile(CommonPath(store), store.common);
  } catch (...) {  // as far as it went
  }
  try {
    ReadConfigFile(OwnPath(store), store.own);
    // A value of the common file may be recorded in the own one: it is then written as it was read.
    store.own.originals_.insert(store.common.originals_.begin(), store.common.originals_.end());
  } catch (...) {
    // What was not read would be lost with the next rewrite.
    store.own.is_partial_ = true;
  }
}

void SaveLauncherConfig(const LauncherConfig& store) {
  const stdx::u16string path = OwnPath(store);
  DirScan scan;
  if (!FindFirst(scan, path)) {
    ShellMakeDirectory(path.substr(0, path.find_last_of(u"\\/")));
  }
  try {
    WriteConfigFile(path, store.own);
  } catch (...) {
    // These don't lie on `path`, and so they help only where the trouble was a passing one.
    const stdx::u16string directory = Below(GetProductHomeDir(), u"Orbex");
    ShellMakeDirectory(directory);
    ShellMakeDirectory(
        ConcatPath(directory, store.altProfile ? kAltLauncherFolder : kLauncherFolder));
    WriteConfigFile(path, store.own);
  }
}

}  // namespace quarn
