#include "config/config_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string_view>
#include <utility>

#include "core/text.h"

namespace quarn {
namespace {

/// What the writer throws.
constexpr int kCannotOpen = 1;
constexpr int kCannotWrite = 2;

constexpr std::size_t kBlockSize = 1024;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

/// False when not everything went out; a full disk may show only with the last block.
bool WriteAndClose(File file, const stdx::string& bytes) {
  if (file == nullptr) return false;
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
  return std::fclose(file.release()) == 0 && written;
}

// --- Reading -----------------------------------------------------------------------------------

/// Assembles lines from decoded text.
class LineReader {
 public:
  explicit LineReader(ConfigEntryList& list) : list_(list) {}

  void Take(const char16_t* text, std::size_t count) {
    const char16_t* const end = text + count;
    while (text != end) {
      const char16_t* const stop = std::find_if(text, end, [this](char16_t unit) {
        return unit == u'\n' || (unit == u'=' && !in_value_);
      });
      (in_value_ ? value_ : key_).append(text, static_cast<std::size_t>(stop - text));
      if (stop == end) return;
      if (*stop == u'\n') {
        EndLine();
      } else {
        in_value_ = true;
      }
      text = stop + 1;
    }
  }

  void EndLine() {
    if (!key_.empty() || !value_.empty()) StoreConfigLine(list_, key_, value_);
    key_.clear();
    value_.clear();
    in_value_ = false;
  }

 private:
  ConfigEntryList& list_;
  stdx::u16string key_, value_;
  bool in_value_ = false;
};

/// Whether opening or reading the file may take for ever.
bool IsEndless(const stdx::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && (S_ISCHR(status.st_mode) || S_ISFIFO(status.st_mode));
}

}  // namespace

void ReadConfigFile(const stdx::u16string& path, ConfigEntryList& list) try {
  if (IsEndless(ToNarrow(path))) return;
  const File file(OpenStdioFile(path.c_str(), u"rt, ccs=UNICODE"));
  if (file == nullptr) {
    list.is_partial |= errno != ENOENT && errno != ENOTDIR;
    // Deliberate: a platform may accept only this form of the mode, but what it opens is not read.
    const File probe(OpenStdioFile(path.c_str(), u"rt, ccs=UTF-8"));
    return;
  }
  LineReader reader(list);
  std::array<char, kBlockSize> block;
  std::array<char16_t, 2 * kBlockSize> text;
  while (const std::size_t size = std::fread(block.data(), 1, block.size(), file.get())) {
    const std::int32_t count = MultibyteToUtf16(block.data(), size, text.data(), text.size());
    if (count > 0) reader.Take(text.data(), static_cast<std::size_t>(count));
  }
  list.is_partial |= std::ferror(file.get()) != 0;
  reader.EndLine();
} catch (...) {
  list.is_partial = true;
  throw;
}

// --- What a rewrite must not lose --------------------------------------------------------------

namespace {

/// What a file holds before it is rewritten. Only a regular file holds something that can be lost.
struct FormerContents {
  bool exists = false;
  bool is_regular = false;
  stdx::string bytes;
};

/// Throws 1 where it cannot be told what there is.
FormerContents ReadFormerContents(const stdx::string& path) {
  FormerContents former;
  struct stat status;
  if (stat(path.c_str(), &status) != 0) {
    if (errno != ENOENT) throw kCannotOpen;
    return former;
  }
  if (S_ISFIFO(status.st_mode)) throw kCannotOpen;  // opening it would wait for a reader
  former.exists = true;
  former.is_regular = S_ISREG(status.st_mode);
  if (!former.is_regular) return former;
  const File file(std::fopen(path.c_str(), "rb"));
  if (file == nullptr) throw kCannotOpen;
  std::array<char, 65536> block;
  while (const std::size_t size = std::fread(block.data(), 1, block.size(), file.get())) {
    former.bytes.append(block.data(), size);
  }
  if (std::ferror(file.get()) != 0) throw kCannotOpen;
  return former;
}

/// Works on a full disk too: the contents fit into the space that truncating the file has freed.
void PutBack(const stdx::string& path, const FormerContents& former) {
  if (former.is_regular) {
    WriteAndClose(File(std::fopen(path.c_str(), "wb")), former.bytes);
  } else if (!former.exists) {
    // If the path is a link, the file that it leads to is the one that was made.
    std::error_code error;
    std::remove(std::filesystem::canonical(path.c_str(), error).c_str());
  }
}

bool HasUtf16Mark(std::string_view bytes) { return bytes.starts_with("\xFF\xFE"); }

/// Whether the reader gets every byte as text that can be written again.
bool IsUnderstood(const stdx::string& bytes) {
  if (HasUtf16Mark(bytes.view())) return false;
  for (std::size_t at = 0; at < bytes.size(); at += kBlockSize) {
    if (!SurvivesRoundTrip(bytes.substr(at, kBlockSize))) return false;
  }
  return true;
}

/// Makes the copy "<path>.orig", whole or not at all, unless something has that name. Throws 1.
void KeepCopy(const stdx::string& path, const stdx::string& bytes) {
  const stdx::string copy = path + ".orig";
  const stdx::string part = copy + ".part";
  unlink(part.c_str());  // of a process that was killed
  struct stat status;
  if (lstat(copy.c_str(), &status) == 0) return;
  const int descriptor = open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
  if (descriptor == -1) throw kCannotOpen;
  close(descriptor);
  // A hard link, unlike a rename, never replaces a file. On a volume without hard links a rename
  // has to do: there was no file of that name a moment ago.
  const bool is_kept = WriteAndClose(File(std::fopen(part.c_str(), "wb")), bytes) &&
                       (link(part.c_str(), copy.c_str()) == 0 || errno == EEXIST ||
                        std::rename(part.c_str(), copy.c_str()) == 0);
  unlink(part.c_str());
  if (!is_kept) throw kCannotOpen;
}

stdx::string TextOf(const ConfigEntryList& list) {
  stdx::string text;
  for (const ConfigEntry& entry : list.entries) {
    for (const stdx::u16string& value : entry.values) {
      text += ToNarrow(entry.key) + "=" + ToNarrow(value) + "\n";
    }
  }
  return text;
}

}  // namespace

// --- Writing -----------------------------------------------------------------------------------

bool IsNotUnicodeFile(const stdx::u16string& path) {
  const File file(std::fopen(ToNarrow(path).c_str(), "rb"));
  if (file == nullptr) return false;
  std::array<char, 2> mark;
  const std::size_t size = std::fread(mark.data(), 1, mark.size(), file.get());
  return !HasUtf16Mark({mark.data(), size});
}

void WriteConfigFile(const stdx::u16string& path, const ConfigEntryList& list) {
  // All that can fail beforehand, so that a failure finds the file as it was.
  const stdx::string text = TextOf(list);
  const stdx::string narrow_path = ToNarrow(path);
  const FormerContents former = ReadFormerContents(narrow_path);
  if (former.is_regular && (list.is_partial || !IsUnderstood(former.bytes))) {
    KeepCopy(narrow_path, former.bytes);
  }
  File file(std::fopen(narrow_path.c_str(), "wt"));
  if (file == nullptr) throw kCannotOpen;
  if (WriteAndClose(std::move(file), text)) return;
  PutBack(narrow_path, former);
  throw kCannotWrite;
}

}  // namespace quarn
