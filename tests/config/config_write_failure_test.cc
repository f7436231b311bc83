// A launcher's file on a disk without room, and in directories where it cannot be written: what
// was in it stays in it.

#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <stdexcept>

#include "config/template_dirs.h"
#include "tests/config/config_support.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

int ThrownBy(const std::function<void()>& action) {
  try {
    action();
  } catch (int code) {
    return code;
  }
  return 0;
}

std::string LinesOf(std::size_t bytes, const std::string& key) {
  std::string text;
  for (int i = 0; text.size() < bytes; ++i) text += key + std::to_string(i) + "=some value\n";
  return text;
}

/// The launcher's directory as a disk of 64 KiB.
class FullDiskTest : public PrivateMountTest {
 protected:
  void SetUp() override {
    PrivateMountTest::SetUp();
    if (HasFatalFailure()) return;
    fs::create_directories(Disk());
    ASSERT_EQ(mount("none", Disk().c_str(), "tmpfs", 0, "size=64k"), 0);
  }
  void TearDown() override { umount2(Disk().c_str(), MNT_DETACH); }

  fs::path Disk() const { return home() / ".Orbex"; }
  fs::path Own() const { return Disk() / "qlaunch/qlaunch.cfg"; }

  /// Leaves no room but for what the files on it give up.
  void FillDisk() {
    std::ofstream filler(Disk() / "filler", std::ios::binary);
    while (filler.write("x", 1).flush()) {
    }
  }
};

using FailingDiskTest = ScratchTest;

TEST_F(FailingDiskTest, LinesThatCouldNotBeReadAreInTheCopy) {
  const fs::path file = home() / ".Orbex/qlaunch/qlaunch.cfg";
  fs::create_directories(file.parent_path());
  fs::create_symlink("/proc/self/mem", file);  // opens, and fails when it is read
  LauncherConfig store;
  LoadLauncherConfig(store);
  EXPECT_TRUE(store.own.entries.empty());
  // The disk recovers.
  fs::remove(file);
  WriteFile(file, "A=1\n");
  SetConfigValues(store.own, kTemplatesLocationKey, {u"/templates"});
  SaveLauncherConfig(store);
  EXPECT_EQ(ReadFile(file), "ConfigurationTemplatesLocation=/templates\n");
  EXPECT_EQ(ReadFile(file.string() + ".orig"), "A=1\n");
}

TEST_F(FullDiskTest, WhereThereIsNoRoomForTheCopyTheFileStaysAsItIs) {
  const std::string before = LinesOf(5000, "key") + "bad=\xFF\n";
  WriteFile(Own(), before);
  FillDisk();
  std::vector<stdx::u16string> locations;
  EXPECT_EQ(ThrownBy([&] { RecordTemplateDir(u"/new", locations, false, false); }), 1);
  EXPECT_EQ(ReadFile(Own()), before);
  EXPECT_EQ(Tree(Own().parent_path()).size(), 1u) << "no part of a copy";
  // With room for both, both are there.
  fs::remove(Disk() / "filler");
  RecordTemplateDir(u"/new", locations, false, false);
  EXPECT_EQ(ReadFile(Own().string() + ".orig"), before);
}

TEST_F(FullDiskTest, LinesThatWereThereSurviveAWriteThatFindsNoRoom) {
  const std::string before = LinesOf(20000, "key");
  WriteFile(Own(), before);
  FillDisk();
  ConfigEntryList list = Read(Own());
  for (int i = 0; i < 4000; ++i) AddConfigValue(list, U16("new" + std::to_string(i)), u"value");
  EXPECT_EQ(ThrownBy([&] { WriteConfigFile(U16(Own()), list); }), 2);
  EXPECT_EQ(ReadFile(Own()), before);
}

