#include "tpk/kit/inflater.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/support/kit_builder.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

using tpk::Inflater;

class InflaterTest : public ScratchTest {
 protected:
  struct Result {
    Inflater::Status status;
    std::string bytes;
    std::size_t input_left;
  };

  /// Gives the stream in pieces of `input_step` bytes and takes pieces of `output_step`. Ends when
  /// the stream does, or when a call without input puts out nothing.
  static Result InflateInPieces(const std::string& stream, std::size_t input_step,
                                std::size_t output_step) {
    Inflater inflater;
    std::string bytes;
    std::vector<std::byte> buffer(output_step);
    std::span<const std::byte> rest = std::as_bytes(std::span(stream));
    std::span<const std::byte> input;
    for (;;) {
      if (input.empty()) {
        input = rest.first(std::min(input_step, rest.size()));
        rest = rest.subspan(input.size());
      }
      const bool without_input = input.empty();
      std::span<std::byte> output(buffer);
      const Inflater::Status status = inflater.Inflate(input, output);
      const std::size_t count = buffer.size() - output.size();
      bytes.append(reinterpret_cast<const char*>(buffer.data()), count);
      if (status != Inflater::Status::kMore || (without_input && count == 0)) {
        return {status, bytes, input.size() + rest.size()};
      }
    }
  }
};

std::string Mixture(std::size_t size, std::uint32_t seed) {
  std::mt19937 random(seed);
  std::string bytes;
  while (bytes.size() < size) {
    bytes += "line " + std::to_string(random() % 1000) + '\n';
    if (random() % 50 == 0) {
      for (int i = 0; i < 500; ++i) bytes += static_cast<char>(random());
    }
  }
  bytes.resize(size);
  return bytes;
}

TEST_F(InflaterTest, PiecesOfAllSizesGiveTheSameBytes) {
  const std::string bytes = Mixture(200000, 1);
  const std::string stream = Deflate(bytes);
  for (const std::size_t input_step : {std::size_t{1}, std::size_t{1000}, stream.size()}) {
    for (const std::size_t output_step : {std::size_t{1}, std::size_t{777}, std::size_t{1} << 20}) {
      const Result result = InflateInPieces(stream, input_step, output_step);
      EXPECT_EQ(result.status, Inflater::Status::kEnd);
      EXPECT_TRUE(result.bytes == bytes) << input_step << ' ' << output_step;
      EXPECT_EQ(result.input_left, 0u);
    }
  }
}

TEST_F(InflaterTest, AnEndStaysAnEndAndLeavesWhatLiesBehindIt) {
  const std::string stream = Deflate("bytes") + "what comes after";
  Inflater inflater;
  std::vector<std::byte> buffer(100);
  std::span<const std::byte> input = std::as_bytes(std::span(stream));
  std::span<std::byte> output(buffer);
  Inflater::Status status = Inflater::Status::kMore;
  while (status == Inflater::Status::kMore) status = inflater.Inflate(input, output);
  EXPECT_EQ(status, Inflater::Status::kEnd);
  EXPECT_EQ(output.size(), 95u);
  EXPECT_EQ(inflater.Inflate(input, output), Inflater::Status::kEnd);
  EXPECT_EQ(output.size(), 95u);
  EXPECT_EQ(inflater.taken_behind_end() + input.size(), 16u) << "all of it is accounted for";
}

TEST_F(InflaterTest, AStreamThatIsCutOffGivesItsBeginningAndNoError) {
  const std::string bytes = Mixture(100000, 2);
  const std::string stream = Deflate(bytes);
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, stream.size() / 2, stream.size() - 1}) {
    const Result result = InflateInPieces(stream.substr(0, size), 1000, 1000);
    EXPECT_EQ(result.status, Inflater::Status::kMore) << size;
    EXPECT_TRUE(bytes.starts_with(result.bytes)) << size;
  }
}

TEST_F(InflaterTest, CorruptStreamsAreReported) {
  for (const std::string& stream :
       {std::string("\x07"), std::string("\x01\x05\x00\x05\x00hello", 10),
        std::string("\xfd\xff\xff\xff\xff", 5), std::string("\x4b\x04\x22\x00\x00", 5)}) {
    EXPECT_EQ(InflateInPieces(stream, 100, 100).status, Inflater::Status::kCorrupt);
  }
}

TEST_F(InflaterTest, AnyWritersStreamInflates) {
  std::mt19937 random(Seed());
  const auto below = [&](std::size_t limit) { return random() % limit; };
  for (int round = 0; round < 100; ++round) {
    const std::string bytes = Mixture(below(100000), static_cast<std::uint32_t>(random()));
    const DeflateOptions options{.level = static_cast<int>(below(10)),
                                 .strategy = static_cast<int>(below(5)),
                                 .window_bits = static_cast<int>(9 + below(7)),
                                 .memory_level = static_cast<int>(1 + below(9)),
                                 .flush_every = below(2) == 0 ? 0 : 1 + below(50000)};
    const Result result =
        InflateInPieces(Deflate(bytes, options), 1 + below(40000), 1 + below(40000));
    ASSERT_EQ(result.status, Inflater::Status::kEnd);
    ASSERT_TRUE(result.bytes == bytes);
  }
}

}  // namespace
}  // namespace quarn::testing
