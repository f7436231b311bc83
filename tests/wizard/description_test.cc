// What Finish opens on the success page.
#include <cstdlib>
#include <optional>

#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

class Description : public WizardTest {
 protected:
  /// Installs the kit in this language, presses Finish and returns what was opened, relative to the
  /// target.
  std::optional<std::string> Open(const KitBuilder& kit, const std::string& language = "en") {
    WriteKit(kit);
    Play({"-L" + language}, [&] {
      toolkit.Press(TextOf(language, "IDS_WIZARD_NEXT"));
      toolkit.Type(target().string() + behind_target);
      toolkit.Press(TextOf(language, "IDS_WIZARD_NEXT"));
      EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
      if (!checked) toolkit.SetChecked(false);
      toolkit.Press(TextOf(language, "IDS_WIZARD_FINISH"));
      EXPECT_FALSE(toolkit.window_open());
      EXPECT_TRUE(toolkit.view_removed());
    });
    const std::string opened = Opened();
    if (opened.empty()) return std::nullopt;
    const std::string start = target().string() + "/";
    EXPECT_TRUE(opened.starts_with(start)) << opened;
    EXPECT_TRUE(opened.ends_with("\n")) << opened;
    return opened.substr(start.size(), opened.size() - start.size() - 1);
  }

  std::string behind_target = "/";
  bool checked = true;
};

TEST_F(Description, IsThatOfTheLanguage) { EXPECT_EQ(Open(ExampleKit(), "de"), "about/de.html"); }

TEST_F(Description, FallsBackToEnglishWithoutTheLanguage) {
  EXPECT_EQ(Open(ExampleKit(), "fr"), "about/en.html");
}

TEST_F(Description, FallsBackToEnglishWhereTheLanguageNamesNone) {
  KitBuilder kit;
  kit.Product(u"de", u"Hauptbuch", u"", u"").Product(u"EN", u"", u"", u"en.html");
  kit.File(u"en.html", "text");
  EXPECT_EQ(Open(kit, "de"), "en.html");
}

TEST_F(Description, IsThatOfTheFirstRecordOfTheLanguage) {
  KitBuilder kit;
  kit.Product(u"en", u"", u"", u"first.html").Product(u"en", u"", u"", u"second.html");
  kit.File(u"first.html", "text").File(u"second.html", "text");
  EXPECT_EQ(Open(kit), "first.html");
}

// Deliberate: the file's name follows the directory's at once, with no separator added.
TEST_F(Description, IsNotOpenedWhereTheDirectoryWasTypedWithoutASeparator) {
  behind_target = "/templates";
  EXPECT_EQ(Open(ExampleKit()), std::nullopt);
  EXPECT_TRUE(toolkit.messages().empty());
}

TEST_F(Description, IsWhatHasTheJoinedName) {
  behind_target = "/templates";
  WriteFile(target() / "templatesabout" / "en.html", "another file");
  EXPECT_EQ(Open(ExampleKit()), "templatesabout/en.html");
}

TEST_F(Description, IsFoundBehindASeparatorOfItsOwn) {
  behind_target = "/templates";
  KitBuilder kit;
  kit.Product(u"en", u"", u"", u"\\about\\en.html").File(u"about\\en.html", "text");
  EXPECT_EQ(Open(kit), "templates/about/en.html");
}

TEST_F(Description, MayHaveBlanksInItsName) {
  KitBuilder kit;
  kit.Product(u"en", u"", u"", u"read me\\first \u00e9.html");
  kit.File(u"read me\\first \u00e9.html", "text");
  EXPECT_EQ(Open(kit), "read me/first é.html");
}

TEST_F(Description, MayHaveAStarInItsName) {
  KitBuilder kit;
  kit.Product(u"en", u"", u"", u"a*b.html");
  kit.File(u"a*b.html", "text").File(u"a*c.html", "text");
  EXPECT_EQ(Open(kit), "a*b.html");
}

TEST_F(Description, IsNotOpenedWithoutTheCheckMark) {
  checked = false;
  EXPECT_EQ(Open(ExampleKit()), std::nullopt);
}

TEST_F(Description, IsNotOpenedWhereItIsMissing) {
  KitBuilder kit;
  kit.Product(u"en", u"", u"", u"missing.html");
  kit.File(u"other.html", "text");
  EXPECT_EQ(Open(kit), std::nullopt);
  EXPECT_TRUE(toolkit.messages().empty()) << "and nothing is said of it";
}

TEST_F(Description, IsNotOpenedWhereNoneIsNamed) {
  KitBuilder kit;
  kit.Product(u"en", u"", u"", u"");
  kit.File(u"other.html", "text");
  EXPECT_EQ(Open(kit), std::nullopt) << "the template directory itself is no description";
}

TEST_F(Description, IsNotOpenedWithoutAProduct) {
  KitBuilder kit;
  kit.Product(u"de", u"", u"", u"de.html");
  kit.File(u"de.html", "text");
  EXPECT_EQ(Open(kit, "fr"), std::nullopt);
}

TEST_F(Description, ThatFailsToOpenIsNoFailure) {
  WriteFile(root() / "bin" / "open", "#!/bin/sh\nexit 3\n");
  EXPECT_EQ(Open(ExampleKit()), std::nullopt);
  EXPECT_TRUE(toolkit.messages().empty());
}

TEST_F(Description, WhoseNameCannotBeExpressedIsTheKitsFaultAndTheWizardCloses) {
  KitBuilder kit;
  kit.Product(u"en", u"", u"", u"\xD800.html");
  kit.File(u"other.html", "text");
  EXPECT_EQ(Open(kit), std::nullopt);
  EXPECT_EQ(toolkit.messages(),
            (std::vector<ShownMessage>{Error(TextOf("en", "IDS_ERROR_DAMAGEDSOURCE"))}));
}

}  // namespace
}  // namespace quarn::testing
