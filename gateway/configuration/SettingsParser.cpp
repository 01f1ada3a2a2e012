#include "gateway/configuration/SettingsParser.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "gateway/configuration/AlarmParser.h"
#include "gateway/configuration/SectionValues.h"
#include "gateway/configuration/SettingsSchema.h"

namespace brenloft {
namespace {

template <class T>
const T* as(const TomlValue& value) {
  return std::get_if<T>(&value.value);
}

// The words of one value on a command line; nothing for what is no single value.
std::optional<std::string> wordOf(const TomlValue& value) {
  if (const auto* text = as<std::string>(value)) return *text;
  if (const auto* whole = as<int64_t>(value)) return std::to_string(*whole);
  if (const auto* number = as<double>(value); number && std::isfinite(*number))
    return fmt::format("{}", *number);
  return std::nullopt;
}

class DocumentReader {
 public:
  explicit DocumentReader(const CommandVocabulary& vocabulary) : vocabulary_(vocabulary) {}

  std::variant<Settings, Complaints> read(const TomlValue::Table& document) {
    for (const TomlEntry& entry : document)
      if (entry.key != "alarm") readSection(entry);
    for (const TomlEntry& entry : document)
      if (entry.key == "alarm") readAlarms(entry.value);
    for (const auto& [value, key] : common_) addCommonOption(key, *value);
    if (complaints_.empty()) return std::move(settings_);
    std::ranges::stable_sort(complaints_, {}, &Complaint::line);
    complaints_.erase(std::unique(complaints_.begin(), complaints_.end()), complaints_.end());
    return std::move(complaints_);
  }

 private:
  void complain(const TomlValue& value, std::string reason) {
    complaints_.push_back({value.line, std::move(reason)});
  }

  void readSection(const TomlEntry& entry) {
    const auto* table = as<TomlValue::Table>(entry.value);
    if (entry.key == "beacon") return readBeacons(entry.value);
    if (isCommand(entry.key)) return readCommand(entry.key, entry.value);
    const auto* array = as<TomlValue::Array>(entry.value);
    const bool isSection = table || (array && !array->empty() && as<TomlValue::Table>(array->front()));
    if (!isSection) return common_.emplace_back(&entry.value, entry.key), void();
    std::vector<std::string> names{"beacon", "alarm"};
    for (const auto& [command, options] : vocabulary_.commands) {
      names.push_back(command.substr(0, command.find(' ')));
      names.push_back(sectionOf(command));
    }
    complain(entry.value, fmt::format("there is no section [{}]{}", entry.key, suggestion(entry.key, names)));
  }

  void readBeacons(const TomlValue& value) {
    const auto* beacons = as<TomlValue::Table>(value);
    if (!beacons) return complain(value, "a beacon begins with [beacon.\"C0-C1-5C-00-00-01\"]");
    for (const TomlEntry& entry : *beacons) readBeacon(entry);
  }

  void readBeacon(const TomlEntry& entry) {
    const auto id = BeaconId::fromText(entry.key);
    const auto* table = as<TomlValue::Table>(entry.value);
    if (!id || !table)
      return complain(
          entry.value,
          fmt::format("\"{}\" is not a beacon's identifier: write [beacon.\"C0-C1-5C-00-00-01\"], or "
                      "[beacon.\"UUID/major/minor\"] for an iBeacon",
                      entry.key));
    const SectionValues values(*table, beaconKeys(), "[beacon]", complaints_);
    BeaconSettings beacon{.name = values.text("name"),
                          .place = values.text("place"),
                          .temperatureOffset = hundredths(values.number("temperature")),
                          .humidityOffset = hundredths(values.number("humidity")),
                          .ignore = values.flag("ignore")};
    if (values.has("exit-time")) {
      beacon.exitTime.emplace();
      if (values.text("exit-time").empty()) beacon.exitTime->given = values.duration("exit-time");
    }
    if (values.has("expected-interval")) beacon.expectedInterval = values.duration("expected-interval");
    for (const auto& [other, known] : settings_.beacons)
      if (!beacon.name.empty() && known.name == beacon.name)
        complaints_.push_back({values.line("name", entry.value.line),
                               fmt::format("{} is named \"{}\", too", other.text(), beacon.name)});
    if (!settings_.beacons.emplace(*id, std::move(beacon)).second)
      complain(entry.value, fmt::format("{} is here a second time", id->text()));
  }

  static int32_t hundredths(double value) { return static_cast<int32_t>(std::lround(value * 100)); }

  void readAlarms(const TomlValue& value) {
    const auto* alarms = as<TomlValue::Array>(value);
    const auto isTable = [](const TomlValue& alarm) { return as<TomlValue::Table>(alarm) != nullptr; };
    if (!alarms || !std::ranges::all_of(*alarms, isTable))
      return complain(value, "an alarm begins with [[alarm]]");
    for (const TomlValue& alarm : *alarms)
      addAlarm(*as<TomlValue::Table>(alarm), alarm.line, settings_, complaints_);
  }

