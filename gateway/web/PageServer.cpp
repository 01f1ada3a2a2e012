#include "gateway/web/PageServer.h"

#include <algorithm>
#include <array>
#include <future>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "gateway/history/HistoryFollower.h"
#include "gateway/history/HistoryIdentity.h"
#include "gateway/metrics/MetricsBook.h"
#include "gateway/web/PageWriter.h"
#include "gateway/web/Site.h"

namespace brenloft::web {
namespace {

using platform::dispatch_time_t;
using platform::Result;

constexpr std::size_t kRowsPerLook = 1'000;
// Who hears nothing for three of them knows that the connection is gone.
constexpr std::chrono::seconds kHeartbeat{5};

using Files = std::map<std::string, std::shared_ptr<const Content>, std::less<>>;

Files pageFiles() {
  Files files;
  for (const char* name : {"page.css", "page.js", "dygraph.js"})
    files[std::string("/") + name] = makeContent(
        std::string_view(name).ends_with(".css") ? "text/css" : "text/javascript", *pageFile(name));
  return files;
}

// Work for a thread that waits on a descriptor. Threads: any.
class Errands {
 public:
  explicit Errands(int wake) : wake_(wake) {}

  void add(std::function<void()> errand) {
    const std::scoped_lock lock(mutex_);
    errands_.push_back(std::move(errand));
    ::eventfd_write(wake_, 1);
  }
  void run() {
    std::vector<std::function<void()>> errands;
    {
      const std::scoped_lock lock(mutex_);
      errands.swap(errands_);
    }
    for (const auto& errand : errands) errand();
  }

