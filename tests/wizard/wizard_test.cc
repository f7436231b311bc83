#include "tests/wizard/wizard_test.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>
#include <utility>

#include "l10n/string_table.h"

namespace quarn::testing {

namespace fs = std::filesystem;

std::string TextOf(const std::string& code, const std::string& id) {
  const std::int32_t language = FindLanguageByCode(code.c_str());
  return std::string(Languages().at(language).table.at(id.c_str()).view());
}

Gate::Gate(fs::path path) : path_(std::move(path)) {
  fs::create_directories(path_.parent_path());
  EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0) << path_;
}

Gate::~Gate() {
  const int both_ends = open(path_.c_str(), O_RDWR | O_NONBLOCK);
  unlink(path_.c_str());
  if (both_ends != -1) close(both_ends);
}

void Gate::LetThrough() {
  // Opening to write succeeds once somebody waits to read.
  int writer = -1;
  EXPECT_TRUE(Eventually([&] {
    writer = open(path_.c_str(), O_WRONLY | O_NONBLOCK);
    return writer != -1;
  })) << "nobody came to the gate";
  close(writer);
}

KitBuilder ExampleKit() {
  KitBuilder kit;
  kit.Product(u"en", u"Ledger", u"Quarn Ltd", u"about\\en.html");
  kit.Product(u"de", u"Hauptbuch", u"Quarn GmbH", u"about\\de.html");
  kit.File(u"ledger\\1.0\\ledger.cf", "first file");
  kit.File(u"ledger\\1.0\\manifest.txt", "second file");
  kit.File(u"ledger\\2.0\\ledger.cf", "third file");
  kit.File(u"about\\en.html", "About the ledger");
  kit.File(u"about\\de.html", "Zum Hauptbuch");
  return kit;
}

KitBuilder FailingKit() {
  KitBuilder kit;
  kit.Product(u"en", u"Ledger", u"Quarn Ltd", u"");
  kit.File(u"good\\first.txt", "first file");
  kit.FileAt(u"bad\\second.txt", 0x10000000, 100);
  return kit;
}

WizardTest::WizardTest() {
  fs::create_directories(start_directory());
  fs::current_path(start_directory());
  const fs::path open = root() / "bin" / "open";
  WriteFile(open, "#!/bin/sh\nprintf '%s\\n' \"$*\" >>'" + (root() / "opened").string() + "'\n");
  fs::permissions(open, fs::perms::owner_all);
  setenv("PATH", (open.parent_path().string() + ":" + std::getenv("PATH")).c_str(), 1);
}

void WizardTest::RunWizard(const std::vector<std::string>& options) {
  std::vector<std::string> arguments = {"setup", "usecwd"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  RunProgram(std::move(arguments));
}

void WizardTest::RunProgram(Toolkit& desktop, std::vector<std::string> arguments) {
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  app = CInstallerApp{.argc = static_cast<std::int32_t>(arguments.size()),
                      .argv = argv.data(),
                      .language_id = 0,
                      .title = {},
                      .patience = patience};
  quarn::Run(app, desktop);
}

void WizardTest::Play(const std::vector<std::string>& options, std::function<void()> story) {
  toolkit.Story(std::move(story));
  RunWizard(options);
}

void WizardTest::RunInstallation(WizardState end, const std::function<void()>& then) {
  Play([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), end);
    then();
  });
}

void WizardTest::InstallAndFinish(WizardState end, const std::function<void()>& then) {
  RunInstallation(end, [&] {
    then();
    toolkit.Press("Finish");
    EXPECT_FALSE(toolkit.window_open());
  });
}

void WizardTest::InstallInto(const fs::path& directory) {
  toolkit.Press("Next >");
  toolkit.Type(directory.string());
  toolkit.Press("Next >");
}

std::string WizardTest::Opened() const {
  const fs::path log = root() / "opened";
  return fs::exists(log) ? ReadFile(log) : "";
}

bool WizardTest::ImageLeft() const {
  if (!fs::exists(tmp())) return false;
  for (const auto& entry : fs::directory_iterator(tmp())) {
    if (entry.path().filename().string().starts_with("kpt")) return true;
  }
  return false;
}

}  // namespace quarn::testing
