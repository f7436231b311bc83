#include "tpk/disk/new_folder.h"

#include <fmt/format.h>
#include <unistd.h>

#include <system_error>
#include <utility>

#include "tpk/disk/held_name.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

/// The failure names `place`, which the user knows.
void Rename(const fs::path& from, const fs::path& to, const fs::path& place) {
  std::error_code error;
  fs::rename(from, to, error);
  if (error) throw CannotWrite(place, error.value());
}

}  // namespace

void MakeDirectories(const fs::path& path) {
  std::error_code error;
  fs::create_directories(path, error);
  if (error) throw CannotMake(path, error.value());
}

NewFolder::NewFolder(fs::path place, const std::function<void(const fs::path&)>& check)
    : place_(std::move(place)) {
  // A separator or a "." at the end would make the place its own parent.
  while (place_.has_parent_path() && place_.has_relative_path() &&
         (!place_.has_filename() || place_.filename() == ".")) {
    place_ = place_.parent_path();
  }
  std::error_code ignored;
  exists_ = fs::exists(fs::symlink_status(place_, ignored));
  if (exists_) check(place_);
}

NewFolder::~NewFolder() {
  std::error_code ignored;
  if (lock_ == -1) return;
  fs::remove_all(holder_, ignored);
  close(lock_);
}

const fs::path& NewFolder::Make() {
  const fs::path parent = place_.has_parent_path() ? place_.parent_path() : fs::path(".");
  MakeDirectories(parent);
  RemoveLeftovers(parent);
  lock_ = MakeHeldDirectory(fs::absolute(parent), holder_);
  if (lock_ == -1) throw CannotWriteTo(parent);
  directory_ = holder_ / "new";
  MakeDirectories(directory_);
  return directory_;
}

void NewFolder::Replace() {
  const fs::path old = holder_ / "old";
  if (exists_) Rename(place_, old, place_);
  try {
    Rename(directory_, place_, place_);
  } catch (const Failure&) {
    if (exists_) Rename(old, place_, place_);
    throw;
  }
}

template <class Visit>
void NewFolder::ForEachEntry(Visit visit) const {
  for (const auto& entry : fs::recursive_directory_iterator(directory_)) {
    visit(entry, place_ / entry.path().lexically_relative(directory_));
  }
}

void NewFolder::Merge() {
  if (!exists_) return Rename(directory_, place_, place_);
  // All checks come before the first change.
  ForEachEntry([](const fs::directory_entry& entry, const fs::path& to) {
    std::error_code ignored;
    const fs::file_type there = entry.is_directory() ? fs::status(to, ignored).type()
                                                     : fs::symlink_status(to, ignored).type();
    if (there == fs::file_type::not_found) return;
    if ((there == fs::file_type::directory) != entry.is_directory()) {
      throw Failure(ExitCode::kInputOutput, "in-the-way",
                    fmt::format("cannot write {}: a {} is in its place", Printable(to.native()),
                                entry.is_directory() ? "file" : "folder"));
    }
  });
  ForEachEntry([](const fs::directory_entry& entry, const fs::path& to) {
    entry.is_directory() ? MakeDirectories(to) : Rename(entry.path(), to, to);
  });
}

}  // namespace quarn::tpk
