#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "gateway/configuration/SettingsParser.h"

namespace brenloft {

/// Where the settings are unless a command is told otherwise. It may be absent.
inline constexpr const char* kSettingsFile = "/etc/brenloft/brenloft.toml";

/// A settings file, read as often as wanted and never written.
///
/// Threads: one at a time.
class SettingsReader {
 public:
  enum class Absence { isAllowed, isWrong };
  struct Outcome {
    std::shared_ptr<const Settings> settings{};  ///< null where there are complaints
    std::vector<std::string> complaints{};       ///< "FILE:LINE: REASON", or "FILE: REASON"
    std::string text{};                          ///< what stands in the file
  };

  SettingsReader(std::filesystem::path file, Absence absence, CommandVocabulary vocabulary);

  Outcome read() const;
  const std::filesystem::path& file() const { return file_; }

 private:
  std::filesystem::path file_;
  Absence absence_;
  CommandVocabulary vocabulary_;
};

}  // namespace brenloft
