#include "gateway/Texts.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include <fmt/format.h>

#include "platform/foundation/UTF8.h"

namespace brenloft {
namespace {

std::optional<double> secondsPerUnit(std::string_view unit) {
  if (unit == "d") return 86'400;
  if (unit == "h") return 3600;
  if (unit == "m") return 60;
  if (unit == "s") return 1;
  if (unit == "ms") return 1e-3;
  return std::nullopt;
}

// A century; longer durations would not fit the clock.
constexpr double kLongestDuration = 3.2e9;

// U+0000 to U+001F and U+007F to U+009F.
bool isControl(std::string_view character) {
  const auto first = static_cast<unsigned char>(character[0]);
  if (character.size() == 1) return first < 0x20 || first == 0x7F;
  return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

}  // namespace

std::optional<std::chrono::microseconds> durationFromText(std::string_view text) {
  double total = 0;
  bool hasUnits = false;
  if (text.empty()) return std::nullopt;
  while (!text.empty()) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || !(number >= 0)) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    const std::string_view unit = text.substr(0, text.find_first_of("0123456789."));
    text.remove_prefix(unit.size());
    if (unit.empty() && hasUnits) return std::nullopt;
    hasUnits = true;
    const auto factor = unit.empty() ? std::optional<double>(1) : secondsPerUnit(unit);
    if (!factor) return std::nullopt;
    total += number * *factor;
  }
  if (!(total <= kLongestDuration)) return std::nullopt;
  return std::chrono::microseconds(std::llround(total * 1e6));
}

std::string meantDuration(std::string_view text) {
  constexpr std::array<std::pair<std::string_view, std::string_view>, 6> kUnits{
      {{"day", "d"}, {"hour", "h"}, {"hr", "h"}, {"minute", "m"}, {"second", "s"}, {"ms", "ms"}}};
  std::string plain;
  for (const char c : text)
    if (c != ' ') plain += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  std::string meant;
  for (std::string_view rest = plain; !rest.empty();) {
    const std::size_t number = std::min(rest.find_first_not_of("0123456789."), rest.size());
    meant += rest.substr(0, number);
    rest.remove_prefix(number);
    std::string_view word = rest.substr(0, rest.find_first_of("0123456789"));
    rest.remove_prefix(word.size());
    if (word.size() > 2 && word.ends_with('s')) word.remove_suffix(1);
    const auto unit =
        std::ranges::find_if(kUnits, [&](const auto& one) { return one.first.starts_with(word); });
    if (number == 0 || word.empty() || unit == kUnits.end()) return {};
    meant += unit->second;
  }
  return durationFromText(meant) ? meant : std::string();
}

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = platform::characterLength(text);
    const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
    if (length == 0 || isControl(character))
      result += '?';
    else
      result += character;
    text.remove_prefix(character.size());
  }
  return result;
}

std::string counted(uint64_t count, std::string_view noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string csvField(std::string_view text) {
  std::string field;
  appendCsvField(field, text);
  return field;
}

void appendCsvField(std::string& fields, std::string_view text) {
  // The others come before the comma.
  const auto isPlain = [](unsigned char c) {
    return c > ',' || (c != ',' && c != '"' && c != '\r' && c != '\n');
  };
  if (std::all_of(text.begin(), text.end(), isPlain)) {
    fields += text;
    return;
  }
  fields += '"';
  for (const char c : text) fields.append(c == '"' ? 2 : 1, c);
  fields += '"';
}

std::string fitted(std::string text, std::size_t width) {
  std::size_t characters = 0;
  const auto isBeyond = [&](char c) {
    const bool begins = (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return begins && ++characters > width;
  };
  text.erase(std::find_if(text.begin(), text.end(), isBeyond), text.end());
  return text;
}

}  // namespace brenloft
