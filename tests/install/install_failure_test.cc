// Every step in which a pass can fail, with what it posts and what it leaves on disk.
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "tests/install/failure_scene.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using TreeMap = std::map<std::string, std::string>;

template <class Policy>
class InstallFailureTest : public FailureScene<Policy> {};
TYPED_TEST_SUITE(InstallFailureTest, FaultyPolicies);
using OrdinaryFailureTest = InstallFailureTest<FaultyFileSystem<FileSystem>>;
using RestoringFailureTest = InstallFailureTest<FaultyFileSystem<DirectFileSystem>>;

// --- Success, to compare with --------------------------------------------------------------------

TYPED_TEST(InstallFailureTest, WithoutAFaultAllFilesArePostedAndInstalled) {
  this->Prepare();
  EXPECT_EQ(this->installation().Run(), 0u);
  EXPECT_EQ(this->installation().statuses,
            (std::vector<InstallStatus>{{0, this->Installed("a/old.txt"), 0},
                                        {0, this->Installed("b/same.txt"), 25},
                                        {0, this->Installed("d/e/new.txt"), 50},
                                        {0, this->Installed("c/late.txt"), 75},
                                        {0, FinishText(), 100}}));
  EXPECT_EQ(ReadFile(this->target() / "a/old.txt"), "new");
  EXPECT_EQ(ReadFile(this->target() / "b/same.txt"), "the same");
  EXPECT_EQ(ReadFile(this->target() / "d/e/new.txt"), "new");
  EXPECT_EQ(ReadFile(this->target() / "c/late.txt"), "new");
}

TYPED_TEST(InstallFailureTest, PercentsAreTheIntegerPartOfTheShareDone) {
  for (const std::uint32_t count : {1u, 3u, 7u, 101u, 250u}) {
    KitBuilder kit;
    for (std::uint32_t i = 0; i < count; ++i) {
      // Up to date, so that this takes no time.
      const std::string name = std::to_string(i);
      kit.File(std::u16string(name.begin(), name.end()), "", Ticks(0));
      WriteFile(this->target() / name, "");
    }
    Installation<TypeParam> installation(kit, this->kit(), this->target());
    ASSERT_EQ(installation.Run(), 0u);
    ASSERT_EQ(installation.statuses.size(), count + 1);
    for (std::uint32_t i = 0; i < count; ++i) {
      EXPECT_EQ(installation.statuses[i].percent, static_cast<std::int32_t>(i * 100 / count));
    }
    EXPECT_EQ(installation.statuses[0].percent, 0);
    EXPECT_LT(installation.statuses[count - 1].percent, 100);
    EXPECT_EQ(installation.statuses[count].percent, 100);
  }
}

// --- Staging cannot be prepared ------------------------------------------------------------------

TEST_F(OrdinaryFailureTest, WithoutATemporaryDirectoryNothingIsTouched) {
  Prepare();
  const TreeMap temporary = Tree(tmp());
  script().On(Op::kGetTempDirectory, 1, Code(6));
  EXPECT_EQ(installation().Run(), 6u);
  ExpectStatuses(-1, 6);
  EXPECT_EQ(Tree(target()), Before({}, {}));
  EXPECT_EQ(Tree(tmp()), temporary);
}

TEST_F(OrdinaryFailureTest, ATemporaryDirectoryThatCannotBeMadeCostsItself) {
  Prepare();
  script().OnPath(Op::kMakeDirectory, InTemporary(""), Code(87));
  EXPECT_EQ(installation().Run(), 87u);
  ExpectStatuses(-1, 87);
  ExpectRolledBack({});
}

TYPED_TEST(InstallFailureTest, AStagingDirectoryThatCannotBeMadeCostsTheTemporaryDirectory) {
  this->Prepare();
  this->script().OnPath(Op::kMakeDirectory, this->InTemporary("kstage0/"), Code(87));
  EXPECT_EQ(this->installation().Run(), 87u);
  this->ExpectStatuses(-1, 87);
  this->ExpectRolledBack({});
}

// --- The backup move fails -----------------------------------------------------------------------

TYPED_TEST(InstallFailureTest, AFailingBackupMoveEndsThePass) {
  for (const std::uint32_t code : {1u, 4u, 87u, 1013u}) {
    this->Prepare();
    // A restoring pass moves nothing where nothing is.
    this->script().On(Op::kMove, TestFixture::kRestores ? 2 : 3, Code(code));
    EXPECT_EQ(this->installation().Run(), code);
    this->ExpectStatuses(3, code);
    this->ExpectRolledBack({"a/"}, {"d/"});
  }
}

TYPED_TEST(InstallFailureTest, AFailingMoveOfTheFirstFileCostsNoDirectoryOfTheTarget) {
  this->Prepare();
  this->script().On(Op::kMove, 1, Code(87));
  EXPECT_EQ(this->installation().Run(), 87u);
  this->ExpectStatuses(0, 87);
  this->ExpectRolledBack({});
}

