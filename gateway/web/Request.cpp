#include "gateway/web/Request.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

#include "gateway/InstantText.h"
#include "gateway/Texts.h"
#include "platform/foundation/Suggestion.h"

namespace brenloft::web {
namespace {

using platform::Date;

constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// The part before the next separator, which is taken off with it.
std::string_view takeUntil(std::string_view& text, char separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

std::string lowered(std::string_view text) {
  std::string lower(text);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return lower;
}

std::optional<std::string> decoded(std::string_view text, bool isQuery) {
  std::string octets;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '+' && isQuery) c = ' ';
    if (c == '%') {
      unsigned octet = 0;
      if (i + 2 >= text.size()) return std::nullopt;
      const char* begin = text.data() + i + 1;
      if (std::from_chars(begin, begin + 2, octet, 16).ptr != begin + 2) return std::nullopt;
      c = static_cast<char>(octet);
      i += 2;
    }
    octets += c;
  }
  if (printable(octets) != octets) return std::nullopt;
  return octets;
}

template <typename Number>
bool readNumber(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

int valueOfDigit(char c) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::size_t at = kDigits.find(c);
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

// Base64; what is no digit of it ends it.
std::string fromBase64(std::string_view text) {
  std::string octets;
  uint32_t bits = 0;
  int count = 0;
  for (const char c : text) {
    const int value = valueOfDigit(c);
    if (value < 0) break;
    bits = bits << 6 | static_cast<uint32_t>(value);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    octets += static_cast<char>(bits >> count & 0xFF);
  }
  return octets;
}

// However much of it is right, it takes as long.
bool isSame(std::string_view given, std::string_view secret) {
  std::size_t difference = given.size() ^ secret.size();
  for (std::size_t i = 0; i < given.size(); ++i)
    difference |= static_cast<unsigned char>(given[i]) ^
                  static_cast<unsigned char>(secret.empty() ? 0 : secret[i % secret.size()]);
  return difference == 0;
}

// A beacon by its identifier, or by a name that only one has.
std::variant<BeaconId, std::string> beaconOfText(const std::string& text, const Settings& settings) {
  std::vector<std::string> names;
  std::optional<BeaconId> named;
  std::size_t count = 0;
  for (const auto& [id, known] : settings.beacons) {
    if (!known.name.empty()) names.push_back(known.name);
    if (known.name != text || text.empty()) continue;
    named = id;
    ++count;
  }
  if (count > 1) return "beacon: more than one has this name; give its identifier";
  if (named) return *named;
  if (const auto id = BeaconId::fromText(text)) return *id;
  if (text.empty()) return "beacon: whose history? Give a name or an identifier";
  return fmt::format("beacon: '{}' is not a beacon's name, nor an identifier such as C0-C1-5C-00-00-01{}",
                     text, platform::didYouMean(platform::nearest(text, names)));
}

// As on the command line; a number alone counts the seconds since 1970.
bool readInstant(const std::string& text, Date now, Date& date) {
  const bool isNumber = text.find_first_not_of("0123456789.") == std::string::npos;
  const auto read = instantFromText(isNumber ? '@' + text : text, now);
  if (read) date = *read;
  return read.has_value();
}

}  // namespace

std::optional<Target> targetOf(std::string_view text) {
  if (!text.starts_with('/')) return std::nullopt;
  auto path = decoded(takeUntil(text, '?'), false);
  if (!path) return std::nullopt;
  Target target{*std::move(path)};
  while (!text.empty()) {
    std::string_view value = takeUntil(text, '&');
    const auto key = decoded(takeUntil(value, '='), true);
    const auto decodedValue = decoded(value, true);
    if (!key || !decodedValue) return std::nullopt;
    if (!key->empty()) target.query[*key] = *decodedValue;
  }
  return target;
}

bool accepts(std::string_view header, std::string_view word) {
  while (!header.empty()) {
    std::string_view one = takeUntil(header, ',');
    const std::string name = lowered(trimmed(takeUntil(one, ';')));
    if (name != word && name != "*") continue;
    const std::string weight = lowered(trimmed(one));
    return !(weight.starts_with("q=0") && weight.find_first_of("123456789") == std::string::npos);
  }
  return false;
}

bool hasTag(std::string_view header, std::string_view tag) {
  while (!header.empty()) {
    std::string_view one = trimmed(takeUntil(header, ','));
    if (one.starts_with("W/")) one.remove_prefix(2);
    if (one == "*" || one == tag) return true;
  }
  return false;
}

bool isThisMachine(std::string_view host) {
  if (host.starts_with('[')) return host.starts_with("[::1]");
  std::string name = lowered(host.substr(0, host.find(':')));
  if (name.ends_with('.')) name.pop_back();
  if (name == "localhost") return true;
  return name.starts_with("127.") && name.find_first_not_of("0123456789.") == std::string::npos;
}

bool isAuthorized(std::string_view authorization, const Secret& token) {
  const std::string scheme = lowered(takeUntil(authorization, ' '));
  const std::string_view rest = trimmed(authorization);
  if (scheme == "bearer") return isSame(rest, token.revealed());
  if (scheme != "basic") return false;
  const std::string login = fromBase64(rest);
  const std::size_t colon = login.find(':');
  return colon != std::string::npos && isSame(std::string_view(login).substr(colon + 1), token.revealed());
}

std::variant<HistoryQuery, std::string> historyQueryOf(const Request& request, const Settings& settings,
                                                       Date now) {
  std::map<std::string, std::string> query = request.target.query;
  const auto take = [&](const char* key) {
    const auto found = query.extract(key);
    return found ? found.mapped() : std::string();
  };
  const auto beacon = beaconOfText(take("beacon"), settings);
  if (const auto* problem = std::get_if<std::string>(&beacon)) return *problem;
  HistoryQuery asked{.beacon = std::get<BeaconId>(beacon), .span = {now - std::chrono::days(1), now}};
  for (const auto& [key, date] : {std::pair("since", &asked.span.since), {"until", &asked.span.until}})
    if (const std::string text = take(key); !text.empty() && !readInstant(text, now, *date))
      return fmt::format("{}: '{}' is not a time such as 1795255200, 2026-11-21T10:00Z or 2h (ago)", key,
                         text);
  // Nothing was heard before 1970, nor will have been.
  asked.span = {std::max(asked.span.since, Date()), std::min(asked.span.until, now)};
  if (asked.span.until <= asked.span.since) return "until is not after since, or since is not in the past";
  if (const std::string text = take("points"); !text.empty())
    if (!readNumber(text, asked.points) || asked.points < 1 || asked.points > HistoryQuery::kMostPoints)
      return fmt::format("points: '{}' is not a number from 1 to {}", text, HistoryQuery::kMostPoints);
  const std::string format = take("format");
  if (!format.empty() && format != "json" && format != "csv")
    return fmt::format("format: '{}' is neither json nor csv", format);
  asked.isCsv = format == "csv" || (format.empty() && lowered(request.accept).starts_with("text/csv"));
  if (!query.empty())
    return fmt::format("'{}' is not a parameter{}", query.begin()->first,
                       platform::didYouMean(platform::nearest(
                           query.begin()->first, {"beacon", "since", "until", "points", "format"})));
  return asked;
}

std::optional<int64_t> lastEventIdOf(std::string_view header) {
  int64_t seq = 0;
  return readNumber(header, seq) && seq >= 0 ? std::optional(seq) : std::nullopt;
}

}  // namespace brenloft::web
