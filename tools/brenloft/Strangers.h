#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>

#include "gateway/Record.h"

namespace brenloft {

/// Counts the devices that send what no sensor can measure, and says so once.
///
/// Threads: one at a time.
class Strangers {
 public:
  /// More are not told apart.
  static constexpr std::size_t kMost = 1'000;

  /// The line for people, when it is time for it: some seconds after the first one.
  std::optional<std::string> refused(const Reading& reading);
  /// The line, unless it was said, or nothing was refused.
  std::optional<std::string> atEnd();

 private:
  std::string line() const;

  std::set<BeaconId> devices_;
  std::string example_;
  platform::Date first_{};
  bool isSaid_ = false;
};

}  // namespace brenloft
