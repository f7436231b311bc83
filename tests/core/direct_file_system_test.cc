#include "core/direct_file_system.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "tests/support/private_mounts.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using Files = DirectFileSystem;
using Node = DirectFileSystem::Node;
using TreeMap = std::map<std::string, std::string>;

class DirectFileSystemTest : public ScratchTest {
 protected:
  stdx::u16string At(const std::string& path) const { return U16(root() / path); }
};

// --- Opening
// ---------------------------------------------------------------------------------------

TEST_F(DirectFileSystemTest, OnlyRegularFilesAreOpenedAndTheLastErrorSaysSo) {
  ASSERT_EQ(mkfifo((root() / "fifo").c_str(), 0600), 0);
  WriteFile(root() / "file", "");
  fs::create_symlink("file", root() / "link");
  FileHandle handle = kInvalidFile;
  const auto open = [&](const fs::path& path) {
    FileSetLastError(FILE_ERR_INVALID_HANDLE);  // of some call before
    return Files::FileOpen(U16(path), FILE_ACCESS_READ, 0, FILE_OPEN_EXISTING, FILE_NORMAL,
                           &handle);
  };
  for (const fs::path& path : {root(), root() / "fifo", fs::path("/dev/null")}) {
    EXPECT_EQ(open(path), FILE_ERR_INVALID_PARAMETER) << path;
    EXPECT_EQ(Files::FileGetLastError(), FILE_ERR_INVALID_PARAMETER) << path;
  }
  EXPECT_EQ(open(root() / "missing"), FILE_ERR_NOT_FOUND);
  EXPECT_EQ(Files::FileGetLastError(), FILE_ERR_NOT_FOUND);
  EXPECT_EQ(handle, kInvalidFile);
  for (const char* const name : {"file", "link"}) {
    EXPECT_EQ(open(root() / name), FILE_OK);
    EXPECT_EQ(Files::FileGetLastError(), FILE_OK);
    Files::FileClose(handle);
  }
}

