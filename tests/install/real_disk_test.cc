// Passes on disks as they are: too small by a page more or less, mounted read-only, closed to the
// user, apart from each other, and with paths as long as paths can be.
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <functional>
#include <iostream>
#include <string>

#include "tests/install/installation.h"
#include "tests/install/tree_state.h"
#include "tests/support/child.h"
#include "tests/support/private_mounts.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using TreeMap = std::map<std::string, std::string>;

constexpr std::size_t kPage = 4096;

template <class Policy>
class RealDiskTest : public InstallTest {
 protected:
  static constexpr bool kRestores = RestoringFileSystem<Policy>;

  void SetUp() override { ASSERT_TRUE(HasPrivateMounts()); }

  /// Where a small volume is mounted, in the place of the target.
  fs::path disk() const { return target(); }

  /// Two files that are replaced; with the user's own six pages, and twelve when the kit's are in.
  void WriteBefore() {
    WriteOld("a/one", std::string(3 * kPage, '1'));
    WriteOld("b/two", std::string(2 * kPage, '2'));
    WriteOld("own/own", "the user's own");
  }
  static KitBuilder TwelvePages() {
    return KitBuilder()
        .File(u"a\\one", std::string(4 * kPage, 'A'))
        .File(u"n\\new", std::string(2 * kPage, 'N'))
        .File(u"b\\two", std::string(3 * kPage, 'B'))
        .File(u"n\\small", "x");
  }
  void ExpectInstalled() const {
    EXPECT_EQ(ReadFile(target() / "a/one"), std::string(4 * kPage, 'A'));
    EXPECT_EQ(ReadFile(target() / "b/two"), std::string(3 * kPage, 'B'));
    EXPECT_EQ(ReadFile(target() / "n/new"), std::string(2 * kPage, 'N'));
    EXPECT_EQ(ReadFile(target() / "n/small"), "x");
    EXPECT_EQ(ReadFile(target() / "own/own"), "the user's own");
  }
};

using Policies = ::testing::Types<FileSystem, DirectFileSystem>;
TYPED_TEST_SUITE(RealDiskTest, Policies);

TYPED_TEST(RealDiskTest, ATargetThatFillsUpAtAnyPageIsAsItWasOrInstalled) {
  int failed = 0, installed = 0;
  for (std::size_t pages = 7; pages <= 20; ++pages) {
    SCOPED_TRACE(std::to_string(pages) + " pages");
    fs::remove_all(this->tmp());
    fs::create_directory(this->tmp());
    const PrivateVolume volume(this->disk().string(), pages * kPage);
    ASSERT_TRUE(volume.mounted());
    this->WriteBefore();
    const TreeState before = StateOf(this->target());
    Installation<TypeParam> installation(this->TwelvePages(), this->kit(), this->target());
    const TreeState temporary = StateOf(this->tmp());
    const std::uint32_t code = installation.Run();
    if (code == 0) {
      ++installed;
      this->ExpectInstalled();
      EXPECT_EQ(StateOf(this->tmp()), temporary);
      continue;
    }
    ++failed;
    if (TestFixture::kRestores) {
      EXPECT_EQ(StateOf(this->target()), before);
      EXPECT_EQ(StateOf(this->tmp()), temporary);
    } else {
      EXPECT_FALSE(fs::exists(this->tmp()));
      EXPECT_EQ(ReadFile(this->target() / "own/own"), "the user's own");
      EXPECT_FALSE(fs::exists(this->target() / "a")) << "it received the first file";
    }
  }
  EXPECT_GT(failed, 3);
  EXPECT_GT(installed, 3);
  std::cout << failed << " disks were too small, " << installed << " took the kit\n";
}

