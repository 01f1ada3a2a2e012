#include "gateway/mqtt/Outbox.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace brenloft {
namespace {

constexpr std::size_t kRowsPerPage = 1'000;
// What MQTT puts around a payload, beside the topic.
constexpr std::size_t kFrame = 64;

// By channel.
constexpr std::array<std::string_view, 6> kNames{
    "the gateway's state", "emergencies and alarms", "states", "events", "discovery", "batches"};

bool isUrgentRow(const HistoryRow& row) {
  using Kind = BeaconEvent::Kind;
  const auto* event = std::get_if<BeaconEvent>(&row.record);
  return event != nullptr && (event->kind == Kind::emergency || event->kind == Kind::emergencyOver ||
                              event->kind == Kind::alarmRaised || event->kind == Kind::alarmCleared);
}

}  // namespace

Outbox::Outbox(Payloads& payloads, View& view, Rows& rows, const Cursor& cursor, Options options, World world)
    : payloads_(payloads),
      view_(view),
      rows_(rows),
      options_(options),
      world_(std::move(world)),
      store_(cursor.store),
      urgent_{Lane(cursor.urgent)},
      calm_{Lane(cursor.calm)},
      batches_{Lane(cursor.batches)} {
  info_.store = store_;
  for (Track* track : {&urgent_, &calm_, &batches_}) track->looked = track->lane.read();
}

void Outbox::setSource(std::string version, std::string source) {
  info_.version = std::move(version);
  info_.source = std::move(source);
}

Cursor Outbox::cursor() const {
  return {store_, urgent_.lane.cursor(), calm_.lane.cursor(), batches_.lane.cursor()};
}

void Outbox::begin(Instant now, uint32_t largestMessage) {
  largestMessage_ = largestMessage;
  backlogEnd_ = rows_.lastSeq();
  underWay_.clear();
  batchesUnderWay_ = 0;
  for (Track* track : {&urgent_, &calm_, &batches_}) rewind(*track);
  view_.renew();
  isStatusTold_ = false;
  nextInfo_ = now;
  announcements_.clear();
  heldUntil_ = {};
}

void Outbox::wake() {
  for (Track* track : {&urgent_, &calm_, &batches_}) track->isAtEnd = false;
}

void Outbox::announce(std::vector<Message> announcements) {
  for (Message& message : announcements) {
    const auto same = std::ranges::find(announcements_, message.topic, &Message::topic);
    if (same == announcements_.end())
      announcements_.push_back(std::move(message));
    else
      *same = std::move(message);
  }
}

void Outbox::rewind(Track& track) {
  track.lane.rewind();
  track.waiting.clear();
  track.looked = track.lane.read();
  track.isAtEnd = false;
}

// What comes next.

std::optional<Supply::Outgoing> Outbox::next(Instant now, std::size_t room) {
  // The last place is for a batch every other time, so that neither starves behind a broker that takes one
  // message at a time.
  const bool isBatchFirst = room <= 1 && !wasBatch_;
  for (const Channel channel :
       {kGateway, kUrgent, isBatchFirst ? kBatches : kView, kView, kCalm, kAnnouncements, kBatches}) {
    if (now < heldUntil_[channel]) continue;
    auto found = nextOf(channel, now);
    if (!found) continue;
    wasBatch_ = channel == kBatches;
    if (wasBatch_) ++batchesUnderWay_;
    const uint64_t key = nextKey_++;
    underWay_.emplace(key, UnderWay{channel, std::move(found->second)});
    return Outgoing{key, std::move(found->first)};
  }
  return std::nullopt;
}

Outbox::Found Outbox::nextOf(Channel channel, Instant now) {
  switch (channel) {
    case kGateway:
      return nextOfGateway(now);
    case kUrgent:
      return nextEvent(urgent_, true);
    case kView:
      return nextView();
    case kCalm:
      return nextEvent(calm_, false);
    case kAnnouncements:
      return nextAnnouncement(now);
    case kBatches:
      return nextBatch(now);
    case kChannels:
      break;
  }
  return std::nullopt;
}

