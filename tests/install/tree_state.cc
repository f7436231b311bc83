#include "tests/install/tree_state.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLarge = 600000;
constexpr time_t kOld = kKitTime - 1000;
constexpr time_t kNew = kKitTime + 1000;

const char* const kNames[] = {"a/old", "a/same", "b/newer", "n/e/new", "a/link", "linked", "large"};

/// To another user, where that is allowed: whoever runs the tests would own a copy.
void GiveAway(const fs::path& path) {
  const bool given = lchown(path.c_str(), 65534, 65534) == 0;
  EXPECT_TRUE(given || geteuid() != 0 || errno == EINVAL) << path;  // no such user in a namespace
}

/// With a time that no copy has by chance.
void Put(const fs::path& path, std::string_view contents, time_t seconds) {
  WriteFile(path, contents);
  const timespec times[2] = {{seconds, 0}, {seconds, 123456789}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

/// With a time that a copy on another volume has as well.
void PutLink(const char* to, const fs::path& path) {
  fs::create_symlink(to, path);
  const timespec times[2] = {{kOld, 0}, {kOld, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

}  // namespace

void PrintTo(const NodeState& node, std::ostream* out) {
  const std::string start = node.contents.substr(0, 40);
  *out << std::oct << node.mode << std::dec << " \"" << start << "\" (" << node.contents.size()
       << ") at " << node.seconds << '.' << node.nanoseconds << " of " << node.user << ':'
       << node.group;
}

TreeState StateOf(const fs::path& root) {
  TreeState state;
  if (!fs::exists(root)) return state;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    struct stat status {};
    EXPECT_EQ(lstat(entry.path().c_str(), &status), 0);
    const std::string name = entry.path().lexically_relative(root).string();
    if (S_ISDIR(status.st_mode)) {
      state[name + "/"].mode = status.st_mode;
    } else {
      state[name] = {status.st_mode,
                     S_ISLNK(status.st_mode)   ? fs::read_symlink(entry.path()).string()
                     : S_ISREG(status.st_mode) ? ReadFile(entry.path())
                                               : "",
                     status.st_mtim.tv_sec,
                     status.st_mtim.tv_nsec,
                     status.st_uid,
                     status.st_gid};
    }
  }
  return state;
}

const char* NameOf(Scene scene) {
  constexpr const char* kSceneNames[] = {"fresh", "upgrade", "mixed", "linked"};
  return kSceneNames[static_cast<int>(scene)];
}

void SetScene(Scene scene, const fs::path& target) {
  fs::remove_all(target);
  if (scene == Scene::kLinked) {
    const fs::path elsewhere = target.parent_path() / "elsewhere";
    fs::remove_all(elsewhere);
    Put(elsewhere / "h", "mine elsewhere", kOld);
    // Directories that list their entries in another order than they were made in.
    for (const std::string name : {"f", "g", "h", "i", "j", "k"}) {
      Put(target / "dir" / name, "mine " + name, kOld);
    }
    Put(target / "one", "of two names", kOld);
    fs::create_hard_link(target / "one", target / "dir/two");
    PutLink("dir", target / "link");
    PutLink(".", target / "loop");
    PutLink("../elsewhere", target / "out");
    PutLink("f", target / "dir/to f");
  }
  if (scene == Scene::kUpgrade) {
    for (const std::string name : kNames) {
      Put(target / name, name == "large" ? std::string(kLarge, 'o') : "old " + name, kOld);
    }
    fs::permissions(target / "a/old", static_cast<fs::perms>(04751));
  }
  if (scene == Scene::kMixed) {
    Put(target / "a/old", "old", kOld);
    Put(target / "a/same", "the user's", kKitTime);
    Put(target / "b/newer", "the user's", kNew);
    Put(target / "a/own", "the user's own", kOld);
    Put(target / "own/own", "the user's own", kOld);
    PutLink("own", target / "a/link");
    Put(target / "linked", "of two names", kOld);
    GiveAway(target / "a/old");
    GiveAway(target / "a/link");
    fs::create_hard_link(target / "linked", target / "a/other name");
    fs::create_directory(target / "empty");
  }
}

std::vector<SceneFile> SceneFiles() {
  std::vector<SceneFile> files;
  for (const std::string name : kNames) {
    files.push_back({name, name == "large" ? std::string(kLarge, 'K') : "the kit's " + name});
  }
  return files;
}

KitBuilder LinkedKit() {
  KitBuilder kit;
  time_t time = kKitTime;
  // Each is newer than what the kit has just put there.
  for (const char16_t* const name :
       {u"dir\\to f", u"dir\\f", u"link\\f", u"loop\\dir\\g", u"link\\h", u"dir\\g", u"dir\\h",
        u"out\\h", u"one", u"link\\two", u"link\\new", u"dir\\new", u"loop\\loop\\dir\\made\\n",
        u"link\\made\\n", u"out\\made\\n", u"link\\f", u"link\\i", u"dir\\i"}) {
    kit.File(name, kLinkedContents + std::to_string(time - kKitTime), Ticks(time));
    ++time;
  }
  return kit;
}

TreeState ReachedFrom(const fs::path& target) {
  TreeState state = StateOf(target);
  for (auto& [name, node] : StateOf(target.parent_path() / "elsewhere")) {
    state["../elsewhere/" + name] = node;
  }
  return state;
}

KitBuilder SceneKit() {
  KitBuilder kit;
  for (const SceneFile& file : SceneFiles()) {
    std::u16string name(file.name.begin(), file.name.end());
    for (char16_t& unit : name) unit = unit == u'/' ? u'\\' : unit;
    kit.File(name, file.contents);
  }
  return kit;
}

}  // namespace quarn::testing
