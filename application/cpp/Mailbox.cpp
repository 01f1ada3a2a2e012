#include "application/cpp/Mailbox.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace brenloft {
namespace {

int makeDescriptor() {
  const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  return descriptor;
}

// Longer than this is for ever: beyond, deadlines cannot be counted.
constexpr std::chrono::hours kLongestWait = std::chrono::days(36'500);

}  // namespace

Mailbox::Mailbox(std::size_t capacity, WhenFull whenFull)
    : capacity_(capacity), whenFull_(whenFull), descriptor_(makeDescriptor()) {}

Mailbox::~Mailbox() {
  ::close(descriptor_);
}

// Readable from the first event to the last, and for good once closed.
void Mailbox::signal() const {
  const uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(descriptor_, &one, sizeof one);
}

void Mailbox::put(Event event) {
  std::unique_lock lock(mutex_);
  if (whenFull_ == WhenFull::wait)
    changed_.wait(lock, [this] { return isClosed_ || events_.size() < capacity_; });
  if (isClosed_) return;
  const bool wasEmpty = !hasSomething();
  if (events_.size() == capacity_) {
    events_.pop_front();
    ++missed_;
  }
  events_.push_back(std::move(event));
  if (!wasEmpty) return;
  signal();
  changed_.notify_all();
}

std::optional<Event> Mailbox::take() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return hasSomething(); });
  return takeLocked();
}

std::optional<Event> Mailbox::take(std::chrono::milliseconds timeout) {
  if (timeout > kLongestWait) return take();
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, timeout, [this] { return hasSomething(); });
  return takeLocked();
}

std::optional<Event> Mailbox::takeNow() {
  const std::scoped_lock lock(mutex_);
  return takeLocked();
}

std::optional<Event> Mailbox::takeLocked() {
  std::optional<Event> result;
  if (missed_ > 0) {
    result = Missed{std::exchange(missed_, 0)};
  } else if (!events_.empty()) {
    result = std::move(events_.front());
    events_.pop_front();
    if (events_.size() + 1 == capacity_) changed_.notify_all();
  }
  if (result && !hasSomething()) {
    uint64_t count = 0;
    [[maybe_unused]] const auto read = ::read(descriptor_, &count, sizeof count);
  }
  return result;
}

void Mailbox::close() {
  const std::scoped_lock lock(mutex_);
  if (std::exchange(isClosed_, true)) return;
  signal();
  changed_.notify_all();
}

bool Mailbox::isEmpty() const {
  const std::scoped_lock lock(mutex_);
  return missed_ == 0 && events_.empty();
}

bool Mailbox::isDrained() const {
  const std::scoped_lock lock(mutex_);
  return isClosed_ && missed_ == 0 && events_.empty();
}

}  // namespace brenloft
