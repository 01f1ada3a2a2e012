#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/Error.h"

namespace brenloft::web {

/// Where a server listens: an address of this machine and a port. A value.
class ListenAddress {
 public:
  static constexpr uint16_t kUsualPort = 8880;

  ListenAddress() = default;
  /// "127.0.0.1:8880", "[::1]:8880", "localhost:8880", or only one of the two parts; port 0: any that is
  /// free. Nothing for other names: whom they mean may change.
  static std::optional<ListenAddress> fromText(std::string_view text);

  /// Whether only this machine reaches it.
  bool isLoopback() const;
  /// "127.0.0.1:8880"
  std::string text() const;
  /// A socket that listens, which the caller closes. This then has the port that it got.
  platform::Result<int> open();

 private:
  std::string host_ = "127.0.0.1";
  bool isVersion6_ = false;
  uint16_t port_ = kUsualPort;
};

}  // namespace brenloft::web
