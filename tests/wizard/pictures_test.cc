// The pictures as the toolkits get them: format, size and soundness of the bytes in the program.
// That they are what the drawings show is checked by "tools/pictures/draw.py --check".
#include "wizard/pictures.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "tests/support/scratch.h"

namespace quarn {
namespace {

using Bytes = std::vector<unsigned char>;

std::uint32_t Little(const unsigned char* at, int bytes) {
  std::uint32_t value = 0;
  for (int i = bytes - 1; i >= 0; --i) value = value << 8 | at[i];
  return value;
}

std::uint32_t Big32(const unsigned char* at) {
  return std::uint32_t{at[0]} << 24 | std::uint32_t{at[1]} << 16 | std::uint32_t{at[2]} << 8 |
         at[3];
}

// --- The side picture ----------------------------------------------------------------------------

constexpr std::size_t kSideWidth = 158, kSideHeight = 286;
constexpr std::size_t kSideStride = 160;  // rows are padded to a multiple of four bytes
constexpr std::size_t kPaletteStart = 14 + 40, kSidePixels = kPaletteStart + 256 * 4;

TEST(SidePicture, IsABitmapOfExactly46838Bytes) {
  const Picture side = SidePicture();
  ASSERT_EQ(side.size, 46838u);
  EXPECT_EQ(side.bytes[0], 'B');
  EXPECT_EQ(side.bytes[1], 'M');
  EXPECT_EQ(Little(side.bytes + 2, 4), side.size);
  EXPECT_EQ(Little(side.bytes + 6, 4), 0u) << "reserved";
  EXPECT_EQ(Little(side.bytes + 10, 4), kSidePixels);
  EXPECT_EQ(side.size, kSidePixels + kSideStride * kSideHeight);
}

TEST(SidePicture, HeaderSaysEightBitsUncompressedFromTheBottomUp) {
  ASSERT_GE(SidePicture().size, kSidePixels);
  const unsigned char* const header = SidePicture().bytes + 14;
  EXPECT_EQ(Little(header, 4), 40u) << "size of the header";
  EXPECT_EQ(Little(header + 4, 4), kSideWidth);
  EXPECT_EQ(static_cast<std::int32_t>(Little(header + 8, 4)), std::int32_t{kSideHeight})
      << "a negative height would mean rows from the top down";
  EXPECT_EQ(Little(header + 12, 2), 1u) << "planes";
  EXPECT_EQ(Little(header + 14, 2), 8u) << "bits per pixel";
  EXPECT_EQ(Little(header + 16, 4), 0u) << "compression";
  EXPECT_EQ(Little(header + 20, 4), kSideStride * kSideHeight);
  EXPECT_EQ(Little(header + 32, 4), 256u) << "colours";
}

TEST(SidePicture, PaletteHas256DifferentColoursAndNextToAllAreInUse) {
  ASSERT_EQ(SidePicture().size, kSidePixels + kSideStride * kSideHeight);
  const unsigned char* const bytes = SidePicture().bytes;
  std::set<std::uint32_t> colors;
  for (std::size_t i = 0; i < 256; ++i) {
    colors.insert(Little(bytes + kPaletteStart + 4 * i, 3));
    EXPECT_EQ(bytes[kPaletteStart + 4 * i + 3], 0) << "reserved byte of entry " << i;
  }
  EXPECT_EQ(colors.size(), 256u);
  std::set<unsigned char> used;
  for (std::size_t y = 0; y < kSideHeight; ++y) {
    const unsigned char* const row = bytes + kSidePixels + y * kSideStride;
    used.insert(row, row + kSideWidth);
    EXPECT_EQ(Little(row + kSideWidth, 2), 0u) << "padding of row " << y;
  }
  EXPECT_GE(used.size(), 250u);
}

// The sum of the channels over a row of the file, by the palette.
std::uint32_t BrightnessOfStoredRow(std::size_t row) {
  const unsigned char* const bytes = SidePicture().bytes;
  std::uint32_t sum = 0;
  for (std::size_t x = 0; x < kSideWidth; ++x) {
    const std::size_t index = bytes[kSidePixels + row * kSideStride + x];
    const unsigned char* const color = bytes + kPaletteStart + 4 * index;
    sum += std::uint32_t{color[0]} + color[1] + color[2];
  }
  return sum;
}

TEST(SidePicture, LightSkyIsStoredLastAndDarkGroundFirst) {
  ASSERT_EQ(SidePicture().size, kSidePixels + kSideStride * kSideHeight);
  EXPECT_GT(BrightnessOfStoredRow(kSideHeight - 1), 2 * BrightnessOfStoredRow(0));
}

// --- The icons -----------------------------------------------------------------------------------

struct Chunk {
  std::string kind;
  Bytes data;
  bool crc_right;
};

// The chunks of a PNG, or nothing if its signature or the length of a chunk is wrong.
std::optional<std::vector<Chunk>> ReadChunks(const Picture& png) {
  constexpr std::array<unsigned char, 8> kSignature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  const Bytes bytes(png.bytes, png.bytes + png.size);
  if (bytes.size() < 8 || !std::equal(kSignature.begin(), kSignature.end(), bytes.begin())) {
    return std::nullopt;
  }
  std::vector<Chunk> chunks;
  for (std::size_t at = 8; at != bytes.size();) {
    if (bytes.size() - at < 12) return std::nullopt;
    const std::uint32_t length = Big32(&bytes[at]);
    if (bytes.size() - at - 12 < length) return std::nullopt;
    const unsigned char* const kind = &bytes[at + 4];
    const uLong crc = crc32(0, kind, length + 4);
    chunks.push_back(
        {{kind, kind + 4}, {kind + 4, kind + 4 + length}, crc == Big32(kind + 4 + length)});
    at += 12 + length;
  }
  return chunks;
}

// The filtered rows: what all IDAT chunks inflate to, or nothing if they are damaged or go on.
std::optional<Bytes> Inflate(const std::vector<Chunk>& chunks, std::size_t expected_size) {
  Bytes packed;
  for (const Chunk& chunk : chunks) {
    if (chunk.kind == "IDAT") packed.insert(packed.end(), chunk.data.begin(), chunk.data.end());
  }
  Bytes rows(expected_size + 1);  // room to notice a surplus
  uLongf size = static_cast<uLongf>(rows.size());
  uLong used = static_cast<uLong>(packed.size());
  if (uncompress2(rows.data(), &size, packed.data(), &used) != Z_OK || used != packed.size()) {
    return std::nullopt;
  }
  rows.resize(size);
  return rows;
}

// The pixels (RGBA, row by row) of a picture of this width from its filtered rows.
std::optional<Bytes> Unfilter(const Bytes& rows, std::size_t width) {
  const std::size_t stride = 4 * width;
  Bytes pixels;
  for (std::size_t start = 0; start < rows.size(); start += stride + 1) {
    for (std::size_t i = 0; i < stride; ++i) {
      const bool first_row = start == 0, first_pixel = i < 4;
      const std::size_t here = pixels.size();
      const int left = first_pixel ? 0 : pixels[here - 4];
      const int above = first_row ? 0 : pixels[here - stride];
      const int corner = first_row || first_pixel ? 0 : pixels[here - stride - 4];
      int guess = 0;
      switch (rows[start]) {
        case 0:
          break;
        case 1:
          guess = left;
          break;
        case 2:
          guess = above;
          break;
        case 3:
          guess = (left + above) / 2;
          break;
        case 4: {
          const int to_left = std::abs(above - corner), to_above = std::abs(left - corner);
          const int to_corner = std::abs(left + above - 2 * corner);
          guess = to_left <= to_above && to_left <= to_corner ? left
                  : to_above <= to_corner                     ? above
                                                              : corner;
          break;
        }
        default:
          return std::nullopt;
      }
      pixels.push_back(static_cast<unsigned char>(rows[start + 1 + i] + guess));
    }
  }
  return pixels;
}

struct IconCase {
  const char* name;
  Picture (*get)();
  std::size_t file_size;  ///< bytes
  std::size_t side;       ///< width and height in pixels
};

void PrintTo(const IconCase& icon, std::ostream* out) { *out << icon.name; }

class IconPicture : public testing::ScratchTest, public ::testing::WithParamInterface<IconCase> {
 protected:
  // The icon's pixels (RGBA, row by row); empty, with a failure, if it cannot be decoded.
  Bytes Decode() const {
    const auto chunks = ReadChunks(GetParam().get());
    const std::size_t side = GetParam().side, expected = side * (4 * side + 1);
    const auto rows = chunks ? Inflate(*chunks, expected) : std::nullopt;
    if (!rows || rows->size() != expected) {
      ADD_FAILURE() << "the rows cannot be read, or are not " << expected << " bytes";
      return {};
    }
    const auto pixels = Unfilter(*rows, side);
    if (!pixels) ADD_FAILURE() << "a row has an unknown filter";
    return pixels.value_or(Bytes{});
  }
};

TEST_P(IconPicture, HasExactlyItsSize) { EXPECT_EQ(GetParam().get().size, GetParam().file_size); }

TEST_P(IconPicture, ConsistsOfSoundChunksInOrder) {
  const auto chunks = ReadChunks(GetParam().get());
  ASSERT_TRUE(chunks);
  ASSERT_GE(chunks->size(), 3u);
  EXPECT_EQ(chunks->front().kind, "IHDR");
  EXPECT_EQ(chunks->back().kind, "IEND");
  EXPECT_TRUE(chunks->back().data.empty());
  for (const Chunk& chunk : *chunks) EXPECT_TRUE(chunk.crc_right) << chunk.kind;
}

TEST_P(IconPicture, HeaderSaysEightBitRgbaNotInterlaced) {
  const auto chunks = ReadChunks(GetParam().get());
  ASSERT_TRUE(chunks);
  const Bytes& header = chunks->front().data;
  ASSERT_EQ(header.size(), 13u);
  EXPECT_EQ(Big32(&header[0]), GetParam().side) << "width";
  EXPECT_EQ(Big32(&header[4]), GetParam().side) << "height";
  EXPECT_EQ(header[8], 8) << "bits per channel";
  EXPECT_EQ(header[9], 6) << "colour type";
  EXPECT_EQ(header[10], 0) << "compression";
  EXPECT_EQ(header[11], 0) << "filter method";
  EXPECT_EQ(header[12], 0) << "interlace";
}

TEST_P(IconPicture, GroundIsTransparentShapeOpaqueSignWhite) {
  const Bytes pixels = Decode();
  ASSERT_FALSE(pixels.empty());
  const std::size_t side = GetParam().side;
  const auto alpha = [&](std::size_t x, std::size_t y) { return pixels[4 * (y * side + x) + 3]; };
  for (std::size_t i = 0; i < side; ++i) {
    EXPECT_EQ(alpha(i, 0), 0) << "top, column " << i;
    EXPECT_EQ(alpha(i, side - 1), 0) << "bottom, column " << i;
    EXPECT_EQ(alpha(0, i), 0) << "left, row " << i;
    EXPECT_EQ(alpha(side - 1, i), 0) << "right, row " << i;
  }
  std::size_t white = 0, opaque = 0;
  for (std::size_t at = 0; at < pixels.size(); at += 4) {
    opaque += pixels[at + 3] == 255;
    white += Big32(&pixels[at]) == 0xFFFFFFFFu;
  }
  EXPECT_GT(opaque, side * side / 2) << "the shape fills most of the picture";
  EXPECT_GT(white, opaque / 20) << "the sign on it is white";
  EXPECT_LT(white, opaque / 3);
}

TEST_P(IconPicture, EveryRowOfTheShapeHasSmoothEdges) {
  const Bytes pixels = Decode();
  ASSERT_FALSE(pixels.empty());
  const std::size_t side = GetParam().side;
  for (std::size_t y = 0; y < side; ++y) {
    std::size_t opaque = 0, partial = 0;
    for (std::size_t x = 0; x < side; ++x) {
      const int alpha = pixels[4 * (y * side + x) + 3];
      opaque += alpha == 255;
      partial += alpha > 0 && alpha < 255;
    }
    EXPECT_TRUE(opaque == 0 || partial >= 2) << "row " << y;
  }
}

INSTANTIATE_TEST_SUITE_P(All, IconPicture,
                         ::testing::Values(IconCase{"Error", ErrorPicture, 15068, 125},
                                           IconCase{"Question", QuestionPicture, 15113, 256}),
                         [](const ::testing::TestParamInfo<IconCase>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
}  // namespace quarn
