#include "tpk/work/recovery.h"

#include <sys/stat.h>

#include <map>

#include "tests/tpk/work/place_fixture.h"
#include "tpk/work/journal.h"

namespace quarn::tpk {
namespace {

using testing::ReadFile;
using testing::Tree;
using testing::WriteFile;

class RecoveryTest : public PlaceTest {};

TEST_F(RecoveryTest, WhatAKilledRunDidIsUndone) {
  WriteFile(target() / "d" / "old", "before");
  WriteFile(target() / "d" / "kept", "before");
  const auto before = Tree(root() / "top");
  KilledRun({"d/old", "d/kept", "d/new", "e/f/new", "twice", "twice"});
  MoveAside("d/old", 0);
  Make("d/old");
  Make("d/new");
  Make("e/f/new");
  Make("twice");
  MoveAside("twice", 5);
  Make("twice");
  EXPECT_TRUE(InstallPlace::LeftBehind(target(), tmp()));
  Open().reset();
  EXPECT_EQ(Tree(root() / "top"), before);
  EXPECT_NE(told_.find("was interrupted"), std::string::npos);
  EXPECT_FALSE(InstallPlace::LeftBehind(target(), tmp()));
  told_.clear();
  Open().reset();
  EXPECT_EQ(told_, "") << "once is enough";
}

TEST_F(RecoveryTest, WhatTheKilledRunHadNotBegunWithIsNotUndone) {
  fs::create_directories(target());
  KilledRun({"begun", "later"}, 1);
  Make("begun");
  WriteFile(target() / "later", "mine");
  Open().reset();
  EXPECT_EQ(Tree(target()), (std::map<std::string, std::string>{{"later", "mine"}}));
}

TEST_F(RecoveryTest, AFileThatTwoNamesLeadToIsUndoneFromItsLastStepToItsFirst) {
  WriteFile(target() / "dir" / "f", "before");
  fs::create_directory_symlink("dir", target() / "link");
  const auto before = Tree(root() / "top");
  KilledRun({"dir/f", "link/f"});
  MoveAside("dir/f", 0);
  Make("dir/f");
  MoveAside("link/f", 1);
  Make("link/f");
  Open().reset();
  EXPECT_EQ(Tree(root() / "top"), before);
  fs::remove(target() / "dir" / "f");
  const auto without = Tree(root() / "top");
  KilledRun({"dir/f", "link/f"});
  Make("dir/f");
  MoveAside("link/f", 1);
  Make("link/f");
  Open().reset();
  EXPECT_EQ(Tree(root() / "top"), without) << "what was moved aside was the run's own";
}

TEST_F(RecoveryTest, FoldersThatWereMissingGoUnlessSomebodyUsesThem) {
  fs::create_directories(root() / "top");
  KilledRun({"d/e/new"});
  Make("d/e/new");
  Open().reset();
  EXPECT_TRUE(fs::is_empty(root() / "top"));
  KilledRun({"d/e/new"});
  Make("d/e/new");
  WriteFile(target() / "d" / "mine", "mine");
  Open().reset();
  EXPECT_EQ(Tree(root() / "top"),
            (std::map<std::string, std::string>{{"new/", ""},
                                                {"new/target/", ""},
                                                {"new/target/d/", ""},
                                                {"new/target/d/mine", "mine"}}));
}

TEST_F(RecoveryTest, ARunThatWasKilledBehindItsCommitIsNotUndone) {
  WriteFile(target() / "old", "before");
  KilledRun({"old", "new"});
  MoveAside("old", 0);
  WriteFile(target() / "old", "after");
  WriteFile(target() / "new", "after");
  fs::rename(left_ / "journal", left_ / "done");
  Open().reset();
  EXPECT_EQ(Tree(target()),
            (std::map<std::string, std::string>{{"new", "after"}, {"old", "after"}}));
  EXPECT_EQ(told_, "");
}

TEST_F(RecoveryTest, ARunThatWasKilledBeforeItsJournalWasCompleteHasDoneNothing) {
  WriteFile(target() / "old", "before");
  const fs::path place = target() / ".tpk-install";
  for (const char* const left : {"", "lock", "journal.new"}) {
    fs::create_directory(place);
    if (*left != '\0') WriteFile(place / left, "half a jour");
    Open().reset();
    EXPECT_EQ(Tree(target()), (std::map<std::string, std::string>{{"old", "before"}})) << left;
  }
  EXPECT_EQ(told_, "");
}

TEST_F(RecoveryTest, UndoingCanBeInterruptedItself) {
  // At every state that moving back one file after the other goes through.
  for (int done = 0; done <= 2; ++done) {
    fs::remove_all(root() / "top");
    WriteFile(target() / "a", "before a");
    WriteFile(target() / "b", "before b");
    const auto before = Tree(root() / "top");
    KilledRun({"a", "b", "new/c"});
    MoveAside("a", 0);
    MoveAside("b", 1);
    Make("new/c");
    if (done > 0) fs::remove(target() / "new" / "c");
    if (done > 1) fs::rename(left_ / "staged" / "1", target() / "b");
    Open().reset();
    EXPECT_EQ(Tree(root() / "top"), before) << done;
  }
}

TEST_F(RecoveryTest, WhatCannotBeUnderstoodIsLeftAlone) {
  WriteFile(target() / "new", "mine");
  left_ = target() / ".tpk-install";
  const JournalStep made{UndoStep::Kind::kFileMade, "new", 0};
  const JournalStep outside{UndoStep::Kind::kFileMade, "../top", 0};
  const std::string journal = EncodeJournal({"", "", {made}, 1, 0});
  for (const std::string& bytes :
       {std::string(), journal.substr(0, journal.size() - 1), journal + "x",
        EncodeJournal({"elsewhere", "", {made}, 1, 0}), EncodeJournal({"", "", {outside}, 1, 0})}) {
    WriteFile(left_ / "journal", bytes);
    ExpectFailure("journal");
  }
  fs::remove_all(left_);
  WriteFile(left_ / "photo.jpg", "mine");
  ExpectFailure("journal");
  fs::remove_all(left_);
  fs::create_directories(left_ / "staged");
  ExpectFailure("journal");
  fs::remove_all(left_);
  WriteFile(left_, "a file");
  ExpectFailure("journal");
  fs::remove(left_);
  fs::create_symlink(home(), left_);
  ExpectFailure("journal");
}

TEST_F(RecoveryTest, WhatCannotBePutBackIsKeptForTheNextRun) {
  WriteFile(target() / "a", "before");
  WriteFile(target() / "b", "before");
  const auto before = Tree(root() / "top");
  KilledRun({"a", "b", "c"});
  MoveAside("a", 0);
  MoveAside("b", 1);
  Make("c");
  fs::create_directory(target() / "b");
  EXPECT_THROW(Open(), Failure);
  EXPECT_FALSE(fs::exists(target() / "a")) << "the steps before it wait";
  // What was undone is the user's again.
  EXPECT_FALSE(fs::exists(target() / "c"));
  Make("c");
  ExpectFailure("undo");
  EXPECT_TRUE(fs::exists(target() / "c"));
  fs::remove(target() / "c");
  fs::remove(target() / "b");
  Open().reset();
  EXPECT_EQ(Tree(root() / "top"), before);
}

TEST_F(RecoveryTest, WhatOthersPutThereSinceStays) {
  WriteFile(target() / "changed", "before");
  WriteFile(target() / "kept", "before");
  KilledRun({"new", "changed new", "empty", "kept", "changed"});
  Make("new");
  WriteFile(target() / "new", "mine now");
  Make("changed new");
  testing::SetMTime(target() / "changed new", kTime + 10);
  MoveAside("kept", 3);
  Make("kept");
  const auto before = Tree(target());
  Open().reset();
  EXPECT_EQ(ReadFile(target() / "new"), "mine now");
  EXPECT_EQ(ReadFile(target() / "changed new"), kMade);
  EXPECT_EQ(ReadFile(target() / "kept"), "before");
  // In the place of one that was moved aside it ends the undoing: neither of the two may go.
  KilledRun({"changed"});
  MoveAside("changed", 0);
  WriteFile(target() / "changed", "mine now");
  ExpectFailure("undo");
  EXPECT_EQ(ReadFile(target() / "changed"), "mine now");
  EXPECT_EQ(ReadFile(left_ / "staged" / "0"), "before");
  fs::remove(target() / "changed");
  Open().reset();
  EXPECT_EQ(ReadFile(target() / "changed"), "before");
}

TEST_F(RecoveryTest, TheFileInWorkIsKnownByItsNumberAndByBeingEmptyBeforeItHasOne) {
  WriteFile(target() / "a", "before");
  const auto before = Tree(target());
  for (const bool has_number : {false, true}) {
    auto place = Open();
    place->Plan(Files({"a", "b"}));
    EXPECT_TRUE(place->Begin(0));
    left_ = place->path();
    MoveAside("a", 0);
    WriteFile(target() / "a", has_number ? "a beginning" : "");
    struct stat status {};
    ASSERT_EQ(stat((target() / "a").c_str(), &status), 0);
    EXPECT_TRUE(!has_number || place->Create(0, status.st_ino));
    fs::copy(left_, root() / "copy", fs::copy_options::recursive);
    place.reset();
    fs::rename(root() / "copy", left_);
    Open().reset();
    EXPECT_EQ(Tree(target()), before) << has_number;
  }
}

TEST_F(RecoveryTest, FilesOfNamesThatLeadElsewhereAreNotThrownAway) {
  WriteFile(target() / "a", "before");
  WriteFile(root() / "top" / "outside", "mine");
  KilledRun({"a", "../../outside"});
  fs::create_directories(left_ / "staged");
  fs::rename(root() / "top" / "outside", left_ / "staged" / "1");
  ExpectFailure("undo");
  EXPECT_EQ(ReadFile(left_ / "staged" / "1"), "mine");
}

TEST_F(RecoveryTest, NamesThatLeadElsewhereAreNotUndone) {
  WriteFile(root() / "top" / "outside", "mine");
  KilledRun({"../outside", "/etc/x", "d/../../outside"});
  Open().reset();
  EXPECT_EQ(ReadFile(root() / "top" / "outside"), "mine");
}

}  // namespace
}  // namespace quarn::tpk
