#include "tpk/disk/output_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/scratch.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::Tree;
using testing::WriteFile;

class OutputFileTest : public testing::ScratchTest {
 protected:
  OutputFileTest() { fs::create_directories(path_.parent_path()); }

  static void Write(OutputFile& file, const std::string& text) {
    file.Write(std::as_bytes(std::span(text)));
  }
  auto Files() const { return Tree(path_.parent_path()); }

  const fs::path path_ = root() / "out" / "file";
};

TEST_F(OutputFileTest, AppearsOnlyWhenItIsComplete) {
  OutputFile file(path_, false);
  Write(file, "hello ");
  EXPECT_FALSE(fs::exists(path_));
  Write(file, "world");
  file.Commit();
  EXPECT_EQ(ReadFile(path_), "hello world");
  EXPECT_EQ(file.size(), 11u);
}

TEST_F(OutputFileTest, LeavesNothingWhenItIsGivenUp) {
  {
    OutputFile file(path_, false);
    Write(file, "hello");
  }
  EXPECT_TRUE(Files().empty());
}

TEST_F(OutputFileTest, LeavesNothingButTheFileWhenItIsDone) {
  {
    OutputFile file(path_, false);
    file.Commit();
  }
  EXPECT_EQ(Files(), (std::map<std::string, std::string>{{"file", ""}}));
}

TEST_F(OutputFileTest, AnExistingFileIsReplacedOnlyByForce) {
  WriteFile(path_, "old");
  EXPECT_THROW(OutputFile(path_, false), Failure);
  {
    OutputFile given_up(path_, true);
    Write(given_up, "new");
  }
  EXPECT_EQ(ReadFile(path_), "old");
  OutputFile file(path_, true);
  Write(file, "new");
  EXPECT_EQ(ReadFile(path_), "old");
  file.Commit();
  EXPECT_EQ(ReadFile(path_), "new");
}

TEST_F(OutputFileTest, AFileThatAppearsMeanwhileIsNotReplaced) {
  {
    OutputFile file(path_, false);
    Write(file, "mine");
    WriteFile(path_, "somebody else's");
    EXPECT_THROW(file.Commit(), Failure);
  }
  EXPECT_EQ(Files(), (std::map<std::string, std::string>{{"file", "somebody else's"}}));
}

TEST_F(OutputFileTest, HasTheAccessThatOtherNewFilesHave) {
  const mode_t before = umask(027);
  OutputFile file(path_, false);
  file.Commit();
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0640u);
}

TEST_F(OutputFileTest, TheLongestNameIsFine) {
  const fs::path longest = path_.parent_path() / std::string(255, 'x');
  OutputFile file(longest, false);
  file.Commit();
  EXPECT_TRUE(fs::exists(longest));
}

TEST_F(OutputFileTest, APlaceThatCannotBeIsRefusedAtOnce) {
  EXPECT_THROW(OutputFile(root() / "nowhere" / "file", true), Failure);
  EXPECT_THROW(OutputFile(path_.parent_path(), true), Failure) << "a folder";
  WriteFile(path_, "x");
  EXPECT_THROW(OutputFile(path_ / "below", true), Failure);
}

TEST_F(OutputFileTest, ANameCannotSteerTheTerminal) {
  try {
    OutputFile(root() / "no\x1b[31m" / "file", true);
    FAIL() << "there is no such folder";
  } catch (const Failure& failure) {
    EXPECT_NE(std::string(failure.what()).find("/no\\u001b[31m: "), std::string::npos)
        << failure.what();
  }
}

}  // namespace
}  // namespace quarn::tpk