Outbox::Found Outbox::nextOfGateway(Instant now) {
  if (!std::exchange(isStatusTold_, true)) return std::pair(payloads_.status(true), Origin());
  if (now < nextInfo_ && view_.radio() == toldRadio_) return std::nullopt;
  nextInfo_ = now + kInfoPeriod;
  info_.radio = toldRadio_ = view_.radio();
  const int64_t waiting = hasBatches() ? rows_.lastSeq() - batches_.lane.cursor() : 0;
  info_.backlog = static_cast<uint64_t>(std::max<int64_t>(waiting, 0));
  return std::pair(payloads_.info(info_, world_.clock(), world_.date()), Origin());
}

Outbox::Found Outbox::nextEvent(Track& track, bool isUrgent) {
  refillEvents(track, isUrgent);
  if (track.waiting.empty()) return std::nullopt;
  const HistoryRow row = std::move(track.waiting.front());
  track.waiting.pop_front();
  const Lane::Ticket ticket = track.lane.begin(row.seq);
  if (track.waiting.empty()) track.lane.skip(track.looked);
  return std::pair(payloads_.event({store_, isHistorical(row.seq)}, row), Origin(InLane{&track, ticket}));
}

Outbox::Found Outbox::nextView() {
  auto item = view_.next(world_.date());
  if (!item) return std::nullopt;
  return std::pair(std::move(item->message), Origin(std::move(item->key)));
}

Outbox::Found Outbox::nextAnnouncement(Instant now) {
  if (announcements_.empty() || now < nextAnnouncement_) return std::nullopt;
  nextAnnouncement_ = now + Instant(std::chrono::seconds(1)) / kAnnouncementsPerSecond;
  Message message = std::move(announcements_.front());
  announcements_.pop_front();
  return std::pair(message, Origin(message));
}

// Batches.

Outbox::Found Outbox::nextBatch(Instant now) {
  if (!hasBatches() || batchesUnderWay_ >= kMostBatchesUnderWay) return std::nullopt;
  refillBatches(now);
  if (!isBatchDue(now)) return std::nullopt;
  std::size_t rows = std::min(batches_.waiting.size(), kBatchRows);
  Message message = batchOf(rows);
  while (rows > 1 && message.payload.size() + message.topic.size() + kFrame > largestMessage_)
    message = batchOf(rows /= 2);
  const int64_t through = endOfBatch(rows);
  if (isHistorical(through))
    historicalPaid_ =
        std::max(now, historicalPaid_) + Instant(std::chrono::seconds(rows)) / options_.mostPerSecond;
  info_.dropped += static_cast<uint64_t>(through - batches_.lane.read()) - rows;
  batches_.waiting.erase(batches_.waiting.begin(),
                         batches_.waiting.begin() + static_cast<std::ptrdiff_t>(rows));
  batchBegun_ = now;
  return std::pair(std::move(message), Origin(InLane{&batches_, batches_.lane.begin(through)}));
}

int64_t Outbox::endOfBatch(std::size_t rows) const {
  return rows == 0 ? batches_.looked : batches_.waiting[rows - 1].seq;
}

// The numbers that a batch goes over without a row are its gap.
Message Outbox::batchOf(std::size_t rows) {
  const auto begin = batches_.waiting.begin();
  const std::vector<HistoryRow> part(begin, begin + static_cast<std::ptrdiff_t>(rows));
  const int64_t first = batches_.lane.read() + 1;
  const int64_t last = endOfBatch(rows);
  const uint64_t missing = static_cast<uint64_t>(last - first + 1) - rows;
  const auto gap = missing > 0 ? std::optional(Gap{first, last, missing}) : std::nullopt;
  return payloads_.batch({store_, isHistorical(last)}, part, gap, world_.clock(), world_.date());
}

bool Outbox::isBatchDue(Instant now) const {
  if (batches_.waiting.empty()) return batches_.isAtEnd && batches_.looked > batches_.lane.read();
  const bool isWaited = isHistorical(batches_.waiting.front().seq);
  if (isWaited) return now >= historicalDue();
  return batches_.waiting.size() >= kBatchRows || now >= batchBegun_ + kBatchTime;
}

// Reading ahead.

void Outbox::refill(Track& track, bool hasReadings) {
  HistoryPage page = rows_.rows(track.looked, hasReadings, kRowsPerPage);
  track.isAtEnd = page.isLast;
  for (HistoryRow& row : page.rows) track.waiting.push_back(std::move(row));
  track.looked = std::max(track.looked, page.through);
}

