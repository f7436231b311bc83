#include "config/no_case_index.h"

#include <cctype>
#include <stdexcept>

#include "core/text.h"

namespace quarn {
namespace {

/// The same for texts that are equal, and only for them.
stdx::string Fold(const stdx::u16string& text) {
  stdx::string folded;
  try {
    folded = ToNarrow(text);
  } catch (const std::length_error&) {
    // Its units, behind a zero byte: no narrow text begins with one.
    folded.push_back('\0');
    folded.append(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
    return folded;
  }
  for (char& byte : folded) {
    byte = static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
  }
  return folded;
}

}  // namespace

std::optional<std::size_t> NoCaseIndex::Find(const stdx::u16string& text) const {
  const auto it = places_.find(Fold(text));
  if (it == places_.end()) return std::nullopt;
  return it->second;
}

std::pair<std::size_t, bool> NoCaseIndex::Insert(const stdx::u16string& text) {
  const auto [it, inserted] = places_.try_emplace(Fold(text), places_.size());
  return {it->second, inserted};
}

void NoCaseIndex::Erase(std::size_t place) {
  std::erase_if(places_, [place](const auto& entry) { return entry.second == place; });
  for (auto& entry : places_) {
    if (entry.second > place) --entry.second;
  }
}

}  // namespace quarn
