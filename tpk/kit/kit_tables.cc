#include "tpk/kit/kit_tables.h"

#include "kit/image_reader.h"
#include "tpk/kit/open_kit.h"
#include "tpk/text/cancel.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

template <class Kit>
KitTables TablesOf(const Kit& kit) {
  KitTables tables;
  tables.products = kit.products();
  // Reading stops where the tables do.
  tables.data_area =
      Kit::FileSystemType::FileSeek(kit.image_handle(), 0, nullptr, FILE_FROM_CURRENT);
  tables.files.reserve(kit.files().size());
  for (const auto& file : kit.files()) {
    tables.files.push_back({file.name, file.last_write_time, file.data_offset, file.data_size});
  }
  return tables;
}

/// The first field of the image, which the reader does not keep.
bool HasSingleProduct(const fs::path& kit) {
  ImageStream stream(kit);
  unsigned char layout[4] = {};
  for (unsigned char& byte : layout) {
    const auto next = stream.Next(1);
    if (!next.empty()) byte = static_cast<unsigned char>(next[0]);
  }
  return U32FromBytes(layout) == 0;
}

}  // namespace

KitTables ReadTables(const fs::path& path) {
  KitTables tables = WithKit(path, [](const auto& kit) { return TablesOf(kit); });
  tables.single_product = HasSingleProduct(path);
  return tables;
}

StreamEnd ReadToEnd(const fs::path& kit) {
  ImageStream stream(kit);
  while (!stream.Next(1 << 20).empty()) ThrowIfCancelled();
  if (stream.end() == ImageStream::End::kUnreadable) {
    throw CannotReadKit(kit, stream.read_error());
  }
  return {stream.end(), stream.size(), stream.trailing_size()};
}

}  // namespace quarn::tpk
