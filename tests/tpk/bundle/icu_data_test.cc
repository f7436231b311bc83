#include "tpk/bundle/icu_data.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <span>

#include "tests/support/elf_builder.h"
#include "tests/support/scratch.h"
#include "tpk/bundle/elf_file.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

using Items = std::map<std::string, std::string>;
using testing::MakeElf;

std::vector<std::byte> Bytes(const std::string& text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

std::string Text(const std::vector<std::byte>& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string Number(std::size_t value) {
  const auto number = static_cast<std::uint32_t>(value);
  return {reinterpret_cast<const char*>(&number), sizeof number};
}

/// Contents are 16 bytes each, so that nothing has to be filled.
std::string MakePackage(const Items& items) {
  std::string head("\x20\0\xda\x27\x14\0\0\0\0\0\2\0CmnD", 16);
  head.resize(32);
  std::string names;
  std::string table = Number(items.size());
  std::string contents;
  const std::size_t names_at = 4 + 8 * items.size();
  std::size_t names_size = 0;
  for (const auto& [name, content] : items) names_size += name.size() + 1;
  const std::size_t contents_at = (names_at + names_size + 15) / 16 * 16;
  for (const auto& [name, content] : items) {
    table += Number(names_at + names.size()) + Number(contents_at + contents.size());
    names += name + '\0';
    contents += content;
  }
  table += names;
  table.resize(contents_at);
  return head + table + contents;
}

class IcuDataTest : public testing::ScratchTest {
 protected:
  const Items kept_ = {{"icudt99l/coll/de.res", std::string(16, 'd')},
                       {"icudt99l/coll/root.res", std::string(32, 'r')}};
  Items all_ = {{"icudt99l/brkitr/x.brk", std::string(1 << 18, 'x')},
                {"icudt99l/de.res", std::string(16, 'g')},
                {"icudt99l/zone/de.res", std::string(1 << 18, 'z')}};
  IcuDataTest() { all_.insert(kept_.begin(), kept_.end()); }
};

TEST_F(IcuDataTest, OnlyTheRulesOfSortingAreLeft) {
  const std::string start = MakeElf({{}, "libicudata.so.99", "", kElfX86_64, ""});
  const std::string file = MakeElf({{}, "libicudata.so.99", "", kElfX86_64, MakePackage(all_)});
  const std::string smaller = Text(SortingDataOnly(Bytes(file)));
  EXPECT_LT(smaller.size(), 0x10000u + 0x1000u);
  EXPECT_EQ(smaller.substr(start.size(), MakePackage(kept_).size()), MakePackage(kept_));
  const ElfTables tables = ReadElfTables(Bytes(smaller), "smaller");
  EXPECT_EQ(tables.segments[0].file_size, start.size() + MakePackage(kept_).size());
  EXPECT_EQ(tables.segments[0].address, 0x1000u);
}

TEST_F(IcuDataTest, WhatIsLaidOutOtherwiseStaysAsItIs) {
  const std::string package = MakePackage(all_);
  std::vector<std::string> others = {"",
                                     "CmnD",
                                     package.substr(12),
                                     package.substr(0, 31),
                                     package.substr(0, 33),
                                     package.substr(0, 60)};
  // The number of items, where a name and where contents are, each beyond the end.
  for (const std::size_t offset : {32, 36, 40, 48}) {
    others.push_back(package);
    others.back().replace(offset, 4, "\xff\xff\xff\x7f");
  }
  for (const std::string& other : others) {
    const std::vector<std::byte> file = Bytes(MakeElf({{}, "", "", kElfX86_64, other}));
    EXPECT_TRUE(SortingDataOnly(file) == file) << others.size();
  }
}

TEST_F(IcuDataTest, NoDamagedByteLeadsOutOfTheFile) {
  const std::string file = MakeElf({{}, "", "", kElfX86_64, MakePackage(kept_)});
  for (std::size_t i = 0; i < file.size(); ++i) {
    for (const int value : {0x00, 0x7f, 0xff}) {
      std::string damaged = file;
      damaged[i] = static_cast<char>(value);
      try {
        SortingDataOnly(Bytes(damaged));  // the sanitizers tell
      } catch (const Failure&) {
        continue;
      }
    }
  }
}

/// The one on this machine, if there is one: what the loader makes of the smaller file.
TEST_F(IcuDataTest, TheLoaderTakesTheSmallerLibrary) {
  for (const char* const path : {"/usr/lib/x86_64-linux-gnu/libicudata.so.72",
                                 "/usr/lib/x86_64-linux-gnu/libicudata.so.76"}) {
    if (!std::filesystem::exists(path)) continue;
    const std::vector<std::byte> smaller = SortingDataOnly(Bytes(testing::ReadFile(path)));
    EXPECT_LT(smaller.size(), std::size_t{5} << 20);
    testing::WriteFile(root() / "libicudata.so", Text(smaller));
    void* const library = dlopen((root() / "libicudata.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const std::string symbol = std::string("icudt") + (std::strrchr(path, '.') + 1) + "_dat";
    const auto* const data = static_cast<const char*>(dlsym(library, symbol.c_str()));
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::string(data + 12, 4), "CmnD");
    dlclose(library);
    return;
  }
  GTEST_SKIP() << "no library with ICU's data here";
}

}  // namespace
}  // namespace quarn::tpk
