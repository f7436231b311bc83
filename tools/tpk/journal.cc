#include "tools/tpk/journal.h"

#include <cstddef>
#include <utility>

namespace quarn::tpk {
namespace {

// A line for people, then records: a letter, a text, a zero. Paths hold any byte but zero.
constexpr std::string_view kHeader = "tpk install journal 1\n";
constexpr char kTarget = 't';
constexpr char kFolder = 'd';
constexpr char kFile = 'f';
constexpr char kEnd = 'e';  // with the number of records before it

void Append(std::string& to, char kind, std::string_view text) {
  to += kind;
  to += text;
  to += '\0';
}

}  // namespace

bool StaysBelow(std::string_view name) {
  for (;;) {
    const std::size_t end = name.find('/');
    const std::string_view part = name.substr(0, end);
    if (part.empty() || part == "." || part == ".." || part.find('\0') != part.npos) return false;
    if (end == name.npos) return true;
    name.remove_prefix(end + 1);
  }
}

std::string EncodeJournal(const Journal& journal) {
  std::string bytes(kHeader);
  Append(bytes, kTarget, journal.target);
  for (const std::string& folder : journal.folders) Append(bytes, kFolder, folder);
  for (const std::string& file : journal.files) Append(bytes, kFile, file);
  Append(bytes, kEnd, std::to_string(1 + journal.folders.size() + journal.files.size()));
  return bytes;
}

std::optional<Journal> DecodeJournal(std::string_view bytes) {
  if (!bytes.starts_with(kHeader)) return std::nullopt;
  bytes.remove_prefix(kHeader.size());
  Journal journal;
  for (std::size_t count = 0;; ++count) {
    const std::size_t end = bytes.find('\0');
    if (end == bytes.npos || end == 0) return std::nullopt;
    const char kind = bytes[0];
    std::string text(bytes.substr(1, end - 1));
    bytes.remove_prefix(end + 1);
    if ((kind == kTarget) != (count == 0)) return std::nullopt;
    if (kind == kEnd) {
      return bytes.empty() && text == std::to_string(count) ? std::optional(std::move(journal))
                                                            : std::nullopt;
    }
    if (kind == kTarget) {
      journal.target = std::move(text);
    } else if (!StaysBelow(text)) {
      return std::nullopt;
    } else if (kind == kFolder) {
      journal.folders.push_back(std::move(text));
    } else if (kind == kFile) {
      journal.files.push_back(std::move(text));
    } else {
      return std::nullopt;
    }
  }
}

}  // namespace quarn::tpk
