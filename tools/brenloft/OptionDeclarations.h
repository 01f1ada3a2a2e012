#pragma once

#include <charconv>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "gateway/Texts.h"
#include "platform/foundation/Suggestion.h"
#include "tools/brenloft/Options.h"
#include "tools/brenloft/SpanTexts.h"

namespace brenloft {

// Kinds of options that several commands have. CLI11 is the dearest header of the program: include this only
// where commands are declared.

template <typename Value>
using Choices = std::vector<std::pair<std::string, Value>>;

inline const Choices<Format> kTwoFormats{{"table", Format::table}, {"jsonl", Format::jsonl}};
inline const Choices<Format> kAllFormats{
    {"table", Format::table}, {"jsonl", Format::jsonl}, {"csv", Format::csv}};

// What holds without an option is the end of its help, "; default: X", where it is not as without a word;
// `config show` tells it, too.

// "--count" of "-n,--count", FILE of FILE.
inline std::string longName(const std::string& names) {
  const auto dashes = names.find("--");
  return dashes == std::string::npos ? names : names.substr(dashes);
}

// "table, jsonl or csv".
inline std::string listText(const std::vector<std::string>& words) {
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i)
    text += (i == 0 ? "" : i + 1 < words.size() ? ", " : " or ") + words[i];
  return text;
}

// What a value is, for people and for the shells' completion (Completion.cpp). Alternatives have a bar in
// between.
constexpr const char* kFile = "FILE";
constexpr const char* kFolder = "FOLDER";
constexpr const char* kSource = "SOURCE";
constexpr const char* kBeacon = "BEACON";
constexpr const char* kDuration = "TIME";
constexpr const char* kInstant = "WHEN";
constexpr const char* kSize = "SIZE";
constexpr const char* kUUID = "UUID";
constexpr const char* kNumber = "N";

template <typename Choice>
std::vector<std::string> wordsOf(const Choices<Choice>& choices) {
  std::vector<std::string> words;
  for (const auto& [word, choice] : choices) words.push_back(word);
  return words;
}

template <typename Choice>
Choice chosen(const std::string& name, const std::string& text, const Choices<Choice>& choices) {
  for (const auto& [word, choice] : choices)
    if (word == text) return choice;
  const auto words = wordsOf(choices);
  throw CLI::ValidationError(name, fmt::format("'{}' is not {}{}", text, listText(words),
                                               platform::didYouMean(platform::nearest(text, words))));
}

// "table|jsonl|csv".
template <typename Choice>
std::string typeOf(const Choices<Choice>& choices) {
  return fmt::format("{}", fmt::join(wordsOf(choices), "|"));
}

// `value` may be optional.
template <typename Value, typename Choice>
void addChoice(CLI::App& command, const std::string& names, Value& value, const Choices<Choice>& choices,
               const std::string& help) {
  command
      .add_option_function<std::string>(
          names,
          [&value, &choices, name = longName(names)](const std::string& text) {
            value = chosen(name, text, choices);
          },
          help)
      ->type_name(typeOf(choices));
}

template <typename Value, typename Choice>
void addFormat(CLI::App& command, Value& format, const Choices<Choice>& choices,
               const std::string& fallback = "table") {
  addChoice(command, "-F,--format", format, choices, "how the output is written; default: " + fallback);
}

inline const Choices<TimeForm> kTimeForms{
    {"local", TimeForm::local}, {"utc", TimeForm::utc}, {"unix", TimeForm::epoch}};

inline void addTime(CLI::App& command, std::optional<TimeForm>& form) {
  addChoice(command, "--time", form, kTimeForms,
            "how times are written; default: local in a table, else unix (seconds since 1970)");
}

/// Says that a text is none of `what`, and what it was meant to be.
inline CLI::ValidationError noDuration(const std::string& name, const std::string& text,
                                       std::string_view what) {
  return CLI::ValidationError(
      name, fmt::format("'{}' is {}{}", text, what, platform::didYouMean(meantDuration(text))));
}

