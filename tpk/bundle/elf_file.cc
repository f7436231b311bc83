#include "tpk/bundle/elf_file.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>
#include <sstream>
#include <string_view>

#include "tpk/disk/input_file.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

static_assert(std::endian::native == std::endian::little, "the fields are read as they are");

// 64 bits, least significant byte first, version 1.
constexpr std::string_view kIdentity("\177ELF\2\1\1", 7);

// The entries of the dynamic section that are looked at.
constexpr std::uint64_t kEnd = 0;
constexpr std::uint64_t kNeeded = 1;
constexpr std::uint64_t kStrings = 5;
constexpr std::uint64_t kStringsSize = 10;
constexpr std::uint64_t kName = 14;
constexpr std::uint64_t kOldRunPath = 15;
constexpr std::uint64_t kRunPath = 29;

struct DynamicEntry {
  std::uint64_t tag;
  std::uint64_t value;
};

/// The bytes of a file; nothing is read outside of them.
class Bytes {
 public:
  Bytes(std::span<const std::byte> bytes, const std::string& name) : bytes_(bytes), name_(name) {}

  [[noreturn]] void Refuse(const char* what) const {
    throw Failure(ExitCode::kInputOutput, "not-a-library", Printable(name_) + " " + what);
  }

  std::span<const std::byte> Part(std::uint64_t offset, std::uint64_t size) const {
    if (offset > bytes_.size() || size > bytes_.size() - offset) Refuse("is a damaged library");
    return bytes_.subspan(offset, size);
  }

  template <class T>
  T At(std::uint64_t offset) const {
    T value;
    std::memcpy(&value, Part(offset, sizeof value).data(), sizeof value);
    return value;
  }

 private:
  std::span<const std::byte> bytes_;
  const std::string& name_;
};

/// The texts of the dynamic section.
class Strings {
 public:
  Strings(const Bytes& file, std::span<const std::byte> table) : file_(file), table_(table) {}

  std::string At(std::uint64_t offset) const {
    const auto text = table_.subspan(std::min<std::uint64_t>(offset, table_.size()));
    const auto end = std::find(text.begin(), text.end(), std::byte{0});
    if (end == text.end()) file_.Refuse("is a damaged library");
    return std::string(reinterpret_cast<const char*>(text.data()),
                       static_cast<std::size_t>(end - text.begin()));
  }

 private:
  const Bytes& file_;
  std::span<const std::byte> table_;
};

std::vector<DynamicEntry> ReadDynamic(const Bytes& file, const std::vector<ElfSegment>& segments) {
  std::vector<DynamicEntry> entries;
  const auto segment = std::find_if(segments.begin(), segments.end(),
                                    [](const ElfSegment& s) { return s.type == kElfDynamic; });
  if (segment == segments.end()) return entries;
  for (std::uint64_t at = 0; at + sizeof(DynamicEntry) <= segment->file_size;
       at += sizeof(DynamicEntry)) {
    const auto entry = file.At<DynamicEntry>(segment->offset + at);
    if (entry.tag == kEnd) break;
    entries.push_back(entry);
  }
  return entries;
}

std::optional<std::uint64_t> Find(const std::vector<DynamicEntry>& entries, std::uint64_t tag) {
  for (const DynamicEntry& entry : entries) {
    if (entry.tag == tag) return entry.value;
  }
  return std::nullopt;
}

/// Where in the file the byte is that is loaded to `address`.
std::uint64_t OffsetOf(const Bytes& file, const std::vector<ElfSegment>& segments,
                       std::uint64_t address) {
  for (const ElfSegment& segment : segments) {
    if (segment.type == kElfLoad && address >= segment.address &&
        address - segment.address < segment.file_size) {
      return segment.offset + (address - segment.address);
    }
  }
  file.Refuse("is a damaged library");
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

}  // namespace

ElfTables ReadElfTables(std::span<const std::byte> contents, const std::string& name) {
  const Bytes file(contents, name);
  if (contents.size() < sizeof(ElfHeader) ||
      std::memcmp(contents.data(), kIdentity.data(), kIdentity.size()) != 0) {
    file.Refuse("is no program or library of 64 bits for Linux");
  }
  ElfTables tables{file.At<ElfHeader>(0), {}};
  const ElfHeader& header = tables.header;
  if (header.segment_count != 0 && header.segment_size != sizeof(ElfSegment)) {
    file.Refuse("is a damaged library");
  }
  // First of all, so that no sum overflows.
  file.Part(header.segments, std::uint64_t{header.segment_count} * sizeof(ElfSegment));
  for (std::uint64_t i = 0; i < header.segment_count; ++i) {
    tables.segments.push_back(file.At<ElfSegment>(header.segments + i * sizeof(ElfSegment)));
    file.Part(tables.segments.back().offset, tables.segments.back().file_size);
  }
  return tables;
}

ElfFile ReadElf(const fs::path& path) {
  const std::vector<std::byte> contents = ReadWhole(path);
  const std::string file_name = path.string();
  const ElfTables tables = ReadElfTables(contents, file_name);
  const Bytes file(contents, file_name);
  const std::vector<DynamicEntry> entries = ReadDynamic(file, tables.segments);

  ElfFile elf;
  elf.machine = tables.header.machine;
  const auto strings_address = Find(entries, kStrings);
  if (!strings_address) return elf;  // it needs nothing
  const Strings strings(file, file.Part(OffsetOf(file, tables.segments, *strings_address),
                                        Find(entries, kStringsSize).value_or(0)));
  for (const DynamicEntry& entry : entries) {
    if (entry.tag == kNeeded) elf.needed.push_back(strings.At(entry.value));
  }
  if (const auto name = Find(entries, kName)) elf.name = strings.At(*name);
  auto run_path = Find(entries, kRunPath);
  if (!run_path) run_path = Find(entries, kOldRunPath);
  if (run_path) elf.run_path = Split(strings.At(*run_path), ':');
  return elf;
}

}  // namespace quarn::tpk