TYPED_TEST(RealDiskTest, ATemporaryDirectoryThatFillsUpAtAnyPageLeavesTheTargetAsItWasOrInstalled) {
  int failed = 0, installed = 0;
  for (std::size_t pages = 1; pages <= 14; ++pages) {
    SCOPED_TRACE(std::to_string(pages) + " pages");
    fs::remove_all(this->target());
    this->WriteBefore();
    const TreeState before = StateOf(this->target());
    const fs::path elsewhere = this->root() / "elsewhere";
    fs::create_directory(elsewhere);
    Installation<TypeParam> installation(this->TwelvePages(), this->kit(), this->target());
    {
      const PrivateVolume volume(elsewhere.string(), pages * kPage);
      ASSERT_TRUE(volume.mounted());
      setenv("TMPDIR", elsewhere.c_str(), 1);
      const std::uint32_t code = installation.Run();
      setenv("TMPDIR", this->tmp().c_str(), 1);
      (code == 0 ? installed : failed) += 1;
      if (code == 0) {
        this->ExpectInstalled();
        EXPECT_EQ(Tree(elsewhere), TreeMap());
      } else if (TestFixture::kRestores) {
        EXPECT_EQ(StateOf(this->target()), before);
        EXPECT_EQ(Tree(elsewhere), TreeMap());
      }
    }
    fs::remove_all(elsewhere);
  }
  // The ordinary policy takes a move that failed for want of room for one that had nothing to move,
  // and writes the file over.
  if (TestFixture::kRestores) {
    EXPECT_GT(failed, 2);
  }
  EXPECT_GT(installed, 2);
  std::cout << failed << " disks were too small, " << installed << " did\n";
}

TYPED_TEST(RealDiskTest, ATargetMountedReadOnlyKeepsAllItHolds) {
  PrivateVolume volume(this->disk().string(), 64 * kPage);
  ASSERT_TRUE(volume.mounted());
  this->WriteBefore();
  const TreeState before = StateOf(this->target());
  Installation<TypeParam> installation(this->TwelvePages(), this->kit(), this->target());
  const TreeState temporary = StateOf(this->tmp());
  ASSERT_TRUE(volume.MakeReadOnly());
  EXPECT_EQ(installation.Run(), 87u);
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{87, ErrorText(), 0}));
  EXPECT_EQ(StateOf(this->target()), before);
  if (TestFixture::kRestores) {
    EXPECT_EQ(StateOf(this->tmp()), temporary);
  }
}

TYPED_TEST(RealDiskTest, ATargetOnAnotherVolumeIsInstalledOrRolledBackLikeAnyOther) {
  for (const bool fails : {false, true}) {
    SCOPED_TRACE(fails);
    fs::create_directories(this->tmp());
    const PrivateVolume volume(this->disk().string(), 256 * kPage);
    ASSERT_TRUE(volume.mounted());
    this->WriteBefore();
    const TreeState before = StateOf(this->target());
    KitBuilder builder = this->TwelvePages();
    if (fails) builder.FileAt(u"z\\z", 0, 0x10000000);
    Installation<TypeParam> installation(builder, this->kit(), this->target());
    const TreeState temporary = StateOf(this->tmp());
    EXPECT_EQ(installation.Run(), fails ? 87u : 0u);
    if (!fails) {
      this->ExpectInstalled();
      EXPECT_EQ(StateOf(this->tmp()), temporary);
    } else if (TestFixture::kRestores) {
      EXPECT_EQ(StateOf(this->target()), before);
      EXPECT_EQ(StateOf(this->tmp()), temporary);
    } else {
      EXPECT_EQ(Tree(this->target()), (TreeMap{{"own/", ""}, {"own/own", "the user's own"}}));
      EXPECT_FALSE(fs::exists(this->tmp()));
    }
  }
}

TYPED_TEST(RealDiskTest, APathOfTheGreatestLengthIsInstalledAndALongerOneIsAFailure) {
  // The longest path has PATH_MAX - 1 bytes.
  fs::path deep = this->target();
  while (deep.string().size() + 256 < PATH_MAX - 100) deep /= std::string(200, 'd');
  fs::create_directories(deep);
  WriteFile(deep / "own", "mine");
  const std::size_t room = PATH_MAX - 1 - deep.string().size() - 1;
  for (const bool too_long : {false, true}) {
    SCOPED_TRACE(too_long);
    const std::string directory(room / 2, 'n');
    const std::string file(room - room / 2 - 1 + (too_long ? 1 : 0), 'f');
    ASSERT_LE(file.size(), 255u);
    const std::string name = directory + "\\" + file;
    Installation<TypeParam> installation(
        KitBuilder().File(std::u16string(name.begin(), name.end()), "contents"), this->kit(), deep);
    fs::remove_all(deep / directory);
    EXPECT_EQ(installation.Run(), too_long ? 87u : 0u);
    if (too_long) {
      EXPECT_FALSE(fs::exists(deep / directory));
    } else {
      EXPECT_EQ(ReadFile(deep / directory / file), "contents");
    }
    EXPECT_EQ(ReadFile(deep / "own"), "mine");
  }
}

