// A file-system policy around another one that logs every call, calls a function of the test before
// each, and makes the n-th call of an operation fail.
#pragma once

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "core/basic_string.h"
#include "core/direct_file_system.h"
#include "core/file.h"
#include "core/file_system.h"

namespace quarn::testing {

enum class Op {
  kFileOpen,
  kFileRead,
  kFileWrite,
  kFileSeek,
  kFileClose,
  kFileGetTimes,
  kFileSetWriteTime,
  kFileTruncate,
  kFindFirst,
  kFindNext,
  kMakeDirectory,
  kRemoveTree,
  kMove,
  kRemoveFile,
  kGetTempDirectory,
  kCreateTempFile,
  kLook,
  kRemoveEmptyDirectory,
};

/// What a call does instead of its work.
struct Fault {
  enum class Kind {
    kCode,         ///< answers `code`, which is the last error too; a seek answers its failure
    kShort,        ///< moves half of the bytes that it was asked to
    kNothing,      ///< moves no byte
    kFailedWrite,  ///< answers 0 with 0xFFFFFFFF bytes, as a write to a full disk
    kLengthError,  ///< throws what a name throws that the locale cannot express
    kNoMemory,     ///< throws std::bad_alloc
    kRun,          ///< does its work, after `action`
  };
  Kind kind = Kind::kCode;
  std::uint32_t code = 0;
  std::function<void()> action = {};
};

inline Fault Code(std::uint32_t code) { return {Fault::Kind::kCode, code}; }
inline Fault Meanwhile(std::function<void()> action) {
  return {Fault::Kind::kRun, 0, std::move(action)};
}

/// What the calls of a faulty policy do. Not locked: look at it while no other thread calls.
class FaultScript {
 public:
  struct Call {
    Op op;
    std::u16string path;      ///< the first path, where there is one
    std::uint32_t count = 0;  ///< of bytes, where the call names one
  };

  void Clear() { *this = FaultScript(); }
  /// The `nth` call of `op` from now on, counted from 1, does `fault`.
  void On(Op op, int nth, Fault fault) { faults_[{op, Count(op) + nth}] = std::move(fault); }
  /// Every call of `op` with this path does `fault`.
  void OnPath(Op op, std::u16string path, Fault fault) {
    faults_by_path_[{op, std::move(path)}] = std::move(fault);
  }
  /// The `nth` call of whatever operation from now on, counted from 1, does `fault`.
  void OnCall(std::size_t nth, Fault fault) { faults_by_call_[calls_.size() + nth] = fault; }
  /// Called before each call.
  void Observe(std::function<void(const Call&)> observer) { observer_ = std::move(observer); }

  const std::vector<Call>& calls() const { return calls_; }
  int Count(Op op) const {
    return static_cast<int>(std::count_if(calls_.begin(), calls_.end(),
                                          [&](const Call& call) { return call.op == op; }));
  }
  /// The paths of the calls of `op`.
  std::vector<std::u16string> Paths(Op op) const {
    std::vector<std::u16string> paths;
    for (const Call& call : calls_) {
      if (call.op == op) paths.push_back(call.path);
    }
    return paths;
  }

  // For the policy.
  std::optional<Fault> Enter(Op op, std::u16string_view path, std::uint32_t count) {
    calls_.push_back({op, std::u16string(path), count});
    if (observer_) observer_(calls_.back());
    const Fault* const found = Find(calls_.back());
    if (found == nullptr) return {};
    const Fault fault = *found;
    switch (fault.kind) {
      case Fault::Kind::kLengthError:
        throw std::length_error("basic_string");
      case Fault::Kind::kNoMemory:
        throw std::bad_alloc();
      case Fault::Kind::kRun:
        fault.action();
        return {};
      default:
        last_error = fault.kind == Fault::Kind::kCode ? fault.code : 0;
        return fault;
    }
  }
  std::optional<std::uint32_t> last_error;

