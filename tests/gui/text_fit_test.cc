// Every text of every page and message, in every language, can be read in the wizard's fixed
// frames.
#include "tests/gui/text_fit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>

#include "tests/gui/wizard_walk.h"
#include "tests/support/kit_builder.h"
#include "tests/support/scratch.h"
#include "wizard/qt/widgets.h"

namespace quarn::testing {
namespace {

class TextFit : public ScratchTest {
 protected:
  TextFit() {
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    std::filesystem::current_path(root());
  }

  /// A kit that leaves the product's name to the wizard, and is large enough to show progress.
  void WriteKit() {
    KitBuilder kit;
    for (const char16_t name : u"abcde") {
      if (name != 0) kit.File(std::u16string(u"a\\") + name, "contents");
    }
    WriteFile(root() / "quarn.tpk", kit.Kit());
  }
};

class TextFitInLanguage
    : public TextFit,
      public ::testing::WithParamInterface<std::tuple<std::string, std::string>> {};

TEST_P(TextFitInLanguage, HoldsOnEveryPageAndMessage) {
  WriteKit();
  const auto& [language, family] = GetParam();
  std::vector<std::string> seen;
  WizardWalk(family).Walk(language, [&](const std::string& name, QWidget& window) {
    seen.push_back(name);
    EXPECT_THAT(MisfitsOf(window), ::testing::IsEmpty()) << name;
  });
  EXPECT_THAT(
      seen, ::testing::ElementsAre("1-welcome", "2-directory", "message-empty", "message-cancel",
                                   "3-progress", "3-progress-complete", "4-success",
                                   "message-error", "5-error", "message-IDS_ERROR_NOSOURCE",
                                   "message-IDS_ERROR_NOSPACE", "message-IDS_ERROR_DAMAGEDSOURCE"));
}

// The desktop's own font, and the widest that desktops come with.
INSTANTIATE_TEST_SUITE_P(Every, TextFitInLanguage,
                         ::testing::Combine(::testing::ValuesIn(LanguageCodes()),
                                            ::testing::Values("", "DejaVu Sans")));

// The examination itself can fail.

class TextFitExamination : public TextFit {
 protected:
  std::vector<std::string> Misfits() { return MisfitsOf(window_); }

  int argc_ = 1;
  char name_[5] = "test";
  char* argv_[2] = {name_, nullptr};
  QApplication application_{argc_, argv_};
  QWidget window_;
};

TEST_F(TextFitExamination, AcceptsWhatFits) {
  (new TextLabel("Short", &window_))->setGeometry(0, 0, 100, 20);
  (new PlainButton("Next >", &window_))->setGeometry(0, 30, 80, 30);
  EXPECT_THAT(Misfits(), ::testing::IsEmpty());
}

TEST_F(TextFitExamination, FindsALabelWithTooManyLines) {
  (new TextLabel("one two three four five", &window_))->setGeometry(0, 0, 60, 20);
  EXPECT_THAT(Misfits(), ::testing::ElementsAre(::testing::HasSubstr("high in 20")));
}

TEST_F(TextFitExamination, FindsAWordWiderThanItsLabel) {
  (new TextLabel("Donaudampfschifffahrt", &window_))->setGeometry(0, 0, 60, 100);
  EXPECT_THAT(Misfits(), ::testing::ElementsAre(::testing::HasSubstr("has a line of")));
}

TEST_F(TextFitExamination, FindsALabelThatRunsIntoItsNeighbour) {
  (new TextLabel("one two three four five", &window_))->setGeometry(0, 0, 60, 200);
  (new PlainButton("OK", &window_))->setGeometry(0, 30, 80, 30);
  EXPECT_THAT(Misfits(), ::testing::ElementsAre(::testing::HasSubstr("runs into a QPushButton")));
}

TEST_F(TextFitExamination, FindsAButtonThatIsTooNarrow) {
  (new PlainButton("Unabhängigkeitserklärung", &window_))->setGeometry(0, 0, 80, 30);
  EXPECT_THAT(Misfits(), ::testing::ElementsAre(::testing::HasSubstr("wide in")));
}

TEST_F(TextFitExamination, FindsACharacterWithoutAGlyph) {
  // A code point that no font can have.
  (new TextLabel(QString(QChar(0x0378)), &window_))->setGeometry(0, 0, 100, 20);
  EXPECT_THAT(Misfits(), ::testing::ElementsAre(::testing::HasSubstr("lacks a glyph")));
}

TEST_F(TextFitExamination, LooksAtNothingHidden) {
  auto* const label = new TextLabel("one two three four five", &window_);
  label->setGeometry(0, 0, 60, 20);
  label->hide();
  EXPECT_THAT(Misfits(), ::testing::IsEmpty());
}

}  // namespace
}  // namespace quarn::testing
