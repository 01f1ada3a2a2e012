#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "gateway/Secret.h"
#include "gateway/configuration/Settings.h"
#include "gateway/history/HistoryReader.h"

namespace brenloft::web {

// What a client asks for. Everything here is pure, and takes any octets.

/// The middle of a request line, decoded.
struct Target {
  std::string path{};
  std::map<std::string, std::string> query{};  ///< of a key that is there twice the last
};
/// Nothing where it is none: it does not begin with a slash, a percent sign stands before no octet, or what
/// is encoded has a control character or is no UTF-8.
std::optional<Target> targetOf(std::string_view text);

struct Request {
  Target target{};
  std::string host{};
  std::string authorization{};
  std::string accept{};
  std::string lastEventId{};
};

/// Whether the header lists this word with a weight above 0; "*" is every word.
bool accepts(std::string_view header, std::string_view word);
/// Whether one of the tags of `If-None-Match` is this one.
bool hasTag(std::string_view header, std::string_view tag);
/// Whether a Host header names this machine itself: a page elsewhere whose name leads here says its own.
bool isThisMachine(std::string_view host);
/// `Bearer TOKEN`, or `Basic` with the token as the password. Takes as long for every wrong one.
bool isAuthorized(std::string_view authorization, const Secret& token);

/// What `/api/history` is asked for.
struct HistoryQuery {
  static constexpr std::size_t kMostPoints = 5000;

  BeaconId beacon;
  HistorySpan span{};  ///< both ends given
  std::size_t points = 500;
  bool isCsv = false;
};
/// Or one line that says what is wrong.
std::variant<HistoryQuery, std::string> historyQueryOf(const Request& request, const Settings& settings,
                                                       platform::Date now);
/// The number of the row after which a stream goes on; absent where the header has none.
std::optional<int64_t> lastEventIdOf(std::string_view header);

}  // namespace brenloft::web