 private:
  const Fault* Find(const Call& call) const {
    const auto look_up = [](const auto& faults, const auto& key) {
      const auto found = faults.find(key);
      return found == faults.end() ? nullptr : &found->second;
    };
    if (const Fault* fault = look_up(faults_, std::pair(call.op, Count(call.op)))) return fault;
    if (const Fault* fault = look_up(faults_by_path_, std::pair(call.op, call.path))) return fault;
    return look_up(faults_by_call_, calls_.size());
  }

  std::vector<Call> calls_;
  std::map<std::pair<Op, int>, Fault> faults_;
  std::map<std::pair<Op, std::u16string>, Fault> faults_by_path_;
  std::map<std::size_t, Fault> faults_by_call_;
  std::function<void(const Call&)> observer_;
};

/// What the policies around which there is a faulty one have in common.
template <class Base>
struct FaultyBase {
  FaultyBase() = default;  // without a fault
  explicit FaultyBase(FaultScript* script) : script_(script) {}

  using Text = stdx::u16string;

  std::uint32_t FileOpen(const Text& path, std::uint32_t access, std::uint32_t share_mode,
                         std::uint32_t disposition, std::uint32_t flags, FileHandle* handle) {
    if (const auto fault = Enter(Op::kFileOpen, path)) return fault->code;
    return Base::FileOpen(path, access, share_mode, disposition, flags, handle);
  }
  std::uint32_t FileRead(FileHandle handle, void* buffer, std::uint32_t count,
                         std::uint32_t* bytes_read, void* context) {
    if (const auto fault = Enter(Op::kFileRead, {}, count)) {
      *bytes_read = 0;
      if (fault->kind == Fault::Kind::kCode) return fault->code;
      if (fault->kind == Fault::Kind::kNothing) return 0;
      count /= 2;
    }
    return Base::FileRead(handle, buffer, count, bytes_read, context);
  }
  std::uint32_t FileWrite(FileHandle handle, const void* buffer, std::uint32_t count,
                          std::uint32_t* bytes_written, void* context) {
    if (const auto fault = Enter(Op::kFileWrite, {}, count)) {
      *bytes_written = fault->kind == Fault::Kind::kFailedWrite ? 0xFFFFFFFF : 0;
      if (fault->kind != Fault::Kind::kShort) return fault->code;
      count /= 2;
    }
    return Base::FileWrite(handle, buffer, count, bytes_written, context);
  }
  std::uint32_t FileSeek(FileHandle handle, std::int64_t distance, std::int64_t* high,
                         std::uint32_t method) {
    if (Enter(Op::kFileSeek, {}, static_cast<std::uint32_t>(distance))) {
      if (high != nullptr) *high = FILE_SEEK_FAILED;
      return FILE_SEEK_FAILED;
    }
    return Base::FileSeek(handle, distance, high, method);
  }
  std::uint32_t FileClose(FileHandle handle) {
    const auto fault = Enter(Op::kFileClose);
    const std::uint32_t code = Base::FileClose(handle);
    return fault ? fault->code : code;
  }
  std::uint32_t FileGetTimes(FileHandle handle, std::uint64_t* creation, std::uint64_t* last_access,
                             std::uint64_t* last_write) {
    if (const auto fault = Enter(Op::kFileGetTimes)) return fault->code;
    return Base::FileGetTimes(handle, creation, last_access, last_write);
  }
  std::uint32_t FileSetWriteTime(FileHandle handle, const std::uint64_t* creation,
                                 const std::uint64_t* last_access,
                                 const std::uint64_t* last_write) {
    if (const auto fault = Enter(Op::kFileSetWriteTime)) return fault->code;
    return Base::FileSetWriteTime(handle, creation, last_access, last_write);
  }
  std::uint32_t FileTruncate(FileHandle handle) {
    if (const auto fault = Enter(Op::kFileTruncate)) return fault->code;
    return Base::FileTruncate(handle);
  }
  std::uint32_t FileGetLastError() {
    const bool is_set = script_ != nullptr && script_->last_error;
    return is_set ? *script_->last_error : Base::FileGetLastError();
  }

