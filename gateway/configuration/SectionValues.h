#pragma once

#include <chrono>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "gateway/configuration/SettingsSchema.h"
#include "gateway/configuration/TomlDocument.h"

namespace brenloft {

using Complaints = std::vector<Complaint>;

/// "; did you mean WORD?" where one of these is like it.
std::string suggestion(std::string_view word, const std::vector<std::string>& words);

/// ", without quotes" where a number or a flag has some.
std::string_view withoutQuotes(const TomlValue& given);

/// The values of one table that are of the kind and in the range that its keys say; it complains of the rest.
class SectionValues {
 public:
  /// `section` as a line names it: "[[alarm]]".
  SectionValues(const TomlValue::Table& table, const std::vector<SettingsKey>& keys, std::string_view section,
                Complaints& complaints);

  bool has(std::string_view key) const { return values_.contains(key); }
  /// Of the key, or of the section where it is absent.
  unsigned line(std::string_view key, unsigned otherwise) const;

  /// What stands there, if anything right does. The key must be of that kind.
  std::string text(std::string_view key) const { return get<std::string>(key, {}); }
  double number(std::string_view key) const { return get<double>(key, 0); }
  bool flag(std::string_view key) const { return get<bool>(key, false); }
  std::vector<std::string> command(std::string_view key) const {
    return get<std::vector<std::string>>(key, {});
  }
  std::chrono::microseconds duration(std::string_view key, std::chrono::microseconds otherwise = {}) const {
    return get<std::chrono::microseconds>(key, otherwise);
  }

 private:
  using Value = std::variant<std::string, double, std::chrono::microseconds, bool, std::vector<std::string>>;
  struct Wrong {
    std::string reason;
  };
  using Outcome = std::variant<Value, Wrong>;
  struct Placed {
    Value value;
    unsigned line;
  };

  template <class T>
  T get(std::string_view key, T otherwise) const {
    const auto found = values_.find(key);
    const T* value = found == values_.end() ? nullptr : std::get_if<T>(&found->second.value);
    return value ? *value : otherwise;
  }
  static Outcome read(const SettingsKey& key, const TomlValue& given);
  static Outcome readText(const SettingsKey& key, const std::string& text);
  static Outcome readDuration(const SettingsKey& key, const TomlValue& given);
  static Outcome readCommand(const TomlValue& given);

  std::map<std::string_view, Placed> values_;
};

}  // namespace brenloft
