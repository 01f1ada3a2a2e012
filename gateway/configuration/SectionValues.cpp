#include "gateway/configuration/SectionValues.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "gateway/Texts.h"
#include "gateway/configuration/CommonMistakes.h"
#include "platform/foundation/Suggestion.h"

namespace brenloft {
namespace {

std::optional<double> numberOf(const TomlValue& given) {
  if (const auto* whole = std::get_if<int64_t>(&given.value)) return static_cast<double>(*whole);
  if (const auto* number = std::get_if<double>(&given.value)) return *number;
  return std::nullopt;
}

std::vector<std::string> namesOf(const std::vector<SettingsKey>& keys) {
  std::vector<std::string> names;
  names.reserve(keys.size());
  for (const SettingsKey& key : keys) names.emplace_back(key.name);
  return names;
}

std::vector<std::string> copyOf(const std::vector<std::string_view>& words) {
  return {words.begin(), words.end()};
}

// What is no key but is looked for as one.
std::string_view hintFor(std::string_view key) {
  if (key == "unit" || key == "units")
    return ": leave it out; temperatures are in °C, humidity and battery in %, rssi in dBm";
  return {};
}

std::string inQuotes(std::string_view word) {
  return fmt::format("\"{}\"", word);
}

}  // namespace

std::string suggestion(std::string_view word, const std::vector<std::string>& words) {
  return platform::didYouMean(platform::nearest(word, words));
}

std::string_view withoutQuotes(const TomlValue& given) {
  return std::holds_alternative<std::string>(given.value) ? ", without quotes" : "";
}

SectionValues::SectionValues(const TomlValue::Table& table, const std::vector<SettingsKey>& keys,
                             std::string_view section, Complaints& complaints) {
  for (const TomlEntry& entry : table) {
    const auto key = std::ranges::find(keys, entry.key, &SettingsKey::name);
    if (key == keys.end()) {
      const std::string_view hint = hintFor(entry.key);
      complaints.push_back({entry.value.line, fmt::format("{} is not a key of {}{}", entry.key, section,
                                                          hint.empty() ? suggestion(entry.key, namesOf(keys))
                                                                       : std::string(hint))});
      continue;
    }
    auto value = read(*key, entry.value);
    if (const auto* wrong = std::get_if<Wrong>(&value))
      complaints.push_back({entry.value.line, fmt::format("{}: {}", entry.key, wrong->reason)});
    else
      values_.emplace(key->name, Placed{std::get<Value>(std::move(value)), entry.value.line});
  }
}

unsigned SectionValues::line(std::string_view key, unsigned otherwise) const {
  const auto found = values_.find(key);
  return found == values_.end() ? otherwise : found->second.line;
}

namespace {

// ", without quotes: above = 8" of "8" and of "8 °C".
std::string withoutUnit(std::string_view key, const TomlValue& given) {
  const auto* text = std::get_if<std::string>(&given.value);
  const std::string number = text ? leadingNumber(*text) : std::string();
  if (number.empty()) return std::string(withoutQuotes(given));
  return fmt::format(", without quotes{}: {} = {}", number == *text ? "" : " and unit", key, number);
}

}  // namespace

SectionValues::Outcome SectionValues::read(const SettingsKey& key, const TomlValue& given) {
  using Kind = SettingsKey::Kind;
  switch (key.kind) {
    case Kind::text:
    case Kind::choice:
      if (const auto* text = std::get_if<std::string>(&given.value)) return readText(key, *text);
      return Wrong{"it must be a text in quotes"};
    case Kind::number: {
      const auto number = numberOf(given);
      if (!number) return Wrong{fmt::format("it must be a number{}", withoutUnit(key.name, given))};
      if (!(*number >= key.least && *number <= key.most))
        return Wrong{fmt::format("{} is not between {} and {}", *number, key.least, key.most)};
      return Value(*number);
    }
    case Kind::duration:
      return readDuration(key, given);
    case Kind::flag:
      if (const auto* flag = std::get_if<bool>(&given.value)) return Value(*flag);
      return Wrong{fmt::format("it must be true or false{}", withoutQuotes(given))};
    case Kind::command:
      return readCommand(given);
  }
  return Wrong{"it is of no known kind"};
}

SectionValues::Outcome SectionValues::readText(const SettingsKey& key, const std::string& text) {
  if (text.empty()) return Wrong{"it is empty"};
  if (printable(text) != text) return Wrong{"it holds a control character"};
  if (key.kind == SettingsKey::Kind::choice && std::ranges::find(key.words, text) == key.words.end())
    return Wrong{fmt::format("{} is none of {}{}", inQuotes(text), fmt::join(key.words, ", "),
                             suggestion(text, copyOf(key.words)))};
  return Value(text);
}

SectionValues::Outcome SectionValues::readDuration(const SettingsKey& key, const TomlValue& given) {
  const auto* text = std::get_if<std::string>(&given.value);
  if (text && std::ranges::find(key.words, *text) != key.words.end()) return Value(*text);
  const auto number = numberOf(given);
  const auto duration = text     ? durationFromText(*text)
                        : number ? durationFromText(fmt::format("{:.6f}", *number))
                                 : std::nullopt;
  const std::string words =
      key.words.empty() ? "" : fmt::format(" or \"{}\"", fmt::join(key.words, "\", \""));
  const std::string meant = text ? meantDuration(*text) : std::string();
  if (!duration)
    return Wrong{
        fmt::format("it must be a duration: seconds, or a text with d, h, m, s or ms such as "
                    "\"1h30m\"{}{}",
                    words, platform::didYouMean(meant.empty() ? "" : inQuotes(meant)))};
  if (std::chrono::duration<double>(*duration).count() < key.least)
    return Wrong{fmt::format("it must be {} seconds at least", key.least)};
  return Value(*duration);
}

SectionValues::Outcome SectionValues::readCommand(const TomlValue& given) {
  const auto* array = std::get_if<TomlValue::Array>(&given.value);
  std::vector<std::string> words;
  if (array)
    for (const TomlValue& element : *array)
      if (const auto* word = std::get_if<std::string>(&element.value)) words.push_back(*word);
  if (!array || words.empty() || words.size() != array->size())
    return Wrong{"it must be a list of texts, [\"/usr/bin/notify\", \"--urgent\"]; no shell runs it"};
  if (!words.front().starts_with('/'))
    return Wrong{fmt::format("{} is not a full path of a program, such as \"/usr/bin/notify\"",
                             inQuotes(words.front()))};
  const auto hasNull = [](const std::string& word) { return word.find('\0') != std::string::npos; };
  if (std::ranges::any_of(words, hasNull)) return Wrong{"it holds a null character"};
  return Value(words);
}

}  // namespace brenloft
