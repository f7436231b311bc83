#include "tpk/disk/source_tree.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/scratch.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::SetMTime;
using testing::WriteFile;

class SourceTreeTest : public testing::ScratchTest {
 protected:
  SourceTreeTest() { fs::create_directories(top_); }

  std::vector<std::string> Names(const std::function<bool(const std::string&)>& skip =
                                     [](const std::string&) { return false; }) const {
    std::vector<std::string> names;
    for (const SourceFile& file : ScanTree(top_, skip).files) names.push_back(file.name);
    return names;
  }
  std::string CodeOf(const fs::path& top) const {
    try {
      ScanTree(top, [](const std::string& name) { return name == "skipped"; });
      return "";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.exit_code(), ExitCode::kInputOutput);
      return failure.code();
    }
  }

  const fs::path top_ = root() / "top";
};

using Strings = std::vector<std::string>;

TEST_F(SourceTreeTest, ListsFilesSortedWithSizeAndWholeSeconds) {
  WriteFile(top_ / "b" / "c.txt", "abc");
  WriteFile(top_ / "b.txt", "");
  WriteFile(top_ / ".hidden", "x");
  SetMTime(top_ / "b" / "c.txt", 1706933106);
  EXPECT_EQ(Names(), (Strings{".hidden", "b.txt", "b/c.txt"}));
  const SourceFile file = ScanTree(top_, [](const std::string&) { return false; }).files[2];
  EXPECT_EQ(file.size, 3u);
  EXPECT_EQ(file.time, 133514067060000000u);
  EXPECT_EQ(file.path, top_ / "b" / "c.txt");
}

TEST_F(SourceTreeTest, TellsOfEmptyFolders) {
  fs::create_directories(top_ / "b" / "empty");
  fs::create_directories(top_ / "a");
  WriteFile(top_ / "c" / "x", "");
  const SourceTree tree = ScanTree(top_, [](const std::string&) { return false; });
  EXPECT_EQ(tree.empty_directories, (Strings{"a", "b/empty"}));
}

TEST_F(SourceTreeTest, FollowsLinksToFilesAndFolders) {
  WriteFile(root() / "elsewhere" / "x.txt", "abc");
  fs::create_symlink(root() / "elsewhere", top_ / "folder");
  fs::create_symlink(root() / "elsewhere" / "x.txt", top_ / "file");
  EXPECT_EQ(Names(), (Strings{"file", "folder/x.txt"}));
}

TEST_F(SourceTreeTest, ALinkToAFolderAroundItIsALoop) {
  fs::create_directories(top_ / "a" / "b");
  fs::create_symlink(top_ / "a", top_ / "a" / "b" / "back");
  EXPECT_EQ(CodeOf(top_), "link-loop");
}

TEST_F(SourceTreeTest, TwoLinksToOneFolderAreNoLoop) {
  WriteFile(root() / "elsewhere" / "x.txt", "abc");
  fs::create_symlink(root() / "elsewhere", top_ / "one");
  fs::create_symlink(root() / "elsewhere", top_ / "two");
  EXPECT_EQ(Names(), (Strings{"one/x.txt", "two/x.txt"}));
}

TEST_F(SourceTreeTest, WhatIsNeitherFileNorFolderIsRefusedUnlessSkipped) {
  mkfifo((top_ / "skipped").c_str(), 0600);
  EXPECT_EQ(CodeOf(top_), "");
  mkfifo((top_ / "pipe").c_str(), 0600);
  EXPECT_EQ(CodeOf(top_), "not-a-file");
}

TEST_F(SourceTreeTest, AFolderThatIsSkippedIsNotLookedAt) {
  fs::create_directories(top_ / "skipped" / "empty");
  fs::create_symlink(top_, top_ / "skipped" / "loop");
  const SourceTree tree =
      ScanTree(top_, [](const std::string& name) { return name == "skipped/"; });
  EXPECT_TRUE(tree.files.empty());
  EXPECT_TRUE(tree.empty_directories.empty());
}

TEST_F(SourceTreeTest, ALinkToNowhereIsRefusedUnlessSkipped) {
  fs::create_symlink("nowhere", top_ / "skipped");
  EXPECT_EQ(CodeOf(top_), "");
  fs::create_symlink("nowhere", top_ / "link");
  EXPECT_EQ(CodeOf(top_), "input-output");
}

TEST_F(SourceTreeTest, TheRootMustBeAFolder) {
  WriteFile(top_ / "file", "");
  EXPECT_EQ(CodeOf(top_ / "file"), "not-a-folder");
  EXPECT_EQ(CodeOf(top_ / "nowhere"), "input-output");
}

}  // namespace
}  // namespace quarn::tpk
