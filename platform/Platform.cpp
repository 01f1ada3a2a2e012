#include "platform/Platform.h"

#include <mutex>
#include <utility>
#include <vector>

#include "platform/NativePlatform.h"

namespace platform {
namespace {

// Never destroyed: the library's singletons live to the end of the process and use it to the last.
struct Slot {
  std::mutex mutex;
  std::shared_ptr<const Platform> platform;
};

Slot& slot() {
  static Slot& instance = *new Slot;
  return instance;
}

}  // namespace

void Platform::install(Platform platform) {
  auto installed = std::make_shared<const Platform>(std::move(platform));
  const std::scoped_lock lock(slot().mutex);
  // What was installed before stays alive: somebody may hold a reference to it.
  static auto& earlier = *new std::vector<std::shared_ptr<const Platform>>;
  earlier.push_back(installed);
  slot().platform = std::move(installed);
}

const Platform& Platform::installed() {
  {
    const std::scoped_lock lock(slot().mutex);
    if (slot().platform) return *slot().platform;
  }
  install(nativePlatform({}));
  return installed();
}

void NSLog(std::string_view text) {
  if (const LogSink& sink = Platform::installed().log) sink(text);
}

}  // namespace platform
