#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "platform/foundation/Error.h"

namespace brenloft {

/// A text that is never printed: there is no way to a message but by its name.
class Secret {
 public:
  Secret() = default;
  explicit Secret(std::string text) : text_(std::move(text)) {}
  const std::string& revealed() const { return text_; }

 private:
  std::string text_;
};

/// Why a file with a secret is not used: it cannot be read, or others may read it.
std::optional<platform::Error> secretProblem(const std::filesystem::path& file);

}  // namespace brenloft
