#include "gateway/configuration/CommonMistakes.h"

#include <algorithm>
#include <array>
#include <utility>

#include <fmt/format.h>

#include "gateway/BeaconId.h"
#include "gateway/Texts.h"
#include "gateway/configuration/SettingsSchema.h"

namespace brenloft {
namespace {

constexpr std::string_view kDigits = "0123456789";

std::string_view trimmed(std::string_view text) {
  const auto begin = text.find_first_not_of(" \t\r");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
}

// What a word processor makes of quotes.
std::string withPlainQuotes(std::string_view line) {
  std::string text(line);
  for (const std::string_view quote : {"“", "”", "„"}) replaceAll(text, quote, "\"");
  for (const std::string_view quote : {"‘", "’", "‚"}) replaceAll(text, quote, "'");
  return text;
}

std::optional<SettingsKey::Kind> kindOf(std::string_view key) {
  for (const auto* keys : {&beaconKeys(), &alarmKeys()})
    if (const auto found = std::ranges::find(*keys, key, &SettingsKey::name); found != keys->end())
      return found->kind;
  return std::nullopt;
}

// `[beacon."C0-C1-5C-00-00-01` and its like, with what it was meant to be.
std::optional<std::string> headerMistake(std::string_view line,
                                         const std::function<bool(std::string_view)>& isToml) {
  const std::string_view brackets = line.starts_with("[[") ? "[[" : "[";
  std::string name = withPlainQuotes(line);
  std::erase_if(name, [](char c) { return std::string_view("[]\"'").find(c) != std::string_view::npos; });
  name = trimmed(name);
  std::ranges::replace(name, ' ', '.');  // [log show]
  constexpr std::string_view kBeacon = "beacon.";
  if (name.starts_with(kBeacon) && BeaconId::fromText(name.substr(kBeacon.size())))
    name = fmt::format("{}\"{}\"", kBeacon, name.substr(kBeacon.size()));
  const std::string meant = fmt::format("{}{}{}", brackets, name, brackets.size() == 2 ? "]]" : "]");
  if (!isToml(meant)) return std::nullopt;
  return fmt::format("{} is not a header of a section: write {}", line, meant);
}

std::optional<std::string> numberMistake(std::string_view key, std::string_view value) {
  const std::string number = leadingNumber(value);
  if (!number.empty() && kindOf(key) == SettingsKey::Kind::number)
    return fmt::format("{0}: write the number alone: {0} = {1}", key, number);
  constexpr std::string_view kNumber = "0123456789+-.,:_";
  if (value.find_first_not_of(kNumber) != std::string_view::npos) return std::nullopt;
  if (std::ranges::count(value, ',') != 1) return "";
  return fmt::format("{0}: numbers have a point: {0} = {1}", key, number);
}

std::string missingQuotes(std::string_view key, std::string_view value) {
  for (const std::string_view word : {"true", "false"})
    if (std::ranges::equal(value, word, {}, [](char c) { return c | 0x20; }))
      return fmt::format("{}: write {}, in small letters", key, word);
  if (kindOf(key) == SettingsKey::Kind::command) {
    std::string words(value);
    replaceAll(words, " ", "\", \"");
    return fmt::format("{0}: texts need quotes, and stand in a list: {0} = [\"{1}\"]", key, words);
  }
  const std::string duration =
      kindOf(key) == SettingsKey::Kind::duration ? meantDuration(value) : std::string();
  return fmt::format("{0}: texts need quotes: {0} = \"{1}\"", key, duration.empty() ? value : duration);
}

}  // namespace

std::string leadingNumber(std::string_view text) {
  const std::size_t sign = text.starts_with('-') || text.starts_with('+') ? 1 : 0;
  const auto digitsFrom = [&](std::size_t from) {
    return std::min(text.find_first_not_of(kDigits, from), text.size());
  };
  std::size_t end = digitsFrom(sign);
  if (end == sign) return {};
  const bool hasMark = end + 1 < text.size() && (text[end] == '.' || text[end] == ',');
  if (hasMark && digitsFrom(end + 1) > end + 1) end = digitsFrom(end + 1);
  std::string number(text.substr(0, end));
  std::ranges::replace(number, ',', '.');
  return number;
}

std::optional<std::string> commonMistakeIn(std::string_view line,
                                           const std::function<bool(std::string_view)>& isToml) {
  if (isToml(line)) return std::nullopt;  // then it is wrong beside another one
  line = trimmed(line.substr(0, line.find('#')));
  if (line.starts_with('[')) return headerMistake(line, isToml);
  const auto equals = std::min(line.find('='), line.size());
  const std::string_view key = trimmed(line.substr(0, equals));
  const std::string_view value = trimmed(line.substr(std::min(equals + 1, line.size())));
  if (key.empty() || equals == line.size()) return std::nullopt;
  if (value.empty()) return fmt::format("{}: there is no value behind the =", key);
  if (const std::string plain = withPlainQuotes(line); plain != line && isToml(plain))
    return fmt::format("{}: these quotes are typographic ones; write {}", key, plain);
  if (value.front() == '"' && std::ranges::count(value, '"') == 1)
    return fmt::format("{}: the text has no quote at its end", key);
  if (const std::string list = fmt::format("{} = [{}]", key, value);
      value.find(',') != std::string_view::npos && value.front() == '"' && isToml(list))
    return fmt::format("{}: several values stand in brackets: {}", key, list);
  if (value.find_first_of("\"'[]{}") != std::string_view::npos) return std::nullopt;
  if (auto mistake = numberMistake(key, value)) return mistake->empty() ? std::nullopt : std::move(mistake);
  return missingQuotes(key, value);
}

}  // namespace brenloft
