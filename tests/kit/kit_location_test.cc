#include "kit/kit_location.h"

#include <cstdlib>
#include <limits>
#include <stdexcept>

#include "core/file_system.h"
#include "core/shell.h"
#include "kit/executable_path.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

class KitLocationTest : public ScratchTest {};

struct DirectoryCase {
  const char* rule;
  const char* executable;
  const char* directory;
};

TEST_F(KitLocationTest, TheKitLiesBesideTheBundle) {
  for (const DirectoryCase& c : {
           DirectoryCase{"beside the bundle", "/Apps/Setup.app/Contents/MacOS/setup", "/Apps"},
           DirectoryCase{"bundle in the root", "/Setup.app/Contents/MacOS/setup", ""},
           DirectoryCase{"no bundle: beside the program", "/opt/tool/setup", "/opt/tool"},
           DirectoryCase{"program in the root", "/setup", ""},
           DirectoryCase{"the last bundle counts",
                         "/a/Outer.app/Contents/MacOS/b/Inner.app/Contents/MacOS/setup",
                         "/a/Outer.app/Contents/MacOS/b"},
           DirectoryCase{"a bundle without a name", "/Apps/.app/Contents/MacOS/setup", "/Apps"},
           DirectoryCase{"nothing after the bundle", "/Apps/Setup.app/Contents/MacOS", "/Apps"},
           DirectoryCase{"the text may go on", "/Apps/Setup.app/Contents/MacOSX/setup", "/Apps"},
           DirectoryCase{"letter case counts", "/Apps/Setup.app/contents/MacOS/setup",
                         "/Apps/Setup.app/contents/MacOS"},
           DirectoryCase{"half a bundle is none", "/Apps/Setup.app/Contents/setup",
                         "/Apps/Setup.app/Contents"},
           DirectoryCase{"shorter than what is looked for", "/a/b", "/a"},
           DirectoryCase{"blanks and other letters",
                         "/Meine Programme/\xC3\x84.app/Contents/MacOS/x", "/Meine Programme"},
       }) {
    SCOPED_TRACE(c.rule);
    EXPECT_EQ(GetKitDirectory(c.executable), c.directory);
  }
}

TEST_F(KitLocationTest, TheExecutableIsThisProgram) {
  const stdx::string path = GetExecutablePath();
  ASSERT_TRUE(path.view().starts_with('/'));
  EXPECT_TRUE(path.view().ends_with("/kit_tests"));
  EXPECT_TRUE(fs::exists(path.c_str()));
  EXPECT_EQ(GetKitPath(false), U16(fs::path(path.c_str()).parent_path()) + u"/quarn.tpk");
}

TEST_F(KitLocationTest, TheCurrentDirectoryIsTakenWhenItIsAskedFor) {
  const fs::path directory = root() / "Sch\u00F6n hier";
  fs::create_directories(directory);
  fs::current_path(directory);
  EXPECT_EQ(GetKitPath(true), U16(directory) + u"/quarn.tpk");
}

TEST_F(KitLocationTest, ACurrentDirectoryThatIsGoneGivesNoPath) {
  fs::create_directories(root() / "gone");
  fs::current_path(root() / "gone");
  fs::remove(root() / "gone");
  EXPECT_EQ(GetKitPath(true), u"");
  fs::current_path(root());
}

TEST_F(KitLocationTest, ADirectoryWithNoTextFormThrows) {
  fs::create_directories(root() / "\xFF");
  fs::current_path(root() / "\xFF");
  EXPECT_THROW(GetKitPath(true), std::length_error);
}

TEST_F(KitLocationTest, AnyEntryAtThePathIsAKit) {
  EXPECT_FALSE(KitExists(u""));
  EXPECT_FALSE(KitExists(U16(root() / "quarn.tpk")));
  WriteFile(root() / "quarn.tpk", "");
  EXPECT_TRUE(KitExists(U16(root() / "quarn.tpk")));
  EXPECT_TRUE(KitExists(U16(root())));
}