 private:
  const int wake_;
  std::mutex mutex_;  // guards what follows
  std::vector<std::function<void()>> errands_;
};

}  // namespace

// The serving of one history, on one thread; what is read, is read on a queue beside it.
class PageServer::Run {
 public:
  Run(PageServer& server, std::unique_ptr<HistoryFollower> follower, std::unique_ptr<HttpServer>& http)
      : server_(server),
        options_(server.options_),
        follower_(std::move(follower)),
        http_(http),
        errands_(server.wake_),
        queue_(server.dispatch_->createQueue("pages")),
        site_(options_.history, options_.title, server.dispatch_, server.settings_) {
    follow();
  }
  ~Run() {
    std::promise<void> done;
    queue_->async([&done] { done.set_value(); });
    done.get_future().wait();
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  void run() {
    while (!server_.isStopped_) step();
  }

  std::optional<HttpServer::Reply> handle(const Request& request, uint64_t number) {
    if (const auto refused = refusalOf(request)) return *refused;
    const std::string& path = request.target.path;
    if (const auto file = files_.find(path); file != files_.end()) return Answer{.content = file->second};
    if (path == "/api/events") return streamFor(request);
    if (path == "/metrics") return metrics();
    queue_->async([this, request, number] {
      auto answer = std::make_shared<Answer>(site_.answer(request));
      errands_.add([this, number, answer] { http_->answer(number, std::move(*answer)); });
    });
    return std::nullopt;
  }

 private:
  std::optional<Answer> refusalOf(const Request& request) const {
    if (options_.listen.isLoopback() && !options_.token && !isThisMachine(request.host))
      return refusal(421, "Host: this is reached as localhost or 127.0.0.1 only");
    if (options_.token && !isAuthorized(request.authorization, *options_.token)) return askForToken();
    return std::nullopt;
  }

  Answer metrics() const {
    MetricsSnapshot snapshot = metrics_->snapshot(server_.dispatch_->date(), isWritten_);
    snapshot.version = options_.version;
    return {.content = makeContent(kMetricsType.substr(0, kMetricsType.rfind(';')), renderMetrics(snapshot))};
  }

  void step() {
    std::array<pollfd, 3> ready{{{http_->wakeDescriptor(), POLLIN, 0},
                                 {follower_->wakeDescriptor(), POLLIN, 0},
                                 {server_.wake_, POLLIN, 0}}};
    const auto now = server_.dispatch_->now();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(nextHeartbeat_ - now);
    const auto most = std::clamp(left, std::chrono::milliseconds(0), http_->timeout());
    ::poll(ready.data(), ready.size(), static_cast<int>(most.count()));
    if (ready[2].revents != 0) {
      eventfd_t count = 0;
      ::eventfd_read(server_.wake_, &count);
    }
    errands_.run();
    if (ready[1].revents != 0) {
      if (follow()) http_->wakeStreams();
      lookForWriter();
    }
    if (server_.dispatch_->now() >= nextHeartbeat_) beat();
    http_->run();
  }

  void beat() {
    nextHeartbeat_ = server_.dispatch_->now() + kHeartbeat;
    std::erase_if(streams_, [](const auto& stream) { return stream.expired(); });
    http_->wakeStreams(timeText());
  }
  std::string timeText() const {
    const std::chrono::duration<double> now = server_.dispatch_->date().time_since_epoch();
    return fmt::format("event: time\ndata: {:.3f}\n\n", now.count());
  }

  // The history itself says nothing when its writer is killed.
  void lookForWriter() {
    const auto is = HistoryReader::isWritten(options_.history);
    const auto was = std::exchange(isWritten_, is);
    if (!is.value_or(true)) metrics_->writerEnded();
    if (is.value_or(true) != was.value_or(true))
      http_->tellStreams(fmt::format("event: writer\ndata: {}\n\n", is.value_or(true)));
  }

  // Whether there is something new.
  bool follow() {
    const auto identity = HistoryIdentity::of(options_.history);
    bool isNew = identity != identity_;
    if (isNew) begin(identity);
    const auto settings = server_.settings_->current();
    while (!server_.isStopped_) {
      const auto news = follower_->after(tip_, kRowsPerLook);
      if (!news) break;  // who asks for the page is told why
      tip_ += static_cast<int64_t>(news->missing);
      for (const HistoryRow& row : news->rows) take(row, *settings);
      isNew = isNew || !news->rows.empty();
      if (news->rows.empty()) break;
    }
    return isNew;
  }

  void take(const HistoryRow& row, const Settings& settings) {
    tip_ = row.seq;
    metrics_->accept(row.record);
    ring_->add(row.seq, Site::eventText(row, settings, lines_));
    if (std::holds_alternative<BeaconEvent>(row.record)) site_.happened(row.seq);
  }

  // Another history has other numbers. Who waits for the first one has missed nothing of it.
  void begin(HistoryIdentity identity) {
    const bool isFirst = std::exchange(identity_, identity) == HistoryIdentity{};
    tip_ = 0;
    metrics_.emplace([this] { return server_.settings_->current(); });
    if (const auto reader = HistoryReader::open(options_.history)) {
      const auto last = (*reader)->lastSeq();
      const auto states = (*reader)->states();
      const auto beacons =
          (*reader)->latest(HistoryReader::kMostBeacons, server_.settings_->current()->named());
      if (last) tip_ = *last;
      const auto radioState = (*reader)->radioState();
      if (states && beacons && radioState) metrics_->restore(*states, *beacons, *radioState);
    }
    ring_ = std::make_shared<EventRing>(tip_);
    static const auto kForget = std::make_shared<const std::string>("id:\nevent: resync\ndata: {}\n\n");
    for (const auto& weak : streams_) {
      const auto stream = weak.lock();
      if (!stream) continue;
      if (!isFirst) stream->tell(kForget);
      stream->end();
    }
  }

  std::shared_ptr<EventStream> streamFor(const Request& request) {
    int64_t after = ring_->through();
    bool isOther = false;
    if (const auto last = lastEventIdOf(request.lastEventId)) {
      isOther = *last > after;
      after = std::min(after, *last);
    } else if (const auto asked = request.target.query.find("after"); asked != request.target.query.end()) {
      after = std::min(after, lastEventIdOf(asked->second).value_or(after));
    }
    // Who has had no row yet asks again with this number.
    std::string greeting = fmt::format("retry: 2000\nid: {}\n{}", after, timeText());
    if (isOther) greeting += "event: resync\ndata: {}\n\n";
    const auto self = std::make_shared<std::weak_ptr<EventStream>>();
    auto stream = std::make_shared<EventStream>(ring_, after, std::move(greeting),
                                                [this, self](int64_t seq) { readMissed(*self, seq); });
    *self = stream;
    streams_.push_back(stream);
    return stream;
  }

  void readMissed(const std::weak_ptr<EventStream>& weak, int64_t after) {
    queue_->async([this, weak, after] {
      auto missed = std::make_shared<std::pair<std::string, int64_t>>(site_.eventsAfter(after));
      errands_.add([this, weak, missed] {
        if (const auto stream = weak.lock()) stream->missed(std::move(missed->first), missed->second);
        http_->wakeStreams();
      });
    });
  }

  PageServer& server_;
  const PageServerOptions& options_;
  const std::unique_ptr<HistoryFollower> follower_;
  std::unique_ptr<HttpServer>& http_;
  Errands errands_;
  const platform::dispatch_queue_t queue_;
  Site site_;  // on the queue
  const Files files_ = pageFiles();
  RecordLines lines_{RecordLines::Format::readings};
  HistoryIdentity identity_{};
  std::optional<MetricsBook> metrics_{std::in_place, [this] { return server_.settings_->current(); }};
  std::optional<bool> isWritten_ = HistoryReader::isWritten(options_.history);  // none: it cannot be told
  int64_t tip_ = 0;  // the newest row that the ring has
  std::shared_ptr<EventRing> ring_ = std::make_shared<EventRing>(0);
  std::vector<std::weak_ptr<EventStream>> streams_;
  dispatch_time_t nextHeartbeat_{};
};

Result<std::unique_ptr<PageServer>> PageServer::open(PageServerOptions options,
                                                     std::shared_ptr<platform::DispatchService> dispatch,
                                                     std::shared_ptr<LiveSettings> settings) {
  const auto socket = options.listen.open();
  if (!socket) return socket.error();
  return std::unique_ptr<PageServer>(
      new PageServer(std::move(options), std::move(dispatch), std::move(settings), *socket));
}

PageServer::PageServer(PageServerOptions options, std::shared_ptr<platform::DispatchService> dispatch,
                       std::shared_ptr<LiveSettings> settings, int socket)
    : options_(std::move(options)),
      dispatch_(std::move(dispatch)),
      settings_(std::move(settings)),
      socket_(socket),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

PageServer::~PageServer() {
  ::close(wake_);
}

std::string PageServer::url() const {
  return "http://" + options_.listen.text() + "/";
}

void PageServer::stop() {
  isStopped_ = true;
  wake();
}

void PageServer::wake() {
  ::eventfd_write(wake_, 1);
}

Result<> PageServer::run(const std::function<void()>& onReady) {
  auto follower = HistoryFollower::open(options_.history);
  if (!follower) return follower.error().in(options_.history.parent_path().native());
  std::unique_ptr<HttpServer> http;
  Run run(*this, *std::move(follower), http);
  auto opened = HttpServer::open(
      socket_, options_.limits, dispatch_,
      [&run](const Request& request, uint64_t number) { return run.handle(request, number); });
  if (!opened) return opened.error();
  http = *std::move(opened);
  if (onReady) onReady();
  run.run();
  http.reset();
  return {};
}

}  // namespace brenloft::web
