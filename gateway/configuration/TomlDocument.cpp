#include "gateway/configuration/TomlDocument.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include <fmt/format.h>

// Only here: it is a dear header.
#include <toml++/toml.h>

namespace brenloft {
namespace {

TomlValue valueOf(const toml::node& node, unsigned line);

TomlValue::Array arrayOf(const toml::array& array) {
  TomlValue::Array result;
  for (const toml::node& element : array) result.push_back(valueOf(element, element.source().begin.line));
  return result;
}

TomlValue::Table tableOf(const toml::table& table) {
  TomlValue::Table result;
  for (const auto& [key, node] : table)
    result.push_back({std::string(key.str()), valueOf(node, key.source().begin.line)});
  // It keeps keys in the order of their letters.
  std::ranges::stable_sort(result, {}, [](const TomlEntry& entry) { return entry.value.line; });
  return result;
}

TomlValue valueOf(const toml::node& node, unsigned line) {
  switch (node.type()) {
    case toml::node_type::string:
      return {node.ref<std::string>(), line};
    case toml::node_type::integer:
      return {node.ref<int64_t>(), line};
    case toml::node_type::floating_point:
      return {node.ref<double>(), line};
    case toml::node_type::boolean:
      return {node.ref<bool>(), line};
    case toml::node_type::array:
      return {arrayOf(*node.as_array()), line};
    case toml::node_type::table:
      return {tableOf(*node.as_table()), line};
    default:
      return {TomlValue::Date{}, line};
  }
}

// "Error while parsing key-value pair: REASON"
std::string reasonOf(std::string_view description) {
  const auto colon = description.find(": ");
  const bool hasPlace = description.starts_with("Error while") && colon != std::string_view::npos;
  return std::string(hasPlace ? description.substr(colon + 2) : description);
}

std::string_view trimmed(std::string_view text) {
  const auto begin = text.find_first_not_of(" \t\r");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

std::string_view lineOf(std::string_view text, unsigned line) {
  for (; line > 1; --line) text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
  return text.substr(0, text.find('\n'));
}

bool isToml(std::string_view text) {
  try {
    static_cast<void>(toml::parse(text));
    return true;
  } catch (const toml::parse_error&) {
    return false;
  }
}

// What people do most often, where the parser only says which letter it did not expect: `name = Fridge`.
std::optional<std::string> commonMistakeIn(std::string_view line) {
  if (isToml(line)) return std::nullopt;  // then it is wrong beside another one
  line = line.substr(0, line.find('#'));
  const auto equals = std::min(line.find('='), line.size());
  const std::string_view key = trimmed(line.substr(0, equals));
  const std::string_view value = trimmed(line.substr(std::min(equals + 1, line.size())));
  constexpr std::string_view kNumber = "0123456789+-.,:_";
  if (key.empty() || value.empty()) return std::nullopt;
  if (value.front() == '"' && std::ranges::count(value, '"') == 1)
    return fmt::format("{}: the text has no quote at its end", key);
  if (value.find_first_of("\"'[]{}") != std::string_view::npos) return std::nullopt;
  if (value.find_first_not_of(kNumber) == std::string_view::npos) {
    if (std::ranges::count(value, ',') != 1) return std::nullopt;
    const auto comma = value.find(',');
    return fmt::format("{0}: numbers have a point: {0} = {1}.{2}", key, value.substr(0, comma),
                       value.substr(comma + 1));
  }
  for (const std::string_view word : {"true", "false"})
    if (std::ranges::equal(value, word, {}, [](char c) { return c | 0x20; }))
      return fmt::format("{}: write {}, in small letters", key, word);
  return fmt::format("{0}: texts need quotes: {0} = \"{1}\"", key, value);
}

}  // namespace

std::variant<TomlValue::Table, Complaint> readToml(std::string_view text) {
  try {
    return tableOf(toml::parse(text));
  } catch (const toml::parse_error& error) {
    const unsigned line = error.source().begin.line;
    return Complaint{line, commonMistakeIn(lineOf(text, line)).value_or(reasonOf(error.description()))};
  }
}

}  // namespace brenloft
