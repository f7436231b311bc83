// Welcome and directory: texts, Back and Next, the folder chooser, the closing.
#include <algorithm>
#include <cstdlib>
#include <new>

#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

class Navigation : public WizardTest {
 protected:
  /// The text of the welcome page with this kit in this language.
  std::string Welcome(const KitBuilder& kit, const std::string& language = "en") {
    WriteKit(kit);
    std::string text;
    Play({"-L" + language}, [&] {
      text = toolkit.VisibleTexts().at(0);
      toolkit.CloseWithBox();
    });
    return text;
  }
};

TEST_F(Navigation, TheProductIsIntroducedInTheLanguageOfTheWizard) {
  EXPECT_EQ(Welcome(ExampleKit(), "de"),
            TextOf("de", "IDS_WELCOME_TITLE") + " Hauptbuch (Quarn GmbH).");
}

TEST_F(Navigation, TheKitThatWasReadIsKeptInMind) {
  WriteKit(ExampleKit());
  Play([&] {
    EXPECT_EQ(toolkit.controller().source_path(), U16(start_directory() / "quarn.tpk"));
    toolkit.CloseWithBox();
  });
}

TEST_F(Navigation, TheLanguageOfAProductIsFoundInAnyCase) {
  KitBuilder kit;
  kit.Product(u"EN", u"First", u"One", u"").Product(u"en", u"Second", u"Two", u"");
  EXPECT_EQ(Welcome(kit), "Welcome to the product installation program First (One).");
}

// Deliberate: no fall-back to English here.
TEST_F(Navigation, AProductWithoutTheLanguageIsIntroducedByTheDefaults) {
  EXPECT_EQ(Welcome(ExampleKit(), "fr"), TextOf("fr", "IDS_WELCOME_TITLE") + " " +
                                             TextOf("fr", "IDS_DEFPRODUCT") + " (" +
                                             TextOf("fr", "IDS_DEFPROVIDER") + ").");
}

TEST_F(Navigation, EmptyNamesAreReplacedOneByOne) {
  KitBuilder kit;
  kit.Product(u"en", u"", u"Quarn Ltd", u"");
  EXPECT_EQ(Welcome(kit), "Welcome to the product installation program <Product> (Quarn Ltd).");
}

TEST_F(Navigation, AnEmptyProviderIsReplacedToo) {
  KitBuilder kit;
  kit.Product(u"en", u"A & B", u"", u"");
  EXPECT_EQ(Welcome(kit), "Welcome to the product installation program A & B (<Vendor>).");
}

TEST_F(Navigation, ASingleProductIsAnEnglishOne) {
  KitBuilder kit;
  kit.SingleProduct(u"", u"", u"");
  EXPECT_EQ(Welcome(kit), "Welcome to the product installation program <Product> (<Vendor>).");
}

TEST_F(Navigation, AKitWithoutProductsIsIntroducedByTheDefaults) {
  EXPECT_EQ(Welcome(KitBuilder()),
            "Welcome to the product installation program <Product> (<Vendor>).");
}

TEST_F(Navigation, PlaceholdersInATextStayAsTheyAre) {
  KitBuilder kit;
  kit.Product(u"en", u"%1$s {0}", u"%2", u"");
  EXPECT_EQ(Welcome(kit), "Welcome to the product installation program %1$s {0} (%2).");
}

TEST_F(Navigation, BackShowsTheWelcomePageThatWasBuiltFirst) {
  WriteKit(ExampleKit());
  Play([&] {
    const auto first = toolkit.Visible();
    toolkit.Press("Next >");
    EXPECT_NE(toolkit.Visible(), first);
    const std::size_t made = toolkit.controls().size();
    toolkit.Press("< Back");
    EXPECT_EQ(toolkit.Visible(), first) << "the same controls, not others that look the same";
    EXPECT_EQ(toolkit.controls().size(), made);
    toolkit.CloseWithBox();
  });
}