// --- As an ordinary user -------------------------------------------------------------------------

/// Runs `action` as a user without any rights in a process of its own.
int ResultAsNobody(const std::function<std::uint32_t()>& action) {
  constexpr uid_t kNobody = 65534;
  return ResultOfChild([&] {
    if (setgid(kNobody) != 0 || setuid(kNobody) != 0) return 99;
    return static_cast<int>(action());
  });
}

template <class Policy>
class UnprivilegedTest : public RealDiskTest<Policy> {
 protected:
  void SetUp() override {
    if (ResultAsNobody([] { return 0; }) == 99) GTEST_SKIP() << "there is no other user here";
    fs::permissions(this->root().parent_path(), static_cast<fs::perms>(0755));
    this->WriteBefore();
    Open(this->tmp());
  }
  /// To all users, with all that it holds.
  static void Open(const fs::path& tree) {
    fs::permissions(tree, static_cast<fs::perms>(0777));
    for (const auto& entry : fs::recursive_directory_iterator(tree)) {
      fs::permissions(entry.path(), static_cast<fs::perms>(entry.is_directory() ? 0777 : 0666));
    }
  }
};

TYPED_TEST_SUITE(UnprivilegedTest, Policies);

TYPED_TEST(UnprivilegedTest, ATargetThatTheUserMayNotWriteKeepsAllItHolds) {
  Installation<TypeParam> installation(this->TwelvePages(), this->kit(), this->target());
  this->Open(this->tmp());
  const TreeState before = StateOf(this->target());
  const TreeState temporary = StateOf(this->tmp());
  EXPECT_EQ(ResultAsNobody([&] { return installation.Run(); }), 87);
  EXPECT_EQ(StateOf(this->target()), before);
  if (TestFixture::kRestores) {
    EXPECT_EQ(StateOf(this->tmp()), temporary);
  }
}

TYPED_TEST(UnprivilegedTest, AFileThatTheUserMayNotReadIsReplacedWhereItsDirectoryAllowsThat) {
  for (const bool fails : {false, true}) {
    SCOPED_TRACE(fails);
    fs::remove_all(this->target());
    this->WriteBefore();
    this->Open(this->target());
    fs::permissions(this->target() / "a/one", static_cast<fs::perms>(0600));
    const TreeState before = StateOf(this->target());
    fs::create_directories(this->tmp());
    KitBuilder builder = this->TwelvePages();
    if (fails) builder.FileAt(u"z\\z", 0, 0x10000000);
    Installation<TypeParam> installation(builder, this->kit(), this->target());
    this->Open(this->tmp());
    EXPECT_EQ(ResultAsNobody([&] { return installation.Run(); }), fails ? 87 : 0);
    if (!fails) {
      this->ExpectInstalled();
    } else if (TestFixture::kRestores) {
      EXPECT_EQ(StateOf(this->target()), before);
    } else {
      EXPECT_EQ(Tree(this->target()), (TreeMap{{"own/", ""}, {"own/own", "the user's own"}}));
    }
  }
}

TYPED_TEST(UnprivilegedTest, AClosedDirectoryInsideTheTargetEndsThePass) {
  this->Open(this->target());
  fs::permissions(this->target() / "b", static_cast<fs::perms>(0555));
  Installation<TypeParam> installation(this->TwelvePages(), this->kit(), this->target());
  this->Open(this->tmp());
  const TreeState before = StateOf(this->target());
  const TreeState temporary = StateOf(this->tmp());
  const int code = ResultAsNobody([&] { return installation.Run(); });
  if (TestFixture::kRestores) {
    EXPECT_EQ(code, 87);
    EXPECT_EQ(StateOf(this->target()), before);
    EXPECT_EQ(StateOf(this->tmp()), temporary);
  } else {
    // The file could not be moved aside and was written over in place.
    EXPECT_EQ(code, 0);
    this->ExpectInstalled();
  }
}

}  // namespace
}  // namespace quarn::testing
