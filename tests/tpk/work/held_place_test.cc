#include "tpk/work/held_place.h"

#include <gtest/gtest.h>

#include "tests/support/scratch.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::WriteFile;

class HeldPlaceTest : public testing::ScratchTest {
 protected:
  PlacePath place() const { return {root() / ".tpk-install", ""}; }
};

TEST_F(HeldPlaceTest, TheWayLeadsFromWhereAPlaceLiesToTheTarget) {
  const auto places = PlacesFor("/a/b", "/tmp");
  ASSERT_EQ(places.size(), 4u);
  EXPECT_EQ(places[0].path, "/a/b/.tpk-install");
  EXPECT_EQ(places[0].way, "");
  EXPECT_EQ(places[1].path.parent_path(), "/a");
  EXPECT_EQ(places[1].way, "b");
  EXPECT_EQ(places[2].path.parent_path(), "/");
  EXPECT_EQ(places[2].way, "a/b");
  EXPECT_EQ(places[3].path.parent_path(), "/tmp");
  EXPECT_EQ(places[3].way, "/a/b");
  // Another target has another place there: its name tells the ways apart.
  EXPECT_EQ(places[2].path.filename().string().size(), std::string(".tpk-install-").size() + 16);
  EXPECT_NE(PlacesFor("/a/c", "/tmp")[3].path, places[3].path);
}

TEST_F(HeldPlaceTest, OnlyAFolderThatIsThereIsEntered) {
  EXPECT_EQ(EnterPlace(place()), nullptr);
  WriteFile(place().path, "a file");
  EXPECT_EQ(EnterPlace(place()), nullptr);
  fs::remove(place().path);
  fs::create_directory_symlink(home(), place().path);
  EXPECT_EQ(EnterPlace(place()), nullptr);
  EXPECT_TRUE(fs::is_empty(home()));
}

TEST_F(HeldPlaceTest, ItIsHeldByOneAndGoesWithItWhenItIsEmpty) {
  fs::create_directory(place().path);
  {
    const auto held = EnterPlace(place());
    ASSERT_NE(held, nullptr);
    EXPECT_THROW(EnterPlace(place()), Failure);
    EXPECT_THROW(MakePlace(root(), tmp()), Failure);
  }
  EXPECT_FALSE(fs::exists(place().path));
}

TEST_F(HeldPlaceTest, WhatItHoldsStaysUntilItIsEmptied) {
  {
    const auto held = MakePlace(root(), tmp());
    EXPECT_EQ(held->path, place().path);
    WriteFile(held->Staged() / "0", "moved aside");
    WriteFile(held->Journal(), "");
    WriteFile(held->Done(), "");
  }
  EXPECT_FALSE(fs::exists(place().Lock()));
  EXPECT_TRUE(fs::exists(place().Staged() / "0"));
  EnterPlace(place())->Empty();
  EXPECT_FALSE(fs::exists(place().path));
}

}  // namespace
}  // namespace quarn::tpk
