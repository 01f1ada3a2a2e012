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

const Platform* current() {
  const std::scoped_lock lock(slot().mutex);
  return slot().platform.get();
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
  if (const Platform* platform = current()) return *platform;
  // Making a platform asks for services, so the slot is not locked meanwhile; yet only one is made.
  static std::mutex& making = *new std::mutex;
  const std::scoped_lock lock(making);
  if (current() == nullptr) install(nativePlatform({}));
  return *current();
}

void NSLog(std::string_view text) {
  if (const LogSink& sink = Platform::installed().log) sink(text);
}

}  // namespace platform
