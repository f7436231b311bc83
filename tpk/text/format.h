// Times, sizes and counts as people read them. Times are UTC: "2024-05-06T08:00:00Z".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quarn::tpk {

/// `ticks` (100 ns since 1601-01-01 UTC) as "2024-05-06T08:00:00Z", with the digits of a part of a
/// second where there is one. A time after the year 9999 is written as "@" and its ticks.
std::string FormatTime(std::uint64_t ticks);

/// Reads what `FormatTime` writes, also with a blank for the "T" or as a date alone; nothing where
/// the text is no such time.
std::optional<std::uint64_t> ParseTime(std::string_view text);

/// The first and the last second (Unix) that disks keep: 1901-12-13 and 2446-05-10.
inline constexpr std::int64_t kFirstDiskTime = -2147483648;
inline constexpr std::int64_t kLastDiskTime = 15032385535;

/// The time in ticks that SOURCE_DATE_EPOCH gives, which nothing made is to be newer than, or
/// nothing where it is not set. Throws Failure where it is no number of seconds.
std::optional<std::uint64_t> SourceDateEpoch();

/// "1.5 MB", in powers of 1000.
std::string FormatSize(std::uint64_t bytes);

/// A count with its noun: "1 file", "3 files".
std::string Counted(std::uint64_t count, const char* noun);

}  // namespace quarn::tpk