TEST_F(Navigation, TheDirectoryPageIsMadeOnceAndShowsTheTargetEachTime) {
  WriteKit(ExampleKit());
  Play([&] {
    toolkit.Press("Next >");
    const auto first = toolkit.Visible();
    toolkit.Type("/something/else");
    toolkit.Press("< Back");
    toolkit.Press("Next >");
    EXPECT_EQ(toolkit.Visible(), first);
    EXPECT_EQ(toolkit.Shown(ControlKind::kField).text, default_target().string() + "/");
    toolkit.CloseWithBox();
  });
}

TEST_F(Navigation, ADirectoryPageThatCannotBeMadeIsTriedAgain) {
  WriteKit(ExampleKit());
  Play([&] {
    toolkit.FailCall("Make", 1);
    toolkit.Press("Next >");
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
    EXPECT_EQ(toolkit.controller().page(), kStateWelcome);
    toolkit.Press("Next >");
    EXPECT_EQ(toolkit.controller().page(), kStateDirectory);
    EXPECT_EQ(toolkit.VisibleTexts().size(), 2u);
    toolkit.CloseWithBox();
  });
}

TEST_F(Navigation, AnEmptyDirectoryIsAskedForAgain) {
  WriteKit(ExampleKit());
  Play([&] {
    InstallInto("");
    EXPECT_EQ(toolkit.messages().back(),
              (ShownMessage{"Installing configuration",
                            "Specify correct path to template directory.", 0x00000001}));
    EXPECT_EQ(toolkit.controller().page(), kStateDirectory);
    EXPECT_EQ(toolkit.VisibleTexts().size(), 2u) << "the page stays";
    EXPECT_EQ(toolkit.controller().target_dir(), U16(default_target()) + u"/");
    toolkit.Type(target().string());
    toolkit.Press("Next >");
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
    toolkit.Press("Finish");
  });
}

TEST_F(Navigation, BackslashesOfADirectoryAreSeparators) {
  WriteKit(ExampleKit());
  Play([&] {
    std::string typed = (target() / "deep" / "er").string();
    std::replace(typed.begin(), typed.end(), '/', '\\');
    InstallInto(typed);
    EXPECT_EQ(toolkit.controller().target_dir(), U16(target()) + u"/deep/er");
    toolkit.Press("Finish");
  });
  EXPECT_TRUE(std::filesystem::exists(target() / "deep" / "er" / "about" / "en.html"));
}

TEST_F(Navigation, ASingleBackslashIsTheRoot) {
  WriteKit(KitBuilder());  // installs nothing
  Play([&] {
    InstallInto("\\");
    EXPECT_EQ(toolkit.controller().target_dir(), u"/");
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
    toolkit.Press("Finish");
  });
  EXPECT_TRUE(toolkit.messages().empty());
}

struct TypedText {
  const char* name;
  const char* text;
  const char* locale;
};

class Inexpressible : public Navigation, public ::testing::WithParamInterface<TypedText> {};

TEST_P(Inexpressible, AsADirectoryIsRefusedAndTheWizardGoesOn) {
  WriteKit(ExampleKit());
  Play([&] {
    toolkit.Press("Next >");
    setenv("LC_ALL", GetParam().locale, 1);
    toolkit.Type(GetParam().text);
    toolkit.Press("Next >");
    EXPECT_EQ(toolkit.messages(),
              (std::vector<ShownMessage>{Error("Specify correct path to template directory.")}));
    EXPECT_EQ(toolkit.controller().page(), kStateDirectory);
    setenv("LC_ALL", "C.UTF-8", 1);
    toolkit.Type(target().string());
    toolkit.Press("Next >");
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
    toolkit.Press("Finish");
  });
  EXPECT_TRUE(std::filesystem::exists(tmp())) << "no installation failed on it";
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Inexpressible,
    ::testing::Values(TypedText{"InTheLocale", "/tmp/é", "C"},
                      TypedText{"NoText", "/tmp/\xff", "C.UTF-8"},
                      // Read as a lone surrogate, which has no way back.
                      TypedText{"BeyondTheBasicPlane", "/tmp/\U0001D800", "C.UTF-8"},
                      // Read as a zero unit: the directory would be /tmp/.
                      TypedText{"CutToNothing", "/tmp/\U00020000/templates", "C.UTF-8"},
                      // Read as U+F600, which is another directory.
                      TypedText{"CutToAnother", "/tmp/\U0001F600/templates", "C.UTF-8"}),
    [](const auto& info) { return info.param.name; });

