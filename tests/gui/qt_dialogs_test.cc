// The messages and the folder chooser of the toolkit on Qt.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <algorithm>
#include <cstdlib>

#include "core/text.h"
#include "l10n/string_table.h"
#include "tests/gui/qt_toolkit_test.h"
#include "wizard/qt/widgets.h"
#include "wizard/toolkit_text.h"

namespace quarn::testing {
namespace {

// --- Messages ---------------------------------------------------------------------------------

TEST_F(QtToolkitTest, ReturnGivesTheFirstAnswerWhereverTheFocusIs) {
  SetUpWindow();
  EXPECT_EQ(Answer(kNotice, [](QWidget& dialog) { Press(&dialog, Qt::Key_Return); }), 0);
  for (const int index : {0, 1}) {
    EXPECT_EQ(Answer(kQuestion,
                     [index](QWidget& dialog) {
                       Press(dialog.findChildren<QPushButton*>()[index], Qt::Key_Return);
                     }),
              0);
  }
}

TEST_F(QtToolkitTest, EscapeGivesTheSecondAnswerAndNoneWhereThereIsOnlyOk) {
  SetUpWindow();
  EXPECT_EQ(Answer(kQuestion, [](QWidget& dialog) { Press(&dialog, Qt::Key_Escape); }), 1);
  EXPECT_EQ(Answer(kNotice,
                   [](QWidget& dialog) {
                     Press(&dialog, Qt::Key_Escape);
                     EXPECT_TRUE(dialog.isVisible());
                   }),
            -1);
}

TEST_F(QtToolkitTest, SpaceAndTheMousePressTheButtonOfAMessage) {
  SetUpWindow();
  for (const int index : {0, 1}) {
    EXPECT_EQ(Answer(kQuestion,
                     [index](QWidget& dialog) {
                       const QString title = index == 0 ? "Yes" : "No";
                       for (auto* const button : dialog.findChildren<QPushButton*>()) {
                         if (button->text() == title) Press(button, Qt::Key_Space);
                       }
                     }),
              index);
  }
}

TEST_F(QtToolkitTest, AClosedMessageIsNotAnswered) {
  SetUpWindow();
  EXPECT_EQ(Answer(kQuestion, [](QWidget& dialog) { dialog.close(); }), -1);
  EXPECT_EQ(Answer(kNotice, [](QWidget& dialog) { dialog.close(); }), -1);
}

TEST_F(QtToolkitTest, AMessageHasItsOwnersTitleAndShowsItsTextAsItIs) {
  SetUpWindow();
  MessageBox message = kQuestion;
  message.title = "A & <B>";
  message.text = "<i>really</i> & truly?";
  Answer(message, [](QWidget& dialog) {
    EXPECT_EQ(dialog.windowTitle(), "A & <B>");
    const auto labels = dialog.findChildren<TextLabel*>();
    EXPECT_TRUE(std::any_of(labels.begin(), labels.end(), [](QLabel* label) {
      return NameOf(label) == "<i>really</i> & truly?";
    }));
    EXPECT_TRUE(dialog.isModal());
    EXPECT_FALSE(dialog.windowFlags() & Qt::WindowContextHelpButtonHint);
  });
  message.title.reset();
  Answer(message, [](QWidget& dialog) { EXPECT_EQ(dialog.windowTitle(), "Quarn Setup"); });
}

TEST_F(QtToolkitTest, AMessageHasThePictureOfItsKind) {
  SetUpWindow();
  const auto picture_of = [this](MessageIcon icon) {
    MessageBox message = kNotice;
    message.icon = icon;
    QSize size;
    Answer(message, [&](QWidget& dialog) {
      for (QWidget* const widget : dialog.findChildren<QWidget*>()) {
        if (auto* const label = dynamic_cast<PictureLabel*>(widget)) {
          size = label->image().size();
          EXPECT_EQ(label->size(), QSize(64, 64));
        }
      }
    });
    return size;
  };
  EXPECT_EQ(picture_of(MessageIcon::kNone), QSize());
  EXPECT_EQ(picture_of(MessageIcon::kError), QSize(125, 125));
  EXPECT_EQ(picture_of(MessageIcon::kQuestion), QSize(256, 256));
}

TEST_F(QtToolkitTest, AMessageIsModalToTheWindowOnlyWhileThatIsOpen) {
  SetUpWindow();
  Answer(kNotice, [](QWidget& dialog) { EXPECT_EQ(dialog.parentWidget(), nullptr); });
  Show();
  Answer(kNotice, [this](QWidget& dialog) { EXPECT_EQ(dialog.parentWidget(), toolkit_.window()); });
  toolkit_.CloseWindow(window_);
  Answer(kNotice, [](QWidget& dialog) { EXPECT_EQ(dialog.parentWidget(), nullptr); });
}

// --- The folder chooser -----------------------------------------------------------------------

class FolderChooserTest : public QtToolkitTest {
 protected:
  FolderChooserTest() {
    SetUpWindow();
    Show();
    toolkit_.ChooseFolder(view_, [this](const stdx::string& path) { chosen_.push_back(path); });
    chooser_ = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
  }
  void SetUp() override { ASSERT_NE(chooser_, nullptr); }

