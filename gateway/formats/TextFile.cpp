#include "gateway/formats/TextFile.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace brenloft {
namespace {

constexpr std::chrono::seconds kRetry{1};

std::string reasonOf(int error) {
  if (error == ENXIO) return "nobody reads the pipe";
  if (error == EAGAIN) return "its reader stalls";
  return std::generic_category().message(error);
}

}  // namespace

class TextFile::Core : public std::enable_shared_from_this<Core> {
 public:
  Core(std::filesystem::path file, std::shared_ptr<platform::DispatchService> dispatch,
       platform::dispatch_queue_t handlerQueue, Sink::StateHandler handler)
      : file_(std::move(file)),
        dispatch_(std::move(dispatch)),
        queue_(dispatch_->createQueue("output")),
        handlerQueue_(std::move(handlerQueue)),
        handler_(std::move(handler)) {}
  ~Core() { close(); }

  /// 0, or why not.
  int openFile() {
    const std::scoped_lock lock(fileMutex_);
    return openLocked();
  }

  bool write(std::string_view lines) {
    const std::scoped_lock lock(mutex_);
    if (waiting_.size() + lines.size() > kMostWaiting) return false;
    waiting_ += lines;
    workLater();
    return true;
  }
  void reopen() {
    const std::scoped_lock lock(mutex_);
    isReopened_ = true;
    workLater();
  }

  /// Writes what waits, as far as the file takes it.
  void work() {
    int error = 0;
    {
      const std::scoped_lock file(fileMutex_);
      bool isReopened = false;
      {
        const std::scoped_lock lock(mutex_);
        hasWork_ = false;
        isReopened = std::exchange(isReopened_, false);
        begun_ += std::exchange(waiting_, {});
      }
      if (descriptor_ < 0) error = openLocked();
      if (error == 0) error = writeLocked();
      if (error == 0 && isReopened) {
        close();
        error = openLocked();
      }
      const std::scoped_lock lock(mutex_);
      isReopened_ = isReopened_ || (isReopened && error != 0);
      if (error != 0) waiting_.insert(0, std::exchange(begun_, {}));
    }
    announce(error == 0 ? Sink::State{} : Sink::State{false, reasonOf(error)});
    if (error != 0) tryLater();
  }

  Sink::State state() const {
    const std::scoped_lock lock(mutex_);
    return state_;
  }

 private:
  void workLater() {
    // Until the next try nothing else is worth one.
    if (std::exchange(hasWork_, true) || !state_.isWorking) return;
    queue_->async([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->work();
    });
  }

  void tryLater() {
    if (isTrying_.exchange(true)) return;
    dispatch_->after(kRetry, queue_, [weak = weak_from_this()] {
      const auto self = weak.lock();
      if (!self) return;
      self->isTrying_ = false;
      self->work();
    });
  }

  int openLocked() {
    descriptor_ = ::open(file_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0666);
    return descriptor_ < 0 ? errno : 0;
  }
  void close() {
    if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
  }
  int writeLocked() {
    while (!begun_.empty()) {
      const ssize_t written = ::write(descriptor_, begun_.data(), begun_.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) return errno;
      begun_.erase(0, static_cast<std::size_t>(written));
    }
    return 0;
  }

  void announce(const Sink::State& state) {
    {
      const std::scoped_lock lock(mutex_);
      if (std::exchange(state_, state) == state || !handler_) return;
    }
    handlerQueue_->async([weak = weak_from_this(), state] {
      if (const auto self = weak.lock()) self->handler_(state);
    });
  }

  const std::filesystem::path file_;
  const std::shared_ptr<platform::DispatchService> dispatch_;
  const platform::dispatch_queue_t queue_;
  const platform::dispatch_queue_t handlerQueue_;
  const Sink::StateHandler handler_;
  std::atomic<bool> isTrying_{false};
  std::mutex fileMutex_;  // guards the descriptor and what was begun; taken before `mutex_`
  int descriptor_ = -1;
  std::string begun_;
  mutable std::mutex mutex_;  // guards what follows; never held while the file is worked on
  std::string waiting_;
  bool hasWork_ = false;
  bool isReopened_ = false;
  Sink::State state_;
};

platform::Result<std::unique_ptr<TextFile>> TextFile::open(
    const std::filesystem::path& file, const std::shared_ptr<platform::DispatchService>& dispatch,
    platform::dispatch_queue_t handlerQueue, Sink::StateHandler handler) {
  auto core = std::make_shared<Core>(file, dispatch, std::move(handlerQueue), std::move(handler));
  if (const int error = core->openFile(); error != 0)
    return platform::Error{platform::Error::Kind::failed, reasonOf(error)}.in(file.native());
  return std::unique_ptr<TextFile>(new TextFile(std::move(core)));
}

TextFile::TextFile(std::shared_ptr<Core> core) : core_(std::move(core)) {}
TextFile::~TextFile() {
  flush();
}

bool TextFile::write(std::string_view lines) {
  return core_->write(lines);
}
void TextFile::flush() {
  core_->work();
}
void TextFile::reopen() {
  core_->reopen();
}
Sink::State TextFile::state() const {
  return core_->state();
}

}  // namespace brenloft
