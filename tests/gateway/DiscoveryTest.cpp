#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>
#include <rapidjson/schema.h>

#include "gateway/mqtt/Announcer.h"
#include "gateway/mqtt/Discovery.h"
#include "gateway/mqtt/Payloads.h"
#include "gateway/mqtt/SharedPresence.h"
#include "tests/foundation/TemporaryFolder.h"

namespace brenloft {
namespace {

using std::chrono::seconds;

const BeaconId kFridge = BeaconId::sensor("C0-C1-5C-00-00-01");
const BeaconId kStranger = BeaconId::sensor("C0-C1-5C-00-00-09");
const BeaconId kTag = BeaconId::iBeacon("51C70E2A-9B44-4D1F-8A63-2FD075E81C36", 1, 2);

Settings someSettings() {
  Settings settings;
  settings.beacons[kFridge] = {.name = "Fridge", .place = "Kitchen"};
  settings.beacons[kTag] = {.name = "Key \"ring\""};
  settings.alarms.push_back({.name = "it's too warm", .beacon = kFridge, .above = 800});
  return settings;
}
const std::vector<Discovery::Beacon> kBeacons{
    {kFridge, seconds(60)}, {kStranger, seconds(60)}, {kTag, seconds(300)}};

// Home Assistant's own words: what a device message, and each kind of entity in it, may and must have.
const std::set<std::string> kEntityFields{"platform",     "unique_id",      "name",
                                          "state_topic",  "value_template", "device_class",
                                          "expire_after", "entity_category"};
const std::map<std::string, std::set<std::string>> kPlatformFields{
    {"sensor", {"state_class", "unit_of_measurement"}},
    {"binary_sensor", {"payload_on", "payload_off"}},
    {"device_tracker", {"payload_home", "payload_not_home", "source_type"}}};
const std::map<std::string, std::set<std::string>> kDeviceClasses{
    {"sensor", {"temperature", "humidity", "battery", "signal_strength"}},
    {"binary_sensor", {"safety", "problem", "connectivity"}}};

// Clang finds the comparison of its iterators ambiguous.
std::vector<std::string> keysOf(const rapidjson::Value& object) {
  std::vector<std::string> keys;
  auto member = object.MemberBegin();
  for (auto left = object.MemberCount(); left > 0; --left, ++member)
    keys.emplace_back(member->name.GetString());
  return keys;
}

void validateEntity(const std::string& key, const rapidjson::Value& entity,
                    std::set<std::string>& uniqueIds) {
  SCOPED_TRACE(key);
  ASSERT_TRUE(entity.HasMember("platform") && entity.HasMember("unique_id"));
  const std::string platformName = entity["platform"].GetString();
  ASSERT_TRUE(kPlatformFields.contains(platformName)) << platformName;
  for (const std::string& name : keysOf(entity)) {
    EXPECT_TRUE(kEntityFields.contains(name) || kPlatformFields.at(platformName).contains(name)) << name;
  }
  EXPECT_TRUE(uniqueIds.insert(entity["unique_id"].GetString()).second);
  EXPECT_TRUE(std::regex_match(entity["unique_id"].GetString(), std::regex("[a-zA-Z0-9_-]+")));
  if (entity.HasMember("device_class")) {
    EXPECT_TRUE(kDeviceClasses.at(platformName).contains(entity["device_class"].GetString()));
  }
  if (entity.HasMember("entity_category")) {
    EXPECT_STREQ(entity["entity_category"].GetString(), "diagnostic");
  }
  if (entity.HasMember("expire_after")) {
    EXPECT_GE(entity["expire_after"].GetInt(), 60);
  }
}

// Holds a message against the documentation; the entities by key.
std::set<std::string> validated(const Message& message, std::set<std::string>& uniqueIds) {
  SCOPED_TRACE(message.topic + ' ' + message.payload);
  static const std::regex topic("homeassistant/device/[a-zA-Z0-9_-]+/config");
  EXPECT_TRUE(std::regex_match(message.topic, topic));
  EXPECT_TRUE(message.isRetained);
  rapidjson::Document json;
  EXPECT_FALSE(json.Parse(message.payload).HasParseError());
  static const std::set<std::string> fields{"device",       "origin",      "components",
                                            "availability", "state_topic", "qos"};
  for (const std::string& name : keysOf(json)) EXPECT_TRUE(fields.contains(name)) << name;
  static const std::set<std::string> deviceFields{
      "identifiers", "name", "model", "sw_version", "serial_number", "suggested_area", "via_device"};
  for (const std::string& name : keysOf(json["device"])) EXPECT_TRUE(deviceFields.contains(name)) << name;
  EXPECT_TRUE(json["device"]["identifiers"].IsArray());
  EXPECT_TRUE(json["origin"].HasMember("name"));
  std::set<std::string> keys;
  for (const std::string& key : keysOf(json["components"])) {
    const rapidjson::Value& entity = json["components"][key];
    validateEntity(key, entity, uniqueIds);
    EXPECT_TRUE(entity.HasMember("state_topic") || json.HasMember("state_topic"));
    keys.insert(key);
  }
  return keys;
}

TEST(DiscoveryTest, EveryPayloadIsWhatHomeAssistantDocuments) {
  for (const bool isShared : {false, true}) {
    const Discovery discovery(Topics("gw"),
                              {.scope = Discovery::Scope::all, .isShared = isShared, .version = "1"});
    const auto messages = discovery.wanted(someSettings(), kBeacons);
    ASSERT_EQ(messages.size(), 4U);
    std::set<std::string> uniqueIds;
    std::set<std::string> fridge{"temperature", "humidity", "battery", "rssi", "emergency", "presence"};
    std::set<std::string> gateway{"status", "radio", "backlog", "clock"};
    if (isShared)
      gateway.insert("C0-C1-5C-00-00-01_alarm_it_s_too_warm");
    else
      fridge.insert("alarm_it_s_too_warm");
    EXPECT_EQ(validated(messages[0], uniqueIds), gateway);
    EXPECT_EQ(validated(messages[1], uniqueIds), fridge);
    validated(messages[2], uniqueIds);
    EXPECT_EQ(validated(messages[3], uniqueIds), (std::set<std::string>{"rssi", "presence"}));
  }
}

TEST(DiscoveryTest, GatewaysOverrideEachOtherOnlyWhereTheySayTheSame) {
  const auto beaconsOf = [](const char* gateway, bool isShared) {
    auto messages =
        Discovery(Topics(gateway), {.isShared = isShared}).wanted(someSettings(), {{kFridge, seconds(60)}});
    messages.erase(messages.begin());
    return messages;
  };
  EXPECT_EQ(beaconsOf("a", true), beaconsOf("b", true));
  EXPECT_NE(beaconsOf("a", false)[0].topic, beaconsOf("b", false)[0].topic);
  EXPECT_NE(beaconsOf("a", false)[0].payload, beaconsOf("b", false)[0].payload);
}

TEST(DiscoveryTest, WhatIsRetainedBecomesWhatIsWanted) {
  const Discovery discovery(Topics("gw"), {.scope = Discovery::Scope::known});
  const auto wanted = discovery.wanted(someSettings(), kBeacons);
  EXPECT_EQ(wanted.size(), 3U) << "no stranger";
  Discovery::Retained retained;
  for (const Message& message : wanted) retained[message.topic] = message.payload;
  const auto gone = "homeassistant/device/brenloft_gw_C0-C1-5C-00-00-09/config";
  retained[gone] = "{}";
  retained["homeassistant/device/brenloft_gw_two_C0-C1-5C-00-00-09/config"] = "{}";  // another gateway's
  retained["homeassistant/device/kettle/config"] = "{}";
  retained[wanted[1].topic] = "{}";
  const auto messages = discovery.reconcile(wanted, retained);
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0], wanted[1]);
  EXPECT_EQ(messages[1], (Message{.topic = gone, .isRetained = true}));
}

