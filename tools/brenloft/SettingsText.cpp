#include "tools/brenloft/SettingsText.h"

#include <algorithm>
#include <variant>
#include <vector>

#include <fmt/format.h>

#include "gateway/configuration/SettingsSchema.h"
#include "gateway/configuration/TomlDocument.h"
#include "platform/foundation/JSONWriter.h"

namespace brenloft {
namespace {

template <class T>
const T* as(const TomlValue& value) {
  return std::get_if<T>(&value.value);
}

// What JSON escapes TOML has, too.
std::string inQuotes(const std::string& text) {
  platform::JSONWriter json;
  json.text(text);
  return std::string(json.written());
}

std::string tomlKeyText(const std::string& key) {
  const auto isPlain = [](char c) { return (c >= 'a' && c <= 'z') || c == '-'; };
  return std::ranges::all_of(key, isPlain) ? key : inQuotes(key);
}

std::string tomlValueText(const TomlValue& value) {
  if (const auto* text = as<std::string>(value)) return inQuotes(*text);
  if (const auto* whole = as<int64_t>(value)) return std::to_string(*whole);
  if (const auto* number = as<double>(value)) return fmt::format("{}", *number);
  if (const auto* flag = as<bool>(value)) return *flag ? "true" : "false";
  std::vector<std::string> words;
  if (const auto* array = as<TomlValue::Array>(value))
    for (const TomlValue& one : *array) words.push_back(tomlValueText(one));
  return fmt::format("[{}]", fmt::join(words, ", "));
}

bool isSections(const TomlValue& value) {
  const auto* array = as<TomlValue::Array>(value);
  return as<TomlValue::Table>(value) != nullptr ||
         (array && !array->empty() && as<TomlValue::Table>(array->front()) != nullptr);
}

void writeSetting(std::string& text, const std::string& setting, const std::string& origin) {
  text += fmt::format("{:<40}  # {}\n", setting, origin);
}

bool stands(const TomlValue::Table& table, std::string_view key) {
  return std::ranges::find(table, key, &TomlEntry::key) != table.end();
}

class SettingsWriter {
 public:
  SettingsWriter(const TomlValue::Table& document, const CommandVocabulary& vocabulary)
      : document_(document), vocabulary_(vocabulary) {}

  std::string text() {
    writeSection("", document_);
    return std::move(text_);
  }

 private:
  // What holds where nothing is said; what depends on something else is told in words.
  void writeDefault(const TomlValue::Table& table, std::string_view key, std::string_view fallback) {
    if (!fallback.empty() && !stands(table, key))
      writeSetting(text_, fmt::format("#{}: {}", key, fallback), "default");
  }

  void writeDefaults(const std::string& name, const TomlValue::Table& table) {
    const bool isBeacon = name.starts_with("beacon.");
    if (isBeacon || name == "alarm")
      for (const SettingsKey& key : isBeacon ? beaconKeys() : alarmKeys())
        writeDefault(table, key.name, key.fallback);
    std::string command = name;
    std::ranges::replace(command, '.', ' ');
    const auto options = vocabulary_.commands.find(command);
    if (options == vocabulary_.commands.end()) return;
    for (const CommandOption& option : options->second)
      if (!stands(document_, option.name)) writeDefault(table, option.name, option.fallback);
  }

  void writeSection(const std::string& name, const TomlValue::Table& table) {
    for (const TomlEntry& entry : table)
      if (!isSections(entry.value))
        writeSetting(text_, fmt::format("{} = {}", tomlKeyText(entry.key), tomlValueText(entry.value)),
                     fmt::format("line {}", entry.value.line));
    writeDefaults(name, table);
    for (const TomlEntry& entry : table)
      if (isSections(entry.value))
        writeSections((name.empty() ? "" : name + '.') + tomlKeyText(entry.key), entry.value);
  }

  void writeSections(const std::string& name, const TomlValue& value) {
    if (const auto* one = as<TomlValue::Table>(value)) {
      const bool hasOwn = std::ranges::any_of(*one, [](const auto& own) { return !isSections(own.value); });
      if (hasOwn || one->empty()) text_ += fmt::format("\n[{}]\n", name);
      return writeSection(name, *one);
    }
    for (const TomlValue& element : *as<TomlValue::Array>(value)) {
      text_ += fmt::format("\n[[{}]]\n", name);
      writeSection(name, *as<TomlValue::Table>(element));
    }
  }

  const TomlValue::Table& document_;
  const CommandVocabulary& vocabulary_;
  std::string text_;
};

}  // namespace

std::string settingsText(std::string_view file, const CommandVocabulary& vocabulary) {
  const auto document = readToml(file);
  const auto* table = std::get_if<TomlValue::Table>(&document);
  return table ? SettingsWriter(*table, vocabulary).text() : std::string();
}

}  // namespace brenloft
