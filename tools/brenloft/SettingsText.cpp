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

// What holds where nothing is said; what depends on something else is told in words.
void writeDefaults(std::string& text, const TomlValue::Table& table, const std::vector<SettingsKey>& keys) {
  for (const SettingsKey& key : keys)
    if (!key.fallback.empty() && std::ranges::find(table, key.name, &TomlEntry::key) == table.end())
      writeSetting(text, fmt::format("#{}: {}", key.name, key.fallback), "default");
}

void writeSection(std::string& text, const std::string& name, const TomlValue::Table& table) {
  for (const TomlEntry& entry : table)
    if (!isSections(entry.value))
      writeSetting(text, fmt::format("{} = {}", tomlKeyText(entry.key), tomlValueText(entry.value)),
                   fmt::format("line {}", entry.value.line));
  if (name.starts_with("beacon.")) writeDefaults(text, table, beaconKeys());
  if (name == "alarm") writeDefaults(text, table, alarmKeys());
  for (const TomlEntry& entry : table) {
    if (!isSections(entry.value)) continue;
    const std::string longer = (name.empty() ? "" : name + '.') + tomlKeyText(entry.key);
    if (const auto* one = as<TomlValue::Table>(entry.value)) {
      const bool hasOwn = std::ranges::any_of(*one, [](const auto& own) { return !isSections(own.value); });
      if (hasOwn || one->empty()) text += fmt::format("\n[{}]\n", longer);
      writeSection(text, longer, *one);
    } else {
      for (const TomlValue& element : *as<TomlValue::Array>(entry.value)) {
        text += fmt::format("\n[[{}]]\n", longer);
        writeSection(text, longer, *as<TomlValue::Table>(element));
      }
    }
  }
}

}  // namespace

std::string settingsText(std::string_view file) {
  std::string text;
  const auto document = readToml(file);
  if (const auto* table = std::get_if<TomlValue::Table>(&document)) writeSection(text, "", *table);
  return text;
}

}  // namespace brenloft
