#include "gateway/configuration/TomlDocument.h"

#include <algorithm>
#include <string>
#include <utility>

#include "gateway/configuration/CommonMistakes.h"

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

}  // namespace

std::variant<TomlValue::Table, Complaint> readToml(std::string_view text) {
  try {
    return tableOf(toml::parse(text));
  } catch (const toml::parse_error& error) {
    const unsigned line = error.source().begin.line;
    return Complaint{line,
                     commonMistakeIn(lineOf(text, line), isToml).value_or(reasonOf(error.description()))};
  }
}

}  // namespace brenloft
