#include "core/file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

constexpr std::uint32_t kReadWrite = FILE_ACCESS_READ | FILE_ACCESS_WRITE;
constexpr std::int64_t kGiB = std::int64_t{1} << 30;
constexpr std::uint32_t kAllOnes = 0xFFFFFFFF;

class FileTest : public ScratchTest {
 protected:
  ~FileTest() override {
    for (const int descriptor : opened_) close(descriptor);
  }

  std::filesystem::path Make(const std::string& name, std::string_view contents) {
    WriteFile(root() / name, contents);
    return root() / name;
  }
  static std::uint32_t Open(const std::filesystem::path& path, std::uint32_t access,
                            std::uint32_t disposition, FileHandle* handle) {
    return FileOpen(U16(path), access, 0, disposition, FILE_NORMAL, handle);
  }
  /// Opens what must open; closed at the test's end unless the test closes it.
  FileHandle Opened(const std::filesystem::path& path, std::uint32_t access = kReadWrite,
                    std::uint32_t disposition = FILE_OPEN_EXISTING) {
    FileHandle handle = kInvalidFile;
    EXPECT_EQ(Open(path, access, disposition, &handle), FILE_OK) << path;
    return Keep(handle);
  }
  FileHandle Keep(FileHandle handle) {
    opened_.push_back(static_cast<int>(handle));
    return handle;
  }
  /// The handle of a file that is closed already.
  static FileHandle Closed() {
    const int descriptor = open("/dev/null", O_RDONLY);
    close(descriptor);
    return descriptor;
  }
  /// The ends of a pipe that never waits: for reading and for writing.
  std::pair<FileHandle, FileHandle> Pipe() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    for (const int end : ends) EXPECT_EQ(fcntl(end, F_SETFL, O_NONBLOCK), 0);
    return {Keep(ends[0]), Keep(ends[1])};
  }
  /// A sparse file of 5 GiB.
  FileHandle Large() {
    const auto path = Make("large", "");
    std::filesystem::resize_file(path, 5 * kGiB);
    return Opened(path);
  }
  static std::string Read(FileHandle handle, std::uint32_t count) {
    std::string buffer(count, '#');
    std::uint32_t bytes_read = 0;
    EXPECT_EQ(FileRead(handle, buffer.data(), count, &bytes_read, nullptr), FILE_OK);
    EXPECT_LE(bytes_read, count);
    return buffer.substr(0, bytes_read);
  }
  static void Write(FileHandle handle, std::string_view bytes) {
    std::uint32_t bytes_written = 0;
    EXPECT_EQ(FileWrite(handle, bytes.data(), static_cast<std::uint32_t>(bytes.size()),
                        &bytes_written, nullptr),
              FILE_OK);
    EXPECT_EQ(bytes_written, bytes.size());
  }
  /// Leaves the last error at 2.
  void FailToOpen() {
    FileHandle handle = kInvalidFile;
    EXPECT_EQ(Open(root() / "missing", FILE_ACCESS_READ, FILE_OPEN_EXISTING, &handle),
              FILE_ERR_NOT_FOUND);
    EXPECT_EQ(FileGetLastError(), FILE_ERR_NOT_FOUND);
  }

 private:
  std::vector<int> opened_;
};

/// While it lives, an administrator is somebody who may do nothing. Not so where there is nobody
/// else.
class AnotherUser {
 public:
  AnotherUser() : was_root_(geteuid() == 0), is_other_(!was_root_ || seteuid(65534) == 0) {}
  AnotherUser(const AnotherUser&) = delete;
  AnotherUser& operator=(const AnotherUser&) = delete;
  ~AnotherUser() { EXPECT_TRUE(!was_root_ || seteuid(0) == 0); }
  explicit operator bool() const { return is_other_; }

 private:
  bool was_root_, is_other_;
};

// --- Opening -----------------------------------------------------------------------------------

TEST_F(FileTest, OpeningAMissingFileAnswersNotFoundAndLeavesTheHandle) {
  FileHandle handle = kInvalidFile;
  EXPECT_EQ(FileOpen(U16(root() / "missing"), 0x80000000, 0, 3, 0x80, &handle), 2u);
  EXPECT_EQ(handle, -1);
  EXPECT_EQ(FileGetLastError(), 2u);
}

