#include "tpk/bundle/elf_file.h"

#include <gtest/gtest.h>

#include "tests/support/elf_builder.h"
#include "tests/support/scratch.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::MakeElf;
using testing::WriteFile;

class ElfFileTest : public testing::ScratchTest {
 protected:
  ElfFile Read(const std::string& bytes) const {
    WriteFile(path_, bytes);
    return ReadElf(path_);
  }
  bool IsRefused(const std::string& bytes) const {
    try {
      Read(bytes);
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), "not-a-library");
      return true;
    }
    return false;
  }

  const fs::path path_ = root() / "library";
  const std::string whole_ = MakeElf({{"libone.so.1", "libtwo.so"}, "libown.so.3", "$ORIGIN:/opt"});
};

TEST_F(ElfFileTest, TellsWhatTheLoaderReads) {
  const ElfFile elf = Read(whole_);
  EXPECT_EQ(elf.machine, kElfX86_64);
  EXPECT_EQ(elf.name, "libown.so.3");
  EXPECT_EQ(elf.needed, (std::vector<std::string>{"libone.so.1", "libtwo.so"}));
  EXPECT_EQ(elf.run_path, (std::vector<std::string>{"$ORIGIN", "/opt"}));
}

TEST_F(ElfFileTest, AFileWithoutADynamicSectionNeedsNothing) {
  std::string bytes = whole_;
  bytes[sizeof(ElfHeader) + sizeof(ElfSegment)] = 4;  // a note
  EXPECT_TRUE(Read(bytes).needed.empty());
}

TEST_F(ElfFileTest, TheProgramOfThisTestNeedsTheCLibrary) {
  const fs::path self = fs::read_symlink("/proc/self/exe");
  const std::vector<std::string> needed = ReadElf(self).needed;
  EXPECT_NE(std::find(needed.begin(), needed.end(), "libc.so.6"), needed.end());
}

TEST_F(ElfFileTest, WhatIsNoLibraryIsRefused) {
  EXPECT_TRUE(IsRefused(""));
  EXPECT_TRUE(IsRefused("#!/bin/sh\n"));
  EXPECT_TRUE(IsRefused(std::string("\177ELF\1\1\1", 7) + std::string(100, '\0')));  // 32 bits
  EXPECT_TRUE(
      IsRefused(std::string("\177ELF\2\2\1", 7) + std::string(100, '\0')));  // the other end
}

TEST_F(ElfFileTest, EveryPartOfAFileIsRefusedOrComplete) {
  for (std::size_t size = 0; size < whole_.size(); ++size) {
    EXPECT_TRUE(IsRefused(whole_.substr(0, size))) << size;
  }
}

TEST_F(ElfFileTest, ATableThatLeadsOutOfTheFileIsRefused) {
  struct {
    const char* name;
    std::size_t offset;
    std::uint64_t value;
    std::size_t size;
  } const damages[] = {
      {"segments beyond the end", 32, 1 << 20, 8},
      {"segments at the end of the address space", 32, ~std::uint64_t{0}, 8},
      {"segments of another size", 54, 32, 2},
      {"too many segments", 56, 0xffff, 2},
      {"a segment beyond the end", 64 + 8, 1 << 20, 8},
      {"a segment longer than the file", 64 + 32, 1 << 20, 8},
      {"a segment whose end overflows", 64 + 32, ~std::uint64_t{0}, 8},
      {"texts at no address", 64 + 16, 1 << 30, 8},
      {"a name beyond the texts", 176 + 8, 1 << 20, 8},
      {"a name at the end of the address space", 176 + 8, ~std::uint64_t{0}, 8},
      {"texts longer than the file", 176 + 5 * 16 + 8, 1 << 20, 8},
  };
  for (const auto& damage : damages) {
    std::string bytes = whole_;
    std::memcpy(bytes.data() + damage.offset, &damage.value, damage.size);
    EXPECT_TRUE(IsRefused(bytes)) << damage.name;
  }
}

TEST_F(ElfFileTest, NoDamagedByteLeadsOutOfTheFile) {
  for (std::size_t i = 0; i < whole_.size(); ++i) {
    for (const int value : {0x00, 0x01, 0x7f, 0x80, 0xff}) {
      std::string bytes = whole_;
      bytes[i] = static_cast<char>(value);
      IsRefused(bytes);  // or read; the sanitizers tell
    }
  }
}

}  // namespace
}  // namespace quarn::tpk