TEST_F(FullDiskTest, RoomThatRunsOutWithTheLastBlockIsNoticed) {
  // One page that is full, and a line more than it holds.
  std::string before = LinesOf(4000, "key");
  before += "z=" + std::string(4096 - before.size() - 3, 'z') + "\n";
  ASSERT_EQ(before.size(), 4096u);
  WriteFile(Own(), before);
  FillDisk();
  ConfigEntryList list = Read(Own());
  AddConfigValue(list, u"a", u"1");
  EXPECT_EQ(ThrownBy([&] { WriteConfigFile(U16(Own()), list); }), 2);
  EXPECT_EQ(ReadFile(Own()), before);
}

TEST_F(FullDiskTest, AFileThatCouldNotBeBegunIsNotLeftBehind) {
  fs::create_directories(Own().parent_path());
  FillDisk();
  ConfigEntryList list;
  AddConfigValue(list, u"a", u"1");
  EXPECT_EQ(ThrownBy([&] { WriteConfigFile(U16(Own()), list); }), 2);
  EXPECT_FALSE(fs::exists(Own()));
}

TEST_F(FullDiskTest, ALinkToWhatCouldNotBeBegunStaysAndNothingIsBehindIt) {
  fs::create_directories(Own().parent_path());
  fs::create_symlink("target", Own());
  FillDisk();
  ConfigEntryList list;
  AddConfigValue(list, u"a", u"1");
  EXPECT_EQ(ThrownBy([&] { WriteConfigFile(U16(Own()), list); }), 2);
  EXPECT_TRUE(fs::is_symlink(Own()));
  EXPECT_FALSE(fs::exists(Own().parent_path() / "target"));
}

TEST_F(FullDiskTest, AnInstallationThatCannotBeRecordedCostsNoLineAndIsTriedTwice) {
  const std::string before = LinesOf(20000, "key") + "ConfigurationTemplatesLocation=/old\n";
  WriteFile(Own(), before);
  FillDisk();
  std::vector<stdx::u16string> locations{u"/old", stdx::u16string(std::u16string(20000, u'n'))};
  EXPECT_EQ(ThrownBy([&] { RecordTemplateDir(u"/new", locations, false, false); }), 2);
  EXPECT_EQ(ReadFile(Own()), before);
  // The second try shows in the directories made before it.
  EXPECT_TRUE(fs::is_directory(home() / ".quarn/Orbex.Orbex/qlaunch"));
}

TEST_F(FullDiskTest, ARewriteThatNeedsNoMoreRoomSucceeds) {
  WriteFile(Own(), "a=1\nConfigurationTemplatesLocation=/old\n");
  FillDisk();
  SaveTemplateLocations({u"/new", u"/old"}, false);
  EXPECT_EQ(ReadFile(Own()),
            "a=1\nConfigurationTemplatesLocation=/new\nConfigurationTemplatesLocation=/old\n");
}

class WriteFailureTest : public ScratchTest {};

TEST_F(WriteFailureTest, TextWithNoNarrowFormIsFoundBeforeTheFileIsTouched) {
  WriteFile(root() / "f.cfg", "a=1\n");
  for (const bool in_key : {false, true}) {
    ConfigEntryList list;
    SetConfigValues(list, in_key ? u"k\xD800" : u"k", {u"1", in_key ? u"v" : u"v\xDFFF"});
    EXPECT_THROW(WriteConfigFile(U16(root() / "f.cfg"), list), std::length_error);
    EXPECT_EQ(ReadFile(root() / "f.cfg"), "a=1\n");
  }
}

TEST_F(WriteFailureTest, AFileThatCannotBeOpenedIsCodeOne) {
  const ConfigEntryList list;
  EXPECT_EQ(ThrownBy([&] { WriteConfigFile(U16(root() / "missing/f.cfg"), list); }), 1);
  EXPECT_EQ(ThrownBy([&] { WriteConfigFile(U16(root()), list); }), 1);
  WriteFile(root() / "plain", "");
  EXPECT_EQ(ThrownBy([&] { WriteConfigFile(U16(root() / "plain/f.cfg"), list); }), 1);
}

