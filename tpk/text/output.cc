#include "tpk/text/output.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "tpk/text/format.h"

namespace quarn::tpk {
namespace {

constexpr auto kDrawInterval = std::chrono::milliseconds(100);

bool ShowsColors(When when, int descriptor) {
  if (when != When::kAuto) return when == When::kAlways;
  const char* const no_color = std::getenv("NO_COLOR");
  if (no_color != nullptr && *no_color != '\0') return false;
  const char* const terminal = std::getenv("TERM");
  return isatty(descriptor) == 1 && (terminal == nullptr || std::string_view(terminal) != "dumb");
}

std::string Paint(bool painted, Output::Color color, const std::string& text) {
  return painted ? fmt::format("\x1b[{}m{}\x1b[0m", static_cast<int>(color), text) : text;
}

void PrintError(const std::string& line) { fmt::print(stderr, "{}\n", line); }

int TerminalWidth() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}

}  // namespace

Output::Output(const Options& options)
    : options_(options),
      color_out_(!options.json && ShowsColors(options.color, STDOUT_FILENO)),
      color_err_(ShowsColors(options.color, STDERR_FILENO)) {}

void Output::Print(const std::string& line) {
  // Failures are found by `Flush`.
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
}

void Output::PrintObject(const char* type, const Json& fields) {
  Json object{{"type", type}, {"schema", kJsonSchema}};
  object.update(fields);
  // Bytes that are not UTF-8 become the replacement character.
  Print(object.dump(-1, ' ', false, Json::error_handler_t::replace));
}

void Output::Record(const char* type, const std::function<Json()>& fields,
                    const std::function<std::string()>& text) {
  options_.json ? PrintObject(type, fields()) : Print(text());
}

void Output::Text(const std::string& line) {
  if (!options_.json) Print(line);
}

void Output::Result(const char* verb, ExitCode exit_code, const Json& fields,
                    const std::string& text) {
  if (options_.json) {
    Json object{{"verb", verb}, {"exit", static_cast<int>(exit_code)}};
    object.update(fields);
    PrintObject("result", object);
  } else if (!options_.quiet && !text.empty()) {
    Print(text);
  }
}

void Output::Error(const Failure& failure) {
  if (options_.json) {
    Json object{{"code", failure.code()},
                {"exit", static_cast<int>(failure.exit_code())},
                {"message", failure.what()}};
    if (!failure.hint().empty()) object["hint"] = failure.hint();
    return PrintObject("error", std::move(object));
  }
  PrintError(fmt::format("{} {}", Paint(color_err_, Color::kRed, "tpk:"), failure.what()));
  if (!failure.hint().empty()) PrintError("     " + failure.hint());
}

void Output::Remark(const char* type, const std::function<Json()>& fields,
                    const std::function<std::string()>& text) {
  options_.json ? PrintObject(type, fields()) : PrintError(text());
}

void Output::Note(const std::string& line) {
  if (options_.quiet && !options_.json) return;
  Remark(
      "note",
      [&] {
        return Json{{"message", line}};
      },
      [&] { return "note: " + line; });
}

std::string Output::Painted(Color color, const std::string& text) const {
  return Paint(color_out_, color, text);
}

void Output::Flush() {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    throw SystemFailure("cannot write to standard output", errno);
  }
}

Progress::Progress(const Output& output, std::string label, std::uint64_t total)
    : label_(std::move(label)), total_(total), start_(Clock::now()), next_draw_(start_) {
  const bool terminal = isatty(STDERR_FILENO) == 1;
  const bool wanted = output.progress() == When::kAlways ||
                      (output.progress() == When::kAuto && terminal && !output.quiet());
  if (wanted && total_ != 0) style_ = terminal ? Style::kBar : Style::kLines;
}

Progress::~Progress() {
  if (style_ == Style::kBar && drawn_) fmt::print(stderr, "\r\x1b[K");
}

std::string Progress::Status(std::uint64_t done, Clock::time_point now) const {
  const std::uint64_t percent = done * 100 / total_;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double speed = seconds > 0 ? static_cast<double>(done) / seconds : 0;
  std::string text =
      fmt::format("{:3}%  {}/s", percent, FormatSize(static_cast<std::uint64_t>(speed)));
  if (speed > 0) {
    const auto left =
        static_cast<std::uint64_t>(std::llround(static_cast<double>(total_ - done) / speed));
    text += fmt::format("  {}:{:02} left", left / 60, left % 60);
  }
  return text;
}

void Progress::Update(std::uint64_t done) {
  if (style_ == Style::kNone) return;
  done = std::min(done, total_);
  const Clock::time_point now = Clock::now();
  if (style_ == Style::kLines) {
    const std::uint64_t percent = done * 100 / total_;
    if (percent < next_line_percent_) return;
    next_line_percent_ = percent / 10 * 10 + 10;
    return PrintError(label_ + " " + Status(done, now));
  }
  if (now < next_draw_) return;
  next_draw_ = now + kDrawInterval;
  drawn_ = true;
  const std::string status = Status(done, now);
  const int room = TerminalWidth() - static_cast<int>(label_.size() + status.size()) - 6;
  std::string bar;
  if (room >= 10) {
    const auto width = static_cast<std::size_t>(std::min(room, 40));
    const auto filled = static_cast<std::size_t>(done * width / total_);
    bar = " [" + std::string(filled, '#') + std::string(width - filled, '-') + "]";
  }
  fmt::print(stderr, "\r{}{} {}\x1b[K", label_, bar, status);
  std::fflush(stderr);
}

}  // namespace quarn::tpk