// Deliberate: such a file is written over in place.
TEST_F(OrdinaryFailureTest, CodesTwoAndThreeOfTheBackupMeanThatNothingWasThere) {
  for (const Op op : {Op::kMakeDirectory, Op::kMove}) {
    for (const std::uint32_t code : {2u, 3u}) {
      Prepare();
      if (op == Op::kMove) {
        script().On(op, 1, Code(code));
      } else {
        script().OnPath(op, InTemporary("kstage0/a"), Code(code));
      }
      EXPECT_EQ(installation().Run(), 0u);
      EXPECT_EQ(ReadFile(target() / "a/old.txt"), "new");
    }
  }
}

TEST_F(RestoringFailureTest, AFileThatIsStillThereIsNotWrittenOver) {
  for (const std::uint32_t code : {2u, 3u}) {
    Prepare();
    script().On(Op::kMove, 1, Code(code));
    const std::uint32_t result = installation().Run();
    EXPECT_EQ(result, code == 2 ? FILE_ERR_INVALID_PARAMETER : code);
    ExpectStatuses(0, result);
    ExpectRolledBack({});
  }
}

TEST_F(OrdinaryFailureTest, AStagingPathThatCannotBeMadeEndsThePass) {
  Prepare();
  script().OnPath(Op::kMakeDirectory, InTemporary("kstage0/a"), Code(87));
  EXPECT_EQ(installation().Run(), 87u);
  ExpectStatuses(0, 87);
  ExpectRolledBack({});
}

// --- The directory cannot be made ----------------------------------------------------------------

TYPED_TEST(InstallFailureTest, AParentDirectoryThatCannotBeMadeEndsThePass) {
  for (const std::uint32_t code : {1u, 2u, 87u}) {
    this->Prepare();
    this->script().OnPath(Op::kMakeDirectory, this->InTarget("d/e"), Code(code));
    EXPECT_EQ(this->installation().Run(), code);
    this->ExpectStatuses(2, code);
    // "d" was made and recorded on the way.
    this->ExpectRolledBack({"a/"});
  }
}

TEST_F(OrdinaryFailureTest, AFailureThatPassesIsMendedByMakingTheParentFirst) {
  Prepare();
  const fs::path obstacle = target() / "d";
  script().OnPath(Op::kMakeDirectory, InTarget("d/e"), Meanwhile([&] {
                    // At the first try.
                    if (!fs::exists(obstacle)) WriteFile(obstacle, "in the way");
                  }));
  script().OnPath(Op::kMakeDirectory, InTarget("d"), Meanwhile([&] { fs::remove(obstacle); }));
  EXPECT_EQ(installation().Run(), 0u);
  EXPECT_EQ(ReadFile(target() / "d/e/new.txt"), "new");
}

// --- The copy fails ------------------------------------------------------------------------------

struct CopyFault {
  const char* name;
  Op op;
  int nth;  ///< that of the third file
  Fault fault;
  std::uint32_t code;
  bool costs_an_ordinary_pass = true;
};

const CopyFault kCopyFaults[] = {
    {"output not found", Op::kFileOpen, 5, Code(2), 2},
    {"output not to be opened", Op::kFileOpen, 5, Code(87), 87},
    {"seek", Op::kFileSeek, 2, Code(6), 6},
    {"seek without a code", Op::kFileSeek, 2, Code(0), 87, false},
    {"read", Op::kFileRead, 2, Code(2), 2},
    {"read error", Op::kFileRead, 2, Code(87), 87},
    {"read of nothing", Op::kFileRead, 2, {Fault::Kind::kNothing}, 87},
    {"short write", Op::kFileWrite, 2, {Fault::Kind::kShort}, 87},
    {"write of nothing", Op::kFileWrite, 2, {Fault::Kind::kNothing}, 87},
    {"write to a full disk", Op::kFileWrite, 2, {Fault::Kind::kFailedWrite}, 87},
    {"write to a closed handle", Op::kFileWrite, 2, Code(6), 6},
    {"truncation", Op::kFileTruncate, 2, Code(87), 87, false},
    {"close", Op::kFileClose, 4, Code(87), 87, false},
};

TYPED_TEST(InstallFailureTest, AFailingCopyOfTheThirdFileEndsThePassAndCostsThreeDirectories) {
  for (const CopyFault& fault : kCopyFaults) {
    if (!TestFixture::kRestores && !fault.costs_an_ordinary_pass) continue;
    SCOPED_TRACE(fault.name);
    this->Prepare();
    this->script().On(fault.op, fault.nth, fault.fault);
    EXPECT_EQ(this->installation().Run(), fault.code);
    this->ExpectStatuses(2, fault.code);
    // "b" received nothing, and "mkdir -p" has made "d" without a record of it.
    this->ExpectRolledBack({"a/"}, {"d/"});
  }
}

