#pragma once

#include <filesystem>
#include <string>

#include "gateway/Secret.h"
#include "platform/foundation/Error.h"

namespace brenloft {

/// Who a client is to the broker.
struct Login {
  std::string user{};
  Secret password{};
};

/// The user in the first line, the password in the second.
platform::Result<Login> readLogin(const std::filesystem::path& file);

}  // namespace brenloft
