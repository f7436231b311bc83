// The tables at the start of an image, in their order there (docs/kit-format.md).
// The wizard and the kit tool read them here.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "core/basic_string.h"
#include "kit/image_reader.h"
#include "kit/records.h"

namespace quarn {

/// How far a reading of the tables has come. After a failure it tells where.
struct TablesTrace {
  enum class Part {
    kHeader,  ///< a short one holds the product
    kProductCount,
    kProduct,
    kFileCount,
    kFile,
    kEnd,
  };
  Part part = Part::kHeader;
  std::uint32_t number = 0;     ///< of the product or file, from 1
  std::uint32_t count = 0;      ///< of all products or files
  bool single_product = false;  ///< the short header: one product, in English
  std::uint32_t data_area = 0;  ///< known at the end: the first position after the tables
};

/// A count and as many records, each of at least `min_size` bytes; `take` gets them one by one.
template <class FileSystem, class Take>
void ReadRecords(ImageReader<FileSystem>& image, std::uint32_t min_size, TablesTrace::Part counting,
                 TablesTrace::Part taking, TablesTrace& trace, Take take) {
  trace.part = counting;
  trace.count = image.ReadCount(min_size);
  trace.part = taking;
  for (trace.number = 1; trace.number <= trace.count; ++trace.number) {
    RecordBody body = image.ReadRecord();
    take(body);
  }
}

/// Appends what the tables of `image` hold to `products` and `files`, whose offsets count from the
/// start of the image then. Throws as the reader does; what was read before stays in both.
template <class FileSystem, class File>
void ReadImageTables(ImageReader<FileSystem>& image, std::vector<config::ProductInfo>& products,
                     std::vector<File>& files, TablesTrace& trace) {
  using Part = TablesTrace::Part;
  trace = {};
  trace.single_product = image.ReadU32() == 0;
  if (trace.single_product) {
    config::ProductInfo product;
    product.language = u"en";
    product.name = image.ReadText();
    product.provider = image.ReadText();
    product.description = image.ReadText();
    products.push_back(std::move(product));
  } else {
    ReadRecords(image, kMinProductRecord, Part::kProductCount, Part::kProduct, trace,
                [&products](RecordBody& body) {
                  config::ProductInfo product;
                  product.language = body.TakeText();
                  product.name = body.TakeText();
                  product.provider = body.TakeText();
                  product.description = body.TakeText();
                  products.push_back(std::move(product));
                });
  }
  ReadRecords(image, kMinFileRecord, Part::kFileCount, Part::kFile, trace,
              [&files](RecordBody& body) {
                File file;
                file.name = body.TakeText();
                file.last_write_time = body.TakeU64();
                file.data_offset = body.TakeU32();
                file.data_size = body.TakeU32();
                files.push_back(std::move(file));
              });
  trace.part = Part::kEnd;
  // The data begins where the tables end. Positions are 32-bit and wrap.
  trace.data_area = image.Position();
  for (File& file : files) file.data_offset += trace.data_area;
}

}  // namespace quarn
