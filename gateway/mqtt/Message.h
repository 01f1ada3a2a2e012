#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace brenloft {

/// What is published, always with quality of service 1.
struct Message {
  std::string topic;
  std::string payload{};  ///< none: what is retained under the topic is removed
  bool isRetained = false;
  /// After which the broker forgets it; from MQTT 5 on.
  std::optional<std::chrono::seconds> expiry{};

  friend bool operator==(const Message&, const Message&) = default;
};

}  // namespace brenloft
