#include "tests/install/pass_model.h"

#include <sys/stat.h>

#include <algorithm>

#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using Kind = ModelNode::Kind;

constexpr std::size_t kBuffer = 1048576;

std::string ParentOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

std::string Trimmed(std::string path) {
  if (path.ends_with('/')) path.pop_back();
  return path;
}

std::string Text(const std::shared_ptr<ModelNode>& node) {
  if (node == nullptr) return "nothing";
  if (node->kind == Kind::kDirectory) return "a directory";
  return (node->kind == Kind::kFile ? "a file of " : "a link to ") + node->contents.substr(0, 30) +
         " (" + std::to_string(node->contents.size()) + ") at " +
         std::to_string(node->seconds.value_or(0));
}

}  // namespace

// --- The disk ------------------------------------------------------------------------------------

void ModelDisk::Load(const fs::path& root) {
  const auto directory = std::make_shared<ModelNode>();
  for (fs::path parent = root.parent_path(); parent != "/"; parent = parent.parent_path()) {
    nodes[parent] = directory;
  }
  if (!fs::exists(root)) return;
  nodes[root] = directory;
  std::map<ino_t, std::shared_ptr<ModelNode>> known;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    struct stat status {};
    EXPECT_EQ(lstat(entry.path().c_str(), &status), 0);
    auto& node = known[status.st_ino];
    if (node == nullptr) {
      const bool is_link = S_ISLNK(status.st_mode);
      node = S_ISDIR(status.st_mode)
                 ? directory
                 : std::make_shared<ModelNode>(ModelNode{
                       is_link ? Kind::kLink : Kind::kFile,
                       is_link ? fs::read_symlink(entry.path()).string() : ReadFile(entry.path()),
                       status.st_mtime});
    }
    nodes[entry.path()] = node;
  }
}

std::string ModelDisk::Differences(const ModelDisk& actual) const {
  std::string differences;
  const auto find = [](const ModelDisk& disk, const std::string& path) {
    const auto found = disk.nodes.find(path);
    return found == disk.nodes.end() ? nullptr : found->second;
  };
  std::map<std::string, std::shared_ptr<ModelNode>> all = nodes;
  all.insert(actual.nodes.begin(), actual.nodes.end());
  for (const auto& [path, unused] : all) {
    const auto expected = find(*this, path), is = find(actual, path);
    if (expected != nullptr && is != nullptr && expected->kind == is->kind &&
        expected->contents == is->contents &&
        (!expected->seconds || expected->seconds == is->seconds)) {
      continue;
    }
    differences += path + ": " + Text(expected) + " was expected, " + Text(is) + " is there\n";
  }
  return differences;
}

bool ModelDisk::MakeWithParents(const std::string& path) {
  const auto found = nodes.find(path);
  if (found != nodes.end()) return found->second->kind == Kind::kDirectory;
  if (!MakeWithParents(ParentOf(path))) return false;
  nodes[path] = std::make_shared<ModelNode>();
  return true;
}

void ModelDisk::RemoveTree(const std::string& path) {
  std::erase_if(nodes, [&](const auto& node) {
    return node.first.starts_with(path + "/") || (node.first == path && path != mount_point_);
  });
}

bool ModelDisk::Move(const std::string& from, const std::string& to) {
  const auto found = nodes.find(from);
  if (found == nodes.end()) return false;
  nodes[to] = found->second;
  nodes.erase(from);
  return true;
}

ModelNode* ModelDisk::Open(const std::string& path, bool create) {
  const auto found = nodes.find(path);
  if (found == nodes.end()) {
    if (!create) return nullptr;
    auto& made = nodes[path];
    made = std::make_shared<ModelNode>(ModelNode{Kind::kFile, "", {}});
    return made.get();
  }
  if (found->second->kind != Kind::kLink) return found->second.get();
  return Open(ParentOf(path) + "/" + found->second->contents, create);
}

// --- The pass ------------------------------------------------------------------------------------

const Fault* PassModel::Enter(Op op) {
  calls_.push_back(op);
  if (calls_.size() != nth_) return nullptr;
  if (fault_.kind == Fault::Kind::kNoMemory) throw OutOfMemory();
  return &fault_;
}

std::uint32_t PassModel::Run(std::size_t nth, const Fault& fault) {
  nth_ = nth;
  fault_ = fault;
  std::uint32_t code = 87;
  try {
    code = InstallAll();
  } catch (OutOfMemory) {
  }
  if (code != 0) Rollback();
  return code;
}

