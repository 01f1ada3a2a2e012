#include "gateway/mqtt/Payloads.h"

#include <utility>

#include "gateway/formats/Decimal.h"
#include "platform/foundation/NSDateFormatter.h"

namespace brenloft {
namespace {

using platform::JSONWriter;

void writeNumber(JSONWriter& json, std::string_view key, std::optional<int32_t> number) {
  json.plainKey(key);
  if (number)
    json.number(*number);
  else
    json.null();
}

void writeDecimal(JSONWriter& json, std::string_view key, std::optional<int32_t> hundredths) {
  json.plainKey(key);
  if (!hundredths) {
    json.null();
    return;
  }
  std::string decimal;
  appendHundredths(decimal, *hundredths);
  json.raw(decimal);
}

void writeText(JSONWriter& json, std::string_view key, std::string_view text) {
  json.plainKey(key);
  if (text.empty())
    json.null();
  else
    json.text(text);
}

double secondsIn(std::chrono::milliseconds duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace

Payloads::Payloads(Topics topics, Labels labels)
    : topics_(std::move(topics)), labels_(std::move(labels)), lines_(RecordLines::Format::readings) {}

void Payloads::begin() {
  json_.clear();
  json_.beginObject().plainKey("v").number(kVersion);
}

std::string Payloads::end() {
  json_.endObject();
  return std::string(json_.written());
}

Message Payloads::status(bool isOnline) const {
  return {topics_.status(), isOnline ? "online" : "offline", true};
}

Message Payloads::info(const GatewayInfo& info, const ClockState& clock, platform::Date now) {
  begin();
  json_.plainKey("time").text(platform::rfc3339Text(now));
  writeText(json_, "version", info.version);
  writeText(json_, "source", info.source);
  writeText(json_, "radio", info.radio);
  writeText(json_, "store", info.store);
  json_.plainKey("backlog").number(info.backlog);
  json_.plainKey("rejected").number(info.rejected);
  json_.plainKey("dropped").number(info.dropped);
  writeClock(clock);
  return {topics_.info(), end(), true};
}

Message Payloads::state(const Reading& reading, int64_t seq, std::chrono::seconds expiry) {
  const Quantities& shown = reading.shown;
  begin();
  json_.plainKey("time").text(platform::rfc3339Text(reading.heard));
  json_.plainKey("seq").number(seq);
  writeDecimal(json_, "temperature", shown.temperature);
  writeDecimal(json_, "humidity", shown.humidity);
  writeNumber(json_, "battery", shown.battery);
  writeNumber(json_, "rssi", reading.rssi);
  json_.plainKey("emergency");
  if (shown.emergency)
    json_.boolean(*shown.emergency > 0);
  else
    json_.null();
  json_.plainKey("accel");
  if (shown.xAccel && shown.yAccel && shown.zAccel)
    json_.beginArray().number(*shown.xAccel).number(*shown.yAccel).number(*shown.zAccel).endArray();
  else
    json_.null();
  return {topics_.state(reading.beacon), end(), true, expiry};
}

Message Payloads::presence(const BeaconId& beacon, bool isHome) const {
  return {topics_.presence(beacon), isHome ? "home" : "not_home", true};
}

Message Payloads::alarms(const BeaconId& beacon, const std::set<std::string>& raised) {
  begin();
  json_.plainKey("raised").beginArray();
  for (const std::string& name : raised) json_.text(name);
  json_.endArray();
  return {topics_.alarms(beacon), end(), true};
}

void Payloads::writeOrigin(const Origin& origin) {
  json_.plainKey("gw").text(topics_.gateway());
  json_.plainKey("store").text(origin.store);
  json_.plainKey("historical").boolean(origin.isHistorical);
}

void Payloads::writeClock(const ClockState& clock) {
  json_.plainKey("boot").beginObject();
  writeText(json_, "id", clock.boot);
  json_.plainKey("seconds").number(secondsIn(clock.sinceBoot)).endObject();
  json_.plainKey("clock").beginObject().plainKey("synced").boolean(clock.isSynchronised);
  json_.plainKey("error_ms");
  if (clock.isSynchronised)
    json_.number(clock.error.count());
  else
    json_.null();
  json_.endObject();
}

std::string_view Payloads::membersOf(const HistoryRow& row) {
  const BeaconId* beacon = beaconOf(row.record);
  line_.clear();
  lines_.append(line_, row.record, beacon != nullptr ? labels_(*beacon) : Label(),
                static_cast<uint64_t>(row.seq));
  return std::string_view(line_).substr(1, line_.size() - 3);
}

Message Payloads::event(const Origin& origin, const HistoryRow& row) {
  begin();
  writeOrigin(origin);
  std::string payload = end();
  payload.pop_back();
  payload.append(",").append(membersOf(row)).append("}");
  return {topics_.event(), std::move(payload)};
}

Message Payloads::batch(const Origin& origin, const std::vector<HistoryRow>& rows,
                        const std::optional<Gap>& gap, const ClockState& clock, platform::Date now) {
  begin();
  writeOrigin(origin);
  json_.plainKey("first").number(gap ? gap->first : rows.front().seq);
  json_.plainKey("sent").text(platform::rfc3339Text(now));
  writeClock(clock);
  json_.plainKey("records").beginArray();
  if (gap) {
    json_.beginObject().plainKey("event").text("gap");
    json_.plainKey("first").number(gap->first).plainKey("last").number(gap->last);
    json_.plainKey("count").number(gap->count).endObject();
  }
  for (const HistoryRow& row : rows) json_.raw("{" + std::string(membersOf(row)) + "}");
  json_.endArray();
  return {topics_.batch(), end()};
}

}  // namespace brenloft
