#include "tpk/disk/held_name.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <set>
#include <thread>

#include "tests/support/scratch.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::WriteFile;

class HeldNameTest : public testing::ScratchTest {
 protected:
  std::set<std::string> Names() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(home())) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }
};

TEST_F(HeldNameTest, WhatARunUsesStaysAndWhatItLeftGoes) {
  fs::path folder;
  fs::path file;
  const int folder_lock = MakeHeldDirectory(home(), folder);
  const int file_lock = MakeHeldFile(home(), 0666, file);
  ASSERT_NE(folder_lock, -1);
  ASSERT_NE(file_lock, -1);
  WriteFile(folder / "d" / "x", "x");
  struct stat status {};
  ASSERT_EQ(stat(folder.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0700u);
  RemoveLeftovers(home());
  EXPECT_TRUE(fs::exists(folder / "d" / "x"));
  EXPECT_TRUE(fs::exists(file));
  // As the end of a process does, however it comes.
  close(folder_lock);
  RemoveLeftovers(home());
  EXPECT_FALSE(fs::exists(folder));
  EXPECT_TRUE(fs::exists(file));
  close(file_lock);
  RemoveLeftovers(home());
  EXPECT_TRUE(fs::is_empty(home()));
}

TEST_F(HeldNameTest, OtherNamesAndLinksAreNobodysLeftovers) {
  for (const char* const name : {".tpk-", ".tpk-12345", ".tpk-1234567", ".tpk-12345.", "tpk-123456",
                                 ".tpk-install", ".tpk-123/56"}) {
    WriteFile(home() / name, "x");
  }
  WriteFile(root() / "mine" / "x", "x");
  fs::create_directory_symlink(root() / "mine", home() / ".tpk-link00");
  mkfifo((home() / ".tpk-pipe00").c_str(), 0600);
  const auto before = Names();
  RemoveLeftovers(home());
  EXPECT_EQ(Names(), before);
  EXPECT_TRUE(fs::exists(root() / "mine" / "x"));
  WriteFile(home() / ".tpk-123456", "x");
  RemoveLeftovers(home());
  EXPECT_EQ(Names(), before);
}

TEST_F(HeldNameTest, WhereNothingCanBeMadeErrnoTells) {
  fs::path path;
  EXPECT_EQ(MakeHeldDirectory(root() / "nowhere", path), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(MakeHeldFile(root() / "nowhere", 0666, path), -1);
  EXPECT_EQ(errno, ENOENT);
  RemoveLeftovers(root() / "nowhere");
}

TEST_F(HeldNameTest, WhatIsBeingMadeIsNeverRemoved) {
  std::atomic<bool> stop = false;
  std::thread remover([&] {
    while (!stop) RemoveLeftovers(home());
  });
  for (int round = 0; round < 300; ++round) {
    fs::path path;
    const int lock =
        round % 2 == 0 ? MakeHeldFile(home(), 0666, path) : MakeHeldDirectory(home(), path);
    ASSERT_NE(lock, -1);
    std::this_thread::yield();
    ASSERT_TRUE(fs::exists(path)) << round;
    close(lock);
  }
  stop = true;
  remover.join();
}

}  // namespace
}  // namespace quarn::tpk
