#include "gateway/mqtt/Publisher.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <random>
#include <set>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "gateway/history/HistoryFollower.h"
#include "gateway/history/HistoryIdentity.h"
#include "gateway/history/HistoryReader.h"
#include "gateway/mqtt/Announcer.h"
#include "gateway/mqtt/MachineClock.h"
#include "gateway/mqtt/Session.h"
#include "gateway/mqtt/SharedPresence.h"
#include "gateway/mqtt/View.h"

namespace brenloft {
namespace {

using platform::Error;
using platform::Result;

constexpr std::size_t kRowsPerLook = 1'000;
// How far back the newest event of the radio is looked for.
constexpr int64_t kRadioRows = 100'000;
// Batches move the cursor all the time; a crash costs doubles of so much. Events move it at once.
constexpr std::chrono::seconds kCursorPeriod{2};

class HistoryRows final : public Outbox::Rows {
 public:
  HistoryRows(std::filesystem::path file, std::unique_ptr<HistoryReader> reader,
              std::function<void(const std::string&)> onLine)
      : file_(std::move(file)), reader_(std::move(reader)), onLine_(std::move(onLine)) {}

  HistoryPage rows(int64_t after, bool hasReadings, std::size_t limit) override {
    if (reader_) {
      auto page = reader_->rows(after, {.hasReadings = hasReadings}, limit);
      if (page) return succeeded(*std::move(page));
      failed(page.error());
    }
    reopen();
    return {.through = after, .isLast = true};
  }
  int64_t lastSeq() override {
    if (reader_) {
      if (const auto last = reader_->lastSeq()) last_ = *last;
    }
    return last_;
  }

 private:
  HistoryPage succeeded(HistoryPage page) {
    told_.clear();
    return page;
  }
  void failed(const Error& error) {
    reader_.reset();
    if (std::exchange(told_, error.text) != error.text) onLine_(file_.string() + ": " + error.text);
  }
  void reopen() {
    if (auto opened = HistoryReader::open(file_)) reader_ = *std::move(opened);
  }

  const std::filesystem::path file_;
  std::unique_ptr<HistoryReader> reader_;
  const std::function<void(const std::string&)> onLine_;
  std::string told_;
  int64_t last_ = 0;
};

double randomPart() {
  static std::mt19937_64 generator{std::random_device{}()};
  return std::uniform_real_distribution<double>(0, 1)(generator);
}

int millisecondsUntil(std::optional<Instant> due, Instant now) {
  constexpr std::chrono::milliseconds kLongest = std::chrono::minutes(1);
  if (!due) return static_cast<int>(kLongest.count());
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*due - now);
  return static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), kLongest).count());
}

}  // namespace

// The publishing of one history.
class Publisher::Run {
 public:
  Run(Publisher& publisher, std::unique_ptr<HistoryReader> reader, const Cursor& cursor)
      : publisher_(publisher),
        options_(publisher.options_),
        file_(HistoryIdentity::of(options_.history)),
        cursorFile_(options_.cursor),
        settings_(publisher.settings_->current()),
        payloads_(Topics(options_.gateway), [this](const BeaconId& id) { return settings_->labelOf(id); }),
        view_(payloads_, settings_, options_.broker.isVersion5),
        rows_(options_.history, std::move(reader), publisher.onLine_),
        outbox_(payloads_, view_, rows_, cursor, options_.limits,
                {.date = [this] { return publisher_.dispatch_->date(); },
                 .clock = clockOfMachine,
                 .onLine = [this](const std::string& line) { tell(line); }}),
        announcer_({.discovery = Discovery(payloads_.topics(), options_.discovery),
                    .wanted = [this] { return wanted(); },
                    .announce = [this](auto messages) { outbox_.announce(std::move(messages)); },
                    .chance = randomPart}),
        client_(brokerOf(options_, payloads_)),
        session_({.client = client_,
                  .supply = outbox_,
                  .subscriptions = subscriptionsOf(options_),
                  .chance = randomPart,
                  .onMessage = [this](const Message& message) { arrived(message); },
                  .onLine = [this](const std::string& line) { tell(line); }}),
        saved_(cursor) {
    outbox_.setSource(options_.version, options_.source);
  }

  /// Until the publisher is stopped, or the history is another one.
  Result<> run() {
    if (const auto restored = restore(); !restored) return restored;
    auto follower = HistoryFollower::open(options_.history);
    if (!follower) return follower.error().in(options_.history.native());
    if (const auto written = cursorFile_.write(saved_); !written)
      return written.error().in(options_.cursor.native());
    session_.start(now());
    while (!publisher_.isStopped_ && HistoryIdentity::of(options_.history) == file_) step(**follower);
    session_.stop();
    save();
    return {};
  }

