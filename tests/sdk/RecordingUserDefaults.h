#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/foundation/NSUserDefaults.h"

namespace test {

/// Settings in memory that write down what is done to them: "set KEY", "remove KEY", "synchronize". One
/// thread at a time.
class RecordingUserDefaults final : public platform::NSUserDefaults {
 public:
  std::optional<platform::Value> objectForKey(std::string_view key) const override {
    return values_->objectForKey(key);
  }
  void setObject_forKey(platform::Value value, std::string_view key) override {
    operations_.push_back("set " + std::string(key));
    values_->setObject_forKey(std::move(value), key);
  }
  void removeObjectForKey(std::string_view key) override {
    operations_.push_back("remove " + std::string(key));
    values_->removeObjectForKey(key);
  }
  bool synchronize() override {
    operations_.emplace_back("synchronize");
    return values_->synchronize();
  }

  /// What was done since the last time.
  std::vector<std::string> take() { return std::exchange(operations_, {}); }

 private:
  const std::shared_ptr<platform::NSUserDefaults> values_ = platform::makeInMemoryUserDefaults();
  std::vector<std::string> operations_;
};

}  // namespace test
