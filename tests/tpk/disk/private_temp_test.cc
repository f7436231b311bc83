#include "tpk/disk/private_temp.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "tests/support/scratch.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::WriteFile;

class PrivateTempTest : public testing::ScratchTest {};

TEST_F(PrivateTempTest, LivesInTheTemporaryDirectoryAndGoesWithAllItHolds) {
  fs::path path;
  {
    const PrivateTemp temp;
    path = temp.path();
    EXPECT_EQ(path.parent_path(), tmp());
    EXPECT_EQ(getenv("TMPDIR"), path.string());
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0700u);
    WriteFile(path / "a" / "b", "x");
  }
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(getenv("TMPDIR"), tmp().string());
}

TEST_F(PrivateTempTest, OneLiesInTheOther) {
  const PrivateTemp outer;
  {
    const PrivateTemp inner;
    EXPECT_EQ(inner.path().parent_path(), outer.path());
  }
  EXPECT_EQ(getenv("TMPDIR"), outer.path().string());
}

TEST_F(PrivateTempTest, DoesNotLieWhereTheEngineCouldNotGo) {
  const TempVariable variable(tmp());
  for (const char* const name : {"\U0001F600", "\U00020000", "\xff"}) {
    fs::create_directory(tmp() / name);
    setenv("TMPDIR", (tmp() / name).c_str(), 1);
    EXPECT_EQ(TempDirectory(), "/var/tmp/");
  }
}

TEST_F(PrivateTempTest, AMissingVariableIsMissingAgain) {
  unsetenv("TMPDIR");
  { const TempVariable variable(home()); }
  EXPECT_EQ(getenv("TMPDIR"), nullptr);
}

}  // namespace
}  // namespace quarn::tpk
