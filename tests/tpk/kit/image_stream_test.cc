#include "tpk/kit/image_stream.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>

#include "tests/support/kit_builder.h"
#include "tests/support/scratch.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::Deflate;
using testing::Seed;
using testing::WriteFile;

class ImageStreamTest : public testing::ScratchTest {
 protected:
  /// 10 MB, more than the stream ever holds, in which the bytes at any two positions differ.
  ImageStreamTest() {
    std::mt19937 random(5);
    for (std::uint32_t i = 0; image_.size() < 10'000'000; ++i) {
      image_ += std::to_string(i) + std::string(random() % 30, 'x');
    }
  }

  fs::path Kit(const std::string& bytes) {
    WriteFile(root() / "kit.tpk", bytes);
    return root() / "kit.tpk";
  }

  static std::string Read(ImageStream& stream, std::size_t count) {
    std::string bytes;
    while (bytes.size() < count) {
      const auto next = stream.Next(count - bytes.size());
      if (next.empty()) break;
      bytes.append(reinterpret_cast<const char*>(next.data()), next.size());
    }
    return bytes;
  }

  std::string image_;
};

TEST_F(ImageStreamTest, GivesTheImageFromFrontToBack) {
  ImageStream stream(Kit(Deflate(image_)));
  EXPECT_EQ(Read(stream, image_.size() + 1), image_);
  EXPECT_EQ(stream.end(), ImageStream::End::kComplete);
  EXPECT_EQ(stream.size(), image_.size());
  EXPECT_EQ(stream.position(), image_.size());
  EXPECT_EQ(stream.trailing_size(), 0u);
  EXPECT_TRUE(stream.Next(1).empty());
}

TEST_F(ImageStreamTest, AnyWayForwardFindsItsPlace) {
  std::mt19937 random(Seed());
  const fs::path kit = Kit(Deflate(image_));
  for (int round = 0; round < 20; ++round) {
    ImageStream stream(kit);
    std::size_t position = 0;
    while (position < image_.size()) {
      position += random() % (random() % 2 != 0 ? 1000 : 3'000'000);
      const std::size_t count = random() % 600'000;
      stream.Seek(position);
      const std::string expected =
          position < image_.size() ? image_.substr(position, count) : std::string();
      ASSERT_EQ(Read(stream, count), expected) << position << " + " << count;
      position += count;
    }
  }
}

TEST_F(ImageStreamTest, WhatLiesBehindTheReaderIsOutOfReach) {
  ImageStream stream(Kit(Deflate(image_)));
  stream.Seek(9'000'000);
  EXPECT_FALSE(stream.Next(1).empty());
  stream.Seek(0);
  EXPECT_TRUE(stream.Next(1).empty());
}

TEST_F(ImageStreamTest, BeingLeftInTheMiddleIsFine) {
  const fs::path kit = Kit(Deflate(image_));
  for (const std::size_t count : {0u, 1u, 1'000'000u}) {
    ImageStream stream(kit);
    EXPECT_EQ(Read(stream, count).size(), count);
  }
}

TEST_F(ImageStreamTest, TellsWhyItStopped) {
  const std::string kit = Deflate("some text that is packed, some text that is packed");
  std::string corrupt = kit;
  corrupt[0] = 7;  // a kind of block that does not exist
  const struct {
    std::string bytes;
    ImageStream::End end;
    std::uint64_t trailing;
  } rows[] = {
      {kit, ImageStream::End::kComplete, 0},
      {kit + "after.", ImageStream::End::kComplete, 6},
      {kit + std::string(300'000, 'x'), ImageStream::End::kComplete, 300'000},
      {kit.substr(0, kit.size() - 1), ImageStream::End::kCutOff, 0},
      {kit.substr(0, 1), ImageStream::End::kCutOff, 0},
      {"", ImageStream::End::kCutOff, 0},
      {corrupt, ImageStream::End::kCorrupt, 0},
  };
  for (const auto& row : rows) {
    ImageStream stream(Kit(row.bytes));
    EXPECT_TRUE(stream.WaitAhead());
    EXPECT_EQ(stream.end(), row.end) << row.bytes.size();
    EXPECT_EQ(stream.trailing_size(), row.trailing) << row.bytes.size();
  }
}

TEST_F(ImageStreamTest, WaitingAheadEndsWhenTheBlocksAreFull) {
  ImageStream stream(Kit(Deflate(image_)));
  EXPECT_FALSE(stream.WaitAhead());
  EXPECT_LT(stream.size(), image_.size());
  EXPECT_EQ(Read(stream, image_.size()), image_);
}

TEST_F(ImageStreamTest, OnlyOrdinaryFilesAreOpened) {
  mkfifo((root() / "pipe").c_str(), 0600);
  for (const fs::path& path : {root() / "nowhere", root(), root() / "pipe"}) {
    EXPECT_THROW(ImageStream{path}, Failure) << path;
  }
}

}  // namespace
}  // namespace quarn::tpk
