#include "platform/coredata/NSPredicate.h"

#include <utility>

#include "platform/coredata/NSInvalidArgumentException.h"

namespace platform {

NSPredicate NSPredicate::predicateWithFormat(std::string_view format, TextArgument argument) {
  constexpr std::string_view tail = " = %@";
  const auto key = format.substr(0, format.find(' '));
  if (key.empty() || format.substr(key.size()) != tail) {
    throw NSInvalidArgumentException("predicate format not supported: " + std::string(format));
  }
  return {std::string(key), std::move(argument.text)};
}

}  // namespace platform