TEST_F(WriteFailureTest, AFileThatCouldNotBePutBackIsNotOpenedForWriting) {
  // It opens, but reading it fails.
  const fs::path memory = "/proc/self/mem";
  if (!fs::exists(memory)) GTEST_SKIP() << "no such file on this system";
  EXPECT_EQ(ThrownBy([&] { WriteConfigFile(U16(memory), ConfigEntryList()); }), 1);
}

TEST_F(WriteFailureTest, APipeIsNotWaitedFor) {
  ASSERT_EQ(mkfifo((root() / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(ThrownBy([&] { WriteConfigFile(U16(root() / "pipe"), ConfigEntryList()); }), 1);
}

TEST_F(WriteFailureTest, ASecondTryIsMadeAfterTwoDirectoriesThatAreNotOnThePath) {
  // The launchers' directory cannot be made.
  WriteFile(home() / ".Orbex", "");
  for (const bool alternate : {false, true}) {
    SCOPED_TRACE(alternate);
    LauncherConfig store;
    store.altProfile = alternate;
    EXPECT_EQ(ThrownBy([&] { SaveLauncherConfig(store); }), 1);
    std::map<std::string, std::string> expected{{".Orbex", ""},
                                                {".quarn/", ""},
                                                {".quarn/Orbex/", ""},
                                                {".quarn/Orbex.Orbex/", ""},
                                                {".quarn/Orbex.Orbex/qlaunch/", ""}};
    if (alternate) expected[".quarn/Orbex.Orbex/qlauncht/"] = "";
    EXPECT_EQ(Tree(home()), expected);
  }
}

TEST_F(WriteFailureTest, ASecondTryIsMadeAlsoWhereATextHasNoNarrowForm) {
  LauncherConfig store;
  AddConfigValue(store.own, u"k", u"\xD800");
  EXPECT_THROW(SaveLauncherConfig(store), std::length_error);
  EXPECT_TRUE(fs::is_directory(home() / ".quarn/Orbex"));
  EXPECT_TRUE(fs::is_directory(home() / ".quarn/Orbex.Orbex/qlaunch"));
}

// A command of that name in front of the system's sees what directories are made.
TEST_F(WriteFailureTest, TheFilesDirectoryIsMadeOnlyWhereThereIsNoFile) {
  const fs::path file = home() / ".Orbex/qlaunch/qlaunch.cfg";
  const std::string path = std::getenv("PATH");
  WriteFile(root() / "bin/mkdir", "#!/bin/sh\nPATH=" + path + "\necho \"$@\" >> " +
                                      (root() / "made").string() + "\nexec mkdir \"$@\"\n");
  fs::permissions(root() / "bin/mkdir", fs::perms::owner_all);
  setenv("PATH", ((root() / "bin").string() + ":" + path).c_str(), 1);
  SaveLauncherConfig(LauncherConfig());
  SaveLauncherConfig(LauncherConfig());  // now there is one
  setenv("PATH", path.c_str(), 1);
  EXPECT_TRUE(fs::exists(file));
  EXPECT_EQ(ReadFile(root() / "made"), "-p " + file.parent_path().string() + "\n");
}

TEST_F(WriteFailureTest, TheSecondTryMaySucceed) {
  // The launcher's directory is a link to one of those that are made before the second try.
  fs::create_directories(home() / ".Orbex");
  fs::create_symlink(home() / ".quarn/Orbex.Orbex/qlaunch", home() / ".Orbex/qlaunch");
  LauncherConfig store;
  AddConfigValue(store.own, u"a", u"1");
  SaveLauncherConfig(store);
  EXPECT_EQ(ReadFile(home() / ".quarn/Orbex.Orbex/qlaunch/qlaunch.cfg"), "a=1\n");
}

TEST_F(WriteFailureTest, ASaveThatSucceedsAtOnceMakesNoOtherDirectory) {
  SaveLauncherConfig(LauncherConfig());
  EXPECT_FALSE(fs::exists(home() / ".quarn"));
}

}  // namespace
}  // namespace quarn::testing
