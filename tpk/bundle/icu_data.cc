#include "tpk/bundle/icu_data.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <span>
#include <string>

#include "tpk/bundle/elf_file.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

// A package is a head, and then a table of contents: the number of items, for each one where its
// name and its contents are, counted from the table; the names; the contents, sorted like the
// names.
constexpr std::size_t kFormatInHead = 12;
constexpr std::string_view kFormat = "CmnD";
constexpr std::size_t kMarkInHead = 2;
constexpr std::uint16_t kMark = 0x27da;
constexpr std::size_t kAlignment = 16;
constexpr std::size_t kPage = 0x10000;  // the greatest of any machine
constexpr std::string_view kKept = "/coll/";
constexpr std::uint32_t kUnwindTable = 0x6474e550;

struct TableEntry {
  std::uint32_t name;
  std::uint32_t contents;
};

struct Item {
  std::string name;
  std::span<const std::byte> contents;
};

struct Package {
  std::size_t begin = 0;  ///< in the file
  std::span<const std::byte> head;
  std::vector<Item> items;
};

using Bytes = std::span<const std::byte>;

std::string_view Text(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

template <class T>
std::optional<T> At(Bytes bytes, std::size_t offset) {
  if (offset > bytes.size() || sizeof(T) > bytes.size() - offset) return std::nullopt;
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

template <class T>
void Append(std::vector<std::byte>& to, const T& value) {
  const auto bytes = std::as_bytes(std::span(&value, 1));
  to.insert(to.end(), bytes.begin(), bytes.end());
}

void Align(std::vector<std::byte>& bytes, std::size_t alignment) {
  bytes.resize((bytes.size() + alignment - 1) / alignment * alignment);
}

/// The package that begins at `begin`; empty where there is none.
std::optional<Package> ReadPackage(Bytes segment, std::size_t begin) {
  const Bytes bytes = segment.subspan(begin);
  const auto head_size = At<std::uint16_t>(bytes, 0);
  if (!head_size || *head_size < kFormatInHead + kFormat.size() || *head_size > bytes.size() ||
      At<std::uint16_t>(bytes, kMarkInHead) != kMark) {
    return std::nullopt;
  }
  Package package{begin, bytes.first(*head_size), {}};
  const Bytes table = bytes.subspan(*head_size);
  const auto count = At<std::uint32_t>(table, 0);
  if (!count || *count > table.size() / sizeof(TableEntry)) return std::nullopt;
  std::vector<TableEntry> entries;
  for (std::size_t i = 0; i < *count; ++i) {
    const auto entry = At<TableEntry>(table, sizeof *count + i * sizeof(TableEntry));
    if (!entry) return std::nullopt;
    entries.push_back(*entry);
  }
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const std::size_t end = i + 1 < entries.size() ? entries[i + 1].contents : table.size();
    const std::size_t name = entries[i].name;
    const std::size_t name_end = Text(table).find('\0', name);
    if (name_end == std::string_view::npos || entries[i].contents > end || end > table.size()) {
      return std::nullopt;
    }
    package.items.push_back({std::string(Text(table).substr(name, name_end - name)),
                             table.subspan(entries[i].contents, end - entries[i].contents)});
  }
  return package;
}

std::optional<Package> FindPackage(Bytes segment) {
  const std::size_t format = Text(segment).find(kFormat);
  if (format == std::string_view::npos || format < kFormatInHead) return std::nullopt;
  return ReadPackage(segment, format - kFormatInHead);
}

/// A package of those items that are kept.
std::vector<std::byte> Smaller(const Package& package) {
  std::vector<Item> items;
  std::copy_if(package.items.begin(), package.items.end(), std::back_inserter(items),
               [](const Item& item) { return item.name.find(kKept) != std::string::npos; });
  std::string names;
  std::vector<std::byte> table;
  Append(table, static_cast<std::uint32_t>(items.size()));
  const std::size_t names_begin = table.size() + items.size() * sizeof(TableEntry);
  std::vector<std::uint32_t> name_offsets;
  for (const Item& item : items) {
    name_offsets.push_back(static_cast<std::uint32_t>(names_begin + names.size()));
    names += item.name + '\0';
  }
  std::vector<std::byte> contents;
  const std::size_t begin = (names_begin + names.size() + kAlignment - 1) / kAlignment * kAlignment;
  for (std::size_t i = 0; i < items.size(); ++i) {
    Append(table, TableEntry{name_offsets[i], static_cast<std::uint32_t>(begin + contents.size())});
    contents.insert(contents.end(), items[i].contents.begin(), items[i].contents.end());
    Align(contents, kAlignment);
  }
  const auto name_bytes = std::as_bytes(std::span(names));
  table.insert(table.end(), name_bytes.begin(), name_bytes.end());
  Align(table, kAlignment);
  table.insert(table.end(), contents.begin(), contents.end());
  table.insert(table.begin(), package.head.begin(), package.head.end());
  return table;
}

/// `file` with `package` in place of what `segment` has from `begin` to its end. Addresses stay;
/// what comes after the segment moves towards the beginning, by whole pages, as loading wants it.
std::vector<std::byte> Replace(const std::vector<std::byte>& file, ElfTables tables,
                               const ElfSegment& segment, std::size_t begin,
                               const std::vector<std::byte>& package) {
  const auto at = [&file](std::uint64_t offset) {
    return file.begin() + static_cast<std::ptrdiff_t>(offset);
  };
  const std::uint64_t old_end = segment.offset + segment.file_size;
  const std::uint64_t new_end = segment.offset + begin + package.size();
  const std::uint64_t cut = (old_end - new_end) / kPage * kPage;
  std::vector<std::byte> result(file.begin(), at(segment.offset + begin));
  result.insert(result.end(), package.begin(), package.end());
  result.resize(old_end - cut);
  std::uint64_t loaded_end = old_end;
  const std::uint64_t segment_offset = segment.offset;
  for (ElfSegment& other : tables.segments) {
    if (other.type == kElfLoad) {
      loaded_end = std::max(loaded_end, other.offset + other.file_size);
    }
    if (other.type == kElfLoad && other.offset == segment_offset) {
      other.file_size = other.memory_size = new_end - segment_offset;
    } else if (other.offset >= old_end) {
      other.offset -= cut;
    } else if (other.type == kUnwindTable) {
      other.type = 0;  // it was after the package; a library of data has nothing to unwind
    }
  }
  result.insert(result.end(), at(old_end), at(loaded_end));
  // Sections are for linkers and debuggers.
  tables.header.sections = 0;
  tables.header.section_size = tables.header.section_count = tables.header.section_names = 0;
  std::memcpy(result.data(), &tables.header, sizeof tables.header);
  std::memcpy(result.data() + tables.header.segments, tables.segments.data(),
              tables.segments.size() * sizeof(ElfSegment));
  return result;
}

}  // namespace

bool IsIcuData(std::string_view name) { return name.starts_with("libicudata.so"); }

std::vector<std::byte> SortingDataOnly(const std::vector<std::byte>& file) {
  const ElfTables tables = ReadElfTables(file, "the data of ICU");
  for (const ElfSegment& segment : tables.segments) {
    if (segment.type != kElfLoad) continue;
    const auto package = FindPackage(Bytes(file).subspan(segment.offset, segment.file_size));
    if (!package) continue;
    const std::vector<std::byte> smaller = Smaller(*package);
    const std::uint64_t begin = segment.offset + package->begin;
    if (package->begin + smaller.size() > segment.file_size ||
        tables.header.segments + tables.segments.size() * sizeof(ElfSegment) > begin) {
      break;
    }
    return Replace(file, tables, segment, package->begin, smaller);
  }
  return file;
}

}  // namespace quarn::tpk
