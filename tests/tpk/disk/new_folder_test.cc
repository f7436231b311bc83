#include "tpk/disk/new_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>

#include "tests/support/scratch.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::WriteFile;

class NewFolderTest : public testing::ScratchTest {
 protected:
  static void Allow(const fs::path&) {}
  fs::path place() const { return root() / "in" / "place"; }
  std::size_t Entries() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(root() / "in"), {}));
  }
};

TEST_F(NewFolderTest, ItAppearsAtTheEndAndLeavesNothingBeside) {
  {
    NewFolder folder(place() / ".", Allow);
    EXPECT_EQ(folder.place(), place());
    WriteFile(folder.Make() / "file", "new");
    EXPECT_FALSE(fs::exists(place()));
    folder.Replace();
  }
  EXPECT_EQ(ReadFile(place() / "file"), "new");
  EXPECT_EQ(Entries(), 1u);
}

TEST_F(NewFolderTest, WithoutItsEndNothingIsLeft) {
  { WriteFile(NewFolder(place(), Allow).Make() / "file", "new"); }
  EXPECT_EQ(Entries(), 0u);
}

TEST_F(NewFolderTest, WhatIsInThePlaceIsAskedFor) {
  int asked = 0;
  const auto refuse = [&](const fs::path& path) {
    ++asked;
    EXPECT_EQ(path, place());
    throw Failure(ExitCode::kUsage, "exists", "it exists");
  };
  NewFolder(place(), refuse);
  EXPECT_EQ(asked, 0);
  fs::create_directories(place());
  EXPECT_THROW(NewFolder(place() / "", refuse), Failure);
  EXPECT_EQ(asked, 1);
}

TEST_F(NewFolderTest, ReplacingTakesAwayWhatWasThere) {
  fs::create_directories(place());
  WriteFile(place() / "old", "old");
  NewFolder folder(place(), Allow);
  WriteFile(folder.Make() / "file", "new");
  folder.Replace();
  EXPECT_FALSE(fs::exists(place() / "old"));
  EXPECT_EQ(ReadFile(place() / "file"), "new");
}

TEST_F(NewFolderTest, MergingKeepsWhatItHasNoFileFor) {
  fs::create_directories(place());
  WriteFile(place() / "old", "old");
  WriteFile(place() / "file", "old");
  NewFolder folder(place(), Allow);
  WriteFile(folder.Make() / "file", "new");
  folder.Merge();
  EXPECT_EQ(ReadFile(place() / "old"), "old");
  EXPECT_EQ(ReadFile(place() / "file"), "new");
}

TEST_F(NewFolderTest, MergingChangesNothingWhereSomethingIsInTheWay) {
  fs::create_directories(place() / "z");
  WriteFile(place() / "a", "old");
  NewFolder folder(place(), Allow);
  const fs::path made = folder.Make();
  WriteFile(made / "a", "new");
  WriteFile(made / "z", "new");
  EXPECT_THROW(folder.Merge(), Failure);
  EXPECT_EQ(ReadFile(place() / "a"), "old");
}

}  // namespace
}  // namespace quarn::tpk
