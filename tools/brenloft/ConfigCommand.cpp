#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "gateway/Texts.h"
#include "gateway/configuration/LiveSettings.h"
#include "gateway/configuration/SettingsSchema.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/SettingsText.h"
#include "tools/brenloft/SettingsWarnings.h"

namespace brenloft {
namespace {

bool isDefaultFile(const ConfigOptions& options) {
  return options.file.empty();
}
std::filesystem::path fileOf(const ConfigOptions& options) {
  return isDefaultFile(options) ? kSettingsFile : options.file;
}

// What the file says for every command, or for the one that hears.
std::filesystem::path containerOf(const ConfigOptions& options, const Settings& settings) {
  const auto scan = settings.options.find("scan");
  if (!options.container.empty() || scan == settings.options.end()) return options.container;
  const auto container = std::ranges::find(scan->second, "container", &OptionSetting::option);
  return container == scan->second.end() ? "" : container->words.front();
}

// The last one is told by whoever ends the program.
[[noreturn]] void refuseAll(const std::vector<std::string>& complaints) {
  for (std::size_t i = 0; i + 1 < complaints.size(); ++i) printMessage("brenloft: " + complaints[i]);
  throw Failure(ExitStatus::usage, complaints.back());
}

SettingsReader::Outcome readRight(const SettingsReader& reader) {
  auto outcome = reader.read();
  if (!outcome.settings) refuseAll(outcome.complaints);
  return outcome;
}

void check(const ConfigOptions& options, Output& out) {
  const SettingsReader reader(fileOf(options), SettingsReader::Absence::isWrong, options.vocabulary);
  const auto settings = readRight(reader).settings;
  std::vector<std::string> refused;
  for (const Complaint& one : options.refused(std::make_shared<LiveSettings>(reader, settings)))
    refused.push_back(fmt::format("{}:{}: {}", reader.file().string(), one.line, one.reason));
  if (!refused.empty()) refuseAll(refused);
  auto warnings = missingPrograms(*settings);
  std::ranges::move(nobodyKnown(*settings), std::back_inserter(warnings));
  std::ranges::move(unknownBeacons(*settings, containerOf(options, *settings)), std::back_inserter(warnings));
  for (const std::string& warning : warnings) printMessage("brenloft: " + warning);
  out.write(fmt::format("{} is right: {}, {}{}\n", fileOf(options).string(),
                        counted(settings->beacons.size(), "beacon"),
                        counted(settings->alarms.size(), "alarm"),
                        warnings.empty() ? "" : ", " + counted(warnings.size(), "warning")));
}

void show(const ConfigOptions& options, Output& out) {
  const bool isDefault = isDefaultFile(options);
  const auto outcome = readRight(
      {fileOf(options), isDefault ? SettingsReader::Absence::isAllowed : SettingsReader::Absence::isWrong,
       options.vocabulary});
  std::error_code unknown;
  const bool isThere = !isDefault || std::filesystem::exists(kSettingsFile, unknown);
  out.write(fmt::format("# {}, {}\n", fileOf(options).string(),
                        !isThere    ? "which is not there: all is as by default"
                        : isDefault ? "which is read by default"
                                    : "from the command line"));
  out.write(settingsText(outcome.text, options.vocabulary));
}

void writeKeys(Output& out, std::string_view section, const std::vector<SettingsKey>& keys) {
  out.write(fmt::format("{}\n", section));
  for (const SettingsKey& key : keys) {
    const std::string words =
        key.kind == SettingsKey::Kind::choice ? fmt::format(": {}", fmt::join(key.words, ", ")) : "";
    const std::string fallback = key.fallback.empty() ? "" : fmt::format("; default: {}", key.fallback);
    out.write(fmt::format("  {:<18} {}{}{}\n", key.name, key.help, words, fallback));
  }
}

void keys(Output& out) {
  out.write("[COMMAND]            such as [scan] or [log.show]: its long options, source = \"auto\"\n");
  writeKeys(out, "[beacon.\"C0-C1-5C-00-00-01\"]", beaconKeys());
  writeKeys(out, "[[alarm]]", alarmKeys());
}

}  // namespace

ExitStatus runConfig(const ConfigOptions& options) {
  Output out(Output::Buffering::blocks);
  switch (options.action) {
    case ConfigOptions::Action::check:
      check(options, out);
      break;
    case ConfigOptions::Action::show:
      show(options, out);
      break;
    case ConfigOptions::Action::keys:
      keys(out);
      break;
  }
  out.finish();
  return ExitStatus::done;
}

}  // namespace brenloft
