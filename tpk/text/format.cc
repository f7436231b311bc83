#include "tpk/text/format.h"

#include <fmt/format.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>

#include "core/file.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

namespace ch = std::chrono;

constexpr std::uint64_t kSecondsPerDay = 86400;
constexpr ch::sys_days kFirstDay = ch::year(1601) / 1 / 1;
constexpr ch::sys_days kLastDay = ch::year(9999) / 12 / 31;

/// Takes `digits` digits off the front of `text`.
std::optional<unsigned> TakeNumber(std::string_view& text, std::size_t digits) {
  if (text.size() < digits) return std::nullopt;
  unsigned value = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    if (text[i] < '0' || text[i] > '9') return std::nullopt;
    value = value * 10 + static_cast<unsigned>(text[i] - '0');
  }
  text.remove_prefix(digits);
  return value;
}

bool Take(std::string_view& text, char c) {
  if (text.empty() || text.front() != c) return false;
  text.remove_prefix(1);
  return true;
}

}  // namespace

std::string FormatTime(std::uint64_t ticks) {
  const std::uint64_t seconds = ticks / kTicksPerSecond;
  const std::uint64_t part = ticks % kTicksPerSecond;
  const ch::sys_days day = kFirstDay + ch::days(seconds / kSecondsPerDay);
  if (day > kLastDay) return fmt::format("@{}", ticks);
  const ch::year_month_day date(day);
  const std::uint64_t time = seconds % kSecondsPerDay;
  std::string text =
      fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  time / 3600, time / 60 % 60, time % 60);
  if (part != 0) {
    text += fmt::format(".{:07}", part);
    text.erase(text.find_last_not_of('0') + 1);
  }
  return text + 'Z';
}

std::optional<std::uint64_t> ParseTime(std::string_view text) {
  if (Take(text, '@')) {
    std::uint64_t ticks = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, ticks);
    if (error != std::errc() || stop != end) return std::nullopt;
    return ticks;
  }
  const auto year = TakeNumber(text, 4);
  if (!year || !Take(text, '-')) return std::nullopt;
  const auto month = TakeNumber(text, 2);
  if (!month || !Take(text, '-')) return std::nullopt;
  const auto day = TakeNumber(text, 2);
  if (!day) return std::nullopt;
  const ch::year_month_day date(ch::year(static_cast<int>(*year)), ch::month(*month),
                                ch::day(*day));
  if (!date.ok() || ch::sys_days(date) < kFirstDay) return std::nullopt;
  std::uint64_t seconds = 0;
  std::uint64_t part = 0;
  if (!text.empty()) {
    if (!Take(text, 'T') && !Take(text, ' ')) return std::nullopt;
    const auto hour = TakeNumber(text, 2);
    if (!hour || !Take(text, ':')) return std::nullopt;
    const auto minute = TakeNumber(text, 2);
    if (!minute || !Take(text, ':')) return std::nullopt;
    const auto second = TakeNumber(text, 2);
    if (!second || *hour > 23 || *minute > 59 || *second > 59) return std::nullopt;
    seconds = *hour * 3600 + *minute * 60 + *second;
    if (Take(text, '.')) {
      std::uint64_t unit = kTicksPerSecond;
      do {
        const auto digit = TakeNumber(text, 1);
        if (!digit || unit == 1) return std::nullopt;
        unit /= 10;
        part += *digit * unit;
      } while (!text.empty() && text.front() != 'Z');
    }
    if (!Take(text, 'Z') || !text.empty()) return std::nullopt;
  }
  const auto days = static_cast<std::uint64_t>((ch::sys_days(date) - kFirstDay).count());
  return (days * kSecondsPerDay + seconds) * kTicksPerSecond + part;
}

std::optional<std::uint64_t> SourceDateEpoch() {
  const char* const value = std::getenv("SOURCE_DATE_EPOCH");
  if (value == nullptr) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  const long long seconds = std::strtoll(value, &end, 10);
  // A time after the year 9999 is a mistake: it may be in milliseconds, for example.
  if (end == value || *end != '\0' || errno != 0 || seconds < 0 || seconds > 253402300799) {
    throw Failure(ExitCode::kUsage, "usage", "SOURCE_DATE_EPOCH is not a number of seconds");
  }
  return UnixSecondsToTicks(seconds);
}

std::string FormatSize(std::uint64_t bytes) {
  if (bytes < 1000) return fmt::format("{} B", bytes);
  double value = static_cast<double>(bytes);
  const char* unit = "B";
  for (const char* const next : {"kB", "MB", "GB", "TB"}) {
    if (value < 999.5) break;
    value /= 1000;
    unit = next;
  }
  return value < 9.95 ? fmt::format("{:.1f} {}", value, unit)
                      : fmt::format("{:.0f} {}", value, unit);
}

std::string Counted(std::uint64_t count, const char* noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

}  // namespace quarn::tpk
