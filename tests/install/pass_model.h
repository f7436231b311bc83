// The rules of an ordinary pass and of its rollback once more, in the plainest way: a disk is a
// map, and every step is written down with its call of the file system. It shares no code with the
// pass.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/faulty_file_system.h"

namespace quarn::testing {

struct ModelNode {
  enum class Kind { kDirectory, kFile, kLink };
  Kind kind = Kind::kDirectory;
  std::string contents;           ///< or where the link leads
  std::optional<time_t> seconds;  ///< nothing for "now"; of files only
};

/// By absolute paths without "/" at the end. A node with two names is one for both.
class ModelDisk {
 public:
  /// `mount_point` cannot be removed itself.
  explicit ModelDisk(std::string mount_point) : mount_point_(std::move(mount_point)) {}
  /// What is at and below `root`, and the directories above it.
  void Load(const std::filesystem::path& root);
  /// Where `actual` differs from what this one expects; empty when nowhere but in times of "now".
  std::string Differences(const ModelDisk& actual) const;

  bool Exists(const std::string& path) const { return nodes.contains(path); }
  bool MakeWithParents(const std::string& path);
  void RemoveTree(const std::string& path);
  bool Move(const std::string& from, const std::string& to);
  /// The file that opening `path` reaches, through a link; null where there is none.
  ModelNode* Open(const std::string& path, bool create);

  std::map<std::string, std::shared_ptr<ModelNode>> nodes;

 private:
  std::string mount_point_;
};

struct ModelFile {
  std::string name;
  std::size_t offset = 0, size = 0;  ///< in the data
  time_t seconds = 0;
};

/// One pass over `disk`, in which the `nth` call of the file system, counted from 1, has `fault`.
class PassModel {
 public:
  PassModel(ModelDisk& disk, std::vector<ModelFile> files, std::string data, std::string target,
            std::string temporary)
      : disk_(disk),
        files_(std::move(files)),
        data_(std::move(data)),
        target_(std::move(target)),
        temporary_(std::move(temporary)) {}

  std::uint32_t Run(std::size_t nth, const Fault& fault);
  const std::vector<Op>& calls() const { return calls_; }

 private:
  struct OutOfMemory {};

  const Fault* Enter(Op op);
  std::uint32_t InstallAll();
  std::uint32_t InstallFile(const ModelFile& file);
  std::uint32_t Extract(const ModelFile& file, const std::string& path);
  std::uint32_t Fill(const ModelFile& file, ModelNode& node);
  std::uint32_t MakeDirectory(const std::string& path, bool recorded);
  std::uint32_t MakeOnce(const std::string& path, bool recorded);
  void RemoveTree(const std::string& path);
  void Rollback();

  ModelDisk& disk_;
  std::vector<ModelFile> files_;
  std::string data_, target_, temporary_;
  std::string staging_;
  std::vector<std::string> recorded_;
  std::vector<Op> calls_;
  std::size_t nth_ = 0;
  Fault fault_;
};

}  // namespace quarn::testing
