#include "tpk/bundle/libraries.h"

#include <gtest/gtest.h>

#include "tests/support/elf_builder.h"
#include "tests/support/scratch.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::MakeElf;
using testing::WriteFile;
using Names = std::vector<std::string>;

class LibrariesTest : public testing::ScratchTest {
 protected:
  fs::path Put(const std::string& name, const testing::ElfParts& parts) const {
    fs::create_directories((root() / name).parent_path());
    WriteFile(root() / name, MakeElf(parts));
    return fs::canonical(root() / name);
  }
  Libraries Find(const fs::path& program) const {
    return FindLibraries({program}, {root() / "other", root() / "lib"});
  }
  static Names NamesOf(const Libraries& libraries) {
    Names names;
    for (const auto& [name, library] : libraries) names.push_back(name);
    return names;
  }
};

TEST_F(LibrariesTest, AllThatIsNeededIsFoundOnce) {
  const fs::path program = Put("program", {{"liba.so.1", "libb.so.1"}, "", ""});
  const fs::path a = Put("lib/liba.so.1", {{"libb.so.1", "libc.so.6"}, "", ""});
  Put("lib/libb.so.1", {{"liba.so.1"}, "", ""});  // both need each other
  const Libraries libraries = Find(program);
  EXPECT_EQ(NamesOf(libraries), (Names{"liba.so.1", "libb.so.1", "libc.so.6"}));
  EXPECT_EQ(libraries.at("liba.so.1").path, a);
  EXPECT_EQ(libraries.at("liba.so.1").needed, (Names{"libb.so.1", "libc.so.6"}));
  EXPECT_TRUE(libraries.at("libc.so.6").path.empty());
}

TEST_F(LibrariesTest, ALinkStandsForItsFile) {
  const fs::path program = Put("program", {{"liba.so.1"}, "", ""});
  const fs::path file = Put("lib/liba.so.1.2.3", {});
  fs::create_symlink("liba.so.1.2.3", root() / "lib/liba.so.1");
  EXPECT_EQ(Find(program).at("liba.so.1").path, file);
}

TEST_F(LibrariesTest, ALibraryOfAnotherMachineIsPassedOver) {
  const fs::path program = Put("program", {{"liba.so.1"}, "", ""});
  Put("other/liba.so.1", {{}, "", "", 183});
  const fs::path fitting = Put("lib/liba.so.1", {});
  EXPECT_EQ(Find(program).at("liba.so.1").path, fitting);
  WriteFile(root() / "other/liba.so.1", "/* GNU ld script */");
  EXPECT_EQ(Find(program).at("liba.so.1").path, fitting);
}

TEST_F(LibrariesTest, AFilesOwnPathComesFirst) {
  const fs::path program = Put("program", {{"liba.so.1"}, "", "$ORIGIN/own:/nowhere"});
  Put("lib/liba.so.1", {});
  const fs::path own = Put("own/liba.so.1", {});
  EXPECT_EQ(Find(program).at("liba.so.1").path, own);
}

TEST_F(LibrariesTest, OneFileMayKnowWhereALibraryIsThatAnotherOneNeedsFirst) {
  const fs::path program = Put("program", {{"libown.so.1", "liba.so.1"}, "", ""});
  Put("lib/liba.so.1", {{"libown.so.1"}, "", "$ORIGIN/../own"});
  const fs::path own = Put("own/libown.so.1", {});
  EXPECT_EQ(Find(program).at("libown.so.1").path, own);
}

TEST_F(LibrariesTest, WhatIsLeftOutTakesAlongWhatItNeeds) {
  const fs::path program = Put("program", {{"libQt6Core.so.6", "libX11.so.6"}, "", ""});
  Put("lib/libQt6Core.so.6", {{"libown.so.1", "libshared.so.1"}, "", ""});
  Put("lib/libX11.so.6", {{"libshared.so.1", "libmissing.so.1"}, "", ""});
  Put("lib/libshared.so.1", {});
  Put("lib/libown.so.1", {});
  EXPECT_EQ(NamesOf(HandedOut(Find(program))), (Names{"libQt6Core.so.6", "libown.so.1"}));
}

TEST_F(LibrariesTest, ALibraryToHandOutHasToBeThere) {
  const fs::path program = Put("program", {{"libown.so.1"}, "", ""});
  try {
    HandedOut(Find(program));
    ADD_FAILURE();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), "missing-library");
    EXPECT_STREQ(failure.what(), "libown.so.1 is needed and not on this system");
  }
}

TEST_F(LibrariesTest, NamesAreLeftOutInEveryVersionAndAsAWhole) {
  EXPECT_TRUE(IsLeftOut("libc.so.6"));
  EXPECT_TRUE(IsLeftOut("libfreetype.so.7"));
  EXPECT_FALSE(IsLeftOut("libcairo.so.2"));
  EXPECT_FALSE(IsLeftOut("libQt6Core.so.6"));
  EXPECT_FALSE(IsLeftOut("libX11-other.so.1"));
}

TEST_F(LibrariesTest, TheLoadersConfigurationIsRead) {
  fs::create_directories(root() / "more.d");
  WriteFile(root() / "conf",
            "# comment\n\n/first\ninclude more.d/*.conf\n  /last # why\nhwcap 1 x\n");
  WriteFile(root() / "more.d/a.conf", "/second\ninclude ../conf\n");
  WriteFile(root() / "more.d/b.conf", "/third");
  const std::vector<fs::path> directories = LibraryDirectories(root() / "conf");
  EXPECT_EQ(std::vector<fs::path>(directories.begin(), directories.begin() + 4),
            (std::vector<fs::path>{"/first", "/second", "/third", "/last"}));
  EXPECT_EQ(directories.back(), "/usr/lib");
  EXPECT_EQ(LibraryDirectories(root() / "nowhere").size(), 4u);
}

}  // namespace
}  // namespace quarn::tpk
