// The ordinary file-system policy: the free functions of this folder under one name, for the
// classes that are written once over a policy (the kit reader and the installation).
#pragma once

#include "core/dir_scan.h"
#include "core/file.h"
#include "core/shell.h"

namespace quarn {

/// What an installation asks of a file system. The wizard runs on this one: trees are handled by
/// shell commands, and a "*" scan answers as `FindFirst` says. It has no data.
struct FileSystem {
  using Scan = DirScan;

  static constexpr auto FileOpen = &quarn::FileOpen;
  static constexpr auto FileRead = &quarn::FileRead;
  static constexpr auto FileWrite = &quarn::FileWrite;
  static constexpr auto FileSeek = &quarn::FileSeek;
  static constexpr auto FileClose = &quarn::FileClose;
  static constexpr auto FileGetTimes = &quarn::FileGetTimes;
  static constexpr auto FileSetWriteTime = &quarn::FileSetWriteTime;
  static constexpr auto FileTruncate = &quarn::FileTruncate;
  static constexpr auto FileGetLastError = &quarn::FileGetLastError;

  static constexpr auto FindFirst = &quarn::FindFirst;
  static constexpr auto FindNext = &quarn::FindNext;
  static constexpr auto GetName = &quarn::GetName;
  static constexpr auto GetAttributes = &quarn::GetAttributes;
  static constexpr auto CloseScan = &quarn::CloseScan;

  static constexpr auto ShellMakeDirectory = &quarn::ShellMakeDirectory;
  static constexpr auto ShellRemoveTree = &quarn::ShellRemoveTree;
  static constexpr auto ShellMove = &quarn::ShellMove;
  static constexpr auto ShellRemoveFile = &quarn::ShellRemoveFile;

  static constexpr auto GetTempDirectory = &quarn::GetTempDirectory;
  static constexpr auto IsTempDirectoryNamed = &quarn::IsTempDirectoryNamed;
  static constexpr auto CreateTempFile = &quarn::CreateTempFile;
};

}  // namespace quarn
