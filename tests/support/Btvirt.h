#pragma once

#include <memory>
#include <string>

#include "platform/bluetooth/hci/FileDescriptor.h"
#include "platform/foundation/Data.h"

namespace support {

/// The controller emulator of bluez-test-tools as a process of its own, with LE controllers behind a local
/// socket: each connection is one controller, and they hear each other.
class Btvirt {
 public:
  /// Nothing when the program is missing or does not start; `whyNot` then says so.
  static std::unique_ptr<Btvirt> start(std::string& whyNot);
  ~Btvirt();
  Btvirt(const Btvirt&) = delete;
  Btvirt& operator=(const Btvirt&) = delete;

  /// "h4:unix:…"
  std::string address() const { return "h4:unix:" + socketPath(); }
  std::string socketPath() const { return folder_ + "/le"; }

 private:
  Btvirt() = default;

  std::string folder_;
  int process_ = -1;
};

/// A host that makes one of the controllers advertise.
class BtvirtAdvertiser {
 public:
  explicit BtvirtAdvertiser(const Btvirt& btvirt);

  /// Advertises these AD structures, 31 octets at most, without connections. The emulator delivers one report
  /// for each call.
  void advertise(platform::DataView data);

 private:
  void command(uint16_t opcode, platform::DataView parameters);

  platform::hci::FileDescriptor line_;
};

}  // namespace support