TEST(DiscoveryTest, AllIsAnnouncedWhenHomeAssistantStarts) {
  const std::vector<Message> wanted{{"homeassistant/device/brenloft_gw/config", "{}", true}};
  std::vector<std::vector<Message>> announced;
  Announcer announcer(
      {.discovery = Discovery(Topics("gw"), {}),
       .wanted = [&] { return wanted; },
       .announce = [&](std::vector<Message> messages) { announced.push_back(std::move(messages)); },
       .chance = [] { return 0.5; }});
  announcer.begin({});
  announcer.arrived({}, wanted[0]);
  announcer.arrived({}, {"homeassistant/status", "online", true});  // long ago
  announcer.advance(Announcer::kSettling);
  EXPECT_TRUE(announced.empty());
  const Instant start = seconds(10);
  announcer.arrived(start, {"homeassistant/status", "offline"});
  announcer.arrived(start, {"homeassistant/status", "online"});
  announcer.advance(start + seconds(2));
  EXPECT_TRUE(announced.empty());
  announcer.advance(start + seconds(3));
  ASSERT_EQ(announced.size(), 1U);
  EXPECT_EQ(announced[0], wanted);
}

// As after a change of version on one of them, or where one hears a beacon more rarely.
TEST(DiscoveryTest, GatewaysThatDifferDoNotCorrectEachOtherForEver) {
  std::vector<Message> sent;
  std::vector<std::unique_ptr<Announcer>> gateways;
  std::array<seconds, 2> freshness{seconds(60), seconds(300)};
  for (const std::size_t i : {0U, 1U}) {
    const Discovery discovery(Topics(i == 0 ? "a" : "b"), {.isShared = true});
    gateways.push_back(std::make_unique<Announcer>(Announcer::Parts{
        .discovery = discovery,
        .wanted =
            [&, i, discovery] {
              return discovery.wanted(someSettings(), {{kFridge, freshness[i]}});
            },
        .announce = [&](std::vector<Message> all) { sent.insert(sent.end(), all.begin(), all.end()); },
        .chance = [] { return 0.5; }}));
    gateways.back()->begin({});
  }
  Instant now{};
  const auto sentIn = [&](int periods) {
    sent.clear();
    for (int i = 0; i < periods * 2; ++i) {
      const std::size_t before = sent.size();
      gateways[i % 2]->advance(now += Announcer::kPeriod);
      for (std::size_t j = before; j < sent.size(); ++j)
        for (auto& gateway : gateways) gateway->arrived(now, sent[j]);
    }
    return sent.size();
  };
  EXPECT_EQ(sentIn(5), 4U) << "the gateways, and the beacon once by each";
  freshness[0] = seconds(600);
  EXPECT_EQ(sentIn(5), 1U);
}

