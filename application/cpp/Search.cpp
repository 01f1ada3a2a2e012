#include <array>
#include <atomic>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <thread>
#include <utility>

#include "application/cpp/Hearing.h"
#include "application/cpp/Listener.h"
#include "application/cpp/Mailbox.h"
#include "application/cpp/brenloft.hpp"
#include "platform/dispatch/CallGate.h"
#include "platform/sources/SourceInventory.h"

namespace brenloft {
namespace {

template <class One>
void tell(const std::function<void(const One&)>& handler, const One& one) {
  if (handler) handler(one);
}

void tell(const Handlers& handlers, const Event& event) {
  struct {
    const Handlers& to;
    void operator()(const Reading& one) const { tell(to.onReading, one); }
    void operator()(const Sighting& one) const { tell(to.onSighting, one); }
    void operator()(const Found& one) const { tell(to.onFound, one); }
    void operator()(const Lost& one) const { tell(to.onLost, one); }
    void operator()(const Emergency& one) const { tell(to.onEmergency, one); }
    void operator()(const RadioChange& one) const { tell(to.onRadio, one); }
    void operator()(const Missed& one) const { tell(to.onMissed, one); }
  } const toHandler{handlers};
  std::visit(toHandler, event);
}

}  // namespace

// Who hears, and who is told.
//
// What runs on the search's queue holds it weakly. With handlers and no executor, events go straight to them;
// else by the mailbox.
class SearchEngine : public std::enable_shared_from_this<SearchEngine> {
 public:
  SearchEngine(std::optional<Handlers> handlers, Executor executor)
      : handlers_(std::move(handlers)), executor_(std::move(executor)) {}
  SearchEngine(const SearchEngine&) = delete;
  SearchEngine& operator=(const SearchEngine&) = delete;
  ~SearchEngine() = default;

  Result<> start(const Settings& settings);
  void stop();
  /// Stops, and waits for what still runs, unless that is the caller.
  void finish();
  std::optional<Event> next(std::optional<std::chrono::milliseconds> timeout);
  Mailbox& mailbox() { return *mailbox_; }

 private:
  void begin(Wanted wanted);
  void happened(Event event);
  void sourceEnded();
  void end();
  void callDrain();
  void drain();

  const std::optional<Handlers> handlers_;
  const Executor executor_;
  Hearing hearing_;
  platform::dispatch_queue_t queue_;
  std::unique_ptr<Mailbox> mailbox_;
  std::shared_ptr<Listener> listener_;
  std::thread clock_;
  platform::CallGate gate_;
  std::atomic<bool> isStopped_ = false;
  std::atomic<bool> isDrainCalled_ = false;
  bool hasToldEnd_ = false;  // by the executor
};

Result<> SearchEngine::start(const Settings& settings) {
  auto wanted = Wanted::of(settings);
  if (!wanted) return wanted.error();
  auto hearing = openHearing(settings, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->sourceEnded();
  });
  if (!hearing) return hearing.error();
  hearing_ = *std::move(hearing);
  begin(*std::move(wanted));
  return {};
}

void SearchEngine::begin(Wanted wanted) {
  const bool waits = hearing_.loop && hearing_.loop->isVirtual();
  // A test takes its events when it has made them all.
  mailbox_ = std::make_unique<Mailbox>(
      hearing_.isOfTest ? std::numeric_limits<std::size_t>::max() : Search::kCapacity,
      waits ? Mailbox::WhenFull::wait : Mailbox::WhenFull::dropOldest);
  queue_ = hearing_.dispatch->createQueue("search");
  listener_ =
      std::make_shared<Listener>(hearing_, queue_, std::move(wanted), [weak = weak_from_this()](Event event) {
        if (const auto self = weak.lock()) self->happened(std::move(event));
      });
  listener_->start();
  if (waits) clock_ = std::thread([loop = hearing_.loop] { loop->run(); });
}

void SearchEngine::stop() {
  if (isStopped_.exchange(true)) return;
  if (mailbox_) mailbox_->close();
  if (listener_) listener_->stop();
  gate_.close();
  if (hearing_.loop) hearing_.loop->stop();
}