TEST_F(FileTest, OnlyEnoentIsNotFoundAndEveryOtherFailureIsAnInvalidParameter) {
  Make("file", "x");
  std::filesystem::create_directory(root() / "dir");
  std::filesystem::create_symlink("nowhere", root() / "dangling");
  std::filesystem::create_symlink("loop", root() / "loop");
  const struct {
    std::filesystem::path path;
    std::uint32_t access, code;
  } rows[] = {
      {root() / "missing", FILE_ACCESS_READ, 2},
      {root() / "missing" / "file", FILE_ACCESS_READ, 2},
      {root() / "dangling", FILE_ACCESS_READ, 2},
      {"", FILE_ACCESS_READ, 2},
      {root() / "file" / "below", FILE_ACCESS_READ, 87},       // ENOTDIR
      {root() / "dir", FILE_ACCESS_WRITE, 87},                 // EISDIR
      {root() / "dir", kReadWrite, 87},                        //
      {root() / "loop", FILE_ACCESS_READ, 87},                 // ELOOP
      {root() / std::string(300, 'x'), FILE_ACCESS_READ, 87},  // ENAMETOOLONG
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    FileHandle handle = -77;
    EXPECT_EQ(Open(row.path, row.access, FILE_OPEN_EXISTING, &handle), row.code);
    EXPECT_EQ(FileGetLastError(), row.code);
    EXPECT_EQ(handle, -77);
  }
}

TEST_F(FileTest, AHandleIsTheDescriptor) {
  const FileHandle handle = Opened(Make("file", "abc"));
  char byte;
  EXPECT_EQ(pread(static_cast<int>(handle), &byte, 1, 1), 1);
  EXPECT_EQ(byte, 'b');
}

TEST_F(FileTest, TheAccessMaskChoosesReadingWritingOrBoth) {
  static constexpr struct {
    std::uint32_t access;
    int mode;
  } kRows[] = {
      {0, O_RDONLY},          {0x80000000, O_RDONLY}, {0x40000000, O_WRONLY},
      {0xC0000000, O_RDWR},   {0xC0000001, O_RDWR},   {0xFFFFFFFF, O_RDWR},
      {0x7FFFFFFF, O_WRONLY}, {0x40000001, O_WRONLY}, {0xBFFFFFFF, O_RDONLY},
      {0x20000000, O_RDONLY}, {1, O_RDONLY},
  };
  const auto path = Make("file", "x");
  for (const auto& row : kRows) {
    const FileHandle handle = Opened(path, row.access);
    EXPECT_EQ(fcntl(static_cast<int>(handle), F_GETFL) & O_ACCMODE, row.mode)
        << std::hex << row.access;
  }
}

