// The guard that keeps tests away from the user's files: a rollback deletes its temporary
// directory and every directory it touched, and a worker that goes on after that falls back to
// /var/tmp. So the test main makes a scratch directory of its own, points HOME and TMPDIR into it,
// mounts it over /var/tmp if the system allows that, and every fixture checks that this holds.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <map>
#include <ostream>
#include <string>

#include "core/basic_string.h"

namespace stdx {
// Readable failure messages.
inline void PrintTo(const string& text, std::ostream* out) { *out << '"' << text.view() << '"'; }
void PrintTo(const u16string& text, std::ostream* out);
}  // namespace stdx

namespace quarn::testing {

/// Ends the process unless HOME and TMPDIR point into a scratch directory that this run made.
void RequireScratch();

/// True when /var/tmp is a scratch directory in a mount namespace of this process's own, so that
/// even a worker that has lost its temporary directory reaches nothing of the user's.
bool HasPrivateMounts();

/// A fixture with a fresh directory `root()`, in which are HOME (`home()`) and TMPDIR (`tmp()`).
/// The environment variables that the system reads are put back after each test; the locale is
/// C.UTF-8 unless a test chooses another one.
class ScratchTest : public ::testing::Test {
 protected:
  ScratchTest();
  ~ScratchTest() override;

  const std::filesystem::path& root() const { return root_; }
  std::filesystem::path home() const { return root_ / "home"; }
  std::filesystem::path tmp() const { return root_ / "tmp"; }

 private:
  std::filesystem::path root_;
  std::map<std::string, std::string> environment_;
  std::filesystem::path directory_;
};

/// A fixture for tests that run the endless worker into a failure. Needs private mounts and fails
/// without them: run the tests as root, or where user namespaces are allowed.
class PrivateMountTest : public ScratchTest {
 protected:
  void SetUp() override;
};

// --- Files, in the tests' own vocabulary ------------------------------------------------------

stdx::u16string U16(const std::filesystem::path& path);
std::filesystem::path Path(const stdx::u16string& path);

void WriteFile(const std::filesystem::path& path, std::string_view contents);
std::string ReadFile(const std::filesystem::path& path);

/// The last-write time in whole seconds since 1970.
std::time_t MTime(const std::filesystem::path& path);
void SetMTime(const std::filesystem::path& path, std::time_t seconds);

/// A tree as a map from relative path ("dir/" for a directory) to contents.
std::map<std::string, std::string> Tree(const std::filesystem::path& root);

/// A seed for a property test: printed, and taken from QUARN_TEST_SEED when that is set.
std::uint32_t Seed();

}  // namespace quarn::testing
