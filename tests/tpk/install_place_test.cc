#include "tools/tpk/install_place.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "tests/support/scratch.h"
#include "tools/tpk/failure.h"
#include "tools/tpk/journal.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::Tree;
using testing::WriteFile;

class InstallPlaceTest : public testing::ScratchTest {
 protected:
  fs::path target() const { return root() / "top" / "new" / "target"; }

  std::unique_ptr<InstallPlace> Open() {
    return std::make_unique<InstallPlace>(target(),
                                          [this](const std::string& text) { told_ += text; });
  }

  /// What a killed run leaves of its place: all but the lock.
  void KilledRun(const std::vector<std::string>& names) {
    auto place = Open();
    place->Begin(names);
    left_ = place->path();
    fs::copy(left_, root() / "copy", fs::copy_options::recursive);
    place.reset();
    fs::rename(root() / "copy", left_);
    told_.clear();
  }
  /// As the pass does it.
  void MoveAside(const std::string& name) {
    const fs::path to = left_ / "kstage0" / name;
    fs::create_directories(to.parent_path());
    fs::rename(target() / name, to);
  }

  void ExpectFailure(const char* code) {
    const fs::path lock = fs::relative(left_ / "lock", root());
    auto before = Tree(root());
    before.erase(lock);
    try {
      Open();
      ADD_FAILURE() << "no failure";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), code) << failure.what();
      EXPECT_EQ(failure.exit_code(), ExitCode::kInputOutput);
    }
    auto after = Tree(root());
    after.erase(lock);
    EXPECT_EQ(after, before) << "touched";
  }

  std::string told_;
  fs::path left_;
};

TEST_F(InstallPlaceTest, LiesInTheTargetOrInTheNearestFolderThatExists) {
  fs::create_directories(root() / "top");
  {
    const auto place = Open();
    EXPECT_EQ(place->path().parent_path(), root() / "top");
    EXPECT_EQ(getenv("TMPDIR"), place->path().string());
    struct stat status {};
    ASSERT_EQ(stat(place->path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0700u);
    EXPECT_FALSE(fs::exists(target()));
  }
  EXPECT_TRUE(fs::is_empty(root() / "top"));
  EXPECT_EQ(getenv("TMPDIR"), tmp().string());
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
    const InstallPlace place("/proc/new", [](const std::string&) {});
    EXPECT_EQ(place.path().parent_path(), tmp());
  } else {
    chmod((root() / "folder").c_str(), 0500);
    const InstallPlace place(root() / "folder", [](const std::string&) {});
    EXPECT_EQ(place.path().parent_path(), tmp());
  }
  EXPECT_TRUE(fs::is_empty(tmp()));
}

