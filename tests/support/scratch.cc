#include "tests/support/scratch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <utility>

#include "tests/support/private_mounts.h"

namespace stdx {

void PrintTo(const u16string& text, std::ostream* out) {
  *out << "u\"";
  for (const char16_t unit : text.view()) {
    if (unit >= 0x20 && unit < 0x7f) {
      *out << static_cast<char>(unit);
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof(escaped), "\\u%04X", static_cast<unsigned>(unit));
      *out << escaped;
    }
  }
  *out << '"';
}

}  // namespace stdx

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kVariables[] = {"HOME",     "TMPDIR",      "LANG",    "LC_ALL",
                                      "LC_CTYPE", "LC_MESSAGES", "DISPLAY", "PATH"};

fs::path& RunRoot() {
  static fs::path root;
  return root;
}
bool private_mounts = false;

bool Inside(const char* variable, const fs::path& root) {
  const char* const value = std::getenv(variable);
  return value != nullptr && (std::string(value) + "/").starts_with(root.string() + "/");
}

void UseDirectories(const fs::path& root) {
  fs::create_directories(root / "home");
  fs::create_directories(root / "tmp");
  setenv("HOME", (root / "home").c_str(), 1);
  setenv("TMPDIR", (root / "tmp").c_str(), 1);
}

void MakeScratch() {
  std::string pattern = (fs::temp_directory_path() / "quarn-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    std::perror("no scratch directory");
    std::exit(1);
  }
  RunRoot() = fs::canonical(pattern);
  UseDirectories(RunRoot());
  setenv("LC_ALL", "C.UTF-8", 1);
  unsetenv("LANG");
  unsetenv("LC_CTYPE");
  fs::create_directories(RunRoot() / "var-tmp");
  private_mounts = MountOverVarTmp((RunRoot() / "var-tmp").string());
}

}  // namespace

void RequireScratch() {
  const fs::path& root = RunRoot();
  if (!root.empty() && Inside("HOME", root) && Inside("TMPDIR", root)) return;
  std::cerr << "These tests delete directories: HOME and TMPDIR must be in a scratch directory "
               "that the test's own main has made.\n";
  std::_Exit(1);
}

bool HasPrivateMounts() { return private_mounts; }

ScratchTest::ScratchTest() {
  for (const char* const name : kVariables) {
    if (const char* const value = std::getenv(name)) environment_[name] = value;
  }
  directory_ = fs::current_path();
  static int count = 0;
  root_ = RunRoot() / std::to_string(++count);
  UseDirectories(root_);
  RequireScratch();
}

ScratchTest::~ScratchTest() {
  fs::current_path(directory_);
  for (const char* const name : kVariables) {
    const auto it = environment_.find(name);
    if (it == environment_.end()) {
      unsetenv(name);
    } else {
      setenv(name, it->second.c_str(), 1);
    }
  }
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

void PrivateMountTest::SetUp() {
  ASSERT_TRUE(HasPrivateMounts())
      << "needs a mount namespace of its own: run as root or allow user namespaces";
}

stdx::u16string U16(const fs::path& path) {
  const std::u16string text = path.u16string();
  return stdx::u16string(text.data(), text.size());
}

fs::path Path(const stdx::u16string& path) { return fs::path(std::u16string(path.view())); }

void WriteFile(const fs::path& path, std::string_view contents) {
  fs::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary);
  out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
  out.close();
  ASSERT_TRUE(out) << path;
}

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in) << path;
  std::ostringstream contents;  // block by block: fault tests read large files by the thousand
  contents << in.rdbuf();
  return std::move(contents).str();
}

std::time_t MTime(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_mtime;
}

void SetMTime(const fs::path& path, std::time_t seconds) {
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

std::map<std::string, std::string> Tree(const fs::path& root) {
  std::map<std::string, std::string> tree;
  if (!fs::exists(root)) return tree;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string name = fs::relative(entry.path(), root).string();
    if (entry.is_directory()) {
      tree[name + "/"] = "";
    } else {
      tree[name] = entry.is_regular_file() ? ReadFile(entry.path()) : "(special)";
    }
  }
  return tree;
}

std::uint32_t Seed() {
  const char* const given = std::getenv("QUARN_TEST_SEED");
  const std::uint32_t seed = given != nullptr
                                 ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10))
                                 : std::random_device()();
  std::cout << "QUARN_TEST_SEED=" << seed << '\n';
  ::testing::Test::RecordProperty("seed", std::to_string(seed));
  return seed;
}

}  // namespace quarn::testing

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
  GTEST_FLAG_SET(death_test_style, "fast");
  quarn::testing::MakeScratch();
  const int result = RUN_ALL_TESTS();
  std::error_code ignored;
  std::filesystem::remove_all(quarn::testing::RunRoot(), ignored);
  return result;
}
