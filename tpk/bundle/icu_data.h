// The data of ICU, Qt's library for the rules of languages. Most of it (calendars, currencies,
// names of places, encodings) is never read by a wizard: Qt has its own.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace quarn::tpk {

/// Whether a library, by its name, holds that data.
bool IsIcuData(std::string_view name);

/// The library `file` with nothing in it but the rules by which each language sorts, by which the
/// folder dialog does. Qt goes on without the rest: names of time zones become their abbreviations,
/// and texts in encodings other than UTF-8 are not converted. A file that is not laid out as such
/// libraries are is answered as it is.
std::vector<std::byte> SortingDataOnly(const std::vector<std::byte>& file);

}  // namespace quarn::tpk