TEST_F(InstallPlaceTest, ASecondRunIsRefusedAndTouchesNothing) {
  for (const bool exists : {false, true}) {
    if (exists) fs::create_directories(target());
    const auto first = Open();
    first->Begin({"a"});
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
  EXPECT_THROW(InstallPlace(root() / "link", [](const std::string&) {}), Failure);
  EXPECT_THROW(InstallPlace(target() / "", [](const std::string&) {}), Failure);
  EXPECT_THROW(InstallPlace(target() / "x" / "..", [](const std::string&) {}), Failure);
}

TEST_F(InstallPlaceTest, WhatAKilledRunDidIsUndone) {
  WriteFile(target() / "d" / "old", "before");
  WriteFile(target() / "d" / "kept", "before");
  const auto before = Tree(root() / "top");
  KilledRun({"d/old", "d/kept", "d/new", "e/f/new", "twice", "twice"});
  MoveAside("d/old");
  WriteFile(target() / "d" / "old", "half");
  WriteFile(target() / "d" / "new", "new");
  WriteFile(target() / "e" / "f" / "new", "new");
  WriteFile(target() / "twice", "first");
  MoveAside("twice");
  WriteFile(target() / "twice", "second");
  EXPECT_TRUE(InstallPlace::LeftBehind(target()));
  Open().reset();
  EXPECT_EQ(Tree(root() / "top"), before);
  EXPECT_NE(told_.find("was interrupted"), std::string::npos);
  EXPECT_FALSE(InstallPlace::LeftBehind(target()));
  told_.clear();
  Open().reset();
  EXPECT_EQ(told_, "") << "once is enough";
}

TEST_F(InstallPlaceTest, FoldersThatWereMissingGoUnlessSomebodyUsesThem) {
  fs::create_directories(root() / "top");
  KilledRun({"d/e/new"});
  WriteFile(target() / "d" / "e" / "new", "new");
  Open().reset();
  EXPECT_TRUE(fs::is_empty(root() / "top"));
  KilledRun({"d/e/new"});
  WriteFile(target() / "d" / "e" / "new", "new");
  WriteFile(target() / "d" / "mine", "mine");
  Open().reset();
  EXPECT_EQ(Tree(root() / "top"),
            (std::map<std::string, std::string>{{"new/", ""},
                                                {"new/target/", ""},
                                                {"new/target/d/", ""},
                                                {"new/target/d/mine", "mine"}}));
}

TEST_F(InstallPlaceTest, ARunThatWasKilledBehindItsCommitIsNotUndone) {
  WriteFile(target() / "old", "before");
  KilledRun({"old", "new"});
  MoveAside("old");
  WriteFile(target() / "old", "after");
  WriteFile(target() / "new", "after");
  fs::rename(left_ / "journal", left_ / "done");
  Open().reset();
  EXPECT_EQ(Tree(target()),
            (std::map<std::string, std::string>{{"new", "after"}, {"old", "after"}}));
  EXPECT_EQ(told_, "");
}

TEST_F(InstallPlaceTest, ARunThatWasKilledBeforeItsJournalWasCompleteHasDoneNothing) {
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

TEST_F(InstallPlaceTest, UndoingCanBeInterruptedItself) {
  // At every state that moving back one file after the other goes through.
  for (int done = 0; done <= 2; ++done) {
    fs::remove_all(root() / "top");
    WriteFile(target() / "a", "before a");
    WriteFile(target() / "b", "before b");
    const auto before = Tree(root() / "top");
    KilledRun({"a", "b", "new/c"});
    MoveAside("a");
    MoveAside("b");
    WriteFile(target() / "new" / "c", "half");
    if (done > 0) fs::remove(target() / "new" / "c");
    if (done > 1) fs::rename(left_ / "kstage0" / "a", target() / "a");
    Open().reset();
    EXPECT_EQ(Tree(root() / "top"), before) << done;
  }
}

TEST_F(InstallPlaceTest, WhatCannotBeUnderstoodIsLeftAlone) {
  WriteFile(target() / "new", "mine");
  left_ = target() / ".tpk-install";
  const std::string journal = EncodeJournal({"", {"new"}, {}});
  for (const std::string& bytes :
       {std::string(), journal.substr(0, journal.size() - 1), journal + "x",
        EncodeJournal({"elsewhere", {"new"}, {}}), EncodeJournal({"", {"../top"}, {}})}) {
    WriteFile(left_ / "journal", bytes);
    ExpectFailure("journal");
  }
  fs::remove_all(left_);
  WriteFile(left_ / "photo.jpg", "mine");
  ExpectFailure("journal");
  fs::remove_all(left_);
  fs::create_directories(left_ / "kstage0");
  ExpectFailure("journal");
  fs::remove_all(left_);
  WriteFile(left_, "a file");
  ExpectFailure("journal");
  fs::remove(left_);
  fs::create_symlink(home(), left_);
  ExpectFailure("journal");
}

TEST_F(InstallPlaceTest, WhatCannotBePutBackIsKeptForTheNextRun) {
  WriteFile(target() / "a", "before");
  WriteFile(target() / "b", "before");
  const auto before = Tree(root() / "top");
  KilledRun({"a", "b"});
  MoveAside("a");
  fs::create_directory(target() / "a");
  ExpectFailure("undo");
  fs::remove(target() / "a");
  Open().reset();
  EXPECT_EQ(Tree(root() / "top"), before);
}

TEST_F(InstallPlaceTest, AFailedRunThatHoldsFilesLeavesThemWithTheirJournal) {
  WriteFile(target() / "a", "before");
  {
    auto place = Open();
    place->Begin({"a"});
    EXPECT_FALSE(place->HoldsFiles());
    left_ = place->path();
    MoveAside("a");
    EXPECT_TRUE(place->HoldsFiles());
  }
  EXPECT_EQ(ReadFile(left_ / "kstage0" / "a"), "before");
  Open().reset();
  EXPECT_EQ(Tree(target()), (std::map<std::string, std::string>{{"a", "before"}}));
}

TEST_F(InstallPlaceTest, ACommitDiscardsWhatIsHeld) {
  WriteFile(target() / "a", "before");
  {
    auto place = Open();
    place->Begin({"a"});
    left_ = place->path();
    MoveAside("a");
    WriteFile(target() / "a", "after");
    place->Commit();
    EXPECT_FALSE(InstallPlace::LeftBehind(target()));
  }
  EXPECT_EQ(Tree(target()), (std::map<std::string, std::string>{{"a", "after"}}));
}

TEST_F(InstallPlaceTest, NamesThatLeadElsewhereAreNotUndone) {
  WriteFile(root() / "top" / "outside", "mine");
  KilledRun({"../outside", "/etc/x", "d/../../outside"});
  Open().reset();
  EXPECT_EQ(ReadFile(root() / "top" / "outside"), "mine");
}

TEST_F(InstallPlaceTest, TheNamesOfPlacesAreKnown) {
  for (const char* const name : {".tpk-install", ".tpk-install/journal", "./.tpk-install/x",
                                 "a/../.tpk-install/x", ".TPK-Install/x"}) {
    EXPECT_TRUE(IsPlaceName(name)) << name;
  }
  for (const char* const name : {"", "a", "a/.tpk-install", ".tpk-install2", ".tpk"}) {
    EXPECT_FALSE(IsPlaceName(name)) << name;
  }
}

}  // namespace
}  // namespace quarn::tpk
