#include "tpk/kit/image_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tpk/kit/inflater.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

int OpenOrdinaryFile(const std::filesystem::path& path) {
  // A pipe without a writer must not make us wait.
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor == -1) throw CannotReadKit(path);
  struct stat status;
  if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) return descriptor;
  close(descriptor);
  throw Failure(ExitCode::kInputOutput, "not-a-file",
                Printable(path.native()) + " is not an ordinary file");
}

}  // namespace

ImageStream::ImageStream(const std::filesystem::path& kit)
    : kit_(OpenOrdinaryFile(kit)),
      blocks_(std::make_unique_for_overwrite<std::byte[]>(kBlocks * kBlockSize)),
      worker_(&ImageStream::Work, this) {}

ImageStream::~ImageStream() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  freed_.notify_one();
  worker_.join();
  close(kit_);
}

std::span<const std::byte> ImageStream::Next(std::size_t count) {
  const std::uint64_t index = position_ / kBlockSize;
  std::unique_lock lock(mutex_);
  if (index < first_block_) return {};
  if (index != first_block_) {
    first_block_ = index;
    freed_.notify_one();
  }
  filled_.wait(lock, [this] { return size_ > position_ || end_ != End::kNone; });
  if (size_ <= position_) return {};
  const std::uint64_t offset = position_ % kBlockSize;
  const std::uint64_t available = std::min<std::uint64_t>(size_ - position_, kBlockSize - offset);
  const std::size_t taken = std::min<std::size_t>(count, static_cast<std::size_t>(available));
  position_ += taken;
  return Block(index).subspan(static_cast<std::size_t>(offset), taken);
}

bool ImageStream::WaitAhead() {
  std::unique_lock lock(mutex_);
  filled_.wait(lock, [this] {
    return end_ != End::kNone || size_ >= (first_block_ + kBlocks) * kBlockSize;
  });
  return end_ != End::kNone;
}

ImageStream::End ImageStream::end() const {
  const std::lock_guard lock(mutex_);
  return end_;
}

std::uint64_t ImageStream::size() const {
  const std::lock_guard lock(mutex_);
  return size_;
}

void ImageStream::Work() {
  const End end = Inflate();
  {
    const std::lock_guard lock(mutex_);
    end_ = end;
  }
  filled_.notify_one();
}

ImageStream::End ImageStream::Inflate() {
  Inflater inflater;
  const auto buffer = std::make_unique_for_overwrite<std::byte[]>(kInputSize);
  std::span<const std::byte> input;
  bool all_read = false;
  for (std::uint64_t index = 0; WaitForBlock(index); ++index) {
    std::span<std::byte> output = Block(index);
    while (!output.empty()) {
      if (input.empty() && !all_read) {
        const ssize_t amount = read(kit_, buffer.get(), kInputSize);
        if (amount < 0 && errno == EINTR) continue;
        if (amount < 0) {
          read_error_ = errno;
          Publish(kBlockSize - output.size());
          return End::kUnreadable;
        }
        all_read = amount == 0;
        input = {buffer.get(), static_cast<std::size_t>(amount)};
      }
      const std::size_t room = output.size();
      const Inflater::Status status = inflater.Inflate(input, output);
      const bool cut_off = all_read && input.empty() && output.size() == room;
      if (status == Inflater::Status::kMore && !cut_off) continue;
      Publish(kBlockSize - output.size());
      if (status == Inflater::Status::kCorrupt) return End::kCorrupt;
      if (status == Inflater::Status::kMore) return End::kCutOff;
      trailing_size_ = inflater.taken_behind_end() + input.size() + SizeLeft();
      return End::kComplete;
    }
    Publish(kBlockSize);
  }
  return End::kCutOff;  // the reader is being destroyed
}

std::uint64_t ImageStream::SizeLeft() const {
  struct stat status;
  const off_t at = lseek(kit_, 0, SEEK_CUR);
  if (at < 0 || fstat(kit_, &status) != 0 || status.st_size < at) return 0;
  return static_cast<std::uint64_t>(status.st_size - at);
}

bool ImageStream::WaitForBlock(std::uint64_t index) {
  std::unique_lock lock(mutex_);
  freed_.wait(lock, [&] { return stop_ || index < first_block_ + kBlocks; });
  return !stop_;
}

void ImageStream::Publish(std::size_t size) {
  {
    const std::lock_guard lock(mutex_);
    size_ += size;
  }
  filled_.notify_one();
}

}  // namespace quarn::tpk
