#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace brenloft {

/// What is wrong with a settings file, and where.
struct Complaint {
  unsigned line = 0;
  std::string reason;

  friend bool operator==(const Complaint&, const Complaint&) = default;
};

struct TomlEntry;

/// A value of a TOML document with its line.
struct TomlValue {
  using Array = std::vector<TomlValue>;
  using Table = std::vector<TomlEntry>;  // in the order of the file
  struct Date {};                        // no setting is one

  std::variant<std::string, int64_t, double, bool, Date, Array, Table> value;
  unsigned line = 0;  ///< of its key, where it has one
};

struct TomlEntry {
  std::string key;
  TomlValue value;
};

/// The whole document, or the first place where it is no TOML. Pure.
std::variant<TomlValue::Table, Complaint> readToml(std::string_view text);

}  // namespace brenloft