void Outbox::refillEvents(Track& track, bool isUrgent) {
  while (track.waiting.empty() && !track.isAtEnd) {
    refill(track, false);
    std::erase_if(track.waiting, [&](const HistoryRow& row) { return isUrgentRow(row) != isUrgent; });
    if (track.waiting.empty()) track.lane.skip(track.looked);
  }
}

void Outbox::refillBatches(Instant now) {
  while (batches_.waiting.size() < kBatchRows && !batches_.isAtEnd) {
    const bool wasEmpty = batches_.waiting.empty();
    const int64_t before = batches_.looked;
    // The readings through here give way.
    const int64_t left = rows_.lastSeq() - static_cast<int64_t>(options_.mostBacklog);
    refill(batches_, before >= left);
    if (before < left && batches_.looked > left) {
      std::erase_if(batches_.waiting, [&](const HistoryRow& row) { return row.seq > left; });
      batches_.looked = left;
      batches_.isAtEnd = false;
    }
    if (wasEmpty && !batches_.waiting.empty()) batchBegun_ = now;
    if (batches_.looked == before) return;
  }
}

// What became of it.

void Outbox::settle(Instant now, uint64_t key, Outcome outcome) {
  const auto found = underWay_.find(key);
  if (found == underWay_.end()) return;
  const UnderWay one = std::move(found->second);
  underWay_.erase(found);
  if (one.channel == kBatches && batchesUnderWay_ > 0) --batchesUnderWay_;
  if (outcome == Outcome::wrong) ++info_.rejected;
  const bool isUntaken = isKept(one.channel, outcome);
  if (!isUntaken && std::exchange(refused_[one.channel], Outcome::taken) != Outcome::taken)
    world_.onLine("the broker takes " + std::string(kNames[one.channel]) + " again");
  if (isUntaken) hold(now, one.channel, outcome);
  if (const auto* lane = std::get_if<InLane>(&one.origin)) {
    if (isUntaken)
      rewind(*lane->track);
    else
      lane->track->lane.acknowledge(lane->ticket);
  } else if (const auto* view = std::get_if<View::Key>(&one.origin); view != nullptr && isUntaken) {
    view_.tellAgain(*view);
  } else if (const auto* message = std::get_if<Message>(&one.origin); message != nullptr && isUntaken) {
    announcements_.push_back(*message);
  } else if (one.channel == kGateway && isUntaken) {
    isStatusTold_ = false;
  }
}

bool Outbox::isKept(Channel channel, Outcome outcome) const {
  if (outcome == Outcome::unheard) return channel == kBatches && options_.batches == Batches::collected;
  return outcome == Outcome::forbidden || outcome == Outcome::busy;
}

void Outbox::hold(Instant now, Channel channel, Outcome outcome) {
  const bool isForbidden = outcome == Outcome::forbidden;
  heldUntil_[channel] = now + (isForbidden ? kForbiddenPause : kBusyPause);
  if (std::exchange(refused_[channel], outcome) == outcome) return;
  const std::string name(kNames[channel]);
  const std::string line = isForbidden                ? "the broker's access list refuses " + name
                           : outcome == Outcome::busy ? "the broker has no room for " + name + " now"
                                                      : "nobody collects " + name + " now";
  world_.onLine(line + "; they are kept and tried again");
}

std::optional<Instant> Outbox::due() const {
  Instant due = std::max(isStatusTold_ ? nextInfo_ : Instant(), heldUntil_[kGateway]);
  if (!announcements_.empty()) due = std::min(due, std::max(nextAnnouncement_, heldUntil_[kAnnouncements]));
  if (!view_.isTold()) due = std::min(due, heldUntil_[kView]);
  if (!urgent_.waiting.empty() || !urgent_.isAtEnd) due = std::min(due, heldUntil_[kUrgent]);
  if (!calm_.waiting.empty() || !calm_.isAtEnd) due = std::min(due, heldUntil_[kCalm]);
  if (hasBatches() && batchesUnderWay_ < kMostBatchesUnderWay) {
    if (!batches_.isAtEnd && batches_.waiting.size() < kBatchRows) due = std::min(due, heldUntil_[kBatches]);
    if (!batches_.waiting.empty()) {
      const bool isWaited = isHistorical(batches_.waiting.front().seq);
      due = std::min(due,
                     std::max(heldUntil_[kBatches], isWaited ? historicalDue() : batchBegun_ + kBatchTime));
    }
  }
  return due;
}

}  // namespace brenloft
