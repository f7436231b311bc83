#include "tpk/kit/kit_tables.h"

#include "tpk/text/cancel.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {

namespace fs = std::filesystem;

KitTables TablesOf(const OpenedKit& kit) {
  KitTables tables{.single_product = kit.trace().single_product,
                   .products = kit.products(),
                   .files = {},
                   .data_area = kit.trace().data_area};
  tables.files.reserve(kit.files().size());
  for (const KitData::FileData& file : kit.files()) {
    tables.files.push_back({file.name, file.last_write_time, file.data_offset, file.data_size});
  }
  return tables;
}

KitTables ReadTables(const fs::path& kit, const fs::path& temporary) {
  return TablesOf(*OpenKit(kit, temporary));
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
