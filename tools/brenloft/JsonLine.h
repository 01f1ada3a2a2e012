#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/Date.h"
#include "tools/brenloft/Options.h"

namespace brenloft {

/// Writes one line of JSON after the other, each one value.
///
/// Threads: one at a time.
class JsonLine {
 public:
  explicit JsonLine(TimeForm timeForm = TimeForm::epoch);
  ~JsonLine();
  JsonLine(const JsonLine&) = delete;
  JsonLine& operator=(const JsonLine&) = delete;

  JsonLine& beginObject();
  JsonLine& endObject();
  JsonLine& beginArray();
  JsonLine& endArray();
  JsonLine& key(std::string_view key);
  /// Octets that are no UTF-8 come out as replacement characters.
  JsonLine& text(std::string_view text);
  JsonLine& textOrNull(const std::optional<std::string>& optional);
  JsonLine& number(int64_t number);
  JsonLine& boolean(bool value);
  /// A number: seconds since 1970 with six decimals; in the other forms a text.
  JsonLine& date(platform::Date date);
  JsonLine& null();

  /// The line with its end; the next one begins. Valid until then.
  std::string_view take();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace brenloft
