// The three pictures of the wizard, compiled into the program: the side picture of its pages and
// the icons of its messages. They are drawn by tools/pictures/draw.py; a toolkit decodes them.
#pragma once

#include <cstddef>

namespace quarn {

/// The bytes of a picture file. They live as long as the program and never change, so that any
/// thread may read them at any time, static initialisation included; nobody owns or frees them.
struct Picture {
  const unsigned char* bytes;  ///< never null
  std::size_t size;            ///< number of bytes
};

/// The left column of the pages: BMP, 158 x 286 pixels, 8 bits per pixel with a palette of 256
/// colours, uncompressed, rows from the bottom up. No transparency.
Picture SidePicture();

/// The icon of error messages: PNG, 125 x 125 pixels, 8-bit RGBA, transparent around the shape.
Picture ErrorPicture();

/// The icon of question messages: PNG, 256 x 256 pixels, 8-bit RGBA, transparent around the shape.
Picture QuestionPicture();

}  // namespace quarn