TEST_F(KitLocationTest, WithoutAKitThereIsNoSource) {
  EXPECT_EQ(CheckKitExists(true), nullptr);
  EXPECT_STREQ(CheckKitExists(false), "IDS_ERROR_NOSOURCE");
}

struct RoomCase {
  const char* rule;
  std::optional<std::uint32_t> kit_size, free_bytes;
  bool passes;
};

TEST_F(KitLocationTest, ThreeTimesTheKitMustBeFree) {
  for (const RoomCase& c : {
           RoomCase{"one byte too few", 100u, 299u, false},
           RoomCase{"just enough", 100u, 300u, true},
           RoomCase{"an empty kit needs nothing", 0u, 0u, true},
           RoomCase{"nothing is free", 1u, 0u, false},
           RoomCase{"the comparison is unsigned", 0x30000000u, 0x8FFFFFFFu, false},
           RoomCase{"on both sides", 0x30000000u, 0x90000000u, true},
           RoomCase{"the largest product that does not wrap", 0x55555555u, 0xFFFFFFFEu, false},
           RoomCase{"and what it takes", 0x55555555u, 0xFFFFFFFFu, true},
           RoomCase{"the first one that wraps needs two bytes", 1431655766u, 1u, false},
           RoomCase{"and no more", 1431655766u, 2u, true},
           RoomCase{"three times 0x60000000 wraps to 0x20000000", 0x60000000u, 0x20000000u, true},
           RoomCase{"and needs that much", 0x60000000u, 0x1FFFFFFFu, false},
           RoomCase{"an unknown size passes", std::nullopt, 0u, true},
           RoomCase{"unknown room passes", 0x40000000u, std::nullopt, true},
           RoomCase{"both unknown pass", std::nullopt, std::nullopt, true},
       }) {
    SCOPED_TRACE(c.rule);
    const char* const text_id = CheckRoomForImage(c.kit_size, c.free_bytes);
    if (c.passes) {
      EXPECT_EQ(text_id, nullptr);
    } else {
      EXPECT_STREQ(text_id, "IDS_ERROR_NOSPACE");
    }
  }
}

TEST_F(KitLocationTest, AnyCodeOfTheReaderMeansADamagedKit) {
  EXPECT_EQ(CheckKitRead(0), nullptr);
  for (const std::uint32_t code : {1u, 2u, 6u, 13u, 87u, 1013u, 0xFFFFFFFFu}) {
    EXPECT_STREQ(CheckKitRead(code), "IDS_ERROR_DAMAGEDSOURCE") << code;
  }
}

TEST_F(KitLocationTest, SizeAndRoomAreThoseOfTheKitAndTheTemporaryDirectory) {
  WriteFile(root() / "quarn.tpk", "12345");
  EXPECT_EQ(GetKitSize(U16(root() / "quarn.tpk")), 5u);
  EXPECT_EQ(GetKitSize(U16(root() / "missing")), std::nullopt);
  // A disk where nothing is free, ever.
  setenv("TMPDIR", "/proc", 1);
  EXPECT_EQ(GetRoomForImage(), 0u);
}

TEST_F(KitLocationTest, AKitThatIsNoStreamIsDamagedAndLeavesNoImage) {
  const stdx::u16string kit = U16(root() / "quarn.tpk");
  WriteFile(root() / "quarn.tpk", std::string(1000, '\xFF'));
  ASSERT_TRUE(KitExists(kit));
  ASSERT_EQ(CheckRoomForImage(GetKitSize(kit), GetRoomForImage()), nullptr);
  InstallData<LZCompressor, FileSystem> data;
  EXPECT_STREQ(CheckKitRead(data.Read(kit)), "IDS_ERROR_DAMAGEDSOURCE");
  EXPECT_TRUE(fs::is_empty(tmp()));
}

}  // namespace
}  // namespace quarn::testing