TEST(SharedPresenceTest, ABeaconIsHomeUntilNoGatewayHearsIt) {
  SharedPresence shared([](const std::string& beacon) { return beacon == "X"; });
  const auto said = [&](const std::string& topic, const std::string& payload) {
    shared.arrived({"brenloft/" + topic, payload});
    std::string texts;
    for (const Message& message : shared.changes())
      texts += message.topic + ' ' + message.payload + (message.expiry ? " for a while" : "");
    return texts;
  };
  const std::string topic = "brenloft/_shared/beacon/X/presence ";
  EXPECT_EQ(said("a/beacon/X/presence", "home"), topic + "home");
  EXPECT_EQ(said("b/beacon/X/presence", "home"), "");
  EXPECT_EQ(said("a/beacon/X/presence", "not_home"), "");
  EXPECT_EQ(said("b/status", "offline"), topic + "not_home");
  EXPECT_EQ(said("_shared/beacon/X/presence", "not_home"), "") << "what was said comes back";
  EXPECT_EQ(said("b/status", "online"), topic + "home");
  EXPECT_EQ(said("_shared/beacon/X/presence", "not_home"), topic + "home") << "another gateway knew less";
  EXPECT_EQ(said("b/beacon/X/presence", "not_home"), topic + "not_home");
  const std::string stranger = "brenloft/_shared/beacon/Y/presence ";
  EXPECT_EQ(said("b/beacon/Y/presence", "home"), stranger + "home");
  EXPECT_EQ(said("b/beacon/Y/presence", "not_home"), stranger + "not_home for a while");
  EXPECT_EQ(said("_shared/beacon/Y/presence", "not_home"), "") << "what was said comes back";
}

// A row of each kind.
std::vector<HistoryRow> rowsOfEachKind(platform::Date date) {
  using Kind = BeaconEvent::Kind;
  const AlarmFacts facts{.value = 812, .threshold = 800, .text = "close it"};
  return {
      {1, Reading{.beacon = kFridge, .heard = date, .shown = {.temperature = -5}}},
      {2, Reading{.beacon = kTag, .heard = date, .rssi = -60}},
      {3, BeaconEvent{kFridge, date, Kind::found}},
      {4, BeaconEvent{kFridge, date, Kind::lost}},
      {5, BeaconEvent{kFridge, date, Kind::emergency}},
      {6, BeaconEvent{kFridge, date, Kind::emergencyOver}},
      {7,
       BeaconEvent{.beacon = kFridge, .heard = date, .kind = Kind::alarmRaised, .text = "a", .alarm = facts}},
      {8, BeaconEvent{.beacon = kFridge, .heard = date, .kind = Kind::alarmCleared, .text = "a"}},
      {9, BeaconEvent{std::nullopt, date, Kind::radio, "poweredOn"}},
      {10, BeaconEvent{.beacon = {}, .heard = date, .kind = Kind::gap, .count = 3}},
  };
}

