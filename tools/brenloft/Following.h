#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "gateway/configuration/LiveSettings.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/foundation/Error.h"
#include "tools/brenloft/ExitStatus.h"
#include "tools/brenloft/Options.h"

namespace brenloft {

/// What a command that follows the history was told.
struct FollowingOptions {
  std::filesystem::path container{};
  std::shared_ptr<LiveSettings> settings{};
  SearchOptions hearing{};  ///< how it also hears; without a source another process does
  bool goesOn = false;      ///< also when the source has ended
};

/// What follows the history, on one thread until it is stopped.
struct Follower {
  std::function<platform::Result<>()> run;
  std::function<void()> stop;  ///< from any thread
  std::function<void()> wake;  ///< from any thread: the settings may be others
};
using MakeFollower = std::function<Follower(const std::shared_ptr<platform::RealTimeDispatch>& dispatch)>;

/// Runs it until Ctrl-C or SIGTERM; SIGHUP reads the settings again. With a source, a search runs beside it
/// as a service's does: everything into the history, nothing on standard output.
ExitStatus runFollowing(const FollowingOptions& options, const MakeFollower& make);

}  // namespace brenloft