 private:
  static Broker brokerOf(const PublisherOptions& options, const Payloads& payloads) {
    Broker broker = options.broker;
    broker.will = payloads.status(false);
    return broker;
  }

  static std::vector<std::string> subscriptionsOf(const PublisherOptions& options) {
    auto subscriptions = Announcer::subscriptions();
    if (options.discovery.isShared)
      for (std::string& one : SharedPresence::subscriptions()) subscriptions.push_back(std::move(one));
    return subscriptions;
  }

  Instant now() const { return publisher_.dispatch_->now(); }
  void tell(const std::string& line) { publisher_.onLine_(options_.broker.text() + ": " + line); }

  // What the history knows of now.
  Result<> restore() {
    auto reader = HistoryReader::open(options_.history);
    if (!reader) return reader.error().in(options_.history.native());
    const auto last = (*reader)->lastSeq();
    const auto states = (*reader)->states();
    const auto beacons = (*reader)->latest(HistoryReader::kMostBeacons, settings_->named());
    if (!last || !states || !beacons)
      return (!last     ? last.error()
              : !states ? states.error()
                        : beacons.error())
          .in(options_.history.native());
    tip_ = *last;
    view_.restore(*states, *beacons, publisher_.dispatch_->date());
    for (int64_t after = std::max<int64_t>(tip_ - kRadioRows, 0); after < tip_;) {
      const auto page = (*reader)->rows(after, {.hasReadings = false}, kRowsPerLook);
      if (!page || page->through <= after) break;
      for (const HistoryRow& row : page->rows)
        if (row.seq <= tip_ && beaconOf(row.record) == nullptr) view_.take(row);
      after = page->through;
    }
    return {};
  }

  void step(HistoryFollower& follower) {
    std::array<pollfd, 3> ready{{{follower.wakeDescriptor(), POLLIN, 0},
                                 {client_.wakeDescriptor(), POLLIN, 0},
                                 {publisher_.wake_, POLLIN, 0}}};
    ::poll(ready.data(), ready.size(), millisecondsUntil(due(), now()));
    if (ready[0].revents != 0) follow(follower);
    if (ready[2].revents != 0) {
      eventfd_t count = 0;
      ::eventfd_read(publisher_.wake_, &count);
    }
    if (const auto settings = publisher_.settings_->current(); settings != settings_) takeSettings(settings);
    for (const MqttClient::Event& event : client_.takeEvents()) {
      session_.handle(now(), event);
      if (std::holds_alternative<MqttClient::Greeted>(event)) begin();
    }
    if (session_.state() == Session::State::sending) announce();
    session_.advance(now());
    if (const Cursor cursor = outbox_.cursor(); cursor != saved_)
      if (cursor.urgent != saved_.urgent || cursor.calm != saved_.calm || now() >= nextSave_) save();
  }

  void begin() {
    announcer_.begin(now());
    shared_.begin();
    sharedDue_ = now() + Announcer::kSettling;
  }
  void arrived(const Message& message) {
    announcer_.arrived(now(), message);
    if (options_.discovery.isShared) shared_.arrived(message);
  }
  void announce() {
    announcer_.advance(now());
    if (now() >= sharedDue_) outbox_.announce(shared_.changes());
  }

  std::optional<Instant> due() const {
    auto due = session_.due();
    if (session_.state() == Session::State::sending && announcer_.due())
      due = due ? std::min(*due, *announcer_.due()) : announcer_.due();
    if (outbox_.cursor() != saved_) due = due ? std::min(*due, nextSave_) : nextSave_;
    return due;
  }

  void follow(HistoryFollower& follower) {
    bool isNew = false;
    while (!publisher_.isStopped_) {
      const auto news = follower.after(tip_, kRowsPerLook);
      if (!news) break;  // the outbox's reader tells why
      tip_ += static_cast<int64_t>(news->missing);
      for (const HistoryRow& row : news->rows) {
        tip_ = row.seq;
        view_.take(row);
      }
      isNew = isNew || !news->rows.empty() || news->missing > 0;
      if (news->rows.empty()) break;
    }
    if (isNew) outbox_.wake();
  }

  void takeSettings(std::shared_ptr<const Settings> settings) {
    settings_ = std::move(settings);
    view_.setSettings(settings_);
    announcer_.changed(now());
  }

  bool isKnown(const std::string& word) const {
    return std::ranges::any_of(settings_->beacons,
                               [&](const auto& one) { return Topics::wordOf(one.first) == word; });
  }