void SearchEngine::finish() {
  stop();
  if (!clock_.joinable()) return;
  if (clock_.get_id() == std::this_thread::get_id())
    clock_.detach();  // it ends once the handler has returned, and has its loop to itself
  else
    clock_.join();
}

void SearchEngine::happened(Event event) {
  if (handlers_ && !executor_) return gate_.call([&] { tell(*handlers_, event); });
  mailbox_->put(std::move(event));
  if (handlers_) callDrain();
}

// Behind what was heard last, which is on its way to the search's queue.
void SearchEngine::sourceEnded() {
  queue_->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->gate_.call([&] { self->end(); });
  });
}

void SearchEngine::end() {
  listener_->stop();
  mailbox_->close();
  if (hearing_.loop->isVirtual()) hearing_.loop->stop();
  if (!handlers_) return;
  if (executor_) return callDrain();
  if (handlers_->onEnd) handlers_->onEnd();
}

void SearchEngine::callDrain() {
  if (isDrainCalled_.exchange(true)) return;
  executor_([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->drain();
  });
}

// What comes while it runs calls the next one: the application's queue has its turn between them.
void SearchEngine::drain() {
  isDrainCalled_ = false;
  for (std::size_t left = Search::kCapacity; left > 0 && !isStopped_; --left) {
    const auto event = mailbox_->takeNow();
    if (!event) break;
    tell(*handlers_, *event);
  }
  if (isStopped_) return;
  if (!mailbox_->isEmpty()) return callDrain();
  if (mailbox_->isDrained() && !std::exchange(hasToldEnd_, true) && handlers_->onEnd) handlers_->onEnd();
}

std::optional<Event> SearchEngine::next(std::optional<std::chrono::milliseconds> timeout) {
  if (hearing_.isOfTest) return mailbox_->takeNow();
  return timeout ? mailbox_->take(*timeout) : mailbox_->take();
}

Search::Search(std::shared_ptr<SearchEngine> engine) : engine_(std::move(engine)) {}
Search::Search(Search&&) noexcept = default;

Search& Search::operator=(Search&& other) noexcept {
  if (engine_ && engine_ != other.engine_) engine_->finish();
  engine_ = std::move(other.engine_);
  return *this;
}

Search::~Search() {
  if (engine_) engine_->finish();
}

Result<Search> Search::start(Settings settings) {
  auto engine = std::make_shared<SearchEngine>(std::nullopt, Executor());
  if (auto started = engine->start(settings); !started) return started.error();
  return Search(std::move(engine));
}

Result<Search> Search::start(Settings settings, Handlers handlers, Executor executor) {
  auto engine = std::make_shared<SearchEngine>(std::move(handlers), std::move(executor));
  if (auto started = engine->start(settings); !started) return started.error();
  return Search(std::move(engine));
}

SearchEngine& Search::engine() const {
  if (!engine_) throw std::logic_error("this search was moved from");
  return *engine_;
}

void Search::stop() {
  engine().stop();
}
std::optional<Event> Search::next() {
  return engine().next(std::nullopt);
}
std::optional<Event> Search::next(std::chrono::milliseconds timeout) {
  return engine().next(timeout);
}
bool Search::hasEnded() const {
  return engine().mailbox().isDrained();
}
int Search::fileDescriptor() const {
  return engine().mailbox().fileDescriptor();
}

std::string_view Event::beacon() const {
  const auto ofOne = [](const auto& one) -> std::string_view {
    if constexpr (requires { one.id; }) return one.id;
    return {};
  };
  return std::visit(ofOne, static_cast<const variant&>(*this));
}

std::string toText(Time time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  std::array<char, 48> text;  // NOLINT(*-member-init): written next
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%06dZ",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
                static_cast<int>(clock.subseconds().count()));
  return text.data();
}

std::vector<Source> sources() {
  const auto inventory = platform::SourceInventory::take();
  std::vector<Source> result;
  for (const auto& [address, name, state, why] : inventory.sources)
    result.push_back({address, name, std::string(state), why, address == inventory.automatic});
  return result;
}

}  // namespace brenloft
