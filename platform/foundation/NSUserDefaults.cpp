#include "platform/foundation/NSUserDefaults.h"

#include <algorithm>
#include <charconv>
#include <mutex>
#include <utility>

namespace platform {
namespace {

class InMemoryUserDefaults final : public NSUserDefaults {
 public:
  std::optional<Value> objectForKey(std::string_view key) const override {
    const std::scoped_lock lock(mutex_);
    const auto known = values_.find(key);
    if (known == values_.end()) return std::nullopt;
    return known->second;
  }
  void setObject_forKey(Value value, std::string_view key) override {
    const std::scoped_lock lock(mutex_);
    values_.insert_or_assign(std::string(key), std::move(value));
  }
  void removeObjectForKey(std::string_view key) override {
    const std::scoped_lock lock(mutex_);
    if (const auto known = values_.find(key); known != values_.end()) values_.erase(known);
  }
  bool synchronize() override { return true; }

 private:
  mutable std::mutex mutex_;
  Dictionary values_;  // guarded by mutex_
};

// The number at the start of a text, whatever the application's locale is.
double leadingNumber(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
  if (text.starts_with("+") && !text.starts_with("+-")) text.remove_prefix(1);
  double number = 0.0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

double NSUserDefaults::doubleForKey(std::string_view key) const {
  const std::optional<Value> value = objectForKey(key);
  if (!value) return 0.0;
  if (const auto* number = std::get_if<NSNumber>(&*value)) return number->doubleValue();
  if (const auto* text = std::get_if<std::string>(&*value)) return leadingNumber(*text);
  return 0.0;
}

void NSUserDefaults::setDouble_forKey(double value, std::string_view key) {
  setObject_forKey(NSNumber(value), key);
}

bool NSUserDefaults::boolForKey(std::string_view key) const {
  const std::optional<Value> value = objectForKey(key);
  const auto* number = value ? std::get_if<NSNumber>(&*value) : nullptr;
  return number != nullptr && number->boolValue();
}

void NSUserDefaults::setBool_forKey(bool value, std::string_view key) {
  setObject_forKey(NSNumber(value), key);
}

std::shared_ptr<NSUserDefaults> makeInMemoryUserDefaults() {
  return std::make_shared<InMemoryUserDefaults>();
}

}  // namespace platform