template <typename Duration>
CLI::Option* addDuration(CLI::App& command, const std::string& names, Duration& duration,
                         const std::string& help) {
  return command
      .add_option_function<std::string>(
          names,
          [&duration, name = longName(names)](const std::string& text) {
            const auto value = durationFromText(text);
            if (!value) throw noDuration(name, text, "not a duration such as 10, 2.5 or 1h30m");
            duration = *value;
          },
          help)
      ->type_name(kDuration);
}

/// After which something is deleted: seconds are too easily days that were meant.
template <typename Duration>
void addAge(CLI::App& command, const std::string& name, Duration& age, const std::string& help) {
  addDuration(command, name, age, help)->check([](const std::string& text) {
    const bool hasUnit = text.find_first_not_of("0123456789.") != std::string::npos;
    return hasUnit ? ""
                   : fmt::format("{0} of what? {0}d are days, {0}h hours, {0}m minutes, {0}s seconds", text);
  });
}

inline bool holds(const std::optional<uint64_t>&, uint64_t) {
  return true;
}
template <typename Number>
bool holds(const Number&, uint64_t value) {
  return value <= std::numeric_limits<Number>::max();
}

// CLI11 itself takes -1 and what is too long for the largest number.
template <typename Number>
CLI::Option* addNumber(CLI::App& command, const std::string& names, Number& number, uint64_t least,
                       const std::string& help, uint64_t most = std::numeric_limits<uint64_t>::max()) {
  auto* option = command.add_option_function<std::string>(
      names,
      [&number, least, most, name = longName(names)](const std::string& text) {
        uint64_t value = 0;
        const char* end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        const bool isNumber = error == std::errc() && stop == end && value >= least;
        if (!isNumber || value > most || !holds(number, value))
          throw CLI::ValidationError(name, fmt::format("'{}' is {}", text,
                                                       isNumber     ? "too large"
                                                       : least == 0 ? "not a whole number"
                                                                    : "not a whole number above 0"));
        number = value;
      },
      help);
  return option->type_name(kNumber);
}

/// As `requireInstant` reads it.
inline void addInstant(CLI::App& command, const std::string& name, std::string& instant,
                       const std::string& help) {
  command.add_option(name, instant, help)->check(instantProblem)->type_name(kInstant);
}

// Help of an option that takes an instant.
inline std::string withInstants(std::string_view help) {
  return fmt::format("{}: 2026-11-21T15:00, 15:00 (today), yesterday, 2h (ago) or @ and seconds since 1970",
                     help);
}

/// As `spanFromTexts` reads them.
inline void addSpan(CLI::App& command, std::string& since, std::string& until) {
  addInstant(command, "--since", since, withInstants("from then on"));
  addInstant(command, "--until", until, "until then, without that instant itself; as --since");
}

inline void addBeaconChoice(CLI::App& command, std::vector<std::string>& beacons) {
  command.add_option("--beacon", beacons, "only this beacon, by name or identifier; may be repeated")
      ->type_name(kBeacon)
      ->allow_extra_args(false)
      ->expected(1, -1);
}

enum class Dash {
  isName,
  isStream,  // standard input or output, which is what an empty path means to the commands
};

// A file or a folder. An empty name is what a script's unset variable leaves, never what was meant.
template <typename Path>
CLI::Option* addPath(CLI::App& command, const std::string& names, Path& path, const std::string& help,
                     Dash dash = Dash::isName) {
  return command
      .add_option_function<std::string>(
          names,
          [&path, dash, name = longName(names)](const std::string& text) {
            if (text.empty()) throw CLI::ValidationError(name, "the name is empty");
            path = dash == Dash::isStream && text == "-" ? "" : text;
          },
          help)
      ->type_name(kFile);
}

inline void addContainer(CLI::App& command, std::filesystem::path& container) {
  addPath(command, "-C,--container", container,
          "the folder of the log, the tags and the history; default: the user's data folder for "
          "brenloft")
      ->type_name(kFolder);
}

}  // namespace brenloft
