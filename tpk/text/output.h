// All that the tool says. Results go to standard output, as text or as one JSON object per line;
// everything else goes to standard error. Every verb writes through this one module.
#pragma once

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tpk/text/failure.h"

namespace quarn::tpk {

using Json = nlohmann::ordered_json;

/// The version of the JSON lines; it goes up when a reader of the old ones would be misled.
inline constexpr int kJsonSchema = 1;

enum class When { kAuto, kAlways, kNever };

/// Main thread.
class Output {
 public:
  struct Options {
    bool json = false;
    bool quiet = false;
    When color = When::kAuto;
    When progress = When::kAuto;
  };

  Output() = default;
  explicit Output(const Options& options);

  /// One part of the result: a line of text, or a JSON object with the type `type`.
  void Record(const char* type, const std::function<Json()>& fields,
              const std::function<std::string()>& text);
  /// A line of the result that only people need: a heading, a total.
  void Text(const std::string& line);
  /// The last line of a run that did what it was asked to, or found something: the JSON object
  /// "result". `text` may be empty and is not printed when quiet.
  void Result(const char* verb, ExitCode exit_code, const Json& fields, const std::string& text);
  /// The last line of a run that failed: the JSON object "error", or "tpk: ..." on standard error.
  void Error(const Failure& failure);
  /// What is not the result but should be known: a JSON object as `Record`, a line on standard
  /// error as text.
  void Remark(const char* type, const std::function<Json()>& fields,
              const std::function<std::string()>& text);
  /// A remark of the type "note"; not printed when quiet.
  void Note(const std::string& line);

  bool json() const noexcept { return options_.json; }
  bool quiet() const noexcept { return options_.quiet; }
  When progress() const noexcept { return options_.progress; }

  enum class Color { kRed = 31, kGreen = 32, kYellow = 33, kBold = 1 };
  /// `text` in a colour where standard output shows colours.
  std::string Painted(Color color, const std::string& text) const;

  /// Throws Failure when standard output took less than was written to it.
  void Flush();

 private:
  void Print(const std::string& line);
  void PrintObject(const char* type, const Json& fields);

  Options options_;
  bool color_out_ = false;
  bool color_err_ = false;
};

/// A bar with percent, speed and remaining time on standard error: on a terminal, or, when it is
/// asked for where there is none, as a plain line now and then. Nothing when quiet.
class Progress {
 public:
  /// `total` is in bytes; 0 shows nothing.
  Progress(const Output& output, std::string label, std::uint64_t total);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  /// Takes the bar away.
  ~Progress();

  /// `done` is clamped to the total. Draws at most ten times a second.
  void Update(std::uint64_t done);

 private:
  using Clock = std::chrono::steady_clock;
  std::string Status(std::uint64_t done, Clock::time_point now) const;

  enum class Style { kNone, kBar, kLines };
  Style style_ = Style::kNone;
  std::string label_;
  std::uint64_t total_;
  Clock::time_point start_;
  Clock::time_point next_draw_;
  std::uint64_t next_line_percent_ = 10;
  bool drawn_ = false;
};

}  // namespace quarn::tpk
