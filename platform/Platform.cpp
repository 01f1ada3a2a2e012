#include "platform/Platform.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "platform/NativePlatform.h"

namespace platform {
namespace {

// Never destroyed: the library's singletons live to the end of the process and use it to the last.
std::atomic<const Platform*> inUse{nullptr};

}  // namespace

void Platform::install(Platform platform) {
  const Platform* none = nullptr;
  if (inUse.compare_exchange_strong(none, new Platform(std::move(platform)))) return;
  std::fputs(
      "Platform::install: the library already runs on another platform, one installed before or, since it "
      "was "
      "used before, the machine's own; install once, before its first use, each test in a process of its "
      "own\n",
      stderr);
  std::abort();
}

const Platform& Platform::installed() {
  if (const Platform* platform = inUse) return *platform;
  static std::mutex& making = *new std::mutex;
  const std::scoped_lock lock(making);
  if (inUse == nullptr) install(nativePlatform({}));
  return *inUse;
}

void NSLog(std::string_view text) {
  if (const LogSink& sink = Platform::installed().log) sink(text);
}

}  // namespace platform
