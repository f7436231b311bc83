#include "tpk/kit/kit_facts.h"

#include "kit/image_reader.h"
#include "tpk/kit/kit_data.h"
#include "tpk/text/cancel.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

template <class Kit>
KitFacts FactsOf(const Kit& kit) {
  KitFacts facts;
  facts.products = kit.products();
  // Reading stops where the tables do.
  facts.data_area =
      Kit::FileSystemType::FileSeek(kit.image_handle(), 0, nullptr, FILE_FROM_CURRENT);
  facts.files.reserve(kit.files().size());
  for (const auto& file : kit.files()) {
    facts.files.push_back({file.name, file.last_write_time, file.data_offset, file.data_size});
  }
  return facts;
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

KitFacts ReadFacts(const fs::path& path) {
  KitFacts facts = WithKit(path, [](const auto& kit) { return FactsOf(kit); });
  facts.single_product = HasSingleProduct(path);
  return facts;
}

StreamFacts ReadToEnd(const fs::path& kit) {
  ImageStream stream(kit);
  while (!stream.Next(1 << 20).empty()) ThrowIfCancelled();
  if (stream.end() == ImageStream::End::kUnreadable) {
    throw SystemFailure("cannot read the kit " + Printable(kit.native()), stream.read_error());
  }
  return {stream.end(), stream.size(), stream.trailing_size()};
}

}  // namespace quarn::tpk
