// All that a test can see of a tree, and the three trees that the fault tests install into.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/kit_builder.h"
#include "tests/support/scratch.h"

namespace quarn::testing {

/// A file, link or directory; not how many names it has, which a copy from another volume cannot
/// keep. Of a directory nothing but that it is there: its times change with every file that comes
/// and goes.
struct NodeState {
  mode_t mode = 0;
  std::string contents;  ///< or where the link leads
  time_t seconds = 0;
  long nanoseconds = 0;
  uid_t user = 0;
  gid_t group = 0;

  bool operator==(const NodeState&) const = default;
};
void PrintTo(const NodeState& node, std::ostream* out);

/// By paths relative to its root; that of a directory ends with "/".
using TreeState = std::map<std::string, NodeState>;
TreeState StateOf(const std::filesystem::path& root);

/// What the target is like before the kit comes.
enum class Scene {
  kFresh,    ///< no target
  kUpgrade,  ///< an older version of every file
  kMixed,    ///< older, equal and newer files, links, missing ones, and the user's own
  kLinked,   ///< files that the kit reaches by several names: linked directories, hard links
};
/// Those that an ordinary pass and its model know; a restoring pass knows `kLinked` as well.
inline constexpr Scene kScenes[] = {Scene::kFresh, Scene::kUpgrade, Scene::kMixed};
const char* NameOf(Scene scene);
inline void PrintTo(Scene scene, std::ostream* out) { *out << NameOf(scene); }

/// Makes the tree at `target` what the scene says, whatever it was. A linked one leads to
/// "elsewhere" beside the target as well.
void SetScene(Scene scene, const std::filesystem::path& target);

/// The files of the kit for all of them, by their paths below the target, in kit order. One takes
/// several blocks to copy.
struct SceneFile {
  std::string name, contents;
};
std::vector<SceneFile> SceneFiles();
KitBuilder SceneKit();

/// The kit for a linked scene, and what the contents of all its files begin with.
inline constexpr const char* kLinkedContents = "the kit's number ";
KitBuilder LinkedKit();
inline KitBuilder KitFor(Scene scene) { return scene == Scene::kLinked ? LinkedKit() : SceneKit(); }

/// All that an installation into `target` can reach: the target, and "elsewhere" beside it.
TreeState ReachedFrom(const std::filesystem::path& target);

}  // namespace quarn::testing
