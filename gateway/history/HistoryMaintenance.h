#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/Date.h"
#include "platform/foundation/Error.h"

namespace brenloft {

// What is done to a history as a whole, apart from writing it.

struct HistoryPruning {
  std::optional<platform::Date> before{};  ///< older rows go
  std::optional<uint64_t> size{};          ///< the oldest rows go until the file has so many octets
};
/// How many rows went. `busy` while another process writes the history: that one prunes it by itself.
platform::Result<uint64_t> pruneHistory(const std::filesystem::path& file, const HistoryPruning& pruning,
                                        platform::Date now);

/// What is wrong with a history, in lines; none: nothing. Looks at every row.
platform::Result<std::vector<std::string>> checkHistory(const std::filesystem::path& file);

/// Copies a history, also while it is written, to a file that is not there yet. The copy has the same store
/// id and the same numbers.
platform::Result<> backUpHistory(const std::filesystem::path& file, const std::filesystem::path& copy);

}  // namespace brenloft
