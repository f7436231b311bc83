// Small libraries of Linux, made byte by byte.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "tpk/bundle/elf_file.h"

namespace quarn::testing {

struct ElfParts {
  std::vector<std::string> needed = {};
  std::string name = {};
  std::string run_path = {};
  std::uint16_t machine = tpk::kElfX86_64;
  std::string contents = {};  ///< what its one segment ends with
};

/// The bytes of a library: the head, two segments, the dynamic section, its texts, the contents.
inline std::string MakeElf(const ElfParts& parts) {
  constexpr std::uint64_t kBase = 0x1000;  // no address equals an offset
  std::string texts(1, '\0');
  std::vector<std::pair<std::uint64_t, std::uint64_t>> dynamic;
  const auto add = [&](std::uint64_t tag, const std::string& text) {
    dynamic.emplace_back(tag, texts.size());
    texts += text + '\0';
  };
  for (const std::string& needed : parts.needed) add(1, needed);
  if (!parts.name.empty()) add(14, parts.name);
  if (!parts.run_path.empty()) add(29, parts.run_path);
  const std::uint64_t dynamic_at = sizeof(tpk::ElfHeader) + 2 * sizeof(tpk::ElfSegment);
  const std::uint64_t texts_at = dynamic_at + (dynamic.size() + 3) * 16;
  dynamic.emplace_back(5, kBase + texts_at);
  dynamic.emplace_back(10, texts.size());
  dynamic.emplace_back(0, 0);
  const std::uint64_t size = texts_at + texts.size() + parts.contents.size();

  tpk::ElfHeader header{};
  std::memcpy(header.identity, "\177ELF\2\1\1", 7);
  header.type = 3;
  header.machine = parts.machine;
  header.segments = sizeof header;
  header.segment_size = sizeof(tpk::ElfSegment);
  header.segment_count = 2;
  const tpk::ElfSegment segments[] = {{tpk::kElfLoad, 4, 0, kBase, kBase, size, size, 0x1000},
                                      {tpk::kElfDynamic, 4, dynamic_at, kBase + dynamic_at, 0,
                                       dynamic.size() * 16, dynamic.size() * 16, 8}};
  std::string file(reinterpret_cast<const char*>(&header), sizeof header);
  file.append(reinterpret_cast<const char*>(segments), sizeof segments);
  file.append(reinterpret_cast<const char*>(dynamic.data()), dynamic.size() * 16);
  return file + texts + parts.contents;
}

}  // namespace quarn::testing
