#pragma once

#include <string_view>
#include <vector>

namespace brenloft {

/// What can be set in one kind of table: what the parser takes, what help tells, what a misspelt key was
/// meant to be. The keys of a command's table are the command's own options.
struct SettingsKey {
  enum class Kind {
    text,
    number,    ///< from `least` to `most`
    duration,  ///< in seconds, or a text such as "1h30m"; from `least` seconds
    flag,
    choice,   ///< one of `words`
    command,  ///< a program with its arguments, not run by a shell
  };

  std::string_view name;
  Kind kind;
  std::string_view help;
  std::string_view fallback{};  ///< what holds without it; "" where nothing does
  double least = 0;
  double most = 0;
  std::vector<std::string_view> words{};  ///< of a choice; of a duration: also taken
};

/// Of `[beacon."ID"]`.
const std::vector<SettingsKey>& beaconKeys();
/// Of `[[alarm]]`.
const std::vector<SettingsKey>& alarmKeys();

}  // namespace brenloft
