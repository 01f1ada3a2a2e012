#include "gateway/history/HistoryFollower.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace brenloft {
namespace {

using platform::Error;
using platform::Result;

// A commit is written, which rings, and then waits for the disk before it can be seen: look again soon, and
// then ever later.
constexpr std::chrono::milliseconds kSoonLook{2};
// Beneath it all, should a ring be lost.
constexpr std::chrono::seconds kSlowLook{2};

class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }

 private:
  const int number_;
};

}  // namespace

class HistoryFollower::Core {
 public:
  explicit Core(std::filesystem::path file)
      : file_(std::move(file)),
        ring_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
        timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
        both_(::epoll_create1(EPOLL_CLOEXEC)) {}

  bool watch() {
    const auto folder = std::filesystem::absolute(file_).parent_path();
    if (ring_.number() < 0 || timer_.number() < 0 || both_.number() < 0) return false;
    constexpr uint32_t events = IN_MODIFY | IN_CREATE | IN_MOVED_TO;
    if (::inotify_add_watch(ring_.number(), folder.c_str(), events) < 0) return false;
    for (const int descriptor : {ring_.number(), timer_.number()}) {
      epoll_event event{};
      event.events = EPOLLIN;
      if (::epoll_ctl(both_.number(), EPOLL_CTL_ADD, descriptor, &event) != 0) return false;
    }
    lookAfter(pause_);
    return true;
  }

  int wakeDescriptor() const { return both_.number(); }

  Result<News> after(int64_t seq, std::size_t limit) {
    const bool hasRung = takeRings();
    auto news = read(seq, limit);
    // More rows may be left, or on their way: who rang may be another commit than the one that is seen.
    if (hasRung || (news && !news->rows.empty())) pause_ = kSoonLook;
    lookAfter(pause_);
    pause_ = std::min<std::chrono::nanoseconds>(pause_ * 3 / 2, kSlowLook);
    return news;
  }

 private:
  // True when one was for the history or a file beside it.
  bool takeRings() {
    alignas(inotify_event) std::array<char, 4096> buffer{};
    bool isOurs = false;
    const std::string name = file_.filename().string();
    for (ssize_t size = 0; (size = ::read(ring_.number(), buffer.data(), buffer.size())) > 0;) {
      for (ssize_t at = 0; at < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
        isOurs = isOurs || event->len == 0 || std::string_view(event->name).starts_with(name);
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
    return isOurs;
  }

  void lookAfter(std::chrono::nanoseconds delay) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(delay);
    itimerspec time{};
    time.it_value.tv_sec = seconds.count();
    time.it_value.tv_nsec = (delay - seconds).count();
    // Setting it also takes the last ring of it out.
    ::timerfd_settime(timer_.number(), 0, &time, nullptr);
  }

  Result<News> read(int64_t seq, std::size_t limit) {
    if (!reader_) {
      auto opened = HistoryReader::open(file_);
      if (!opened && opened.error().kind == Error::Kind::absent) return News{};
      if (!opened) return opened.error();
      reader_ = *std::move(opened);
    }
    auto page = reader_->rows(seq, {}, limit);
    if (!page) {
      // Replaced, maybe: the next look is at what then has the name.
      reader_.reset();
      return page.error();
    }
    News news{std::move(page->rows)};
    const int64_t next = news.rows.empty() ? page->through + 1 : news.rows.front().seq;
    if (next > seq) news.missing = static_cast<uint64_t>(next - seq - 1);
    return news;
  }

  const std::filesystem::path file_;
  const Descriptor ring_;
  const Descriptor timer_;
  const Descriptor both_;
  std::unique_ptr<HistoryReader> reader_;
  std::chrono::nanoseconds pause_ = kSoonLook;  ///< before the next look
};

Result<std::unique_ptr<HistoryFollower>> HistoryFollower::open(const std::filesystem::path& file) {
  auto core = std::make_unique<Core>(file);
  if (!core->watch()) return Error{Error::Kind::failed, std::generic_category().message(errno)};
  return std::unique_ptr<HistoryFollower>(new HistoryFollower(std::move(core)));
}

HistoryFollower::HistoryFollower(std::unique_ptr<Core> core) : core_(std::move(core)) {}
HistoryFollower::~HistoryFollower() = default;

int HistoryFollower::wakeDescriptor() const {
  return core_->wakeDescriptor();
}

Result<HistoryFollower::News> HistoryFollower::after(int64_t seq, std::size_t limit) {
  return core_->after(seq, limit);
}

}  // namespace brenloft