// A payload that is right, and what is wrong with it once a number, a kind of event or a member is another.
void expectValid(rapidjson::SchemaValidator& validator, const Message& message) {
  SCOPED_TRACE(message.payload);
  const auto isValid = [&](const rapidjson::Document& json) {
    validator.Reset();
    return json.Accept(validator);
  };
  rapidjson::Document json;
  ASSERT_FALSE(json.Parse(message.payload).HasParseError());
  EXPECT_TRUE(isValid(json)) << validator.GetInvalidSchemaKeyword();
  const auto isValidWith = [&](const char* path, rapidjson::Value value) {
    rapidjson::Document changed;
    changed.CopyFrom(json, changed.GetAllocator());
    auto* found = rapidjson::Pointer(path).Get(changed);
    if (found == nullptr) return false;
    *found = std::move(value);
    return isValid(changed);
  };
  for (const std::string record : {"", "/records/0"}) {
    EXPECT_FALSE(isValidWith("/v", rapidjson::Value(2)));
    EXPECT_FALSE(isValidWith((record + "/event").c_str(), rapidjson::Value("unheard")));
    EXPECT_FALSE(isValidWith((record + "/temperature").c_str(), rapidjson::Value("21.00")));
    EXPECT_FALSE(isValidWith((record + "/text").c_str(), rapidjson::Value(1)));
    EXPECT_FALSE(isValidWith((record + "/count").c_str(), rapidjson::Value()));
    EXPECT_FALSE(isValidWith((record + "/alarm/threshold").c_str(), rapidjson::Value("8.00")));
  }
}

TEST(PayloadsTest, EachIsWhatItsSchemaSays) {
  rapidjson::Document schema;
  schema.Parse(test::contentsOf(BRENLOFT_SOURCE_DIR "/packaging/mqtt-v1.schema.json"));
  ASSERT_FALSE(schema.HasParseError());
  const rapidjson::SchemaDocument known(schema);
  rapidjson::SchemaValidator validator(known);
  Payloads payloads(Topics("gw"), [](const BeaconId&) { return Label{}; });
  const platform::Date date = std::chrono::sys_days(std::chrono::year(2026) / 11 / 21);
  const ClockState clock{.isSynchronised = true};
  const auto rows = rowsOfEachKind(date);
  std::vector<Message> messages{payloads.state(std::get<Reading>(rows[0].record), 7, seconds(60)),
                                payloads.alarms(kFridge, {"it's \"warm\""}),
                                payloads.info({.store = "S"}, clock, date),
                                payloads.batch({"S", true}, rows, Gap{1, 8, 6}, clock, date)};
  for (const HistoryRow& row : rows) {
    messages.push_back(payloads.batch({"S", true}, {row}, std::nullopt, clock, date));
    if (std::holds_alternative<BeaconEvent>(row.record)) messages.push_back(payloads.event({"S", true}, row));
  }
  for (const Message& message : messages) expectValid(validator, message);
}

TEST(PayloadsTest, NumbersAreNumbersAndWhatIsAbsentIsNull) {
  Payloads payloads(Topics("gw"), [](const BeaconId&) { return Label{"Fridge", ""}; });
  Reading reading{
      .beacon = kFridge, .heard = std::chrono::sys_days(std::chrono::year(2026) / 11 / 21), .rssi = -49};
  reading.shown = {
      .temperature = 2364, .battery = 69, .emergency = 0, .xAccel = 1, .yAccel = -2, .zAccel = 3};
  EXPECT_EQ(payloads.state(reading, 7, seconds(60)).payload,
            R"({"v":1,"time":"2026-11-21T00:00:00.000000Z","seq":7,"temperature":23.64,"humidity":null,)"
            R"("battery":69,"rssi":-49,"emergency":false,"accel":[1,-2,3]})");
  const Message event =
      payloads.event({"S", true}, {8, BeaconEvent{kTag, reading.heard, BeaconEvent::Kind::lost}});
  rapidjson::Document json;
  ASSERT_FALSE(json.Parse(event.payload).HasParseError()) << event.payload;
  EXPECT_STREQ(json["store"].GetString(), "S");
  EXPECT_EQ(json["seq"].GetInt(), 8);
  EXPECT_STREQ(json["event"].GetString(), "lost");
  EXPECT_FALSE(event.isRetained);
  EXPECT_EQ(payloads.presence(kTag, true).topic,
            "brenloft/gw/beacon/51C70E2A-9B44-4D1F-8A63-2FD075E81C36_1_2/presence");
}

}  // namespace
}  // namespace brenloft