  // Also the first word of several commands, such as `log`.
  bool isCommand(const std::string& name) const {
    const auto next = vocabulary_.commands.lower_bound(name);
    return next != vocabulary_.commands.end() && (next->first == name || next->first.starts_with(name + ' '));
  }

  void readCommand(const std::string& name, const TomlValue& value) {
    const auto* table = as<TomlValue::Table>(value);
    if (!table) return complain(value, fmt::format("the options of {} stand below [{}]", name, name));
    for (const TomlEntry& entry : *table) {
      const std::string longer = name + ' ' + entry.key;
      if (isCommand(longer))
        readCommand(longer, entry.value);
      else
        readOption(name, entry);
    }
  }

  void readOption(const std::string& command, const TomlEntry& entry) {
    if (const CommandOption* option = optionOf(command, entry.key))
      return addOption(command, *option, entry.value);
    if (BeaconId::fromText(entry.key))
      return complain(entry.value, fmt::format("there is no section [{0}.\"{1}\"]; did you mean "
                                               "[beacon.\"{1}\"]?",
                                               command, entry.key));
    std::vector<std::string> names;
    for (const auto& [other, options] : vocabulary_.commands) {
      if (other == command)
        for (const CommandOption& option : options) names.push_back(option.name);
      else if (other.starts_with(command + ' '))
        names.push_back(other.substr(command.size() + 1));
    }
    std::string hint = suggestion(entry.key, names);
    if (hint.empty()) hint = elsewhere(entry.key);
    complain(entry.value, fmt::format("{} is not an option of {}{}", entry.key, command, hint));
  }

  // "; [scan] has it": the service's command comes first.
  std::string elsewhere(const std::string& option) const {
    if (optionOf("scan", option)) return "; [scan] has it";
    for (const auto& [command, options] : vocabulary_.commands)
      if (optionOf(command, option)) return fmt::format("; [{}] has it", sectionOf(command));
    return {};
  }

  static std::string sectionOf(std::string command) {
    std::ranges::replace(command, ' ', '.');
    return command;
  }

  const CommandOption* optionOf(const std::string& command, const std::string& name) const {
    const auto options = vocabulary_.commands.find(command);
    if (options == vocabulary_.commands.end()) return nullptr;
    const auto option = std::ranges::find(options->second, name, &CommandOption::name);
    return option == options->second.end() ? nullptr : &*option;
  }

  // Above all sections: for every command that has it and does not say otherwise.
  void addCommonOption(const std::string& name, const TomlValue& value) {
    bool isKnown = false;
    std::vector<std::string> names{"beacon", "alarm"};
    for (const auto& [command, options] : vocabulary_.commands) {
      for (const CommandOption& option : options) names.push_back(option.name);
      const CommandOption* option = optionOf(command, name);
      isKnown |= option != nullptr;
      const auto& given = settings_.options[command];
      if (option && std::ranges::find(given, name, &OptionSetting::option) == given.end())
        addOption(command, *option, value);
    }
    if (!isKnown)
      complain(value, fmt::format("no command has the option {}{}", name, suggestion(name, names)));
  }

  void addOption(const std::string& command, const CommandOption& option, const TomlValue& value) {
    OptionSetting setting{.option = option.name, .line = value.line};
    if (option.isFlag) {
      const bool* flag = as<bool>(value);
      if (!flag)
        return complain(value,
                        fmt::format("{}: it must be true or false{}", option.name, withoutQuotes(value)));
      if (!*flag) return;
    } else if (!addWords(option, value, setting.words)) {
      return complain(value, fmt::format("{}: it must be a text or a number{}", option.name,
                                         option.isRepeatable ? ", or a list of them" : ""));
    }
    const std::string reason = vocabulary_.check ? vocabulary_.check(command, setting) : std::string();
    if (!reason.empty()) return complain(value, fmt::format("{}, for {}", reason, command));
    settings_.options[command].push_back(std::move(setting));
  }

  static bool addWords(const CommandOption& option, const TomlValue& value, std::vector<std::string>& words) {
    const auto* array = as<TomlValue::Array>(value);
    if (array && !option.isRepeatable) return false;
    for (const TomlValue& one : array ? *array : TomlValue::Array{value}) {
      const auto word = wordOf(one);
      if (!word || word->empty() || word->find('\0') != std::string::npos) return false;
      words.push_back(*word);
    }
    return !words.empty();
  }

  const CommandVocabulary& vocabulary_;
  Settings settings_;
  Complaints complaints_;
  std::vector<std::pair<const TomlValue*, std::string>> common_;
};

}  // namespace

std::variant<Settings, Complaints> parseSettings(std::string_view text, const CommandVocabulary& vocabulary) {
  auto document = readToml(text);
  if (const auto* complaint = std::get_if<Complaint>(&document)) return Complaints{*complaint};
  return DocumentReader(vocabulary).read(std::get<TomlValue::Table>(document));
}

}  // namespace brenloft
