#include "gateway/alarms/ProcessEnds.h"

#include <utility>
#include <vector>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace brenloft {

ProcessEnds::ProcessEnds() : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), thread_([this] { run(); }) {}

ProcessEnds::~ProcessEnds() {
  {
    const std::scoped_lock lock(mutex_);
    isClosing_ = true;
  }
  ::eventfd_write(wake_, 1);
  thread_.join();
  for (const auto& [descriptor, onEnd] : watched_) ::close(descriptor);
  ::close(wake_);
}

bool ProcessEnds::watch(int process, std::function<void()> onEnd) {
  // Debian 12's header of pidfd_open is none for C++.
  const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
  if (descriptor < 0) return false;
  {
    const std::scoped_lock lock(mutex_);
    watched_.emplace(descriptor, std::move(onEnd));
  }
  ::eventfd_write(wake_, 1);
  return true;
}

void ProcessEnds::run() {
  while (true) {
    std::vector<pollfd> waited{{wake_, POLLIN, 0}};
    {
      const std::scoped_lock lock(mutex_);
      if (isClosing_) return;
      for (const auto& [descriptor, onEnd] : watched_) waited.push_back({descriptor, POLLIN, 0});
    }
    if (::poll(waited.data(), waited.size(), -1) < 0) continue;
    eventfd_t ignored = 0;
    ::eventfd_read(wake_, &ignored);
    waited.erase(waited.begin());
    for (const pollfd& one : waited) {
      if (one.revents == 0) continue;
      std::function<void()> onEnd;
      {
        const std::scoped_lock lock(mutex_);
        onEnd = std::move(watched_.extract(one.fd).mapped());
      }
      ::close(one.fd);
      onEnd();
    }
  }
}

}  // namespace brenloft