// Deliberate: a failure would cost directories.
TEST_F(OrdinaryFailureTest, WhatFailsBehindTheLastByteOfAFileIsNotLookedAt) {
  for (const CopyFault& fault : kCopyFaults) {
    if (fault.costs_an_ordinary_pass) continue;
    SCOPED_TRACE(fault.name);
    Prepare();
    script().On(fault.op, fault.nth, fault.fault);
    EXPECT_EQ(installation().Run(), 0u);
    EXPECT_EQ(ReadFile(target() / "a/old.txt"), "new");
    // The last position of an image looks like a failed seek, without an error.
    EXPECT_EQ(ReadFile(target() / "d/e/new.txt"), fault.op == Op::kFileSeek ? "" : "new");
    EXPECT_EQ(ReadFile(target() / "c/late.txt"), "new");
  }
}

TYPED_TEST(InstallFailureTest, AShortReadIsReadOn) {
  this->Prepare();
  this->script().On(Op::kFileRead, 1, {Fault::Kind::kShort});
  this->script().On(Op::kFileRead, 2, {Fault::Kind::kShort});
  EXPECT_EQ(this->installation().Run(), 0u);
  EXPECT_EQ(ReadFile(this->target() / "a/old.txt"), "new");
  EXPECT_EQ(ReadFile(this->target() / "d/e/new.txt"), "new");
}

TYPED_TEST(InstallFailureTest, ATimeThatCannotBeSetIsNoFailure) {
  this->Prepare();
  this->script().On(Op::kFileSetWriteTime, 1, Code(6));
  EXPECT_EQ(this->installation().Run(), 0u);
  EXPECT_EQ(ReadFile(this->target() / "a/old.txt"), "new");
}

TYPED_TEST(InstallFailureTest, AnInstalledFileWhoseTimeCannotBeReadIsReplaced) {
  this->Prepare();
  this->script().On(Op::kFileGetTimes, 2, Code(6));
  EXPECT_EQ(this->installation().Run(), 0u);
  EXPECT_EQ(ReadFile(this->target() / "b/same.txt"), "of the same time");
}

TYPED_TEST(InstallFailureTest, TheOutputIsClosedWhateverFails) {
  const auto descriptors = [] {
    return std::distance(fs::directory_iterator("/dev/fd"), fs::directory_iterator());
  };
  this->Prepare();
  const auto before = descriptors();
  this->script().On(Op::kFileWrite, 2, {Fault::Kind::kShort});
  EXPECT_NE(this->installation().Run(), 0u);
  EXPECT_EQ(descriptors(), before);
}

// --- Cancel --------------------------------------------------------------------------------------

TYPED_TEST(InstallFailureTest, ACancelTakesEffectAfterTheFileInWorkAndPostsNothing) {
  this->Prepare();
  this->script().On(Op::kFileWrite, 1,
                    Meanwhile([&] { SetCancel(&this->installation().record, true); }));
  EXPECT_EQ(this->installation().Run(), kErrorCancelled);
  EXPECT_EQ(kErrorCancelled, 1223u);
  this->ExpectStatuses(0, 0);
  this->ExpectRolledBack({"a/"});
  EXPECT_EQ(this->script().Count(Op::kFileTruncate), 1) << "the file was completed";
}

TYPED_TEST(InstallFailureTest, FilesThatAreUpToDateDoNotSeeACancel) {
  this->Prepare();
  // While the second file, which is up to date, is looked at.
  this->script().On(Op::kFileGetTimes, 2,
                    Meanwhile([&] { SetCancel(&this->installation().record, true); }));
  EXPECT_EQ(this->installation().Run(), kErrorCancelled);
  this->ExpectStatuses(2, 0);
  this->ExpectRolledBack({"a/"}, {"d/"});
}

TYPED_TEST(InstallFailureTest, APassThatCopiesNothingSeesNoCancel) {
  this->Prepare();
  ASSERT_EQ(this->installation().Run(), 0u);
  SetCancel(&this->installation().record, true);
  EXPECT_EQ(this->installation().Run(), 0u);
  EXPECT_EQ(this->installation().statuses.back(), (InstallStatus{0, FinishText(), 100}));
}

TYPED_TEST(InstallFailureTest, ACodeOf1223FromTheFileSystemIsAFailureLikeAnyOther) {
  this->Prepare();
  this->script().On(Op::kMove, 1, Code(kErrorCancelled));
  EXPECT_EQ(this->installation().Run(), kErrorCancelled);
  this->ExpectStatuses(0, kErrorCancelled);
}

}  // namespace
}  // namespace quarn::testing