std::uint32_t PassModel::InstallAll() {
  if (const Fault* fault = Enter(Op::kGetTempDirectory)) return fault->code;
  if (const std::uint32_t code = MakeDirectory(temporary_ + "/", true)) return code;
  for (int n = 0;; ++n) {
    const std::string candidate = temporary_ + "/kstage" + std::to_string(n);
    // A scan that failed has found nothing.
    if (Enter(Op::kFindFirst) == nullptr && disk_.Exists(candidate)) continue;
    staging_ = candidate + "/";
    break;
  }
  if (const std::uint32_t code = MakeDirectory(staging_, true)) return code;
  for (const ModelFile& file : files_) {
    if (const std::uint32_t code = InstallFile(file)) return code;
  }
  for (int tries = 0; tries < 2; ++tries) {
    try {
      RemoveTree(staging_);
      break;
    } catch (OutOfMemory) {  // once more
    }
  }
  return 0;
}

std::uint32_t PassModel::InstallFile(const ModelFile& file) {
  const std::string path = target_ + "/" + file.name;
  std::optional<time_t> time;
  if (Enter(Op::kFileOpen) == nullptr) {
    if (const ModelNode* node = disk_.Open(path, false)) {
      if (Enter(Op::kFileGetTimes) == nullptr) time = node->seconds;
      Enter(Op::kFileClose);
    }
  }
  if (time && *time >= file.seconds) return 0;

  const std::string backup = staging_ + file.name;
  if (const std::uint32_t code = MakeDirectory(ParentOf(backup), false)) return code;
  if (const Fault* fault = Enter(Op::kMove)) {
    if (fault->code != 0 && fault->code != 2 && fault->code != 3) return fault->code;
  } else {
    disk_.Move(path, backup);
  }
  if (const std::uint32_t code = MakeDirectory(ParentOf(path), true)) return code;
  return Extract(file, path);
}

std::uint32_t PassModel::Extract(const ModelFile& file, const std::string& path) {
  if (const Fault* fault = Enter(Op::kFileOpen)) return fault->code;
  ModelNode& node = *disk_.Open(path, true);
  node.seconds.reset();
  std::uint32_t code = 0;
  try {
    code = Fill(file, node);
  } catch (OutOfMemory) {
    Enter(Op::kFileClose);
    throw;
  }
  Enter(Op::kFileClose);
  return code;
}

std::uint32_t PassModel::Fill(const ModelFile& file, ModelNode& node) {
  const auto code_of = [](const Fault& fault) {
    return fault.kind == Fault::Kind::kCode && fault.code != 0 ? fault.code : 87;
  };
  if (const Fault* fault = Enter(Op::kFileSeek)) return code_of(*fault);
  std::size_t position = file.offset, written = 0;
  while (written < file.size) {
    std::size_t asked = kBuffer;
    if (const Fault* fault = Enter(Op::kFileRead)) {
      if (fault->kind != Fault::Kind::kShort) return code_of(*fault);
      asked /= 2;
    }
    const std::size_t there = std::min(asked, data_.size() - position);
    const std::size_t amount = std::min(there, file.size - written);
    if (amount == 0) return 87;
    std::size_t moved = amount;
    const Fault* const fault = Enter(Op::kFileWrite);
    if (fault != nullptr) moved = fault->kind == Fault::Kind::kShort ? amount / 2 : 0;
    node.contents.replace(std::min(written, node.contents.size()), moved, data_, position, moved);
    if (fault != nullptr) return code_of(*fault);
    written += amount;
    position += there;
  }
  // A file that cannot be cut keeps its tail and counts as installed.
  if (Enter(Op::kFileTruncate) == nullptr) node.contents.resize(file.size);
  if (Enter(Op::kFileSetWriteTime) == nullptr) node.seconds = file.seconds;
  return 0;
}

std::uint32_t PassModel::MakeDirectory(const std::string& path, bool recorded) {
  const std::uint32_t code = MakeOnce(path, recorded);
  if (code == 0) return 0;
  if (const std::uint32_t parent = MakeDirectory(ParentOf(path), recorded)) return parent;
  return MakeOnce(path, recorded);
}

std::uint32_t PassModel::MakeOnce(const std::string& path, bool recorded) {
  if (const Fault* fault = Enter(Op::kMakeDirectory)) return fault->code;
  if (!disk_.MakeWithParents(Trimmed(path))) return 2;
  if (recorded) recorded_.push_back(path);
  return 0;
}

void PassModel::RemoveTree(const std::string& path) {
  try {
    Enter(Op::kFindFirst);  // finds nothing, with or without a fault
  } catch (OutOfMemory) {
  }
  if (Enter(Op::kRemoveTree) == nullptr) disk_.RemoveTree(Trimmed(path));
}

void PassModel::Rollback() {
  const auto quietly = [](auto step) {
    try {
      step();
    } catch (OutOfMemory) {
    }
  };
  if (!staging_.empty()) {
    quietly([&] { Enter(Op::kFindFirst); });  // what could be moved back; nothing is
    quietly([&] { RemoveTree(staging_); });
  }
  for (const std::string& path : recorded_) {
    quietly([&] { RemoveTree(path); });
  }
}

}  // namespace quarn::testing
