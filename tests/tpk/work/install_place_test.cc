#include "tpk/work/install_place.h"

#include <sys/stat.h>
#include <unistd.h>

#include "tests/tpk/work/place_fixture.h"

namespace quarn::tpk {
namespace {

using testing::ReadFile;
using testing::Tree;
using testing::WriteFile;

class InstallPlaceTest : public PlaceTest {};

TEST_F(InstallPlaceTest, LiesInTheTargetOrInTheNearestFolderThatExists) {
  fs::create_directories(root() / "top");
  {
    const auto place = Open();
    EXPECT_EQ(place->path().parent_path(), root() / "top");
    EXPECT_EQ(place->Staging(), testing::U16(place->path() / "staged" / ""));
    EXPECT_EQ(place->target(), target());
    struct stat status {};
    ASSERT_EQ(stat(place->path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0700u);
    EXPECT_FALSE(fs::exists(target()));
  }
  EXPECT_TRUE(fs::is_empty(root() / "top"));
  fs::create_directories(target());
  {
    const auto place = Open();
    EXPECT_EQ(place->path(), target() / ".tpk-install");
  }
  EXPECT_TRUE(fs::is_empty(target()));
}

TEST_F(InstallPlaceTest, LiesAmongTheTemporaryFilesWhereTheTargetTakesNothing) {
  WriteFile(root() / "top", "a file");
  fs::create_directories(root() / "folder");
  if (geteuid() == 0) {
    // Nothing is closed to root but what a file system cannot do.
    const InstallPlace place("/proc/new", tmp(), [](const std::string&) {});
    EXPECT_EQ(place.path().parent_path(), tmp());
  } else {
    chmod((root() / "folder").c_str(), 0500);
    const InstallPlace place(root() / "folder", tmp(), [](const std::string&) {});
    EXPECT_EQ(place.path().parent_path(), tmp());
  }
  EXPECT_TRUE(fs::is_empty(tmp()));
}

TEST_F(InstallPlaceTest, ASecondRunIsRefusedAndTouchesNothing) {
  for (const bool exists : {false, true}) {
    if (exists) fs::create_directories(target());
    const auto first = Open();
    first->Plan(Files({"a"}));
    left_ = first->path();
    WriteFile(target() / "a", "half");
    ExpectFailure("busy");
    // The first one may have made the target meanwhile.
    fs::create_directories(target());
    ExpectFailure("busy");
    fs::remove_all(root() / "top" / "new");
  }
  EXPECT_EQ(told_, "");
}

TEST_F(InstallPlaceTest, FoldersThatLinksLeadToAreTheSame) {
  fs::create_directories(target());
  fs::create_directory_symlink(target(), root() / "link");
  const auto first = Open();
  EXPECT_THROW(InstallPlace(root() / "link", tmp(), [](const std::string&) {}), Failure);
  EXPECT_THROW(InstallPlace(target() / "", tmp(), [](const std::string&) {}), Failure);
  EXPECT_THROW(InstallPlace(target() / "x" / "..", tmp(), [](const std::string&) {}), Failure);
}

TEST_F(InstallPlaceTest, AFailedRunThatHoldsFilesLeavesThemWithTheirJournal) {
  WriteFile(target() / "a", "before");
  {
    auto place = Open();
    place->Plan(Files({"./a"}));
    EXPECT_FALSE(place->HoldsFiles());
    left_ = place->path();
    EXPECT_TRUE(place->Begin(0));
    MoveAside("a", 0);
    place->Keep({{UndoStep::Kind::kFileReplaced, testing::U16(target() / "./a"), 0, {}}});
    EXPECT_TRUE(place->HoldsFiles());
  }
  EXPECT_EQ(ReadFile(left_ / "staged" / "0"), "before");
  Open().reset();
  EXPECT_EQ(Tree(target()), (std::map<std::string, std::string>{{"a", "before"}}));
}

TEST_F(InstallPlaceTest, ACommitDiscardsWhatIsHeld) {
  WriteFile(target() / "a", "before");
  {
    auto place = Open();
    place->Plan(Files({"a"}));
    left_ = place->path();
    EXPECT_TRUE(place->Begin(0));
    MoveAside("a", 0);
    WriteFile(target() / "a", "after");
    place->Commit();
    EXPECT_FALSE(InstallPlace::LeftBehind(target(), tmp()));
  }
  EXPECT_EQ(Tree(target()), (std::map<std::string, std::string>{{"a", "after"}}));
}

}  // namespace
}  // namespace quarn::tpk
