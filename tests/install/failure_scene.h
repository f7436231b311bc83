// The scene of every way in which a pass can fail: what it posts and what it leaves on disk.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/install/installation.h"

namespace quarn::testing {

/// Four files: one that is replaced, one that is up to date, a new one in two new directories, and
/// one more that is replaced. "keep" receives nothing. Beside each lies a file of the user's.
template <class Policy>
class FailureScene : public InstallTest {
 public:
  static constexpr bool kRestores = RestoringFileSystem<Policy>;

  static KitBuilder FourFiles() {
    return KitBuilder()
        .File(u"a\\old.txt", "new")
        .File(u"b\\same.txt", "of the same time")
        .File(u"d\\e\\new.txt", "new")
        .File(u"c\\late.txt", "new");
  }

  /// Sets the scene, anew at every call.
  void Prepare() {
    installation_.reset();
    std::filesystem::remove_all(target());
    std::filesystem::remove_all(tmp());
    std::filesystem::create_directory(tmp());
    WriteOld("a/old.txt", "old");
    WriteFile(target() / "a/own.txt", "mine");
    WriteFile(target() / "b/same.txt", "the same");
    SetMTime(target() / "b/same.txt", kKitTime);
    WriteFile(target() / "b/own.txt", "mine");
    WriteOld("c/late.txt", "old");
    WriteFile(target() / "c/own.txt", "mine");
    WriteFile(target() / "keep/own.txt", "mine");
    WriteFile(tmp() / "foreign", "not ours");
    installation_.emplace(FourFiles(), kit(), target());
    before_ = Tree(target());
    temporary_before_ = Tree(tmp());
  }
  Installation<Policy>& installation() { return *installation_; }
  FaultScript& script() { return installation_->script; }
  std::u16string InTarget(const char* path) const {
    return std::u16string(U16(target() / path).view());
  }
  std::u16string InTemporary(const char* path) const {
    return std::u16string(U16(tmp() / path).view());
  }

  /// The tree as it was, without what lies in `gone` directories and with `made` ones.
  std::map<std::string, std::string> Before(const std::vector<std::string>& gone,
                                            const std::vector<std::string>& made) {
    std::map<std::string, std::string> tree = before_;
    for (const std::string& directory : gone) {
      std::erase_if(tree, [&](const auto& entry) { return entry.first.starts_with(directory); });
    }
    for (const std::string& directory : made) tree[directory] = "";
    return tree;
  }
  /// Over the ordinary policy a failure has cost the temporary directory and `gone`, and left the
  /// empty directories `made`; over a restoring one there is no difference.
  void ExpectRolledBack(const std::vector<std::string>& gone,
                        const std::vector<std::string>& made = {}) {
    if (kRestores) {
      EXPECT_EQ(Tree(target()), before_);
      EXPECT_EQ(MTime(target() / "a/old.txt"), kKitTime - 1000);
      EXPECT_EQ(MTime(target() / "c/late.txt"), kKitTime - 1000);
      EXPECT_EQ(Tree(tmp()), temporary_before_) << "the kit's image stays too";
    } else {
      EXPECT_EQ(Tree(target()), Before(gone, made));
      EXPECT_FALSE(std::filesystem::exists(tmp()));
    }
  }
  /// The files in work up to number `last`, then the error.
  void ExpectStatuses(int last, std::uint32_t code) {
    const char* const files[] = {"a/old.txt", "b/same.txt", "d/e/new.txt", "c/late.txt"};
    std::vector<InstallStatus> expected;
    for (int i = 0; i <= last; ++i) {
      expected.push_back({0, Installed(files[i]), i * 25});
    }
    if (code != 0) expected.push_back({code, ErrorText(), last < 0 ? 0 : last * 25});
    EXPECT_EQ(installation().statuses, expected);
  }

 private:
  std::optional<Installation<Policy>> installation_;
  std::map<std::string, std::string> before_;
  std::map<std::string, std::string> temporary_before_;
};

using FaultyPolicies =
    ::testing::Types<FaultyFileSystem<FileSystem>, FaultyFileSystem<DirectFileSystem>>;

}  // namespace quarn::testing
