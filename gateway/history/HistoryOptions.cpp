#include "gateway/history/HistoryOptions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace brenloft {
namespace {

struct DeadbandKey {
  std::string_view word;
  double scale;
  std::optional<int32_t> HistoryDeadband::*member;
};

constexpr std::array kDeadbandKeys{
    DeadbandKey{"temperature", 100, &HistoryDeadband::temperature},
    DeadbandKey{"humidity", 100, &HistoryDeadband::humidity},
    DeadbandKey{"battery", 1, &HistoryDeadband::battery},
    DeadbandKey{"rssi", 1, &HistoryDeadband::rssi},
    DeadbandKey{"accel", 1, &HistoryDeadband::acceleration},
};

std::optional<double> positiveNumber(std::string_view text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || !(number > 0) || !std::isfinite(number))
    return std::nullopt;
  return number;
}

// One "temperature=0.2".
bool addDeadband(std::string_view text, HistoryDeadband& deadband) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) return false;
  const auto key = std::ranges::find(kDeadbandKeys, text.substr(0, equals), &DeadbandKey::word);
  const auto number = positiveNumber(text.substr(equals + 1));
  if (key == kDeadbandKeys.end() || !number || *number * key->scale > 1e6) return false;
  if (deadband.*key->member) return false;
  deadband.*key->member = std::max(1, static_cast<int32_t>(std::lround(*number * key->scale)));
  return true;
}

}  // namespace

std::optional<HistoryDeadband> historyDeadbandFromText(std::string_view text) {
  HistoryDeadband deadband;
  while (true) {
    const std::size_t comma = text.find(',');
    if (!addDeadband(text.substr(0, comma), deadband)) return std::nullopt;
    if (comma == std::string_view::npos) return deadband;
    text.remove_prefix(comma + 1);
  }
}

std::optional<uint64_t> historySizeFromText(std::string_view text) {
  constexpr std::string_view units = "MGT";
  constexpr double least = 1 << 20;
  if (text.empty()) return std::nullopt;
  const std::size_t unit = units.find(text.back());
  if (unit == std::string_view::npos) return std::nullopt;
  const auto number = positiveNumber(text.substr(0, text.size() - 1));
  if (!number) return std::nullopt;
  const double size = std::ldexp(*number, 20 + 10 * static_cast<int>(unit));
  if (size < least || size > 0x1p60) return std::nullopt;
  return static_cast<uint64_t>(size);
}

}  // namespace brenloft
