#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace brenloft {

/// Which beacon: a sensor beacon by the identifier in its frame, an iBeacon by its UUID, major and minor. A
/// value.
class BeaconId {
 public:
  enum class Kind : uint8_t { sensor = 1, iBeacon = 2 };

  /// `uniqueId` as the frame gives it, "C0-C1-5C-00-00-01".
  static BeaconId sensor(std::string uniqueId) { return {Kind::sensor, std::move(uniqueId)}; }
  /// `uuid` in its canonical upper-case form.
  static BeaconId iBeacon(std::string_view uuid, uint16_t major, uint16_t minor) {
    return {Kind::iBeacon, std::string(uuid) + '/' + std::to_string(major) + '/' + std::to_string(minor)};
  }
  /// From what `text` gives, also in lower case, and a sensor's with colons.
  static std::optional<BeaconId> fromText(std::string_view given);

  Kind kind() const { return kind_; }
  /// "C0-C1-5C-00-00-01", or "UUID/major/minor".
  const std::string& text() const { return text_; }

  friend bool operator==(const BeaconId&, const BeaconId&) = default;
  friend auto operator<=>(const BeaconId&, const BeaconId&) = default;

 private:
  BeaconId(Kind kind, std::string text) : kind_(kind), text_(std::move(text)) {}

  Kind kind_;
  std::string text_;
};

}  // namespace brenloft

template <>
struct std::hash<brenloft::BeaconId> {
  std::size_t operator()(const brenloft::BeaconId& id) const noexcept {
    return std::hash<std::string>()(id.text());
  }
};