// --- Folder chooser ----------------------------------------------------------------------------

TEST_F(Navigation, TheFolderThatIsChosenGoesIntoTheField) {
  WriteKit(ExampleKit());
  Play([&] {
    toolkit.Press("Next >");
    toolkit.Press("...");
    ASSERT_TRUE(toolkit.chooser_open());
    EXPECT_EQ(toolkit.Shown(ControlKind::kField).text, default_target().string() + "/");
    toolkit.Choose((target() / "\U0001F4C1 шаблоны").string());
    EXPECT_EQ(toolkit.Shown(ControlKind::kField).text, (target() / "\U0001F4C1 шаблоны").string());
    EXPECT_EQ(toolkit.controller().target_dir(), U16(default_target()) + u"/") << "not yet";
    toolkit.CloseWithBox();
  });
}

TEST_F(Navigation, AChooserThatIsCancelledChangesNothing) {
  WriteKit(ExampleKit());
  Play([&] {
    toolkit.Press("Next >");
    toolkit.Type("/typed");
    toolkit.Press("...");
    toolkit.Choose(std::nullopt);
    EXPECT_EQ(toolkit.Shown(ControlKind::kField).text, "/typed");
    toolkit.CloseWithBox();
  });
}

TEST_F(Navigation, ThereIsNoChooserBeforeThereIsADirectoryPage) {
  WriteKit(ExampleKit());
  Play([&] {
    toolkit.controller().OnBrowse();
    EXPECT_FALSE(toolkit.chooser_open());
    toolkit.CloseWithBox();
  });
}

TEST_F(Navigation, ThereIsNoChooserOnceTheWindowIsClosed) {
  WriteKit(ExampleKit());
  Play([&] {
    toolkit.Press("Next >");
    toolkit.Answer("Yes");
    toolkit.Press("Cancel");
    EXPECT_EQ(toolkit.controller().view(), nullptr);
    toolkit.controller().OnBrowse();  // a screen reader's press, for example
    EXPECT_FALSE(toolkit.chooser_open());
  });
}

// --- Closing -----------------------------------------------------------------------------------

TEST_F(Navigation, AQuestionThatIsNotAnsweredClosesNothing) {
  WriteKit(ExampleKit());
  Play([&] {
    toolkit.AnswerNothing();
    toolkit.Press("Cancel");
    EXPECT_TRUE(toolkit.window_open());
    toolkit.Answer("Yes");
    toolkit.Press("Cancel");
    EXPECT_FALSE(toolkit.window_open());
  });
}

TEST_F(Navigation, AHandlerThatFailsEndsInAMessageAndTheWizardLives) {
  WriteKit(ExampleKit());
  Play([&] {
    for (const auto& handler : {&CInstallerDlg::OnCancel, &CInstallerDlg::OnEscape}) {
      const std::size_t told = toolkit.messages().size();
      toolkit.WhileAsked([] { throw std::bad_alloc(); });
      (toolkit.controller().*handler)();
      ASSERT_EQ(toolkit.messages().size(), told + 2);
      EXPECT_EQ(toolkit.messages().back(), Error("Installation error"));
    }
    EXPECT_EQ(toolkit.controller().page(), kStateWelcome);
    toolkit.Press("Next >");
    EXPECT_EQ(toolkit.controller().page(), kStateDirectory);
    toolkit.CloseWithBox();
  });
}

}  // namespace
}  // namespace quarn::testing
