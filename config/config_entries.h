// The contents of a file of `key=value` lines: its keys in the order in which they first appear,
// each with its values.
//
// Keys and values are compared with `CompareNoCase`. So every function here throws
// std::length_error where it has to compare a text that the locale cannot express.
#pragma once

#include <vector>

#include "config/no_case_index.h"
#include "core/basic_string.h"

namespace quarn {

/// One key with its values; each value is a line of its own in the file.
struct ConfigEntry {
  stdx::u16string key;
  std::vector<stdx::u16string> values;
  NoCaseIndex values_index;
};

/// The entries of a file; no two keys are equal. Change it through the functions below, which take
/// time that grows with its length only where an entry is removed.
struct ConfigEntryList {
  std::vector<ConfigEntry> entries;
  /// There may be lines in the file that are not here: it could not be opened, or reading broke
  /// off.
  bool is_partial = false;
  mutable NoCaseIndex keys_index;
};

/// Adds `value` under `key` behind the other values, making an entry at the end where there is
/// none. The key keeps the letter case of its first appearance. False when the value was there.
bool AddConfigValue(ConfigEntryList& list, const stdx::u16string& key,
                    const stdx::u16string& value);

/// `AddConfigValue` with copies, for texts that lie in the list itself.
bool StoreConfigLine(ConfigEntryList& list, stdx::u16string key, stdx::u16string value);

/// The values of `key`, owned by the list and good until it changes, or null.
const std::vector<stdx::u16string>* FindConfigValues(const ConfigEntryList& list,
                                                     const stdx::u16string& key);

/// Replaces the values of `key`; equal ones all stay. The entry keeps its place and its key's
/// letter case. No values remove an entry that is there; where there is none, one is appended in
/// any case.
void SetConfigValues(ConfigEntryList& list, const stdx::u16string& key,
                     const std::vector<stdx::u16string>& values);

}  // namespace quarn