TEST_F(FileTest, CreateAlwaysCreatesAMissingFileForOwnerAndGroup) {
  const mode_t mask = umask(0);
  Opened(root() / "new", FILE_ACCESS_WRITE, FILE_CREATE_ALWAYS);
  umask(mask);
  struct stat status;
  ASSERT_EQ(stat((root() / "new").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0660u);
  EXPECT_EQ(status.st_size, 0);
}

TEST_F(FileTest, CreateAlwaysKeepsTheContentsOfAnExistingFile) {
  const auto path = Make("file", std::string(100, 'o'));
  Write(Opened(path, FILE_ACCESS_WRITE, FILE_CREATE_ALWAYS), "0123456789");
  EXPECT_EQ(ReadFile(path), "0123456789" + std::string(90, 'o'));
}

TEST_F(FileTest, CreateAlwaysGoesThroughALink) {
  const auto path = Make("file", "0123456789");
  std::filesystem::create_symlink("file", root() / "link");
  Write(Opened(root() / "link", FILE_ACCESS_WRITE, FILE_CREATE_ALWAYS), "abc");
  EXPECT_EQ(ReadFile(path), "abc3456789");
  // Also where there is nothing yet behind it.
  std::filesystem::create_symlink("new", root() / "dangling");
  Write(Opened(root() / "dangling", FILE_ACCESS_WRITE, FILE_CREATE_ALWAYS), "abc");
  EXPECT_EQ(ReadFile(root() / "new"), "abc");
  EXPECT_TRUE(std::filesystem::is_symlink(root() / "dangling"));
}

TEST_F(FileTest, WhatIsDeniedIsAnInvalidParameterAndNotMissing) {
  const auto path = Make("closed/file", "contents");
  std::filesystem::permissions(path, std::filesystem::perms::none);
  std::filesystem::permissions(root(), std::filesystem::perms::others_exec,
                               std::filesystem::perm_options::add);
  std::filesystem::permissions(root().parent_path(), std::filesystem::perms::others_exec,
                               std::filesystem::perm_options::add);
  const AnotherUser user;
  if (!user) GTEST_SKIP() << "there is no second user here";
  for (const std::uint32_t access : {FILE_ACCESS_READ, FILE_ACCESS_WRITE, kReadWrite}) {
    for (const std::uint32_t disposition : {FILE_CREATE_ALWAYS, FILE_OPEN_EXISTING}) {
      FileHandle handle = -77;
      EXPECT_EQ(Open(path, access, disposition, &handle), 87u);
      EXPECT_EQ(FileGetLastError(), 87u);
      EXPECT_EQ(handle, -77);
    }
  }
  FileHandle handle = -77;
  EXPECT_EQ(FileOpenToMap(U16(path), &handle), 87u);
  EXPECT_EQ(FileGetLastError(), 87u);
  EXPECT_EQ(handle, -77);
}

TEST_F(FileTest, TruncateExistingEmptiesAFileAndCreatesNone) {
  const auto path = Make("file", "contents");
  Opened(path, FILE_ACCESS_WRITE, FILE_TRUNCATE_EXISTING);
  EXPECT_EQ(ReadFile(path), "");
  FileHandle handle = kInvalidFile;
  EXPECT_EQ(Open(root() / "missing", FILE_ACCESS_WRITE, FILE_TRUNCATE_EXISTING, &handle),
            FILE_ERR_NOT_FOUND);
  EXPECT_FALSE(std::filesystem::exists(root() / "missing"));
}

TEST_F(FileTest, OtherDispositionsAddNothing) {
  const auto path = Make("file", "contents");
  for (const std::uint32_t disposition : {0u, 1u, 3u, 4u, 6u, 7u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(disposition);
    Opened(path, kReadWrite, disposition);
    EXPECT_EQ(ReadFile(path), "contents");
    FileHandle handle = kInvalidFile;
    EXPECT_EQ(Open(root() / "missing", kReadWrite, disposition, &handle), FILE_ERR_NOT_FOUND);
    EXPECT_FALSE(std::filesystem::exists(root() / "missing"));
  }
}

TEST_F(FileTest, ShareModeAndFlagsHaveNoEffect) {
  const auto path = U16(Make("file", "contents"));
  for (const std::uint32_t flags : {0u, FILE_NORMAL, FILE_NORMAL_SEQUENTIAL, kAllOnes}) {
    for (const std::uint32_t share : {0u, 7u, kAllOnes}) {
      FileHandle handle = kInvalidFile;
      EXPECT_EQ(FileOpen(path, FILE_ACCESS_READ, share, FILE_OPEN_EXISTING, flags, &handle),
                FILE_OK);
      EXPECT_EQ(Read(Keep(handle), 10), "contents");
    }
  }
}

TEST_F(FileTest, AnEmbeddedZeroEndsThePath) {
  const auto path = Make("file", "contents");
  stdx::u16string cut = U16(path);
  cut.push_back(0);
  cut.append(u"more");
  FileHandle handle = kInvalidFile;
  EXPECT_EQ(FileOpen(cut, FILE_ACCESS_READ, 0, FILE_OPEN_EXISTING, FILE_NORMAL, &handle), FILE_OK);
  EXPECT_EQ(Read(Keep(handle), 10), "contents");
}

TEST_F(FileTest, APathThatTheLocaleCannotExpressThrows) {
  FileHandle handle = kInvalidFile;
  EXPECT_THROW(FileOpen(u"/\xDC00", FILE_ACCESS_READ, 0, FILE_OPEN_EXISTING, 0, &handle),
               std::length_error);
  EXPECT_EQ(handle, kInvalidFile);
}

TEST_F(FileTest, NamesAreWrittenInTheLocalesEncoding) {
  Opened(root() / "\u00FCn\u00EFc\u00F6de", FILE_ACCESS_WRITE, FILE_CREATE_ALWAYS);
  EXPECT_TRUE(std::filesystem::exists(root() / "\xC3\xBCn\xC3\xAF"
                                               "c\xC3\xB6"
                                               "de"));
}

TEST_F(FileTest, StartedProgramsInheritNoHandle) {
  const FileHandle handle = Opened(Make("file", "x"));
  EXPECT_NE(fcntl(static_cast<int>(handle), F_GETFD) & FD_CLOEXEC, 0);
}

// --- Opening to map -----------------------------------------------------------------------------

TEST_F(FileTest, AFileIsOpenedToMapForReadingAlone) {
  const auto path = Make("file", "contents");
  std::filesystem::create_symlink("file", root() / "link");
  for (const auto& name : {path, root() / "link"}) {
    FileHandle handle = kInvalidFile;
    EXPECT_EQ(FileOpenToMap(U16(name), &handle), 0u);
    EXPECT_EQ(Read(Keep(handle), 100), "contents");
    EXPECT_EQ(fcntl(static_cast<int>(handle), F_GETFL) & O_ACCMODE, O_RDONLY);
    EXPECT_NE(fcntl(static_cast<int>(handle), F_GETFD) & FD_CLOEXEC, 0);
  }
  stdx::u16string cut = U16(path);
  cut.push_back(0);
  cut.append(u"more");
  FileHandle handle = kInvalidFile;
  EXPECT_EQ(FileOpenToMap(cut, &handle), 0u);
  Keep(handle);
}

TEST_F(FileTest, WhatIsMissingIsNotOpenedToMap) {
  std::filesystem::create_symlink("nowhere", root() / "dangling");
  for (const char* const name : {"missing", "missing/file", "dangling"}) {
    FileHandle handle = -77;
    EXPECT_EQ(FileOpenToMap(U16(root() / name), &handle), 2u) << name;
    EXPECT_EQ(FileGetLastError(), 2u);
    EXPECT_EQ(handle, -77);
  }
}

TEST_F(FileTest, WhatCannotBeMappedIsRefusedWithoutWaitingAndLeftClosed) {
  const auto fifo = root() / "fifo", bound = root() / "socket";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::filesystem::current_path(root());  // an address is short
  std::strcpy(address.sun_path, "socket");
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  const auto open_descriptors = [] {
    const std::filesystem::directory_iterator open("/dev/fd");
    return std::distance(open, std::filesystem::directory_iterator());
  };
  const auto before = open_descriptors();
  for (const std::filesystem::path& path : {home(), fifo, bound, std::filesystem::path("/dev/null"),
                                            std::filesystem::path("/dev/zero")}) {
    SCOPED_TRACE(path);
    FileHandle handle = -77;
    EXPECT_EQ(FileOpenToMap(U16(path), &handle), 87u);
    EXPECT_EQ(FileGetLastError(), 87u);
    EXPECT_EQ(handle, -77);
    EXPECT_EQ(open_descriptors(), before);
  }
  close(listener);
}

// --- Reading ------------------------------------------------------------------------------------

TEST_F(FileTest, ReadingBeyondTheEndIsNoError) {
  const FileHandle handle = Opened(Make("file", std::string(40, 'x')));
  char buffer[100];
  std::uint32_t bytes_read = 77;
  EXPECT_EQ(FileRead(handle, buffer, 100, &bytes_read, nullptr), 0u);
  EXPECT_EQ(bytes_read, 40u);
  EXPECT_EQ(FileRead(handle, buffer, 100, &bytes_read, nullptr), 0u);
  EXPECT_EQ(bytes_read, 0u);
}

TEST_F(FileTest, ReadingNeedsAnOutParameter) {
  const FileHandle handle = Opened(Make("file", "contents"));
  char buffer[10];
  int context;
  EXPECT_EQ(FileRead(handle, buffer, 4, nullptr, nullptr), 87u);
  EXPECT_EQ(FileGetLastError(), 87u);
  // With a context alone nothing is read.
  EXPECT_EQ(FileRead(handle, buffer, 4, nullptr, &context), 0u);
  EXPECT_EQ(FileGetLastError(), 0u);
  EXPECT_EQ(FileRead(kInvalidFile, buffer, 4, nullptr, &context), 0u);
  EXPECT_EQ(Read(handle, 4), "cont");
}

TEST_F(FileTest, ReadingNothingNeedsNoHandle) {
  std::uint32_t bytes_read = 77;
  EXPECT_EQ(FileRead(kInvalidFile, nullptr, 0, &bytes_read, nullptr), 0u);
  EXPECT_EQ(bytes_read, 0u);
}

TEST_F(FileTest, ReadingThatFailsAnswersAnInvalidParameter) {
  char buffer[10];
  const FileHandle rows[] = {
      kInvalidFile, Opened(root(), FILE_ACCESS_READ),       // a directory
      Opened(Make("file", "contents"), FILE_ACCESS_WRITE),  // not for reading
  };
  for (const FileHandle handle : rows) {
    std::uint32_t bytes_read = 77;
    EXPECT_EQ(FileRead(handle, buffer, 4, &bytes_read, nullptr), 87u);
    EXPECT_EQ(FileGetLastError(), 87u);
    EXPECT_EQ(bytes_read, 0u);
  }
}

TEST_F(FileTest, ShortReadsAreContinuedUntilTheEnd) {
  const auto path = root() / "fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::thread writer([&path] {
    const int descriptor = open(path.c_str(), O_WRONLY);
    for (const char* const part : {"one", "two", "three"}) {
      EXPECT_GT(write(descriptor, part, std::strlen(part)), 0);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    close(descriptor);
  });
  const FileHandle handle = Opened(path, FILE_ACCESS_READ);
  EXPECT_EQ(Read(handle, 7), "onetwot");  // the count ends it
  EXPECT_EQ(Read(handle, 7), "hree");     // or the writer
  writer.join();
}

TEST_F(FileTest, AReadThatFailsOnTheWayTellsWhatItReadBefore) {
  const auto [out, in] = Pipe();
  Write(in, "abc");
  char buffer[10];
  std::uint32_t bytes_read = 77;
  EXPECT_EQ(FileRead(out, buffer, 10, &bytes_read, nullptr), 87u);  // EAGAIN
  EXPECT_EQ(bytes_read, 3u);
  EXPECT_EQ(std::string_view(buffer, 3), "abc");
}

// --- Writing ------------------------------------------------------------------------------------

TEST_F(FileTest, WritingChecksItsPointersBeforeTheHandle) {
  const auto path = Make("file", "contents");
  const FileHandle handle = Opened(path);
  std::uint32_t bytes_written = 77;
  int context;
  EXPECT_EQ(FileWrite(handle, "x", 1, nullptr, nullptr), 87u);
  EXPECT_EQ(FileGetLastError(), 87u);
  EXPECT_EQ(FileWrite(kInvalidFile, "x", 1, nullptr, nullptr), 87u);
  EXPECT_EQ(FileWrite(kInvalidFile, "x", 1, &bytes_written, nullptr), 6u);
  EXPECT_EQ(FileGetLastError(), 6u);
  EXPECT_EQ(bytes_written, 77u);
  EXPECT_EQ(FileWrite(kInvalidFile, "x", 1, nullptr, &context), 6u);
  // With a context alone nothing is written.
  EXPECT_EQ(FileWrite(handle, "x", 1, nullptr, &context), 0u);
  EXPECT_EQ(FileGetLastError(), 0u);
  EXPECT_EQ(ReadFile(path), "contents");
}

TEST_F(FileTest, AFailedWriteAnswersZeroAndAllOnesForTheBytes) {
  const FileHandle rows[] = {
      Opened(Make("file", "contents"), FILE_ACCESS_READ),  // not for writing
      Opened("/dev/full", FILE_ACCESS_WRITE),
      Closed(),
  };
  for (const FileHandle handle : rows) {
    FailToOpen();
    std::uint32_t bytes_written = 0;
    EXPECT_EQ(FileWrite(handle, "x", 1, &bytes_written, nullptr), 0u);
    EXPECT_EQ(bytes_written, 0xFFFFFFFFu);
    EXPECT_EQ(FileGetLastError(), 0u);
  }
}

TEST_F(FileTest, AShortWriteAnswersZeroToo) {
  const FileHandle in = Pipe().second;
  const std::string bytes(1 << 20, 'x');
  std::uint32_t bytes_written = 0;
  EXPECT_EQ(FileWrite(in, bytes.data(), 1 << 20, &bytes_written, nullptr), 0u);
  EXPECT_EQ(FileGetLastError(), 0u);
  EXPECT_GT(bytes_written, 0u);
  EXPECT_LT(bytes_written, 1u << 20);  // one call of the system, not continued
}

TEST_F(FileTest, WritingNothingWritesNothing) {
  std::uint32_t bytes_written = 77;
  EXPECT_EQ(FileWrite(Opened(Make("file", "x")), "", 0, &bytes_written, nullptr), 0u);
  EXPECT_EQ(bytes_written, 0u);
}

// --- Seeking ------------------------------------------------------------------------------------

TEST_F(FileTest, TheMethodSaysWhatADistanceCountsFrom) {
  const FileHandle handle = Opened(Make("file", std::string(100, 'x')));
  static constexpr struct {
    std::uint32_t method;
    std::int64_t distance;
    std::uint32_t position;
  } kRows[] = {
      {0, 10, 10},  {1, 5, 15},       {1, -3, 12}, {2, 0, 100}, {2, -1, 99},
      {2, 50, 150}, {1, 0, 150},      {3, 20, 20},  // every other method counts from the start
      {1, 2, 22},   {kAllOnes, 7, 7}, {0, 0, 0},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(::testing::Message() << row.method << ", " << row.distance);
    EXPECT_EQ(FileSeek(handle, row.distance, nullptr, row.method), row.position);
  }
}

TEST_F(FileTest, TheEndOfAFiveGigabyteFileSplitsIntoLowAndHigh) {
  std::int64_t high = 0;
  EXPECT_EQ(FileSeek(Large(), 0, &high, 2), 0x40000000u);
  EXPECT_EQ(high, 1);
}

TEST_F(FileTest, DistancesBeyondFourGigabytesAreTakenWholeOrSplit) {
  const FileHandle handle = Large();
  EXPECT_EQ(FileSeek(handle, 4 * kGiB + 5, nullptr, FILE_FROM_START), 5u);
  EXPECT_EQ(lseek(static_cast<int>(handle), 0, SEEK_CUR), 4 * kGiB + 5);
  std::int64_t high = 1;
  EXPECT_EQ(FileSeek(handle, 6, &high, FILE_FROM_START), 6u);
  EXPECT_EQ(high, 1);
  EXPECT_EQ(lseek(static_cast<int>(handle), 0, SEEK_CUR), 4 * kGiB + 6);
  high = -1;
  EXPECT_EQ(FileSeek(handle, 0, &high, FILE_FROM_END), 0x40000000u);  // 4 GiB before the end
  EXPECT_EQ(high, 0);
  high = 1;
  EXPECT_EQ(FileSeek(handle, 4 * kGiB + 7, &high, FILE_FROM_START), 7u);  // both parts count
  EXPECT_EQ(high, 2);
}

TEST_F(FileTest, ReadsAndWritesBeyondFourGigabytes) {
  const FileHandle handle = Large();
  std::int64_t high = 1;
  FileSeek(handle, kGiB - 3, &high, FILE_FROM_START);
  Write(handle, "abcdef");
  high = 1;
  FileSeek(handle, kGiB - 4, &high, FILE_FROM_START);
  EXPECT_EQ(Read(handle, 100), std::string("\0abcdef", 7));
  EXPECT_EQ(std::filesystem::file_size(root() / "large"), 5u * kGiB + 3);
}

TEST_F(FileTest, AllOnesAloneIsAPositionAndNoFailure) {
  std::int64_t high = 0;
  EXPECT_EQ(FileSeek(Large(), 4 * kGiB - 1, &high, FILE_FROM_START), FILE_SEEK_FAILED);
  EXPECT_EQ(high, 0);
}

TEST_F(FileTest, AFailedSeekIsAllOnesInBothPartsAndNoError) {
  const auto fifo = root() / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const FileHandle rows[] = {
      Opened(Make("file", "x")),  // before the start
      Opened(fifo),
  };
  for (const FileHandle handle : rows) {
    FailToOpen();
    std::int64_t high = 0;
    EXPECT_EQ(FileSeek(handle, -1, &high, FILE_FROM_START), 0xFFFFFFFFu);
    EXPECT_EQ(high, 0xFFFFFFFF);  // not -1
    EXPECT_EQ(FileGetLastError(), 0u);
    EXPECT_EQ(FileSeek(handle, -1, nullptr, FILE_FROM_START), 0xFFFFFFFFu);
  }
}

TEST_F(FileTest, SeekingOnTheInvalidHandleIsAnErrorAndLeavesTheHighPart) {
  std::int64_t high = 5;
  EXPECT_EQ(FileSeek(kInvalidFile, 0, &high, FILE_FROM_START), 0xFFFFFFFFu);
  EXPECT_EQ(FileGetLastError(), 6u);
  EXPECT_EQ(high, 5);
}

// --- Closing ------------------------------------------------------------------------------------

TEST_F(FileTest, ClosingTwiceIsAnInvalidParameter) {
  FileHandle handle = kInvalidFile;
  ASSERT_EQ(Open(Make("file", "x"), FILE_ACCESS_READ, FILE_OPEN_EXISTING, &handle), FILE_OK);
  EXPECT_EQ(FileClose(handle), 0u);
  EXPECT_EQ(FileClose(handle), 87u);
  EXPECT_EQ(FileGetLastError(), 87u);
  EXPECT_EQ(FileClose(kInvalidFile), 87u);
}

TEST_F(FileTest, ClosingDoesNotResetTheLastError) {
  FileHandle handle = kInvalidFile;
  ASSERT_EQ(Open(Make("file", "x"), FILE_ACCESS_READ, FILE_OPEN_EXISTING, &handle), FILE_OK);
  FailToOpen();
  EXPECT_EQ(FileClose(handle), 0u);
  EXPECT_EQ(FileGetLastError(), FILE_ERR_NOT_FOUND);
}

TEST_F(FileTest, AnOwnedFileIsClosedAtItsEndAndKeepsErrno) {
  int descriptor = -1;
  {
    OwnedFile file;
    EXPECT_FALSE(file);
    ASSERT_EQ(Open(Make("file", "x"), FILE_ACCESS_READ, FILE_OPEN_EXISTING, &file.handle), FILE_OK);
    EXPECT_TRUE(file);
    descriptor = file.descriptor();
    EXPECT_NE(fcntl(descriptor, F_GETFD), -1);
    errno = ENOSPC;
  }
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
  errno = ENOSPC;
  { const OwnedFile closed_by_others(descriptor); }
  EXPECT_EQ(errno, ENOSPC);
}

TEST_F(FileTest, AnOwnedFileIsClosedOnlyOnce) {
  OwnedFile file(open("/dev/null", O_RDONLY));
  EXPECT_EQ(file.Close(), FILE_OK);
  EXPECT_FALSE(file);
  EXPECT_EQ(file.Close(), FILE_OK) << "there is nothing left to close";
  EXPECT_EQ(OwnedFile(Closed()).Close(), FILE_ERR_INVALID_PARAMETER);
}

// --- Times --------------------------------------------------------------------------------------

TEST_F(FileTest, TicksCountFromTheYear1601) {
  static_assert(UnixSecondsToTicks(0) == 116444736000000000);
  static_assert(UnixSecondsToTicks(1) == 116444736010000000);
  static_assert(UnixSecondsToTicks(-11644473600) == 0);
  static_assert(UnixSecondsToTicks(1700000000) == 133444736000000000);
  static_assert(TicksToUnixSeconds(116444736000000000) == 0);
  static_assert(TicksToUnixSeconds(116444736009999999) == 0);  // a part of a second is dropped
  static_assert(TicksToUnixSeconds(116444735999999999) == -1);
  static_assert(TicksToUnixSeconds(0) == -11644473600);
  static_assert(TicksToUnixSeconds(~std::uint64_t{0}) == 1833029933770);
}

TEST_F(FileTest, TheWriteTimeOfAFileJustWrittenIsAWholeSecond) {
  const FileHandle handle = Opened(Make("file", "contents"));
  Write(handle, "x");
  std::uint64_t last_write = 0;
  EXPECT_EQ(FileGetTimes(handle, nullptr, nullptr, &last_write), 0u);
  EXPECT_EQ(last_write % 10000000, 0u);
  EXPECT_EQ(TicksToUnixSeconds(last_write), MTime(root() / "file"));
}

TEST_F(FileTest, TimesAreThoseOfStatusChangeAccessAndModification) {
  const auto path = Make("file", "contents");
  const timespec times[2] = {{1000000001, 999999999}, {1000000002, 999999999}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  struct stat status;
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  const FileHandle handle = Opened(path);
  std::uint64_t creation = 0, last_access = 0, last_write = 0;
  EXPECT_EQ(FileGetTimes(handle, &creation, &last_access, &last_write), 0u);
  EXPECT_EQ(creation, UnixSecondsToTicks(status.st_ctime));
  EXPECT_EQ(last_access, UnixSecondsToTicks(1000000001));  // cut, not rounded
  EXPECT_EQ(last_write, UnixSecondsToTicks(1000000002));
  EXPECT_EQ(FileGetTimes(handle, nullptr, nullptr, nullptr), 0u);
}

TEST_F(FileTest, TimesOfWhatIsNoOpenFileAreAnInvalidHandle) {
  for (const FileHandle handle : {kInvalidFile, Closed()}) {
    std::uint64_t last_write = 77;
    EXPECT_EQ(FileGetTimes(handle, nullptr, nullptr, &last_write), 6u);
    EXPECT_EQ(FileGetLastError(), 6u);
    EXPECT_EQ(last_write, 77u);
  }
}

TEST_F(FileTest, SettingTheWriteTimeSetsAccessAndModificationToTheWholeSecond) {
  const auto path = Make("file", "contents");
  const FileHandle handle = Opened(path);
  const std::uint64_t creation = UnixSecondsToTicks(1), last_access = UnixSecondsToTicks(2);
  for (const std::int64_t seconds : {1000000000, 0, -300000000, 2000000000}) {
    const std::uint64_t last_write = UnixSecondsToTicks(seconds) + 9999999;
    EXPECT_EQ(FileSetWriteTime(handle, &creation, &last_access, &last_write), 0u);
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mtime, seconds);
    EXPECT_EQ(status.st_atime, seconds);
    const auto time = std::filesystem::last_write_time(path).time_since_epoch();
    EXPECT_EQ(time % std::chrono::seconds(1), decltype(time)::zero());
  }
}

TEST_F(FileTest, WithoutAWriteTimeTheAnswerIsWhatErrnoHolds) {
  const auto path = Make("file", "contents");
  SetMTime(path, 1000000000);
  const FileHandle handle = Opened(path);
  const std::uint64_t other = UnixSecondsToTicks(1);
  errno = ENOENT;
  EXPECT_EQ(FileSetWriteTime(handle, &other, &other, nullptr), 2u);
  EXPECT_EQ(FileGetLastError(), 2u);
  errno = 0;
  EXPECT_EQ(FileSetWriteTime(handle, &other, &other, nullptr), 87u);
  EXPECT_EQ(FileGetLastError(), 87u);
  EXPECT_EQ(MTime(path), 1000000000);
}

TEST_F(FileTest, AWriteTimeThatCannotBeSetIsNoFailure) {
  const std::uint64_t last_write = UnixSecondsToTicks(1000000000);
  EXPECT_EQ(FileSetWriteTime(Closed(), nullptr, nullptr, &last_write), 0u);
  EXPECT_EQ(FileGetLastError(), 0u);
  EXPECT_EQ(FileSetWriteTime(kInvalidFile, nullptr, nullptr, &last_write), 6u);
  EXPECT_EQ(FileGetLastError(), 6u);
  EXPECT_EQ(FileSetWriteTime(kInvalidFile, nullptr, nullptr, nullptr), 6u);
}

// --- Cutting ------------------------------------------------------------------------------------

TEST_F(FileTest, TruncatingCutsAtThePosition) {
  const auto path = Make("file", "0123456789");
  const FileHandle handle = Opened(path);
  FileSeek(handle, 4, nullptr, FILE_FROM_START);
  EXPECT_EQ(FileTruncate(handle), 0u);
  EXPECT_EQ(ReadFile(path), "0123");
  FileSeek(handle, 6, nullptr, FILE_FROM_START);
  EXPECT_EQ(FileTruncate(handle), 0u);
  EXPECT_EQ(ReadFile(path), std::string("0123\0\0", 6));
}

TEST_F(FileTest, TruncatingWhatCannotBeCutFails) {
  const auto fifo = root() / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(FileTruncate(kInvalidFile), 6u);
  EXPECT_EQ(FileGetLastError(), 6u);
  EXPECT_EQ(FileTruncate(Opened(Make("file", "x"), FILE_ACCESS_READ)), 87u);
  EXPECT_EQ(FileGetLastError(), 87u);
  EXPECT_EQ(FileTruncate(Opened(fifo)), 87u);
}

// --- The last error -----------------------------------------------------------------------------

TEST_F(FileTest, EveryCallButClosingResetsTheLastError) {
  const auto path = Make("file", "contents");
  const FileHandle handle = Opened(path);
  const std::uint64_t time = UnixSecondsToTicks(1);
  std::uint32_t amount;
  char buffer[4];
  const std::vector<std::pair<const char*, std::function<void()>>> calls = {
      {"open", [&] { Opened(path); }},
      {"open to map",
       [&] {
         FileHandle mapped = kInvalidFile;
         FileOpenToMap(U16(path), &mapped);
         Keep(mapped);
       }},
      {"read", [&] { FileRead(handle, buffer, 4, &amount, nullptr); }},
      {"write", [&] { FileWrite(handle, buffer, 0, &amount, nullptr); }},
      {"seek", [&] { FileSeek(handle, 0, nullptr, FILE_FROM_START); }},
      {"get times", [&] { FileGetTimes(handle, nullptr, nullptr, nullptr); }},
      {"set write time", [&] { FileSetWriteTime(handle, nullptr, nullptr, &time); }},
      {"truncate", [&] { FileTruncate(handle); }},
  };
  for (const auto& [name, call] : calls) {
    FailToOpen();
    call();
    EXPECT_EQ(FileGetLastError(), 0u) << name;
  }
}

TEST_F(FileTest, EveryThreadHasALastErrorOfItsOwn) {
  FailToOpen();
  std::thread([] { EXPECT_EQ(FileGetLastError(), 0u); }).join();
  EXPECT_EQ(FileGetLastError(), FILE_ERR_NOT_FOUND);
}

}  // namespace
}  // namespace quarn::testing
