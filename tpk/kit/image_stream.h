// The image of a kit while it is being inflated: a thread of its own runs a few blocks ahead of the
// reader, and nothing is written anywhere. For reading from the front to the back, as an
// installation does with every kit that tpk has made.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <span>
#include <thread>

namespace quarn::tpk {

/// One thread reads. Memory use is constant.
class ImageStream {
 public:
  /// What stopped the inflating.
  enum class End {
    kNone,        ///< still running
    kComplete,    ///< the end of the stream
    kCutOff,      ///< the kit ends before its stream does
    kCorrupt,     ///< the compressed data makes no sense
    kUnreadable,  ///< reading the kit failed; `read_error` tells why
  };

  /// Opens the kit and begins to inflate it. Throws Failure when it cannot be opened or is no
  /// ordinary file.
  explicit ImageStream(const std::filesystem::path& kit);
  ImageStream(const ImageStream&) = delete;
  ImageStream& operator=(const ImageStream&) = delete;
  ~ImageStream();

  /// Bytes from the start of the image to the next ones to be read.
  std::uint64_t position() const noexcept { return position_; }
  /// Moves the reader to `position`. Bytes before the last ones that were read are out of reach.
  void Seek(std::uint64_t position) noexcept { position_ = position; }
  /// The next bytes, at least one and at most `count` of them, and moves on after them; waits
  /// until they are there. None at the end, after a failure, and for a position out of reach. The
  /// bytes are valid until the next call.
  std::span<const std::byte> Next(std::size_t count);

  /// Waits until the stream has ended or is as far ahead of the reader as it goes; true when it has
  /// ended, so that `size` is known.
  bool WaitAhead();

  /// Why `Next` gave no bytes; `kNone` for a position out of reach.
  End end() const;
  /// The errno of `kUnreadable`.
  int read_error() const noexcept { return read_error_; }
  /// Bytes inflated so far: the size of the image once `end` says that it is complete.
  std::uint64_t size() const;
  /// Bytes of the kit after the end of a complete stream.
  std::uint64_t trailing_size() const noexcept { return trailing_size_; }

 private:
  // Blocks that fit the cache of a core, and enough of them to keep both threads busy.
  static constexpr std::size_t kBlockSize = 1 << 18;
  static constexpr std::size_t kBlocks = 16;
  static constexpr std::size_t kInputSize = 1 << 17;

  void Work();
  /// Inflates all of the kit; returns what stopped it.
  End Inflate();
  /// False when the reader is being destroyed.
  bool WaitForBlock(std::uint64_t index);
  void Publish(std::size_t size);
  /// Bytes of the kit that were not read.
  std::uint64_t SizeLeft() const;
  std::span<std::byte> Block(std::uint64_t index) noexcept {
    return {blocks_.get() + index % kBlocks * kBlockSize, kBlockSize};
  }

  int kit_;
  std::unique_ptr<std::byte[]> blocks_;
  std::uint64_t position_ = 0;  // the reader's
  int read_error_ = 0;
  std::uint64_t trailing_size_ = 0;

  mutable std::mutex mutex_;
  std::condition_variable filled_;
  std::condition_variable freed_;
  // Under the mutex.
  std::uint64_t size_ = 0;         // bytes inflated
  std::uint64_t first_block_ = 0;  // the first one that the reader still needs
  End end_ = End::kNone;
  bool stop_ = false;

  std::thread worker_;
};

}  // namespace quarn::tpk
