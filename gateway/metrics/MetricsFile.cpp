#include "gateway/metrics/MetricsFile.h"

#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/foundation/ReplacementFile.h"

namespace brenloft {
namespace {

constexpr std::filesystem::perms kPermissionsOfNewMetrics{0666};

std::error_code writeWhole(const std::filesystem::path& file, const std::string& text) {
  std::error_code error;
  const auto replacement = platform::ReplacementFile::create(file, kPermissionsOfNewMetrics, error);
  if (!error) error = replacement->write(text);
  if (!error) error = replacement->finish();
  return error;
}

}  // namespace

class MetricsFile::Core : public std::enable_shared_from_this<Core> {
 public:
  Core(std::filesystem::path file, std::shared_ptr<platform::DispatchService> dispatch,
       platform::dispatch_queue_t queue, Make make, StateHandler handler)
      : file_(std::move(file)),
        dispatch_(std::move(dispatch)),
        queue_(std::move(queue)),
        fileQueue_(dispatch_->createQueue("metrics")),
        make_(std::move(make)),
        handler_(std::move(handler)) {}

  void writeEvery(std::chrono::microseconds interval) {
    renew();
    fileQueue_->async([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->work();
    });
    dispatch_->after(interval, queue_, [weak = weak_from_this(), interval] {
      if (const auto self = weak.lock()) self->writeEvery(interval);
    });
  }

  /// What is to be written.
  void renew() {
    std::string text = make_();
    const std::scoped_lock lock(mutex_);
    waiting_ = std::move(text);
  }

  /// Writes what waits, where something does.
  void work() {
    std::error_code error;
    {
      const std::scoped_lock file(fileMutex_);
      std::optional<std::string> text;
      {
        const std::scoped_lock lock(mutex_);
        text = std::exchange(waiting_, std::nullopt);
      }
      if (!text) return;
      error = writeWhole(file_, *text);
    }
    announce(error ? State{false, error.message()} : State{});
  }

  State state() const {
    const std::scoped_lock lock(mutex_);
    return state_;
  }

 private:
  void announce(const State& state) {
    {
      const std::scoped_lock lock(mutex_);
      if (std::exchange(state_, state) == state || !handler_) return;
    }
    queue_->async([weak = weak_from_this(), state] {
      if (const auto self = weak.lock()) self->handler_(state);
    });
  }

  const std::filesystem::path file_;
  const std::shared_ptr<platform::DispatchService> dispatch_;
  const platform::dispatch_queue_t queue_;
  const platform::dispatch_queue_t fileQueue_;
  const Make make_;
  const StateHandler handler_;
  std::mutex fileMutex_;      // one write at a time; taken before `mutex_`
  mutable std::mutex mutex_;  // guards what follows; never held while the file is worked on
  std::optional<std::string> waiting_;
  State state_;
};

MetricsFile::MetricsFile(std::filesystem::path file, std::shared_ptr<platform::DispatchService> dispatch,
                         platform::dispatch_queue_t queue, Make make, StateHandler handler)
    : core_(std::make_shared<Core>(std::move(file), std::move(dispatch), std::move(queue), std::move(make),
                                   std::move(handler))) {}
MetricsFile::~MetricsFile() = default;

void MetricsFile::writeEvery(std::chrono::microseconds interval) {
  core_->writeEvery(interval);
}
void MetricsFile::flush() {
  core_->renew();
  core_->work();
}
Sink::State MetricsFile::state() const {
  return core_->state();
}

}  // namespace brenloft
