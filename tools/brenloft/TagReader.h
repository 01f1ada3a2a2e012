#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/Data.h"

namespace brenloft {

struct StoredTag {
  std::optional<std::string> key;
  platform::Data data;
};

/// The saved tags of a store file, oldest first, also where the store may only be read. Throws `Failure` when
/// they cannot be read.
std::vector<StoredTag> readTags(const std::filesystem::path& store);

}  // namespace brenloft
