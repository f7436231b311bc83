// What the launcher's files say after an installation.
#include <string>
#include <vector>

#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

class Recording : public WizardTest {
 protected:
  Recording() { WriteKit(ExampleKit()); }
};

struct Recorded {
  const char* name;
  const char* typed;     ///< behind the target directory
  const char* recorded;  ///< the same
};

class Record : public Recording, public ::testing::WithParamInterface<Recorded> {};

TEST_P(Record, OneSeparatorAtMostIsTakenOff) {
  Play([&] {
    InstallInto(target().string() + GetParam().typed);
    toolkit.Press("Finish");
  });
  EXPECT_EQ(ReadFile(own_cfg()), LineOf(target().string() + GetParam().recorded));
}

INSTANTIATE_TEST_SUITE_P(Separators, Record,
                         ::testing::Values(Recorded{"None", "", ""}, Recorded{"One", "/", ""},
                                           Recorded{"Two", "//", "/"}),
                         [](const auto& info) { return info.param.name; });

TEST_F(Recording, TheNewDirectoryComesFirstAndOnce) {
  WriteFile(own_cfg(), "Other=1\n" + LineOf("/a") + LineOf(target().string() + "/") + "Last=2\n");
  InstallAndFinish(kStateSuccess, [&] {
    EXPECT_EQ(toolkit.controller().template_dirs(),
              (std::vector<stdx::u16string>{U16(target()), stdx::u16string(u"/a"),
                                            U16(target()) + u"/"}));
  });
  EXPECT_EQ(ReadFile(own_cfg()), "Other=1\n" + LineOf(target()) + LineOf("/a") + "Last=2\n");
}

struct Files {
  const char* name;
  bool own, alt, alt_has_directories;
  bool own_written, alt_written;
};

class WhichFile : public Recording, public ::testing::WithParamInterface<Files> {};

TEST_P(WhichFile, IsWritten) {
  const Files& row = GetParam();
  if (row.own) WriteFile(own_cfg(), "A=1\n");
  if (row.alt) {
    WriteFile(alt_cfg(), row.alt_has_directories ? LineOf("/b") : std::string("B=1\n"));
  }
  InstallAndFinish(kStateSuccess);
  const auto has_line = [&](const fs::path& file) {
    return fs::exists(file) && ReadFile(file).find(LineOf(target())) != std::string::npos;
  };
  EXPECT_EQ(has_line(own_cfg()), row.own_written);
  EXPECT_EQ(has_line(alt_cfg()), row.alt_written);
}

INSTANTIATE_TEST_SUITE_P(
    Table, WhichFile,
    ::testing::Values(Files{"Neither", false, false, false, true, false},
                      Files{"Own", true, false, false, true, false},
                      Files{"Both", true, true, true, true, true},
                      Files{"AlternateWithDirectories", false, true, true, false, true},
                      Files{"AlternateWithout", false, true, false, true, true}),
    [](const auto& info) { return info.param.name; });

TEST_F(Recording, AConfigurationThatCannotBeSavedIsToldAndTheSuccessStays) {
  fs::create_directories(own_cfg());  // a directory in the place of the file
  InstallAndFinish(kStateSuccess, [&] {
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kSuccessText}));
  });
  EXPECT_TRUE(fs::exists(target() / "about" / "en.html"));
}

}  // namespace
}  // namespace quarn::testing
