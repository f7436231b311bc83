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

/// One key with its values. Each value is one line in the file.
struct ConfigEntry {
  stdx::u16string key;
  std::vector<stdx::u16string> values;
  NoCaseIndex values_index;
};

/// The entries of a file; no two keys are equal. Change it only through the functions below. Their
/// time does not grow with the length of the list, except where an entry is removed.
struct ConfigEntryList {
  std::vector<ConfigEntry> entries;
  /// Whether the file may have lines that are not here, because it could not be opened or not be
  /// read to its end.
  bool is_partial = false;
  mutable NoCaseIndex keys_index;
};

/// Adds `value` after the other values of `key`, in a new entry at the end where there is none. The
/// key keeps the letter case in which it was added first. False when it has the value already.
bool AddConfigValue(ConfigEntryList& list, const stdx::u16string& key,
                    const stdx::u16string& value);

/// `AddConfigValue` with copies, for texts that are part of the list itself.
bool StoreConfigLine(ConfigEntryList& list, stdx::u16string key, stdx::u16string value);

/// The values of `key`, owned by the list and valid until it changes, or null.
const std::vector<stdx::u16string>* FindConfigValues(const ConfigEntryList& list,
                                                     const stdx::u16string& key);

/// Replaces the values of `key` by `values`, equal ones included. The entry keeps its position and
/// its key's letter case. An empty `values` removes the entry. Where there is no entry one is
/// appended, also without values.
void SetConfigValues(ConfigEntryList& list, const stdx::u16string& key,
                     const std::vector<stdx::u16string>& values);

}  // namespace quarn