  std::uint32_t ShellMakeDirectory(const Text& path) {
    if (const auto fault = Enter(Op::kMakeDirectory, path)) return fault->code;
    return Base::ShellMakeDirectory(path);
  }
  std::uint32_t ShellMove(const Text& from, const Text& to) {
    if (const auto fault = Enter(Op::kMove, from)) return fault->code;
    return Base::ShellMove(from, to);
  }
  std::uint32_t ShellRemoveFile(const Text& path) {
    if (const auto fault = Enter(Op::kRemoveFile, path)) return fault->code;
    return Base::ShellRemoveFile(path);
  }
  std::uint32_t GetTempDirectory(Text* directory) {
    if (const auto fault = Enter(Op::kGetTempDirectory)) return fault->code;
    return Base::GetTempDirectory(directory);
  }
  bool IsTempDirectoryNamed() { return Base::IsTempDirectoryNamed(); }
  std::uint32_t CreateTempFile(const Text& directory, const Text& prefix, Text* name) {
    if (const auto fault = Enter(Op::kCreateTempFile, directory)) return fault->code;
    return Base::CreateTempFile(directory, prefix, name);
  }

 protected:
  std::optional<Fault> Enter(Op op, std::u16string_view path = {}, std::uint32_t count = 0) {
    if (script_ == nullptr) return {};
    script_->last_error.reset();
    return script_->Enter(op, path, count);
  }

 private:
  FaultScript* script_ = nullptr;  // not owned
};

template <class Base>
struct FaultyFileSystem;

template <>
struct FaultyFileSystem<FileSystem> : FaultyBase<FileSystem> {
  using Base = FileSystem;
  using FaultyBase::FaultyBase;
  using Scan = Base::Scan;
  bool FindFirst(Scan& scan, const Text& pattern) {
    return !Enter(Op::kFindFirst, pattern) && Base::FindFirst(scan, pattern);
  }
  bool FindNext(Scan& scan) { return !Enter(Op::kFindNext) && Base::FindNext(scan); }
  Text GetName(const Scan& scan) { return Base::GetName(scan); }
  std::uint32_t GetAttributes(const Scan& scan) { return Base::GetAttributes(scan); }
  void CloseScan(Scan& scan) { Base::CloseScan(scan); }
  std::uint32_t ShellRemoveTree(const Text& path) {
    if (const auto fault = Enter(Op::kRemoveTree, path)) return fault->code;
    return Base::ShellRemoveTree(path);
  }
};

template <>
struct FaultyFileSystem<DirectFileSystem> : FaultyBase<DirectFileSystem> {
  using Base = DirectFileSystem;
  using FaultyBase::FaultyBase;
  using Node = Base::Node;
  /// With a fault that has a code, the check cannot tell.
  Node Look(const Text& path) {
    if (Enter(Op::kLook, path)) throw std::system_error(EIO, std::generic_category());
    return Base::Look(path);
  }
  bool IsMade(const Text& path, const MadeFile& made) {
    if (Enter(Op::kLook, path)) throw std::system_error(EIO, std::generic_category());
    return Base::IsMade(path, made);
  }
  std::optional<MadeFile> Identify(FileHandle handle) { return Base::Identify(handle); }
  Text ListedPath(const Text& path) { return Base::ListedPath(path); }
  std::uint32_t FileCreateNew(const Text& path, FileHandle* handle) {
    if (const auto fault = Enter(Op::kFileOpen, path)) return fault->code;
    return Base::FileCreateNew(path, handle);
  }
  std::uint32_t RemoveEmptyDirectory(const Text& path) {
    if (const auto fault = Enter(Op::kRemoveEmptyDirectory, path)) return fault->code;
    return Base::RemoveEmptyDirectory(path);
  }
};

}  // namespace quarn::testing
