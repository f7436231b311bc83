// What the wizard finds out before it shows a window, and what it says then.
#include <cstdlib>
#include <memory>
#include <new>

#include "tests/support/private_mounts.h"
#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kNoKit = "Distribution kit file quarn.tpk not found.";
constexpr const char* kNoSpace = "Insufficient space available in the directory Temp.";
constexpr const char* kDamaged =
    "Distribution kit file quarn.tpk corrupted or not designed for this installation program.";

class Prepare : public WizardTest {
 protected:
  /// Runs the wizard, which must end with this message, without a window and without an image.
  void ExpectRefusal(const std::string& text, const std::vector<std::string>& options = {"-Len"}) {
    RunWizard(options);
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error(text)}));
    EXPECT_FALSE(toolkit.has_window());
    EXPECT_FALSE(toolkit.ran());
    EXPECT_FALSE(ImageLeft());
  }
};

TEST_F(Prepare, WithoutAKitThereIsNoWizard) { ExpectRefusal(kNoKit); }

TEST_F(Prepare, WithoutAKitThereIsNoSilentRunEither) {
  ExpectRefusal(kNoKit, {"-S", "-Len"});
  EXPECT_TRUE(toolkit.set_up_silent());
}

TEST_F(Prepare, WithoutUsecwdTheCurrentDirectoryIsNotLookedAt) {
  WriteKit(ExampleKit());
  RunProgram({"setup", "-Len"});  // there is no kit next to the program of the tests
  EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error(kNoKit)}));
}

TEST_F(Prepare, AKitThatIsNoDeflateStreamIsDamaged) {
  WriteFile(start_directory() / "quarn.tpk", std::string(1000, '\xff'));
  ExpectRefusal(kDamaged);
}

TEST_F(Prepare, AKitThatEndsEarlyIsDamaged) {
  KitBuilder kit = ExampleKit();
  kit.CutAt("file 2 name");
  WriteKit(kit);
  ExpectRefusal(kDamaged);
}

TEST_F(Prepare, AnEmptyKitIsDamaged) {
  WriteFile(start_directory() / "quarn.tpk", "");
  ExpectRefusal(kDamaged);
}

TEST_F(Prepare, ADirectoryInThePlaceOfTheKitIsDamaged) {
  fs::create_directories(start_directory() / "quarn.tpk");
  ExpectRefusal(kDamaged);
}

TEST_F(Prepare, AProductThatCannotBeShownIsADamagedKit) {
  struct Row {
    const char* field;
    std::u16string name, provider;
  };
  for (const Row& row : {Row{"name", u"\xD800", u""}, Row{"provider", u"", u"a\xDFFF"}}) {
    SCOPED_TRACE(row.field);
    KitBuilder kit;
    kit.Product(u"en", row.name, row.provider, u"");
    WriteKit(kit);
    RecordingToolkit other;
    RunProgram(other, {"setup", "usecwd", "-Len"});
    EXPECT_EQ(other.messages(), (std::vector<ShownMessage>{Error(kDamaged)}));
    EXPECT_FALSE(other.has_window());
    EXPECT_FALSE(ImageLeft());
  }
}

// Only what is shown counts: the names of another language do no harm.
TEST_F(Prepare, AProductOfAnotherLanguageNeedNotBeShown) {
  KitBuilder kit;
  kit.Product(u"en", u"Ledger", u"Quarn Ltd", u"");
  kit.Product(u"de", u"\xD800", u"", u"");
  WriteKit(kit);
  Play([&] { toolkit.CloseWithBox(); });
  EXPECT_TRUE(toolkit.messages().empty());
}

// An installation would fail at it, in the middle, and its rollback costs directories.
TEST_F(Prepare, AFileThatCannotBeNamedIsADamagedKit) {
  KitBuilder kit;
  kit.Product(u"en", u"Ledger", u"Quarn Ltd", u"");
  kit.File(u"one.txt", "1").File(u"a\\\xD800.txt", "2");
  WriteKit(kit);
  ExpectRefusal(kDamaged);
}

// Deliberate: a zero unit ends a name, and the file is the one that is named by what is before it.
TEST_F(Prepare, AFileWhoseNameHasAZeroUnitIsNone) {
  KitBuilder kit;
  kit.Product(u"en", u"Ledger", u"Quarn Ltd", u"");
  kit.File(std::u16string(u"one.txt\0\xD800", 9), "1");
  WriteKit(kit);
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(Tree(target()), (std::map<std::string, std::string>{{"one.txt", "1"}}));
    toolkit.CloseWithBox();
  });
  RunWizard();
  EXPECT_TRUE(toolkit.messages().empty());
}

TEST_F(Prepare, AnExceptionIsADamagedKit) {
  // A directory whose name is no text.
  const fs::path odd = root() / "start\xff";
  fs::create_directories(odd);
  WriteKit(ExampleKit());
  fs::copy_file(start_directory() / "quarn.tpk", odd / "quarn.tpk");
  fs::current_path(odd);
  ExpectRefusal(kDamaged);
}