TEST_F(DirectFileSystemTest, ANewFileIsNoneThatIsThere) {
  WriteFile(root() / "file", "mine");
  WriteFile(root() / "linked", "mine");
  fs::create_symlink("linked", root() / "link");
  fs::create_symlink("nowhere", root() / "dangling");
  FileHandle handle = kInvalidFile;
  for (const char* const name : {"file", "link", "dangling"}) {
    EXPECT_EQ(Files::FileCreateNew(At(name), &handle), FILE_ERR_INVALID_PARAMETER) << name;
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(Files::FileGetLastError(), FILE_ERR_INVALID_PARAMETER);
  }
  EXPECT_EQ(Files::FileCreateNew(At("no/file"), &handle), FILE_ERR_NOT_FOUND);
  EXPECT_EQ(handle, kInvalidFile);
  EXPECT_FALSE(fs::exists(root() / "nowhere"));
  umask(0);
  ASSERT_EQ(Files::FileCreateNew(At("new"), &handle), FILE_OK);
  EXPECT_EQ(Files::FileGetLastError(), FILE_OK);
  std::uint32_t written = 0;
  EXPECT_EQ(Files::FileWrite(handle, "text", 4, &written, nullptr), FILE_OK);
  Files::FileClose(handle);
  EXPECT_EQ(ReadFile(root() / "new"), "text");
  struct stat status {};
  ASSERT_EQ(stat((root() / "new").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0660u);
}

// --- Looking
// ---------------------------------------------------------------------------------------

TEST_F(DirectFileSystemTest, ALinkCountsAsAFileWhereverItLeads) {
  WriteFile(root() / "file", "");
  fs::create_directory(root() / "directory");
  fs::create_symlink("nowhere", root() / "dangling");
  fs::create_symlink("directory", root() / "link");
  EXPECT_EQ(Files::Look(At("file")), Node::kFile);
  EXPECT_EQ(Files::Look(At("dangling")), Node::kFile);
  EXPECT_EQ(Files::Look(At("link")), Node::kFile);
  EXPECT_EQ(Files::Look(At("directory")), Node::kDirectory);
  EXPECT_EQ(Files::Look(At("missing")), Node::kNothing);
  EXPECT_EQ(Files::Look(At("file/below")), Node::kNothing);
  EXPECT_EQ(Files::Look(At("f*")), Node::kNothing) << "a star is a name";
}

TEST_F(DirectFileSystemTest, WhatCannotBeKnownIsNotTakenForNothing) {
  EXPECT_THROW(Files::Look(At(std::string(300, 'n'))), std::system_error);
}

TEST_F(DirectFileSystemTest, WhereLettersAreToldApartANameIsListedAsItIs) {
  for (const char* const name : {"Name", "name", "123", "\u0428\u0430\u0431\u043B\u043E\u043D"}) {
    WriteFile(root() / name, "");
    EXPECT_EQ(Files::ListedPath(At(name)), At(name));
  }
  EXPECT_EQ(Files::ListedPath(At("missing")), At("missing"));
  fs::current_path(root());
  EXPECT_EQ(Files::ListedPath(u"Name"), u"Name");
}

// --- Directories
// -----------------------------------------------------------------------------------

TEST_F(DirectFileSystemTest, MakingADirectoryTellsWhatIsThere) {
  WriteFile(root() / "file", "");
  fs::create_symlink(".", root() / "link");
  fs::create_symlink("nowhere", root() / "dangling");
  EXPECT_EQ(Files::ShellMakeDirectory(At("new")), FILE_OK);
  EXPECT_EQ(Files::ShellMakeDirectory(At("slash/")), FILE_OK);
  EXPECT_EQ(Files::ShellMakeDirectory(At("new")), FILE_ERR_ALREADY_EXISTS);
  EXPECT_EQ(Files::ShellMakeDirectory(At("new/")), FILE_ERR_ALREADY_EXISTS);
  EXPECT_EQ(Files::ShellMakeDirectory(At("link")), FILE_ERR_ALREADY_EXISTS);
  EXPECT_EQ(Files::ShellMakeDirectory(At("no/parent")), FILE_ERR_PATH_NOT_FOUND);
  EXPECT_EQ(Files::ShellMakeDirectory(At("file")), FILE_ERR_COMMAND_FAILED);
  EXPECT_EQ(Files::ShellMakeDirectory(At("file/below")), FILE_ERR_COMMAND_FAILED);
  const std::uint32_t code = Files::ShellMakeDirectory(At("dangling"));
  const int reason = errno;
  EXPECT_EQ(code, FILE_ERR_COMMAND_FAILED);
  EXPECT_EQ(reason, EEXIST) << "not that of the look at what is there";
}

TEST_F(DirectFileSystemTest, OnlyAnEmptyDirectoryIsRemoved) {
  fs::create_directory(root() / "empty");
  WriteFile(root() / "full/file", "mine");
  fs::create_symlink("empty", root() / "link");
  EXPECT_NE(Files::RemoveEmptyDirectory(At("link")), 0u);
  EXPECT_EQ(Files::RemoveEmptyDirectory(At("empty")), 0u);
  EXPECT_FALSE(fs::exists(root() / "empty"));
  EXPECT_NE(Files::RemoveEmptyDirectory(At("empty")), 0u);
  EXPECT_NE(Files::RemoveEmptyDirectory(At("full")), 0u);
  EXPECT_NE(Files::RemoveEmptyDirectory(At("full/file")), 0u);
  EXPECT_EQ(ReadFile(root() / "full/file"), "mine");
}

// --- Moving
// ----------------------------------------------------------------------------------------

TEST_F(DirectFileSystemTest, MovingTellsAMissingFileFromAFailure) {
  WriteFile(root() / "a", "a");
  WriteFile(root() / "b", "b");
  fs::create_directory(root() / "dir");
  EXPECT_EQ(Files::ShellMove(At("missing"), At("x")), FILE_ERR_COMMAND_FAILED);
  EXPECT_EQ(Files::ShellMove(At("a/below"), At("x")), FILE_ERR_COMMAND_FAILED);
  EXPECT_EQ(Files::ShellMove(At("dir"), At("x")), FILE_ERR_INVALID_PARAMETER);
  EXPECT_EQ(Files::ShellMove(At("a"), At("no/x")), FILE_ERR_INVALID_PARAMETER);
  EXPECT_EQ(Files::ShellMove(At("a"), At("dir")), FILE_ERR_INVALID_PARAMETER);
  EXPECT_EQ(Files::ShellMove(At("a"), At("b")), FILE_OK);
  EXPECT_EQ(ReadFile(root() / "b"), "a");
  EXPECT_FALSE(fs::exists(root() / "a"));
}

class DirectFileSystemVolumeTest : public DirectFileSystemTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(HasPrivateMounts());
    fs::create_directory(root() / "volume");
    volume_.emplace((root() / "volume").string(), 1 << 20);
    ASSERT_TRUE(volume_->mounted());
  }
  std::optional<PrivateVolume> volume_;
};

