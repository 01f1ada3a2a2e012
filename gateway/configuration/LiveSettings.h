#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "gateway/configuration/SettingsReader.h"

namespace brenloft {

/// The settings in force, which a running command can be told to read again.
///
/// Threads: `current` any; `reload` one at a time.
class LiveSettings {
 public:
  LiveSettings(SettingsReader reader, std::shared_ptr<const Settings> first);

  std::shared_ptr<const Settings> current() const;
  const std::filesystem::path& file() const { return reader_.file(); }

  struct Reload {
    std::shared_ptr<const Settings> settings{};  ///< what is in force from now on; null: as before
    std::vector<std::string> lines{};            ///< for people
  };
  /// Reads the file again. A wrong one changes nothing. What is said of beacons and alarms is in force at
  /// once; a command has the options that it was started with.
  Reload reload();

 private:
  const SettingsReader reader_;
  mutable std::mutex mutex_;  // guards what follows
  std::shared_ptr<const Settings> current_;
};

}  // namespace brenloft
