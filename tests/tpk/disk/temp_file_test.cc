#include "tpk/disk/temp_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/scratch.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::WriteFile;

class TempFileTest : public testing::ScratchTest {};

TEST_F(TempFileTest, HasNoNameAndTakesWhatIsWritten) {
  const OwnedFile file(MakeTempFile(tmp()));
  EXPECT_TRUE(fs::is_empty(tmp())) << "a killed run leaves nothing";
  struct stat status {};
  ASSERT_EQ(fstat(file.descriptor(), &status), 0);
  EXPECT_EQ(status.st_nlink, 0u);
  EXPECT_EQ(status.st_mode & 0777u, 0600u);
  EXPECT_EQ(fcntl(file.descriptor(), F_GETFD), FD_CLOEXEC);
  struct stat directory {};
  ASSERT_EQ(stat(tmp().c_str(), &directory), 0);
  EXPECT_EQ(status.st_dev, directory.st_dev);
  ASSERT_EQ(write(file.descriptor(), "image", 5), 5);
  char bytes[6] = {};
  ASSERT_EQ(pread(file.descriptor(), bytes, 5, 0), 5);
  EXPECT_STREQ(bytes, "image");
}

TEST_F(TempFileTest, WhatARunHasLeftThatWasKilledInBetweenGoes) {
  WriteFile(tmp() / ".tpk-abc123", "");
  WriteFile(tmp() / "mine", "");
  OwnedFile(MakeTempFile(tmp())).Close();
  EXPECT_FALSE(fs::exists(tmp() / ".tpk-abc123"));
  EXPECT_TRUE(fs::exists(tmp() / "mine"));
}

TEST_F(TempFileTest, AFailureNamesTheDirectoryAndTheReason) {
  try {
    MakeTempFile(root() / "nowhere");
    FAIL() << "made";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.exit_code(), ExitCode::kInputOutput);
    EXPECT_EQ(failure.what(), "cannot make a temporary file in " + (root() / "nowhere").string() +
                                  ": No such file or directory");
  }
}

TEST_F(TempFileTest, TheDirectoryIsWhereTheEngineCanGo) {
  EXPECT_EQ(TempDirectory(), tmp() / "");
  for (const char* const name : {"\U0001F600", "\U00020000", "\xff"}) {
    fs::create_directory(tmp() / name);
    setenv("TMPDIR", (tmp() / name).c_str(), 1);
    EXPECT_EQ(TempDirectory(), "/var/tmp/");
  }
}

}  // namespace
}  // namespace quarn::tpk
