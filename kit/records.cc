#include "kit/records.h"

#include "core/text.h"

namespace quarn {

const config::ProductInfo* FindProduct(const std::vector<config::ProductInfo>& products,
                                       const stdx::u16string& language) {
  for (const config::ProductInfo& product : products) {
    if (CompareNoCase(product.language, language) == 0) return &product;
  }
  return nullptr;
}

stdx::u16string InstalledPath(const stdx::u16string& target, const stdx::u16string& name) {
  stdx::u16string relative = name;
  relative.replace_all(u"\\", u"/");
  return target + relative;
}

}  // namespace quarn
