// The file-system policy of the wizard: the free functions of this directory under one name.
#pragma once

#include "core/dir_scan.h"
#include "core/file.h"
#include "core/file_system_policy.h"
#include "core/shell.h"

namespace quarn {

/// Makes, moves and removes trees by shell commands. A "*" scan answers as `FindFirst` says. Has no
/// data.
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

static_assert(OrdinaryFileSystem<FileSystem>);

}  // namespace quarn
