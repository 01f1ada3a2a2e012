#include "tools/brenloft/Readings.h"

#include <concepts>
#include <tuple>

#include <fmt/format.h>

#include "BrenloftSDK/BRLProperties.h"
#include "gateway/Texts.h"

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

// A property or a reading of each kind as a value of JSON.

template <std::integral Integer>
void write(JsonLine& line, Integer number) {
  line.number(number);
}
void write(JsonLine& line, const std::string& text) {
  line.text(text);
}
void write(JsonLine& line, const BRLOptionalText& text) {
  line.textOrNull(text);
}
void write(JsonLine& line, const std::optional<platform::Date>& date) {
  if (date)
    line.date(*date);
  else
    line.null();
}

template <typename Table, typename Values>
void writeObject(JsonLine& line, const Table& table, const Values& values) {
  line.beginObject();
  BRLForEach(table, [&](const auto& entry) {
    line.plainKey(entry.name);
    write(line, values.*entry.member);
  });
  line.endObject();
}

// The same as a field of CSV.

template <std::integral Integer>
void append(std::string& fields, Integer number) {
  const fmt::format_int digits(number);
  fields.append(digits.data(), digits.size());
}
void append(std::string& fields, const std::string& text) {
  appendCsvField(fields, text);
}
void append(std::string& fields, const BRLOptionalText& text) {
  if (text) appendCsvField(fields, *text);
}
template <typename T>
void append(std::string& fields, const T& value, TimeText&) {
  append(fields, value);
}
void append(std::string& fields, const std::optional<platform::Date>& date, TimeText& times) {
  if (date) times.appendWhole(*date, fields);
}

// What `append` makes of each entry of a table, with commas between.
template <typename Table, typename Append>
void appendAll(std::string& fields, const Table& table, const Append& append) {
  BRLForEach(table, [&](const auto& entry) {
    append(fields, entry);
    fields += ',';
  });
  fields.pop_back();
}

template <typename Table>
std::string namesOf(const Table& table) {
  std::string names;
  appendAll(names, table, [](std::string& to, const auto& entry) { to += entry.name; });
  return names;
}

}  // namespace

void writeReadings(JsonLine& line, const std::optional<BRLSensorReadings>& readings) {
  if (!readings) {
    line.null();
    return;
  }
  writeObject(line, kBRLReadings, *readings);
}

void appendReadings(std::string& fields, const std::optional<BRLSensorReadings>& readings) {
  appendAll(fields, kBRLReadings, [&](std::string& to, const auto& reading) {
    if (readings) append(to, (*readings).*reading.member);
  });
}

std::string readingsNames() {
  return namesOf(kBRLReadings);
}

std::string readingsText(const BRLSensorReadings& readings) {
  return fmt::format("{} t {} h {} tx {} bat {} emg {} acc {} {} {} tbd {}", readings.uniqueId,
                     orDash(readings.temperature), orDash(readings.humidity), readings.txPower,
                     readings.battery, readings.emergency, readings.xAccel, readings.yAccel, readings.zAccel,
                     readings.tbd);
}

void writeRecord(JsonLine& line, const BRLBeaconSnapshot& record) {
  writeObject(line, kBRLProperties, record);
}

void appendRecord(std::string& fields, const BRLBeaconSnapshot& record, TimeText& times) {
  appendAll(fields, kBRLProperties,
            [&](std::string& to, const auto& property) { append(to, record.*property.member, times); });
}

std::string recordNames() {
  return namesOf(kBRLProperties);
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
