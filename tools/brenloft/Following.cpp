#include "tools/brenloft/Following.h"

#include <future>
#include <system_error>
#include <thread>

#include "tools/brenloft/Commands.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/StopSignals.h"
#include "tools/brenloft/Store.h"

namespace brenloft {
namespace {

SearchOptions searchBeside(const FollowingOptions& options) {
  SearchOptions search = options.hearing;
  search.container = options.container;
  search.settings = options.settings;
  search.format = SearchFormat::none;
  search.gateway.keepsHistory = true;
  return search;
}

void finish(const platform::Result<>& result) {
  if (!result) throw Failure(ExitStatus::failed, result.error().text);
}

// A follower on a thread of its own, for as long as the object lives. Where it fails, the search beside it
// ends.
class FollowingThread {
 public:
  explicit FollowingThread(const Follower& follower) : follower_(follower), thread_([this] { run(); }) {}
  ~FollowingThread() { end(); }
  FollowingThread(const FollowingThread&) = delete;
  FollowingThread& operator=(const FollowingThread&) = delete;

  platform::Result<> end() {
    follower_.stop();
    if (thread_.joinable()) thread_.join();
    return result_;
  }

 private:
  void run() {
    result_ = follower_.run();
    if (!result_) StopSignals::raise();
  }

  const Follower& follower_;
  platform::Result<> result_;
  std::thread thread_;
};

void waitForStop() {
  std::promise<void> stopped;
  StopSignals signals;
  signals.watch([&stopped] { stopped.set_value(); });
  stopped.get_future().wait();
}

// Nobody can wait for what comes into a folder that is not there.
void requireFolder(const std::filesystem::path& container) {
  storeIn(container);  // says what is wrong with one that was named
  const std::filesystem::path folder = folderOfContainer(container);
  std::error_code error;
  if (!std::filesystem::exists(folder, error))
    throw Failure(ExitStatus::storeUnusable,
                  folder.string() +
                      ": no history yet; --source SOURCE hears and keeps one, --container names "
                      "another folder");
}

ExitStatus hearAndFollow(const FollowingOptions& options, const MakeFollower& make) {
  std::error_code error;
  std::filesystem::create_directories(folderOfContainer(options.container), error);
  const Follower follower = make(platform::RealTimeDispatch::make());
  StopSignals::leaveToOthers();  // the search waits for them
  FollowingThread thread(follower);
  const ExitStatus status = runSearch(searchBeside(options));
  if (options.goesOn && status == ExitStatus::done && !StopSignals::isStopped()) waitForStop();
  finish(thread.end());
  return status;
}

}  // namespace

ExitStatus runFollowing(const FollowingOptions& options, const MakeFollower& make) {
  if (!options.hearing.source.empty()) return hearAndFollow(options, make);
  StopSignals::leaveToOthers();
  installForStore(options.container);
  requireFolder(options.container);
  const Follower follower = make(platform::RealTimeDispatch::make());
  StopSignals signals;  // its thread ends before what it calls
  signals.watch(follower.stop, [&] {
    for (const std::string& line : options.settings->reload().lines) printMessage(line);
    follower.wake();
  });
  finish(follower.run());
  return ExitStatus::done;
}

}  // namespace brenloft
