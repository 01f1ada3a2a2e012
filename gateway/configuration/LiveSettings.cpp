#include "gateway/configuration/LiveSettings.h"

#include <utility>

#include <fmt/format.h>

#include "gateway/Texts.h"

namespace brenloft {

LiveSettings::LiveSettings(SettingsReader reader, std::shared_ptr<const Settings> first)
    : reader_(std::move(reader)), current_(std::move(first)) {}

std::shared_ptr<const Settings> LiveSettings::current() const {
  const std::scoped_lock lock(mutex_);
  return current_;
}

LiveSettings::Reload LiveSettings::reload() {
  const auto outcome = reader_.read();
  if (!outcome.settings) {
    const std::size_t others = outcome.complaints.size() - 1;
    const std::string more = others == 0 ? "" : fmt::format(" (and {} more)", others);
    return {.lines = {fmt::format("{}{}; the settings stay as they were", outcome.complaints.front(), more)}};
  }
  const std::scoped_lock lock(mutex_);
  if (*outcome.settings == *current_) return {.lines = {"the settings are the same as before"}};
  Reload reload{.settings = outcome.settings};
  reload.lines.push_back(fmt::format("settings read again: {}, {}",
                                     counted(outcome.settings->beacons.size(), "beacon"),
                                     counted(outcome.settings->alarms.size(), "alarm")));
  if (outcome.settings->options != current_->options)
    reload.lines.emplace_back("options of commands are as at the start until the next one");
  current_ = outcome.settings;
  return reload;
}

}  // namespace brenloft