TEST_F(Prepare, ATemporaryDirectoryWhoseNameLosesBitsGetsNoImageAndNoOtherDoesInItsPlace) {
  WriteKit(ExampleKit());
  // Whether it can be written to is asked by making a file in the temporary directory.
  WriteFile(own_cfg(), "ConfigurationTemplatesLocation=" + home().string() + "\n");
  // Read as the directory above, as U+F600, as a lone surrogate and as "/x".
  for (const char* const name : {"\U00020000", "\U0001F600", "\U0001D800", "\U0001002Fx"}) {
    for (const bool others_exist : {false, true}) {
      SCOPED_TRACE(name);
      fs::remove_all(tmp());
      fs::create_directories(tmp() / name);
      const fs::path others[] = {tmp() / "\uF600", tmp() / "x"};
      if (others_exist) {
        for (const fs::path& other : others) fs::create_directories(other);
      }
      const auto before = Tree(root());
      setenv("TMPDIR", (tmp() / name).c_str(), 1);
      RecordingToolkit other_toolkit;
      RunProgram(other_toolkit, {"setup", "usecwd", "-Len"});
      EXPECT_EQ(other_toolkit.messages(), (std::vector<ShownMessage>{Error(kDamaged)}));
      EXPECT_EQ(Tree(root()), before);
    }
  }
  setenv("TMPDIR", tmp().c_str(), 1);
}

TEST_F(Prepare, ALocaleThatCannotExpressTheTextsIsToldInTheLanguageAllTheSame) {
  setenv("LC_ALL", "C", 1);
  // The first text already, the title, cannot be had: there is no controller.
  RunWizard({"-Lru"});
  ASSERT_EQ(toolkit.messages().size(), 1u);
  EXPECT_EQ(toolkit.messages()[0],
            (ShownMessage{std::nullopt, TextOf("ru", "IDS_INSTALL_ERROR"), 0x01000001}));
  EXPECT_FALSE(toolkit.has_window());
}

// --- Room --------------------------------------------------------------------------------------

class Room : public Prepare {
 protected:
  /// A temporary directory on a volume of `bytes`.
  void MountTemp(std::uint64_t bytes) {
    const fs::path small = root() / "small";
    fs::create_directories(small);
    volume_ = std::make_unique<PrivateVolume>(small.string(), bytes);
    ASSERT_TRUE(volume_->mounted());
    setenv("TMPDIR", small.c_str(), 1);
  }
  void WriteKitOfSize(std::uint64_t bytes) {
    WriteFile(start_directory() / "quarn.tpk", "");
    fs::resize_file(start_directory() / "quarn.tpk", bytes);
  }

 private:
  std::unique_ptr<PrivateVolume> volume_;
};

TEST_F(Room, ForThreeTimesTheKitIsAskedFor) {
  ASSERT_NO_FATAL_FAILURE(MountTemp(0x100000));
  WriteKitOfSize(0x100000 / 3 + 1);
  ExpectRefusal(kNoSpace);
}

TEST_F(Room, ForExactlyThreeTimesTheKitIsEnough) {
  ASSERT_NO_FATAL_FAILURE(MountTemp(0x300000));
  WriteKitOfSize(0x100000);
  ExpectRefusal(kDamaged);  // the next check: this kit is no stream
}

// Deliberate: the product wraps at 32 bits.
TEST_F(Room, ForAHugeKitIsMissed) {
  ASSERT_NO_FATAL_FAILURE(MountTemp(0x20000000));
  WriteKitOfSize(0x60000000);
  ExpectRefusal(kDamaged);
}

TEST_F(Room, IsNotAskedForWhereThereIsNoKit) {
  ASSERT_NO_FATAL_FAILURE(MountTemp(0x1000));
  ExpectRefusal(kNoKit);
}

// --- The directory to offer --------------------------------------------------------------------

class Offer : public WizardTest {
 protected:
  void ExpectOffer(const std::string& directory) {
    WriteKit(ExampleKit());
    Play([&] {
      toolkit.Press("Next >");
      EXPECT_EQ(toolkit.Shown(ControlKind::kField).text, directory);
      toolkit.CloseWithBox();
    });
  }
};

TEST_F(Offer, IsTheDefaultWhereNothingIsRecorded) { ExpectOffer(default_target().string() + "/"); }

TEST_F(Offer, IsTheFirstRecordedDirectory) {
  WriteFile(own_cfg(), "ConfigurationTemplatesLocation=C:\\tmpl\\\n");
  ExpectOffer("C:/tmpl/");
}

TEST_F(Offer, ComesFromTheAlternateFileWhereThereIsNoOther) {
  WriteFile(alt_cfg(), "ConfigurationTemplatesLocation=/alt\n");
  ExpectOffer("/alt");
}

TEST_F(Offer, IsNotARecordedNameThatCannotBeExpressed) {
  // Read as a lone surrogate, which is no name of a directory and equal to nothing: the line behind
  // it cannot be compared with it.
  WriteFile(own_cfg(),
            "ConfigurationTemplatesLocation=\U0001D800\nConfigurationTemplatesLocation=/second\n");
  ExpectOffer(default_target().string() + "/");
}

TEST_F(Offer, IsNotChangedByARecordedNameThatIsCutToTheDirectoryAboveIt) {
  WriteFile(own_cfg(),
            "ConfigurationTemplatesLocation=/tmp/\U00020000/t\n"
            "ConfigurationTemplatesLocation=/second\n");
  ExpectOffer("/second");
}

}  // namespace
}  // namespace quarn::testing
