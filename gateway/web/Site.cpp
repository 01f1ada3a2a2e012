#include "gateway/web/Site.h"

#include <algorithm>
#include <map>

#include <fmt/format.h>

#include "gateway/web/BeaconHistory.h"
#include "gateway/web/BeaconList.h"
#include "gateway/web/PageWriter.h"

namespace brenloft::web {
namespace {

using namespace std::chrono_literals;
using platform::Date;
using platform::Error;

constexpr auto kPageSpan = std::chrono::days(7);
constexpr auto kJustNow = 1min;       // an end that is older is no live page's
constexpr auto kShortestSpan = 1min;  // of a history that has just begun
// How long a view is as good as new where nothing happened.
constexpr auto kFresh = 1s;
// A view that is dear to make is kept longer, whatever happens.
constexpr int kRest = 3;
constexpr std::size_t kRowsPerPiece = 500;

Answer jsonAnswer(std::string text) {
  return {.content = makeContent("application/json", std::move(text))};
}

}  // namespace

// The page as of a moment, and what was made of it.
struct Site::View {
  std::shared_ptr<const Settings> settings{};
  platform::dispatch_time_t made{};
  platform::dispatch_time_t cost{};
  int64_t through = 0;
  bool isWritten = true;
  PageModel model{};
  std::optional<Error> error{};
  std::shared_ptr<const Content> page{};
  std::shared_ptr<const Content> beacons{};
};

Site::Site(std::filesystem::path history, std::string title,
           std::shared_ptr<platform::DispatchService> dispatch, std::shared_ptr<LiveSettings> settings)
    : file_(std::move(history)),
      title_(std::move(title)),
      dispatch_(std::move(dispatch)),
      settings_(std::move(settings)) {}
Site::~Site() = default;

Answer Site::answer(const Request& request) {
  using Route = Answer (Site::*)(const Request&);
  static const std::map<std::string_view, Route> routes{{"/", &Site::page},
                                                        {"/api/beacons", &Site::beacons},
                                                        {"/api/history", &Site::history},
                                                        {"/healthz", &Site::health}};
  const auto route = routes.find(request.target.path);
  if (route == routes.end()) return refusal(404, "nothing is here; / is the page");
  return (this->*route->second)(request);
}

// Null where there is none; another history may have been put in its place.
HistoryReader* Site::reader() {
  const auto identity = HistoryIdentity::of(file_);
  if (reader_ && identity == identity_) return reader_.get();
  view_.reset();
  reader_.reset();
  identity_ = identity;
  if (auto opened = HistoryReader::open(file_)) reader_ = *std::move(opened);
  return reader_.get();
}

// Where that cannot be told, the rows alone tell.
bool Site::isWritten() const {
  return HistoryReader::isWritten(file_).value_or(true);
}

bool Site::isFresh(const View& view, bool isWritten) const {
  const auto age = dispatch_->now() - view.made;
  if (view.settings != settings_->current() || view.isWritten != isWritten) return false;
  if (age < kRest * view.cost) return true;
  return age < kFresh && happened_ <= view.through;
}

const Site::View& Site::view() {
  HistoryReader* reader = this->reader();
  const bool isWritten = this->isWritten();
  if (view_ && isFresh(*view_, isWritten)) return *view_;
  View view{.settings = settings_->current(), .made = dispatch_->now(), .isWritten = isWritten};
  if (reader != nullptr) {
    if (const auto last = reader->lastSeq()) view.through = *last;
  }
  auto model = readModel(*view.settings, isWritten);
  if (model) {
    view.model = *std::move(model);
  } else {
    view.error = model.error().in(file_.filename().native());
    reader_.reset();
  }
  view.cost = dispatch_->now() - view.made;
  view_ = std::make_unique<View>(std::move(view));
  return *view_;
}

platform::Result<PageModel> Site::readModel(const Settings& settings, bool isWritten) {
  const Date now = dispatch_->date();
  PageModel nothing{.span = {now - kShortestSpan, now}, .recent = {now - kShortestSpan, now}};
  if (reader_ == nullptr) {
    // One that cannot be read is another matter than none.
    const auto opened = HistoryReader::open(file_);
    if (!opened && opened.error().kind != Error::Kind::absent) return opened.error();
    return nothing;
  }
  const auto extent = reader_->extent();
  if (!extent) return extent.error();
  HistorySpan span{now - kPageSpan, now};
  if (extent->since < extent->until) {
    span.since = std::clamp(extent->since, span.since, now - kShortestSpan);
    // What was heard while the clock was read.
    if (extent->until < now + 1min) span.until = std::max(now, extent->until);
  }
  return readPageModel(*reader_, settings,
                       {.span = span, .hasLayers = false, .end = {.isWritten = isWritten}});
}

Answer Site::page(const Request&) {
  const View& view = this->view();
  if (view.error) return refusal(503, view.error->text);
  if (!view.page)
    view_->page = makeContent("text/html", writePage(view.model, {.title = title_, .seq = view.through}));
  return {.content = view.page};
}

Answer Site::beacons(const Request&) {
  const View& view = this->view();
  if (view.error) return refusal(503, view.error->text);
  if (!view.beacons) view_->beacons = makeContent("application/json", beaconList(view.model, view.through));
  return {.content = view.beacons};
}

Answer Site::history(const Request& request) {
  const auto settings = settings_->current();
  const auto query = historyQueryOf(request, *settings, dispatch_->date());
  if (const auto* problem = std::get_if<std::string>(&query)) return refusal(400, *problem);
  const auto& asked = std::get<HistoryQuery>(query);
  const BeaconSettings* known = settings->beacon(asked.beacon);
  if (known != nullptr && known->ignore) return refusal(404, "beacon: the settings ignore it");
  HistoryReader* reader = this->reader();
  if (reader == nullptr) return refusal(503, "no history yet");
  const PageEnd end{.isWritten = isWritten(), .isPast = asked.span.until < dispatch_->date() - kJustNow};
  const auto read = readBeaconHistory(*reader, *settings, asked.beacon, asked.span, asked.points, end);
  if (!read) {
    reader_.reset();
    return refusal(503, read.error().in(file_.filename().native()).text);
  }
  if (asked.isCsv) return {.content = makeContent("text/csv", historyCsv(*read))};
  return jsonAnswer(historyJson(*read));
}

Answer Site::health(const Request&) {
  const View& view = this->view();
  if (view.error) return refusal(503, view.error->text);
  const HealthText health = healthOf(view.model);
  Answer answer = jsonAnswer(health.json);
  answer.status = health.isWell ? 200 : 503;
  return answer;
}

std::string Site::eventText(const HistoryRow& row, const Settings& settings, RecordLines& lines) {
  const auto* event = std::get_if<BeaconEvent>(&row.record);
  std::string text =
      fmt::format("id: {}\nevent: {}\ndata: ", row.seq, event == nullptr ? "reading" : textOf(event->kind));
  const BeaconId* beacon = beaconOf(row.record);
  lines.append(text, row.record, beacon == nullptr ? Label{} : settings.labelOf(*beacon),
               static_cast<uint64_t>(row.seq));
  return text += '\n';
}

std::pair<std::string, int64_t> Site::eventsAfter(int64_t seq) {
  const auto settings = settings_->current();
  HistoryReader* reader = this->reader();
  if (reader == nullptr) return {"", seq};
  const auto page = reader->rows(seq, {}, kRowsPerPiece);
  if (!page) return {"", seq};
  std::string text;
  for (const HistoryRow& row : page->rows) text += eventText(row, *settings, lines_);
  return {std::move(text), page->through};
}

}  // namespace brenloft::web
