// Inflates one raw deflate stream from memory to memory, a piece at a time, with the fastest
// library that the build found. One implementation per library.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

namespace quarn::tpk {

/// One stream. Any thread, one at a time. Memory use is constant.
class Inflater {
 public:
  enum class Status {
    kMore,     ///< the input is used up or the output is full
    kEnd,      ///< the stream has ended and all of it was put out; so does every further call
    kCorrupt,  ///< no further call makes sense
  };

  Inflater();
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;
  ~Inflater();

  /// Takes bytes from the front of `input` and puts bytes to the front of `output`; both are
  /// shortened by that. Further calls, even without input, put out what is still waiting inside: if
  /// such a call puts out nothing, the stream is cut off.
  Status Inflate(std::span<const std::byte>& input, std::span<std::byte>& output);

  /// Once the stream has ended: how many bytes after its end were taken from the input.
  std::size_t taken_behind_end() const noexcept;

 private:
  struct Native;
  std::unique_ptr<Native> native_;
};

}  // namespace quarn::tpk