  std::vector<stdx::string> chosen_;
  QFileDialog* chooser_;
};

TEST_F(FolderChooserTest, IsASheetOnTheWindowThatTakesOneExistingDirectory) {
  EXPECT_EQ(chooser_->windowModality(), Qt::WindowModal);
  EXPECT_EQ(chooser_->parentWidget(), toolkit_.window());
  EXPECT_EQ(chooser_->fileMode(), QFileDialog::Directory);
  EXPECT_EQ(chooser_->acceptMode(), QFileDialog::AcceptOpen);
  EXPECT_TRUE(chooser_->testOption(QFileDialog::ShowDirsOnly));
  EXPECT_TRUE(chooser_->testOption(QFileDialog::ReadOnly)) << "none can be created";
  EXPECT_EQ(chooser_->directory().path().toStdString(), home().string());
}

TEST_F(FolderChooserTest, ShowsNothingOfItsMnemonics) {
  for (const auto& [code, label] :
       {std::pair{"en", "Folder:"}, {"ru", "Папка:"}, {"zh", "文件夹："}}) {
    SetCurrentLanguage(FindLanguageByCode(code));
    toolkit_.ChooseFolder(view_, [](const stdx::string&) {});
    const auto* const chooser = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
    ASSERT_NE(chooser, nullptr);
    EXPECT_EQ(chooser->labelText(QFileDialog::LookIn).toStdString(), label);
  }
}

TEST_F(FolderChooserTest, HandsOverThePathWhenTheUserConfirms) {
  const std::filesystem::path folder = root() / "папка с <&>";
  std::filesystem::create_directories(folder);
  chooser_->findChild<QLineEdit*>("fileNameEdit")->setText(QString::fromStdString(folder.string()));
  Press(chooser_->findChild<QLineEdit*>("fileNameEdit"), Qt::Key_Return);
  EXPECT_THAT(chosen_, ::testing::ElementsAre(stdx::string(folder.string())));
}

// Qt takes the names of files for UTF-8 in every locale; their bytes must stay what they are.
TEST_F(FolderChooserTest, HandsOverTheTextThatNamesTheFolderInAnEightBitLocale) {
  const std::string locale = (root() / "ru.KOI8-R").string();
  if (std::system(("localedef -c -i C -f KOI8-R " + locale + " 2>/dev/null").c_str()) != 0) {
    GTEST_SKIP() << "no sources of locales on this system";
  }
  setenv("LOCPATH", root().c_str(), 1);
  setenv("LC_ALL", "ru.KOI8-R", 1);
  const std::filesystem::path folder = root() / "дом";
  std::filesystem::create_directories(folder);
  chooser_->findChild<QLineEdit*>("fileNameEdit")->setText(QString::fromStdString(folder.string()));
  Press(chooser_->findChild<QLineEdit*>("fileNameEdit"), Qt::Key_Return);
  ASSERT_EQ(chosen_.size(), 1u);
  EXPECT_EQ(ToNarrow(FromToolkit(chosen_[0])), stdx::string(folder.string()));
  unsetenv("LOCPATH");
}

TEST_F(FolderChooserTest, HandsOverNothingWhenTheUserCancels) {
  Press(chooser_, Qt::Key_Escape);
  EXPECT_FALSE(chooser_->isVisible());
  EXPECT_THAT(chosen_, ::testing::IsEmpty());
  EXPECT_EQ(toolkit_.messages, 0) << "Escape is the chooser's: the window does not ask";
  EXPECT_TRUE(toolkit_.window()->isVisible());
}

TEST_F(FolderChooserTest, TheWindowMayBeClosedUnderIt) {
  toolkit_.RemoveView(view_);
  toolkit_.CloseWindow(window_);
  QApplication::processEvents();
  EXPECT_THAT(chosen_, ::testing::IsEmpty());
}

}  // namespace
}  // namespace quarn::testing
