#include "kit/records.h"

#include <stdexcept>

#include "core/text.h"

namespace quarn {
namespace {

/// A language that the locale cannot express equals no other. Only a damaged kit has one.
bool SameLanguage(const stdx::u16string& a, const stdx::u16string& b) {
  try {
    return CompareNoCase(a, b) == 0;
  } catch (const std::length_error&) {
    return false;
  }
}

}  // namespace

const config::ProductInfo* FindProduct(const std::vector<config::ProductInfo>& products,
                                       const stdx::u16string& language) {
  for (const config::ProductInfo& product : products) {
    if (SameLanguage(product.language, language)) return &product;
  }
  return nullptr;
}

stdx::u16string InstalledPath(const stdx::u16string& target, const stdx::u16string& name) {
  stdx::u16string relative = name;
  relative.replace_all(u"\\", u"/");
  return target + relative;
}

}  // namespace quarn
