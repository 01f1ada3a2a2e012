#pragma once

#include <string>
#include <string_view>

#include "gateway/BeaconId.h"

namespace brenloft {

/// The topics of one gateway.
class Topics {
 public:
  /// `gateway` is a name as `isName` has it.
  explicit Topics(std::string_view gateway)
      : gateway_(gateway), base_("brenloft/" + std::string(gateway) + '/') {}

  /// Where several gateways say together what one of them alone cannot know.
  static Topics shared() { return Topics("_shared"); }

  const std::string& gateway() const { return gateway_; }
  std::string status() const { return base_ + "status"; }
  std::string info() const { return base_ + "info"; }
  std::string event() const { return base_ + "event"; }
  std::string batch() const { return base_ + "batch"; }
  std::string state(const BeaconId& beacon) const { return of(beacon, "state"); }
  std::string presence(const BeaconId& beacon) const { return of(beacon, "presence"); }
  std::string presenceOf(const std::string& word) const { return base_ + "beacon/" + word + "/presence"; }
  std::string alarms(const BeaconId& beacon) const { return of(beacon, "alarms"); }
  /// What every topic of the gateway begins with.
  const std::string& begin() const { return base_; }
  /// All of them.
  std::string all() const { return base_ + '#'; }

  /// A beacon's identifier as one level of a topic, and as a part of other identifiers.
  static std::string wordOf(const BeaconId& beacon);
  /// Whether a gateway can have this name: letters, digits, hyphens and underscores, no underscore in front.
  static bool isName(std::string_view text);

 private:
  std::string of(const BeaconId& beacon, std::string_view what) const {
    return base_ + "beacon/" + wordOf(beacon) + '/' + std::string(what);
  }

  const std::string gateway_;
  const std::string base_;
};

}  // namespace brenloft
