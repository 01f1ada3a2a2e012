#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include <brenloft.hpp>

/// Says when a fridge was too warm for ten minutes, when it is cold again, and when its beacon is silent.
class FridgeAlarm {
 public:
  using Notify = std::function<void(const std::string& line)>;

  static constexpr double kTooWarm = 8.0;
  static constexpr double kColdAgain = 7.0;  // below the first, so that it does not flicker
  static constexpr std::chrono::minutes kPatience{10};

  FridgeAlarm(std::string beacon, Notify notify) : beacon_(std::move(beacon)), notify_(std::move(notify)) {}

  void heard(const brenloft::Event& event) {
    if (event.beacon() != beacon_) return;
    if (const auto* reading = event.reading(); reading && reading->temperatureCelsius)
      measured(*reading->temperatureCelsius, reading->time);
    if (event.lost()) notify_("no word from the fridge");
  }

 private:
  // The reading's own time: the same on a recording, and in a test.
  void measured(double temperature, brenloft::Time time) {
    if (temperature < kColdAgain) {
      if (isRaised_) notify_("the fridge is cold again");
      isRaised_ = false;
    }
    if (temperature <= kTooWarm) warmSince_.reset();
    if (temperature > kTooWarm && !warmSince_) warmSince_ = time;
    if (isRaised_ || !warmSince_ || time - *warmSince_ < kPatience) return;
    isRaised_ = true;
    notify_("the fridge is too warm: " + std::to_string(temperature) + " °C");
  }

  const std::string beacon_;
  const Notify notify_;
  std::optional<brenloft::Time> warmSince_;
  bool isRaised_ = false;
};