TEST_F(DirectFileSystemVolumeTest, AMoveAcrossVolumesKeepsContentsTimeAndMode) {
  WriteFile(root() / "file", "text");
  chmod((root() / "file").c_str(), 04751);
  const timespec times[2] = {{1000, 7}, {2000, 123456789}};
  ASSERT_EQ(utimensat(AT_FDCWD, (root() / "file").c_str(), times, 0), 0);
  ASSERT_EQ(Files::ShellMove(At("file"), At("volume/file")), FILE_OK);
  struct stat status {};
  ASSERT_EQ(stat((root() / "volume/file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 04751u);
  EXPECT_EQ(status.st_mtim.tv_sec, 2000);
  EXPECT_EQ(status.st_mtim.tv_nsec, 123456789);
  EXPECT_EQ(Tree(root() / "volume"), (TreeMap{{"file", "text"}}));
  EXPECT_FALSE(fs::exists(root() / "file"));
}

TEST_F(DirectFileSystemVolumeTest, AForeignFileInTheWayOfTheCopyStays) {
  const std::string partial = ".partial" + std::to_string(getpid());
  const TreeMap foreign{{partial, "mine"}, {partial + "-0", "mine"}, {partial + "-1", "mine"}};
  for (const auto& [name, contents] : foreign) WriteFile(root() / "volume" / name, contents);
  WriteFile(root() / "file", "text");
  fs::create_symlink("nowhere", root() / "link");
  EXPECT_EQ(Files::ShellMove(At("file"), At("volume/file")), FILE_OK);
  EXPECT_EQ(Files::ShellMove(At("link"), At("volume/link")), FILE_OK);
  TreeMap tree = Tree(root() / "volume");
  EXPECT_EQ(tree.erase("file") + tree.erase("link"), 2u);
  EXPECT_EQ(tree, foreign);
  // Nor does a move that fails take it away.
  WriteFile(root() / "large", std::string(2 << 20, 'x'));
  EXPECT_EQ(Files::ShellMove(At("large"), At("volume/large")), FILE_ERR_INVALID_PARAMETER);
  tree = Tree(root() / "volume");
  EXPECT_EQ(tree.erase("file") + tree.erase("link"), 2u);
  EXPECT_EQ(tree, foreign);
}

TEST_F(DirectFileSystemVolumeTest, TheReasonOfAFailedMoveIsInErrno) {
  WriteFile(root() / "file", "text");
  WriteFile(root() / "large", std::string(2 << 20, 'x'));
  fs::create_directory(root() / "volume/dir");
  const auto reason = [&](const char* from, const char* to) {
    errno = 0;
    EXPECT_EQ(Files::ShellMove(At(from), At(to)), FILE_ERR_INVALID_PARAMETER);
    return errno;
  };
  EXPECT_EQ(reason("large", "volume/large"), ENOSPC);
  EXPECT_EQ(reason("file", "volume/dir"), EISDIR);
  EXPECT_EQ(reason("file", "volume/no/file"), ENOENT);
  ASSERT_TRUE(volume_->MakeReadOnly());
  EXPECT_EQ(reason("file", "volume/file"), EROFS)
      << "not that of removing a copy that is not there";
  EXPECT_EQ(ReadFile(root() / "file"), "text");
}

}  // namespace
}  // namespace quarn::testing
