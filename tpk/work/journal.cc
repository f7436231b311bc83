#include "tpk/work/journal.h"

#include <fmt/format.h>

#include <charconv>
#include <fstream>
#include <utility>

namespace quarn::tpk {
namespace {

// Two lines for people, then records: a letter, a text, a zero. Paths hold any byte but zero. The
// record of a file is its number, and where it is made its size and time, and its name, with colons
// between them.
constexpr std::string_view kHeader = "tpk install journal 2\nbegun ";
static_assert(kHeader.size() == kBegunOffset);
constexpr std::size_t kBegunDigits = 10;
constexpr std::size_t kNumberDigits = 20;
constexpr char kTarget = 't';
constexpr char kBoot = 'b';
constexpr char kDirectory = 'd';
constexpr char kMade = 'f';
constexpr char kReplaced = 'r';
constexpr char kEnd = 'e';  // with the number of records before it

void Append(std::string& to, char kind, std::string_view text) {
  to += kind;
  to += text;
  to += '\0';
}

/// Takes a number and the character `end` after it from the front.
template <class Number>
bool TakeNumber(std::string_view& text, char end, Number& number) {
  const auto [at, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || at == text.data() + text.size() || *at != end) return false;
  text.remove_prefix(static_cast<std::size_t>(at + 1 - text.data()));
  return true;
}

std::optional<JournalStep> DecodeStep(char kind, std::string_view text) {
  JournalStep step;
  switch (kind) {
    case kDirectory:
      break;
    case kMade:
      step.kind = UndoStep::Kind::kFileMade;
      if (!TakeNumber(text, ':', step.file) || !TakeNumber(text, ':', step.size) ||
          !TakeNumber(text, ':', step.seconds)) {
        return std::nullopt;
      }
      break;
    case kReplaced:
      step.kind = UndoStep::Kind::kFileReplaced;
      if (!TakeNumber(text, ':', step.file)) return std::nullopt;
      break;
    default:
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

std::string EncodeBegun(std::size_t begun, std::uint64_t number) {
  return fmt::format("{:0{}} {:0{}}\n", begun, kBegunDigits, number, kNumberDigits);
}

std::string EncodeJournal(const Journal& journal) {
  std::string bytes(kHeader);
  bytes += EncodeBegun(journal.begun, journal.number);
  Append(bytes, kTarget, journal.target);
  Append(bytes, kBoot, journal.boot);
  for (const JournalStep& step : journal.steps) {
    switch (step.kind) {
      case UndoStep::Kind::kDirectoryMade:
        Append(bytes, kDirectory, step.name);
        break;
      case UndoStep::Kind::kFileMade:
        Append(bytes, kMade,
               fmt::format("{}:{}:{}:{}", step.file, step.size, step.seconds, step.name));
        break;
      case UndoStep::Kind::kFileReplaced:
        Append(bytes, kReplaced, fmt::format("{}:{}", step.file, step.name));
        break;
    }
  }
  Append(bytes, kEnd, std::to_string(2 + journal.steps.size()));
  return bytes;
}

std::optional<Journal> DecodeJournal(std::string_view bytes) {
  if (!bytes.starts_with(kHeader)) return std::nullopt;
  bytes.remove_prefix(kHeader.size());
  Journal journal;
  constexpr std::size_t kBegunSize = kBegunDigits + 1 + kNumberDigits + 1;
  std::string_view begun = bytes.substr(0, kBegunSize);
  if (begun.size() != kBegunSize || !TakeNumber(begun, ' ', journal.begun) ||
      !TakeNumber(begun, '\n', journal.number) || !begun.empty()) {
    return std::nullopt;
  }
  bytes.remove_prefix(kBegunSize);
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

std::vector<UndoStep> StepsBegun(const Journal& journal, std::string_view boot,
                                 const std::function<stdx::u16string(const std::string&)>& path) {
  using Kind = UndoStep::Kind;
  const bool all = boot.empty() || journal.boot != boot;
  std::vector<UndoStep> steps;
  std::size_t begun = 0;  // how many of them: directories come before a file that needs them
  for (const JournalStep& step : journal.steps) {
    const bool is_file = step.kind != Kind::kDirectoryMade;
    MadeFile made{.size = step.size, .seconds = step.seconds};
    if (step.kind == Kind::kFileMade) {
      const bool has_predecessor = !steps.empty() && steps.back().kind == Kind::kFileReplaced &&
                                   steps.back().file == step.file;
      if (!has_predecessor) {
        steps.push_back({Kind::kFileReplaced, path(step.name), step.file, {}});
      }
      made.is_in_work = step.file + 1 == journal.begun;
      if (made.is_in_work) made.number = journal.number;
    }
    steps.push_back({step.kind, path(step.name), step.file, made});
    if (is_file && (all || step.file < journal.begun)) begun = steps.size();
  }
  if (!all) steps.resize(begun);
  return steps;
}

}  // namespace quarn::tpk
