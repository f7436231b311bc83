// Programs and libraries of Linux, as far as the dynamic loader reads them before it loads what
// they need: 64 bits, least significant byte first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace quarn::tpk {

/// The head of the file; its fields and their order are those of the file.
struct ElfHeader {
  unsigned char identity[16];
  std::uint16_t type;
  std::uint16_t machine;
  std::uint32_t version;
  std::uint64_t entry;
  std::uint64_t segments;  ///< where the table of segments begins
  std::uint64_t sections;
  std::uint32_t flags;
  std::uint16_t header_size;
  std::uint16_t segment_size;  ///< of an entry of the table
  std::uint16_t segment_count;
  std::uint16_t section_size;
  std::uint16_t section_count;
  std::uint16_t section_names;
};
static_assert(sizeof(ElfHeader) == 64);

/// An entry of the table of segments; as in the file.
struct ElfSegment {
  std::uint32_t type;
  std::uint32_t flags;
  std::uint64_t offset;
  std::uint64_t address;
  std::uint64_t physical_address;
  std::uint64_t file_size;
  std::uint64_t memory_size;
  std::uint64_t alignment;
};
static_assert(sizeof(ElfSegment) == 56);

inline constexpr std::uint32_t kElfLoad = 1;
inline constexpr std::uint32_t kElfDynamic = 2;

/// The machine of the most common desktops, in `ElfHeader::machine`.
inline constexpr std::uint16_t kElfX86_64 = 62;

struct ElfTables {
  ElfHeader header;
  std::vector<ElfSegment> segments;  ///< each within the file
};

/// Throws Failure ("not-a-library"), which calls the file `name`, where `file` is no such file or a
/// table leads out of it.
ElfTables ReadElfTables(std::span<const std::byte> file, const std::string& name);

struct ElfFile {
  std::uint16_t machine = 0;
  std::string name;                 ///< by which others need it; empty if it has none
  std::vector<std::string> needed;  ///< the names of the libraries that it needs itself
  /// Where it says that these are, with `$ORIGIN` for its own directory.
  std::vector<std::string> run_path;
};

/// Throws Failure like `ReadElfTables`, and where the file cannot be read.
ElfFile ReadElf(const std::filesystem::path& path);

}  // namespace quarn::tpk
