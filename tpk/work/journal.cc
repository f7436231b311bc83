#include "tpk/work/journal.h"

#include <fmt/format.h>

#include <charconv>
#include <fstream>
#include <utility>

namespace quarn::tpk {
namespace {

// Two lines for people, then records: a letter, a text, a zero. Paths hold any byte but zero. The
// record of a file is its number, a colon and its name.
constexpr std::string_view kHeader = "tpk install journal 2\nbegun ";
static_assert(kHeader.size() == kBegunOffset);
constexpr std::size_t kBegunDigits = 10;
constexpr char kTarget = 't';
constexpr char kBoot = 'b';
constexpr char kFolder = 'd';
constexpr char kMade = 'f';
constexpr char kReplaced = 'r';
constexpr char kEnd = 'e';  // with the number of records before it

void Append(std::string& to, char kind, std::string_view text) {
  to += kind;
  to += text;
  to += '\0';
}

std::optional<std::size_t> TakeNumber(std::string_view& text) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

std::optional<JournalStep> DecodeStep(char kind, std::string_view text) {
  JournalStep step;
  if (kind == kMade || kind == kReplaced) {
    const auto number = TakeNumber(text);
    if (!number || !text.starts_with(':')) return std::nullopt;
    text.remove_prefix(1);
    step.file = *number;
    step.kind = kind == kMade ? UndoStep::Kind::kFileMade : UndoStep::Kind::kFileReplaced;
  } else if (kind != kFolder) {
    return std::nullopt;
  }
  if (!StaysBelow(text)) return std::nullopt;
  step.name = text;
  return step;
}

}  // namespace

std::string BootIdentifier() {
  std::ifstream in("/proc/sys/kernel/random/boot_id");
  std::string identifier;
  std::getline(in, identifier);
  return identifier;
}

bool StaysBelow(std::string_view name) {
  for (;;) {
    const std::size_t end = name.find('/');
    const std::string_view part = name.substr(0, end);
    if (part.empty() || part == "." || part == ".." || part.find('\0') != part.npos) return false;
    if (end == name.npos) return true;
    name.remove_prefix(end + 1);
  }
}

std::string EncodeBegun(std::size_t begun) { return fmt::format("{:0{}}\n", begun, kBegunDigits); }

std::string EncodeJournal(const Journal& journal) {
  std::string bytes(kHeader);
  bytes += EncodeBegun(journal.begun);
  Append(bytes, kTarget, journal.target);
  Append(bytes, kBoot, journal.boot);
  for (const JournalStep& step : journal.steps) {
    if (step.kind == UndoStep::Kind::kDirectoryMade) {
      Append(bytes, kFolder, step.name);
    } else {
      Append(bytes, step.kind == UndoStep::Kind::kFileMade ? kMade : kReplaced,
             fmt::format("{}:{}", step.file, step.name));
    }
  }
  Append(bytes, kEnd, std::to_string(2 + journal.steps.size()));
  return bytes;
}

std::optional<Journal> DecodeJournal(std::string_view bytes) {
  if (!bytes.starts_with(kHeader)) return std::nullopt;
  bytes.remove_prefix(kHeader.size());
  Journal journal;
  if (bytes.size() <= kBegunDigits) return std::nullopt;
  std::string_view begun = bytes.substr(0, kBegunDigits);
  const auto number = TakeNumber(begun);
  if (!number || !begun.empty() || bytes[kBegunDigits] != '\n') return std::nullopt;
  journal.begun = *number;
  bytes.remove_prefix(kBegunDigits + 1);
  for (std::size_t count = 0;; ++count) {
    const std::size_t end = bytes.find('\0');
    if (end == bytes.npos || end == 0) return std::nullopt;
    const char kind = bytes[0];
    const std::string_view text = bytes.substr(1, end - 1);
    bytes.remove_prefix(end + 1);
    if ((kind == kTarget) != (count == 0) || (kind == kBoot) != (count == 1)) return std::nullopt;
    if (kind == kEnd) {
      return bytes.empty() && text == std::to_string(count) ? std::optional(std::move(journal))
                                                            : std::nullopt;
    }
    if (kind == kTarget) {
      journal.target = text;
    } else if (kind == kBoot) {
      journal.boot = text;
    } else if (auto step = DecodeStep(kind, text)) {
      journal.steps.push_back(std::move(*step));
    } else {
      return std::nullopt;
    }
  }
}

std::vector<JournalStep> StepsBegun(const Journal& journal, std::string_view boot) {
  std::vector<JournalStep> steps = journal.steps;
  if (boot.empty() || journal.boot != boot) return steps;
  // Folders come before the first file that needs them.
  const auto is_begun = [&](const JournalStep& step) {
    return step.kind != UndoStep::Kind::kDirectoryMade && step.file < journal.begun;
  };
  while (!steps.empty() && !is_begun(steps.back())) steps.pop_back();
  return steps;
}

}  // namespace quarn::tpk
