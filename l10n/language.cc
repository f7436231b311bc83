#include "l10n/language.h"

#include <cstdlib>
#include <string_view>

#include "core/text.h"
#include "l10n/string_table.h"

namespace quarn {
namespace {

/// Makes `code` the choice if a language has it.
void Choose(StartOptions& options, const stdx::string& code) {
  options.language_id = FindLanguageByCode(code);
  if (options.language_id != kNoLanguage) options.language_code = ToUtf16(code);
}

StartOptions ReadOptions(int argc, const char* const* argv) {
  StartOptions options;
  options.use_current_directory = argc >= 2 && argv[1] == std::string_view("usecwd");
  for (int i = options.use_current_directory ? 2 : 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (!argument.starts_with('-') && !argument.starts_with('/')) continue;
    switch (argument.size() < 2 ? '\0' : argument[1]) {
      case 'L':
      case 'l':
        // The first language option ends the scan, whether the language is known or not.
        Choose(options, stdx::string(argument.substr(2)));
        return options;
      case 'S':
      case 's':
        options.silent = true;
        break;
      default:
        break;
    }
  }
  return options;
}

void ChooseByLocale(StartOptions& options, stdx::string identifier) {
  // All conversions go through the environment's locale, so there must be one.
  const char* const lang = std::getenv("LANG");
  if (lang == nullptr || *lang == '\0') setenv("LANG", (identifier + ".UTF-8").c_str(), 1);
  if (identifier.size() >= 3) identifier.resize(2);
  Choose(options, identifier);
}

}  // namespace

StartOptions SelectLanguage(int argc, const char* const* argv,
                            const std::function<stdx::string()>& locale_identifier) {
  StartOptions options = ReadOptions(argc, argv);
  if (options.language_id == kNoLanguage) ChooseByLocale(options, locale_identifier());
  if (options.language_id == kNoLanguage) options.language_id = kEnglish;
  SetCurrentLanguage(options.language_id);
  return options;
}

}  // namespace quarn
