#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/Export.h"
#include "platform/foundation/TextArgument.h"

namespace platform {

/// A condition on the objects of a fetch: one attribute equals a text, octet for octet, or is absent.
class BRL_EXPORT NSPredicate {
 public:
  /// +[NSPredicate predicateWithFormat:], for formats of the form `attribute = %@`; an absent argument
  /// matches an absent attribute. Throws NSInvalidArgumentException for any other format.
  static NSPredicate predicateWithFormat(std::string_view format, TextArgument argument);

  const std::string& key() const { return key_; }
  const std::optional<std::string>& argument() const { return argument_; }

 private:
  NSPredicate(std::string key, std::optional<std::string> argument)
      : key_(std::move(key)), argument_(std::move(argument)) {}

  std::string key_;
  std::optional<std::string> argument_;
};

}  // namespace platform
