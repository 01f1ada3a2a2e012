#pragma once

#include <csignal>
#include <cstdio>
#include <functional>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include "BrenloftSDK/BRLDataManager.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/coredata/StoreFixture.h"

namespace test {

/// A platform with its documents in a folder, installed.
class StorePlatform {
 public:
  explicit StorePlatform(const std::filesystem::path& documents,
                         std::shared_ptr<const platform::NSBundle> bundle = nullptr)
      : platform_({.documents = documents, .bundle = std::move(bundle)}) {
    platform_.install();
  }
  platform::SimulatedPlatform* operator->() { return &platform_; }

 private:
  platform::SimulatedPlatform platform_;
};

/// Runs a launch of an application on a folder, as a process of its own: its exit status, or the signal that
/// ended it as a negative number. Call before this process has threads or has touched the library.
inline int launch(const std::filesystem::path& documents, const std::function<void()>& application) {
  const pid_t child = fork();
  if (child == 0) {
    StorePlatform platform(documents);
    application();
    std::fflush(stdout);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

inline platform::Dictionary sensorDictionary(const std::string& id = "0C-61-CF-12-34-56") {
  using platform::NSNumber;
  return {{"beaconType", NSNumber(1)},
          {"beaconId", id},
          {"uuid", std::string("FEAA")},
          {"major", NSNumber(0)},
          {"minor", NSNumber(0)},
          {"rssi", NSNumber(-67)},
          {"txPower", NSNumber(200)},
          {"status", NSNumber(1)},
          {"statusUpdatedDate", platform::dateWithTimeIntervalSince1970(1'470'406'990.25)},
          {"emergency", NSNumber(0)},
          {"battery", NSNumber(99)},
          {"temperature", std::string("23.50")},
          {"humidity", std::string("")},
          {"uniqueId", id},
          {"tbd", std::string("0a0b0c")},
          {"xAccel", std::string("-12")},
          {"yAccel", std::string("0")},
          {"zAccel", std::string("1024")}};
}

inline void logSensor(const std::string& id = "0C-61-CF-12-34-56") {
  BRLDataManager::Class::shareInstance()->loggingForSensor(BRLBeaconDataModel(sensorDictionary(id)));
}

inline uint64_t logCount() {
  uint64_t result = UINT64_MAX;
  BRLDataManager::Class::selectBeaconLogAllCountWithCompletionBlock([&](uint64_t count) { result = count; });
  return result;
}

inline std::string logJSON() {
  std::string text;
  BRLDataManager::Class::selectBeaconLogAllJSONWithCompletionBlock(
      [&](const auto& data) { text = data ? std::string(platform::textOf(*data)) : "nothing"; });
  return text;
}

inline std::vector<std::string> tagKeys() {
  std::vector<std::string> keys;
  BRLDataManager::Class::getBeaconTagListWithCompletionBlock([&](const auto& tags) {
    for (const auto& tag : tags.value()) keys.push_back(tag->uuid().value_or("NULL"));
  });
  return keys;
}

}  // namespace test
