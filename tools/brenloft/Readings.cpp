#include "tools/brenloft/Readings.h"

#include <algorithm>

#include <fmt/format.h>

#include "tools/brenloft/Texts.h"

namespace brenloft {
namespace {

std::string orDash(const std::string& text) {
  return text.empty() ? "-" : text;
}
std::string orDash(const BRLOptionalText& text) {
  return text ? orDash(printable(*text)) : "-";
}

// What tells the rows of one search apart comes first, and last what a narrow terminal may cut off: beacon,
// rssi, temperature, humidity, battery, emergency, acceleration, UUID.
constexpr const char* kRecordRow = "{:<17}  {:>4}  {:>7}  {:>6}  {:>3}  {:>3}  {:<20}  {}";

// A sensor's device identifier, an iBeacon's major and minor.
std::string beaconText(const BRLBeaconSnapshot& record) {
  return record.beaconType == 2 ? fmt::format("{}/{}", record.major, record.minor) : orDash(record.beaconId);
}

}  // namespace

void writeReadings(JsonLine& line, const std::optional<BRLSensorReadings>& readings) {
  if (!readings) {
    line.null();
    return;
  }
  line.beginObject();
  line.key("uniqueId").text(readings->uniqueId);
  line.key("txPower").number(readings->txPower);
  line.key("temperature").text(readings->temperature);
  line.key("humidity").text(readings->humidity);
  line.key("battery").number(readings->battery);
  line.key("emergency").number(readings->emergency);
  line.key("tbd").text(readings->tbd);
  line.key("xAccel").text(readings->xAccel);
  line.key("yAccel").text(readings->yAccel);
  line.key("zAccel").text(readings->zAccel);
  line.endObject();
}

std::string readingsFields(const std::optional<BRLSensorReadings>& readings) {
  if (!readings) return std::string(std::ranges::count(kReadingsNames, ','), ',');
  const auto& r = *readings;
  return fmt::format("{},{},{},{},{},{},{},{},{},{}", r.uniqueId, r.txPower, r.temperature, r.humidity,
                     r.battery, r.emergency, r.tbd, r.xAccel, r.yAccel, r.zAccel);
}

std::string readingsText(const BRLSensorReadings& readings) {
  return fmt::format("{} t {} h {} tx {} bat {} emg {} acc {} {} {} tbd {}", readings.uniqueId,
                     orDash(readings.temperature), orDash(readings.humidity), readings.txPower,
                     readings.battery, readings.emergency, readings.xAccel, readings.yAccel, readings.zAccel,
                     readings.tbd);
}

void writeRecord(JsonLine& line, const BRLBeaconSnapshot& record) {
  line.beginObject();
  line.key("beaconType").number(static_cast<int64_t>(record.beaconType));
  line.key("beaconId").textOrNull(record.beaconId);
  line.key("uuid").textOrNull(record.uuid);
  line.key("major").number(record.major);
  line.key("minor").number(record.minor);
  line.key("rssi").number(record.rssi);
  line.key("txPower").number(record.txPower);
  line.key("emergency").number(record.emergency);
  line.key("battery").number(record.battery);
  line.key("temperature").textOrNull(record.temperature);
  line.key("humidity").textOrNull(record.humidity);
  line.key("uniqueId").textOrNull(record.uniqueId);
  line.key("tbd").textOrNull(record.tbd);
  line.key("status").number(record.status);
  line.key("statusUpdatedDate");
  if (record.statusUpdatedDate)
    line.date(*record.statusUpdatedDate);
  else
    line.null();
  line.key("xAccel").textOrNull(record.xAccel);
  line.key("yAccel").textOrNull(record.yAccel);
  line.key("zAccel").textOrNull(record.zAccel);
  line.endObject();
}

std::string recordRow(const BRLBeaconSnapshot& record) {
  const bool isSensor = record.beaconType == 1;
  const std::string acceleration =
      isSensor ? fmt::format("{} {} {}", orDash(record.xAccel), orDash(record.yAccel), orDash(record.zAccel))
               : "-";
  return fmt::format(fmt::runtime(kRecordRow), beaconText(record), record.rssi, orDash(record.temperature),
                     orDash(record.humidity), isSensor ? std::to_string(record.battery) : "-",
                     isSensor ? std::to_string(record.emergency) : "-", acceleration, orDash(record.uuid));
}

std::string recordHeader() {
  return fmt::format(fmt::runtime(kRecordRow), "beacon", "rssi", "temp", "humid", "bat", "emg",
                     "acceleration", "uuid");
}

}  // namespace brenloft
