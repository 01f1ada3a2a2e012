#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "gateway/Record.h"
#include "gateway/alarms/AlarmBook.h"
#include "platform/dispatch/Dispatch.h"

namespace brenloft {

/// Runs the commands of alarms, in the order of the notices and one at a time per rule, and ends what takes
/// longer than the rule allows. A failure is told once, until the rule's command works again.
///
/// The command finds the facts in its environment: BRENLOFT_EVENT (raised or cleared), BRENLOFT_ALARM,
/// BRENLOFT_SEVERITY, BRENLOFT_TEXT, BRENLOFT_BEACON, BRENLOFT_NAME, BRENLOFT_PLACE, BRENLOFT_QUANTITY,
/// BRENLOFT_VALUE (empty where nothing was measured) and BRENLOFT_TIME.
///
/// Threads: any; it works on a queue of its own, so that no command holds up its caller. The handlers are
/// called on `handlerQueue`, on which it also goes away. What still runs then runs on, and nobody is told of
/// its end.
class Notifier {
 public:
  /// Beyond so many waiting notices of one rule further ones are dropped, which is told as a failure; to the
  /// alarm book they stay untold.
  static constexpr std::size_t kMostWaiting = 1000;

  struct Handlers {
    std::function<void(const AlarmNotice&)> onDone;          ///< the command was run, well or not
    std::function<void(std::string_view line)> onMessage{};  ///< for people
  };

  Notifier(std::shared_ptr<platform::DispatchService> dispatch, platform::dispatch_queue_t handlerQueue,
           Handlers handlers);
  ~Notifier();
  Notifier(const Notifier&) = delete;
  Notifier& operator=(const Notifier&) = delete;

  /// `label`: of the beacon.
  void notify(AlarmNotice notice, Label label);

 private:
  class Core;
  const std::shared_ptr<Core> core_;
};

}  // namespace brenloft
