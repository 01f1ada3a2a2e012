#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "gateway/formats/RecordLines.h"

namespace brenloft {
namespace {

constexpr platform::Date kHeard(std::chrono::microseconds(1'795'255'200'123'456));
const BeaconId kSensor = BeaconId::sensor("C0-C1-5C-00-00-01");
const BeaconId kIBeacon = BeaconId::iBeacon("51C70E2A-9B44-4D1F-8A63-2FD075E81C36", 1, 2);
const Label kFridgeLabel{"Fridge, \"old\"\n", "Kitchen"};

struct Case {
  Record record;
  Label label;
  std::string readings;
  std::string influx;
};

std::vector<Case> cases() {
  const Quantities raw{.temperature = -36,
                       .humidity = 3870,
                       .battery = 69,
                       .emergency = 0,
                       .txPower = 197,
                       .xAccel = -1000,
                       .yAccel = 0,
                       .zAccel = 3};
  Quantities shown = raw;
  shown.temperature = -1;
  Quantities noAxes = raw;
  noAxes.humidity = noAxes.xAccel = std::nullopt;
  using Kind = BeaconEvent::Kind;
  return {
      {Reading{.beacon = kSensor, .heard = kHeard, .rssi = -49, .raw = raw, .shown = shown}, kFridgeLabel,
       R"({"time":"2026-11-21T10:00:00.123456Z","event":"reading","id":"C0-C1-5C-00-00-01",)"
       R"("name":"Fridge, \"old\"\n","place":"Kitchen","rssi":-49,"temperature":-0.01,"humidity":38.70,)"
       R"("battery":69,"emergency":0,"tx_power":197,"accel":[-1000,0,3],)"
       R"("raw":{"temperature":-0.36,"humidity":38.70}})",
       R"(reading,id=C0-C1-5C-00-00-01,name=Fridge\,\ "old"_,place=Kitchen temperature=-0.01,humidity=38.70,)"
       R"(battery=69i,emergency=0i,rssi=-49i,tx_power=197i,accel_x=-1000i,accel_y=0i,accel_z=3i,)"
       R"(raw_temperature=-0.36 1795255200123456000)"},
      {Reading{.beacon = kSensor, .heard = kHeard, .rssi = -49, .raw = noAxes, .shown = noAxes},
       {.name = "back\\"},
       R"({"time":"2026-11-21T10:00:00.123456Z","event":"reading","id":"C0-C1-5C-00-00-01",)"
       R"("name":"back\\","place":null,"rssi":-49,"temperature":-0.36,"humidity":null,)"
       R"("battery":69,"emergency":0,"tx_power":197,"accel":null,"raw":null})",
       R"(reading,id=C0-C1-5C-00-00-01,name=back_ temperature=-0.36,battery=69i,emergency=0i,rssi=-49i,)"
       R"(tx_power=197i,accel_y=0i,accel_z=3i 1795255200123456000)"},
      {Reading{.beacon = kIBeacon, .heard = kHeard},
       {},
       R"({"time":"2026-11-21T10:00:00.123456Z","event":"reading",)"
       R"("id":"51C70E2A-9B44-4D1F-8A63-2FD075E81C36/1/2","name":null,"place":null,"rssi":null,)"
       R"("temperature":null,"humidity":null,"battery":null,"emergency":null,"tx_power":null,"accel":null,)"
       R"("raw":null})",
       ""},
      {BeaconEvent{.beacon = kSensor, .heard = kHeard, .kind = Kind::emergencyOver},
       {},
       R"({"time":"2026-11-21T10:00:00.123456Z","event":"emergency_over","id":"C0-C1-5C-00-00-01",)"
       R"("name":null,"place":null,"text":null})",
       R"(event,kind=emergency_over,id=C0-C1-5C-00-00-01 count=1i 1795255200123456000)"},
      {BeaconEvent{.beacon = {}, .heard = kHeard, .kind = Kind::gap, .text = "no \"room\"", .count = 7},
       {},
       R"({"time":"2026-11-21T10:00:00.123456Z","event":"gap","id":null,"name":null,"place":null,)"
       R"("text":"no \"room\"","count":7})",
       R"(event,kind=gap text="no \"room\"",count=7i 1795255200123456000)"},
      {BeaconEvent{
           .beacon = kSensor,
           .heard = kHeard,
           .kind = Kind::alarmRaised,
           .text = "warm",
           .alarm = AlarmFacts{AlarmSeverity::critical, AlarmQuantity::temperature, 825, 800, "Shut it"}},
       {},
       R"({"time":"2026-11-21T10:00:00.123456Z","event":"alarm_raised","id":"C0-C1-5C-00-00-01",)"
       R"("name":null,"place":null,"text":"warm","alarm":{"severity":"critical","quantity":"temperature",)"
       R"("value":8.25,"threshold":8.00,"text":"Shut it"}})",
       R"(event,kind=alarm_raised,id=C0-C1-5C-00-00-01 text="warm",severity="critical",)"
       R"(quantity="temperature",value=8.25,threshold=8.00,alarm_text="Shut it" 1795255200123456000)"},
      {BeaconEvent{.beacon = kSensor,
                   .heard = kHeard,
                   .kind = Kind::alarmCleared,
                   .text = "still",
                   .alarm = AlarmFacts{.quantity = AlarmQuantity::silence, .threshold = 600}},
       {},
       R"({"time":"2026-11-21T10:00:00.123456Z","event":"alarm_cleared","id":"C0-C1-5C-00-00-01",)"
       R"("name":null,"place":null,"text":"still","alarm":{"severity":"warning","quantity":"silent",)"
       R"("value":null,"threshold":600,"text":null}})",
       R"(event,kind=alarm_cleared,id=C0-C1-5C-00-00-01 text="still",severity="warning",)"
       R"(quantity="silent",threshold=600 1795255200123456000)"},
  };
}

TEST(RecordLines, SayEveryRecordInEachFormat) {
  RecordLines readings(RecordLines::Format::readings);
  RecordLines influx(RecordLines::Format::influx);
  for (const Case& one : cases()) {
    std::string line;
    readings.append(line, one.record, one.label);
    EXPECT_EQ(line, one.readings + '\n');
    line.clear();
    influx.append(line, one.record, one.label);
    EXPECT_EQ(line, one.influx.empty() ? "" : one.influx + '\n');
  }
  std::string numbered;
  readings.append(numbered, cases()[4].record, {}, 42);
  EXPECT_EQ(numbered.find(R"(Z","seq":42,"event")"), 35U) << numbered;
}

}  // namespace
}  // namespace brenloft
