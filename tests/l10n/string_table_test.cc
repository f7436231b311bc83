#include "l10n/string_table.h"

#include <filesystem>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/text.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

class StringTableTest : public ScratchTest {
 protected:
  ~StringTableTest() override { SetCurrentLanguage(kNoLanguage); }
};

// Languages may follow: their ids come after these.
TEST_F(StringTableTest, TheRegistryBeginsWithTheseCodesInThisOrder) {
  const std::vector<const char*> expected = {"hy", "az", "bg", "zh", "en", "fr", "ka", "de",
                                             "es", "hu", "it", "kk", "lv", "lt", "pl", "ro",
                                             "ru", "es", "tr", "uk", "vi", "ar"};
  ASSERT_GE(Languages().size(), expected.size());
  std::int32_t id = 0;
  for (const auto& [key, entry] : Languages()) EXPECT_EQ(key, ++id) << "ids have no gaps";
  id = 0;
  for (const char* const code : expected) EXPECT_EQ(Languages().at(++id).code, code);
}

TEST_F(StringTableTest, TheRegistryIsTheListOfLanguages) {
  std::size_t count = 0;
#define QUARN_LANGUAGE(id, code_text, table)      \
  EXPECT_EQ(Languages().at(id).code, #code_text); \
  ++count;
#include "l10n/languages.inc"
#undef QUARN_LANGUAGE
  EXPECT_EQ(Languages().size(), count);
}

// A file that the list does not name would be translated for nobody.
TEST_F(StringTableTest, EveryFileOfTextsIsShownButTheGreekAndTheHungarianOne) {
  std::set<std::string> named = {"el", "hu"};
#define QUARN_LANGUAGE(id, code, table) named.insert(#table);
#include "l10n/languages.inc"
#undef QUARN_LANGUAGE
  std::set<std::string> files;
  for (const auto& file : std::filesystem::directory_iterator(QUARN_TEXTS)) {
    files.insert(file.path().stem().string());
  }
  EXPECT_EQ(files, named);
}

TEST_F(StringTableTest, EnglishNextIsFoundWithLanguageFive) {
  SetCurrentLanguage(5);
  EXPECT_EQ(LoadString("IDS_WIZARD_NEXT"), u"Next >");
}

TEST_F(StringTableTest, HuShowsTheFrenchTexts) {
  EXPECT_EQ(Languages().at(10).table, Languages().at(6).table);
  SetCurrentLanguage(6);
  const stdx::u16string french = LoadString("IDS_WIZARD_CANCEL");
  SetCurrentLanguage(10);
  EXPECT_EQ(LoadString("IDS_WIZARD_CANCEL"), french);
}

TEST_F(StringTableTest, ArShowsTheEnglishTexts) {
  EXPECT_EQ(Languages().at(22).table, Languages().at(5).table);
  SetCurrentLanguage(22);
  EXPECT_EQ(LoadString("IDS_WIZARD_NEXT"), u"Next >");
}

TEST_F(StringTableTest, EsStandsTwiceWithTheSpanishTexts) {
  EXPECT_EQ(Languages().at(9).code, Languages().at(18).code);
  EXPECT_EQ(Languages().at(9).table, Languages().at(18).table);
}

TEST_F(StringTableTest, GreekAndHungarianAreBuiltButShownByNoLanguage) {
  EXPECT_EQ(GreekTable().size(), 31u);
  EXPECT_EQ(HungarianTable().size(), 31u);
  for (const auto& [id, entry] : Languages()) {
    EXPECT_NE(entry.table, GreekTable()) << id;
    EXPECT_NE(entry.table, HungarianTable()) << id;
  }
}

TEST_F(StringTableTest, AnUnknownIdGivesTheEmptyTextAndReplacesTheOldOne) {
  SetCurrentLanguage(5);
  for (const char* const id : {"IDS_NOTHING", "", "ids_wizard_next", "IDS_WIZARD_NEXT "}) {
    stdx::u16string text(u"before");
    LoadString(&text, id);
    EXPECT_EQ(text, u"") << id;
  }
}

TEST_F(StringTableTest, ALanguageIdWithoutAnEntryGivesTheEmptyText) {
  const auto past_the_last = static_cast<std::int32_t>(Languages().size()) + 1;
  for (const std::int32_t id : {0, past_the_last, -1, 1000000}) {
    SetCurrentLanguage(id);
    EXPECT_EQ(LoadString("IDS_WIZARD_NEXT"), u"") << id;
  }
}

TEST_F(StringTableTest, ALanguageIsFoundByItsExactCode) {
  EXPECT_EQ(FindLanguageByCode("es"), 9);  // the first of the two
  EXPECT_EQ(FindLanguageByCode("en"), 5);
  EXPECT_EQ(FindLanguageByCode("ar"), 22);
  for (const char* const code : {"EN", "el", "", "eng", "e", "En"}) {
    EXPECT_EQ(FindLanguageByCode(code), 0) << code;
  }
  EXPECT_EQ(FindLanguageByCode(stdx::string("en\0", 3)), 0);
}

TEST_F(StringTableTest, IdsAreOrderedByBytesAndTheShorterFirst) {
  const ByteOrder before;
  EXPECT_TRUE(before("AB", "ABC"));
  EXPECT_FALSE(before("ABC", "AB"));
  EXPECT_TRUE(before("Z", "_"));
  EXPECT_TRUE(before("z", "\xC3"));  // bytes are unsigned
  EXPECT_FALSE(before("A", "A"));
}

TEST_F(StringTableTest, ATextIsDecodedInTheEnvironmentsLocale) {
  SetCurrentLanguage(FindLanguageByCode("ru"));
  EXPECT_EQ(LoadString("IDS_WIZARD_CANCEL"), u"Отмена");
  setenv("LC_ALL", "C", 1);
  EXPECT_THROW(LoadString("IDS_WIZARD_CANCEL"), std::length_error);
  SetCurrentLanguage(kEnglish);
  EXPECT_EQ(LoadString("IDS_WIZARD_CANCEL"), u"Cancel");
}

TEST_F(StringTableTest, TheEnglishTextsAreThese) {
  const StringTable expected = {
      {"IDS_WIZARD_BACK", "< Back"},
      {"IDS_WIZARD_NEXT", "Next >"},
      {"IDS_WIZARD_FINISH", "Finish"},
      {"IDS_WIZARD_CANCEL", "Cancel"},
      {"IDS_ACCEPT_CANCEL", "Do you really want to cancel installation?"},
      {"IDS_TITLE_INSTALLER", "Installing configuration"},
      {"IDS_PREPARECOPY", "Preparing to copy..."},
      {"IDS_INSTALL_ERROR", "Installation error"},
      {"IDS_ERROR_NOSOURCE", "Distribution kit file quarn.tpk not found."},
      {"IDS_ERROR_NOTARGET",
       "Installation of templates to the current directory is not supported."},
      {"IDS_ERROR_NOSPACE", "Insufficient space available in the directory Temp."},
      {"IDS_CHOOSEDIR_FOLDER", "&Folder:"},
      {"IDS_CHOOSEDIR_TITLE", "Choose Directory"},
      {"IDR_MAINFRAME", "Installing configuration"},
      {"IDS_SETUP_EMPTYTARGET", "Specify correct path to template directory."},
      {"IDS_INSTALL_FINISH", "Copying complete..."},
      {"IDS_ERROR_DAMAGEDSOURCE",
       "Distribution kit file quarn.tpk corrupted or not designed for this installation program."},
      {"IDS_DEFPRODUCT", "<Product>"},
      {"IDS_DEFPROVIDER", "<Vendor>"},
      {"IDS_SUCCESS_FINISH", "Configuration installed successfully."},
      {"IDS_SUCCESS_OPENDESCR", "Open description of distribution package"},
      {"IDS_PROGRESS_START", "Files being copied..."},
      {"IDS_ERROR_FINISH",
       "An error occurred during the installation process. Installation canceled. Template "
       "directory has not been changed."},
      {"IDS_CANCEL_FINISH", "Installation canceled. Template directory has not been changed."},
      {"IDS_BROWSE_SELDIR", "Directory selected:"},
      {"IDS_BROWSE_OK", "Select"},
      {"IDS_BROWSE_CANCEL", "Cancel"},
      {"IDS_WELCOME_TITLE", "Welcome to the product installation program"},
      {"IDS_SETUP_EXISTEDTARGET",
       "The installation directory contains files that may be changed during the installation "
       "process. Do you want to continue?"},
      {"IDS_DESTINATION_PROMPT",
       "Specify path to template directory. The installation program will install templates and "
       "configuration files to the specified directory."},
      {"IDS_TEMPLATE_CATALOG", "Template directory:"},
  };
  EXPECT_EQ(Languages().at(kEnglish).table, expected);
}

TEST_F(StringTableTest, EveryEntryShowsTheLanguageThatBelongsToIt) {
  // This text is another one in every language.
  const char* const texts[] = {
      /*  1 hy */ "Կազմաձևը հաջողությամբ տեղադրվեց։",
      /*  2 az */ "Konfiqurasiya uğurla quraşdırıldı.",
      /*  3 bg */ "Конфигурацията е инсталирана успешно.",
      /*  4 zh */ "配置已成功安装。",
      /*  5 en */ "Configuration installed successfully.",
      /*  6 fr */ "La configuration a été installée avec succès.",
      /*  7 ka */ "კონფიგურაცია წარმატებით დაინსტალირდა.",
      /*  8 de */ "Die Konfiguration wurde erfolgreich installiert.",
      /*  9 es */ "La configuración se ha instalado correctamente.",
      /* 10 hu */ "La configuration a été installée avec succès.",
      /* 11 it */ "La configurazione è stata installata correttamente.",
      /* 12 kk */ "Конфигурация сәтті орнатылды.",
      /* 13 lv */ "Konfigurācija ir sekmīgi instalēta.",
      /* 14 lt */ "Konfigūracija sėkmingai įdiegta.",
      /* 15 pl */ "Konfiguracja została pomyślnie zainstalowana.",
      /* 16 ro */ "Configurația a fost instalată cu succes.",
      /* 17 ru */ "Конфигурация успешно установлена.",
      /* 18 es */ "La configuración se ha instalado correctamente.",
      /* 19 tr */ "Yapılandırma başarıyla kuruldu.",
      /* 20 uk */ "Конфігурацію успішно встановлено.",
      /* 21 vi */ "Đã cài đặt cấu hình thành công.",
      /* 22 ar */ "Configuration installed successfully.",
  };
  std::int32_t id = 0;
  for (const char* const text : texts) {
    EXPECT_EQ(Languages().at(++id).table.at("IDS_SUCCESS_FINISH"), text) << id;
  }
  EXPECT_EQ(GreekTable().at("IDS_SUCCESS_FINISH"), "Η διαμόρφωση εγκαταστάθηκε με επιτυχία.");
  EXPECT_EQ(HungarianTable().at("IDS_SUCCESS_FINISH"),
            "A konfiguráció telepítése sikeresen befejeződött.");
}

}  // namespace
}  // namespace quarn::testing
