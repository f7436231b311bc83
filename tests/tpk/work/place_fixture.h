// The fixture of what a run that is killed leaves of its place, and of what the next one makes of
// it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/scratch.h"
#include "tpk/text/failure.h"
#include "tpk/work/install_place.h"

namespace quarn::tpk {

namespace fs = std::filesystem;

class PlaceTest : public testing::ScratchTest {
 protected:
  fs::path target() const { return root() / "top" / "new" / "target"; }

  std::unique_ptr<InstallPlace> Open() {
    return std::make_unique<InstallPlace>(target(), tmp(),
                                          [this](const std::string& text) { told_ += text; });
  }

  /// What `Make` makes, in a kit.
  static std::vector<InstallPlace::File> Files(const std::vector<std::string>& names) {
    std::vector<InstallPlace::File> files;
    for (const std::string& name : names) files.push_back({name, kMade.size(), kTime});
    return files;
  }
  void Make(const std::string& name) const {
    testing::WriteFile(target() / name, kMade);
    testing::SetMTime(target() / name, kTime);
  }

  /// What a run leaves of its place, all but the lock, that is killed after it has begun with its
  /// first `begun` files.
  void KilledRun(const std::vector<std::string>& names, std::size_t begun = SIZE_MAX) {
    auto place = Open();
    place->Plan(Files(names));
    for (std::size_t i = 0; i < std::min(begun, names.size()); ++i) EXPECT_TRUE(place->Begin(i));
    left_ = place->path();
    fs::copy(left_, root() / "copy", fs::copy_options::recursive);
    place.reset();
    fs::rename(root() / "copy", left_);
    told_.clear();
  }
  /// As the pass does it with file number `file`.
  void MoveAside(const std::string& name, std::size_t file) {
    fs::create_directories(left_ / "staged");
    fs::rename(target() / name, left_ / "staged" / std::to_string(file));
  }

  void ExpectFailure(const char* code) {
    // The lock comes and goes, and the journal keeps what could not be undone.
    const auto look = [this] {
      auto tree = testing::Tree(root());
      for (const char* const name : {"lock", "journal"}) {
        tree.erase(fs::relative(left_ / name, root()));
      }
      return tree;
    };
    const auto before = look();
    try {
      Open();
      ADD_FAILURE() << "no failure";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), code) << failure.what();
      EXPECT_EQ(failure.exit_code(), ExitCode::kInputOutput);
    }
    EXPECT_EQ(look(), before) << "touched";
  }

  static constexpr time_t kTime = 1600000000;
  inline static const std::string kMade = "of the kit";

  std::string told_;
  fs::path left_;
};

}  // namespace quarn::tpk
