#include "config/config_entries.h"

#include <optional>
#include <utility>

namespace quarn {
namespace {

std::optional<std::size_t> IndexOf(const ConfigEntryList& list, const stdx::u16string& key) {
  return list.keys_index.Find(
      key, list.entries.size(),
      [&list](std::size_t at) -> const stdx::u16string& { return list.entries[at].key; });
}

}  // namespace

bool AddConfigValue(ConfigEntryList& list, const stdx::u16string& key,
                    const stdx::u16string& value) {
  // The search may end at the first equal key. No second one exists, and no later key lacks a
  // narrow form, which would throw: each was compared with all earlier ones when it was added.
  const auto index = IndexOf(list, key);
  ConfigEntry& entry =
      index ? list.entries[*index] : list.entries.emplace_back(ConfigEntry{key, {}, {}});
  std::vector<stdx::u16string>& values = entry.values;
  const auto same = entry.values_index.Find(
      value, values.size(),
      [&values](std::size_t at) -> const stdx::u16string& { return values[at]; });
  if (same) return false;
  values.push_back(value);
  return true;
}

bool StoreConfigLine(ConfigEntryList& list, stdx::u16string key,  // NOLINT: copies are meant
                     stdx::u16string value) {                     // NOLINT
  return AddConfigValue(list, key, value);
}

const std::vector<stdx::u16string>* FindConfigValues(const ConfigEntryList& list,
                                                     const stdx::u16string& key) {
  const auto index = IndexOf(list, key);
  return index ? &list.entries[*index].values : nullptr;
}

void SetConfigValues(ConfigEntryList& list, const stdx::u16string& key,
                     const std::vector<stdx::u16string>& values) {
  const auto index = IndexOf(list, key);
  if (!index) {
    list.entries.push_back({key, values, {}});
  } else if (!values.empty()) {
    ConfigEntry& entry = list.entries[*index];
    entry.values = std::vector(values);  // a copy first: they may be the entry's own
    entry.values_index = {};
  } else {
    list.entries.erase(list.entries.begin() + static_cast<std::ptrdiff_t>(*index));
    list.keys_index = {};
  }
}

}  // namespace quarn
