#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "gateway/Texts.h"
#include "gateway/configuration/SettingsReader.h"
#include "gateway/configuration/SettingsSchema.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Output.h"

namespace brenloft {
namespace {

// What the file alone does not tell: whether the programs are there.
std::vector<std::string> missingPrograms(const Settings& settings) {
  std::vector<std::string> lines;
  for (const AlarmRule& rule : settings.alarms) {
    if (rule.exec.empty() || ::faccessat(AT_FDCWD, rule.exec.front().c_str(), X_OK, AT_EACCESS) == 0)
      continue;
    lines.push_back(fmt::format("alarm \"{}\": {} cannot be run: {}", rule.name, rule.exec.front(),
                                std::generic_category().message(errno)));
  }
  return lines;
}

void check(const ConfigOptions& options, Output& out) {
  const SettingsReader reader(options.file, SettingsReader::Absence::isWrong, options.vocabulary);
  const auto outcome = reader.read();
  const auto complaints = outcome.settings ? missingPrograms(*outcome.settings) : outcome.complaints;
  // The last one is told by whoever ends the program.
  for (std::size_t i = 0; i + 1 < complaints.size(); ++i) printMessage("brenloft: " + complaints[i]);
  if (!complaints.empty()) throw Failure(ExitStatus::usage, complaints.back());
  out.write(fmt::format("{} is right: {}, {}\n", options.file.string(),
                        counted(outcome.settings->beacons.size(), "beacon"),
                        counted(outcome.settings->alarms.size(), "alarm")));
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
  if (options.action == ConfigOptions::Action::check)
    check(options, out);
  else
    keys(out);
  out.finish();
  return ExitStatus::done;
}

}  // namespace brenloft