  // Named beacons are wanted before they are heard.
  std::vector<Message> wanted() const {
    std::set<BeaconId> ids;
    for (const auto& [id, known] : settings_->beacons) ids.insert(id);
    for (const BeaconId& id : view_.beacons()) ids.insert(id);
    std::vector<Discovery::Beacon> beacons;
    for (const BeaconId& id : ids) beacons.push_back({id, view_.freshness(id)});
    return Discovery(payloads_.topics(), options_.discovery).wanted(*settings_, beacons);
  }

  void save() {
    const Cursor cursor = outbox_.cursor();
    nextSave_ = now() + kCursorPeriod;
    if (cursor == saved_) return;
    const auto written = cursorFile_.write(cursor);
    if (written) saved_ = cursor;
    const std::string problem = written ? "" : written.error().text;
    if (std::exchange(toldProblem_, problem) != problem && !problem.empty())
      publisher_.onLine_(options_.cursor.string() + ": " + problem + "; rows may be published twice");
  }

  Publisher& publisher_;
  const PublisherOptions& options_;
  const HistoryIdentity file_;
  const CursorFile cursorFile_;
  std::shared_ptr<const Settings> settings_;
  Payloads payloads_;
  View view_;
  HistoryRows rows_;
  Outbox outbox_;
  Announcer announcer_;
  SharedPresence shared_{[this](const std::string& beacon) { return isKnown(beacon); }};
  Instant sharedDue_{};  // what is retained has come by then
  MosquittoClient client_;
  Session session_;
  int64_t tip_ = 0;  // the newest row that the view has
  Cursor saved_;
  Instant nextSave_{};
  std::string toldProblem_;
};

Publisher::Publisher(PublisherOptions options, std::shared_ptr<platform::DispatchService> dispatch,
                     std::shared_ptr<LiveSettings> settings,
                     std::function<void(const std::string& line)> onLine)
    : options_(std::move(options)),
      dispatch_(std::move(dispatch)),
      settings_(std::move(settings)),
      onLine_(std::move(onLine)),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Publisher::~Publisher() {
  ::close(wake_);
}

void Publisher::stop() {
  isStopped_ = true;
  wake();
}

void Publisher::wake() {
  ::eventfd_write(wake_, 1);
}

Result<> Publisher::run() {
  bool isFirst = true;
  bool isNew = false;
  while (!isStopped_) {
    auto reader = HistoryReader::open(options_.history);
    if (!reader && reader.error().kind == Error::Kind::absent) {
      if (!std::exchange(isNew, true))
        onLine_(options_.history.string() + ": no history yet; this waits for it");
      if (const auto waited = waitForHistory(); !waited) return waited;
      continue;
    }
    if (!reader) return reader.error().in(options_.history.native());
    const auto cursor = firstCursor(**reader, std::exchange(isFirst, false), isNew);
    if (!cursor) return cursor.error();
    if (const auto ran = Run(*this, *std::move(reader), *cursor).run(); !ran) return ran;
  }
  return {};
}

Result<> Publisher::waitForHistory() {
  auto follower = HistoryFollower::open(options_.history);
  if (!follower) return follower.error().in(options_.history.parent_path().native());
  while (!isStopped_) {
    std::array<pollfd, 2> ready{{{(*follower)->wakeDescriptor(), POLLIN, 0}, {wake_, POLLIN, 0}}};
    ::poll(ready.data(), ready.size(), -1);
    static_cast<void>((*follower)->after(0, 1));  // takes the ring out
    if (HistoryReader::open(options_.history)) break;
  }
  return {};
}

// Another history than the cursor's is new from its beginning.
Result<Cursor> Publisher::firstCursor(HistoryReader& reader, bool isFirst, bool isNew) {
  const auto store = reader.storeId();
  const auto last = reader.lastSeq();
  if (!store || !last) return (!store ? store.error() : last.error()).in(options_.history.native());
  const auto at = [&](int64_t seq) { return Cursor{*store, seq, seq, seq}; };
  if (isFirst && options_.isFromNow) return at(*last);
  if (isFirst && options_.from) return at(std::clamp<int64_t>(*options_.from - 1, 0, *last));
  const auto kept = CursorFile(options_.cursor).read();
  if (kept && kept->store == *store) return *kept;
  if (kept || isNew) return at(0);
  if (kept.error().kind == Error::Kind::absent) return at(*last);
  return Error{Error::Kind::failed, options_.cursor.string() + ": " + kept.error().text +
                                        "; --from now, all or a number sets it anew"};
}

}  // namespace brenloft
