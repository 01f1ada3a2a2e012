#include "gateway/mqtt/Discovery.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <set>

#include <fmt/format.h>

#include "gateway/alarms/AlarmBook.h"
#include "platform/foundation/JSONWriter.h"

namespace brenloft {
namespace {

using platform::JSONWriter;

// One of a device's entities that follows a value of its state.
struct Measurement {
  std::string_view key;
  std::string_view name;
  std::string_view deviceClass;
  std::string_view unit;
  bool isDiagnostic;
};
constexpr std::array kMeasurements{
    Measurement{"temperature", "Temperature", "temperature", "°C", false},
    Measurement{"humidity", "Humidity", "humidity", "%", false},
    Measurement{"battery", "Battery", "battery", "%", true},
    Measurement{"rssi", "Signal strength", "signal_strength", "dBm", true},
};

void write(JSONWriter& json, std::string_view key, std::string_view text) {
  json.plainKey(key).text(text);
}

void beginEntity(JSONWriter& json, std::string_view key, std::string_view platformName,
                 const std::string& device, std::string_view name) {
  json.key(key).beginObject();
  write(json, "platform", platformName);
  write(json, "unique_id", device + '_' + std::string(key));
  write(json, "name", name);
}

// Lower-case letters and digits; what is none of them is an underscore.
std::string slugOf(std::string_view text) {
  std::string slug;
  for (const char c : text) {
    const bool isUpper = c >= 'A' && c <= 'Z';
    const bool isPart = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    slug += isUpper ? static_cast<char>(c - 'A' + 'a') : isPart ? c : '_';
  }
  return slug;
}

// A text inside a template, whatever it holds.
std::string templateText(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '\'';
}

}  // namespace

std::string Discovery::identifierOf(const BeaconId& beacon) const {
  return (options_.isShared ? "brenloft" : gatewayIdentifier()) + '_' + Topics::wordOf(beacon);
}

std::string Discovery::topicOf(const BeaconId& beacon) const {
  return "homeassistant/device/" + identifierOf(beacon) + "/config";
}

// Another gateway's name may begin with this one's, so that a beacon's identifier must follow.
bool Discovery::isOwn(std::string_view topic) const {
  constexpr std::string_view kBegin = "homeassistant/device/";
  constexpr std::string_view kEnd = "/config";
  if (!topic.starts_with(kBegin) || !topic.ends_with(kEnd)) return false;
  topic.remove_prefix(kBegin.size());
  topic.remove_suffix(kEnd.size());
  if (topic == gatewayIdentifier()) return true;
  if (!topic.starts_with(gatewayIdentifier() + '_')) return false;
  std::string beacon(topic.substr(gatewayIdentifier().size() + 1));
  std::ranges::replace(beacon, '_', '/');
  return BeaconId::fromText(beacon).has_value();
}

std::vector<Message> Discovery::wanted(const Settings& settings, const std::vector<Beacon>& beacons) const {
  if (options_.scope == Scope::none) return {};
  std::vector<Message> messages{gateway(settings)};
  for (const Beacon& one : beacons) {
    const BeaconSettings* known = settings.beacon(one.id);
    const bool isWanted = known != nullptr ? !known->ignore : options_.scope == Scope::all;
    if (isWanted) messages.push_back(beacon(one, settings));
  }
  return messages;
}

// What is another gateway's too stays, should this one not know of it.
std::vector<Message> Discovery::reconcile(const std::vector<Message>& wanted,
                                          const Retained& retained) const {
  std::vector<Message> messages;
  std::set<std::string_view> topics;
  for (const Message& message : wanted) {
    topics.insert(message.topic);
    const auto found = retained.find(message.topic);
    if (found == retained.end() || found->second != message.payload) messages.push_back(message);
  }
  for (const auto& [topic, payload] : retained)
    if (isOwn(topic) && !topics.contains(topic)) messages.push_back({.topic = topic, .isRetained = true});
  return messages;
}

void Discovery::writeOrigin(JSONWriter& json) const {
  json.plainKey("origin").beginObject();
  write(json, "name", "brenloft");
  write(json, "sw_version", options_.version);
  json.endObject();
}

void Discovery::writeAvailability(JSONWriter& json) const {
  json.plainKey("availability").beginArray().beginObject();
  write(json, "topic", topics_.status());
  json.endObject().endArray();
}

Message Discovery::gateway(const Settings& settings) const {
  JSONWriter json;
  const std::string device = gatewayIdentifier();
  const auto follow = [&](std::string_view valueTemplate) {
    write(json, "state_topic", topics_.info());
    write(json, "value_template", valueTemplate);
    write(json, "entity_category", "diagnostic");
  };
  json.beginObject().plainKey("device").beginObject();
  json.plainKey("identifiers").beginArray().text(device).endArray();
  write(json, "name", "Beacon gateway " + topics_.gateway());
  write(json, "model", "brenloft");
  write(json, "sw_version", options_.version);
  json.endObject();
  writeOrigin(json);
  json.plainKey("qos").number(1);
  json.plainKey("components").beginObject();
  beginEntity(json, "status", "binary_sensor", device, "Connection");
  write(json, "state_topic", topics_.status());
  write(json, "payload_on", "online");
  write(json, "payload_off", "offline");
  write(json, "device_class", "connectivity");
  write(json, "entity_category", "diagnostic");
  json.endObject();
  beginEntity(json, "radio", "sensor", device, "Radio");
  follow("{{ value_json.radio }}");
  json.endObject();
  beginEntity(json, "backlog", "sensor", device, "Backlog");
  follow("{{ value_json.backlog }}");
  write(json, "state_class", "measurement");
  json.endObject();
  beginEntity(json, "clock", "binary_sensor", device, "Clock");
  follow("{{ 'OFF' if value_json.clock.synced else 'ON' }}");
  write(json, "device_class", "problem");
  json.endObject();
  if (options_.isShared)
    for (const auto& [id, known] : settings.beacons) writeAlarms(json, id, settings, true);
  json.endObject().endObject();
  return {"homeassistant/device/" + device + "/config", std::string(json.written()), true};
}

Message Discovery::beacon(const Beacon& beacon, const Settings& settings) const {
  JSONWriter json;
  const std::string device = identifierOf(beacon.id);
  const Label label = settings.labelOf(beacon.id);
  json.beginObject().plainKey("device").beginObject();
  json.plainKey("identifiers").beginArray().text(device).endArray();
  write(json, "name", settings.nameOf(beacon.id));
  write(json, "model", beacon.id.kind() == BeaconId::Kind::sensor ? "Sensor beacon" : "iBeacon");
  write(json, "serial_number", beacon.id.text());
  if (!label.place.empty()) write(json, "suggested_area", label.place);
  if (!options_.isShared) write(json, "via_device", gatewayIdentifier());
  json.endObject();
  writeOrigin(json);
  if (!options_.isShared) writeAvailability(json);
  write(json, "state_topic", (options_.isShared ? Topics("+") : topics_).state(beacon.id));
  json.plainKey("qos").number(1);
  json.plainKey("components").beginObject();
  writeReadings(json, beacon);
  writePresence(json, beacon.id);
  if (!options_.isShared) writeAlarms(json, beacon.id, settings, false);
  json.endObject().endObject();
  return {topicOf(beacon.id), std::string(json.written()), true};
}

void Discovery::writeReadings(JSONWriter& json, const Beacon& beacon) const {
  const std::string device = identifierOf(beacon.id);
  const bool isSensor = beacon.id.kind() == BeaconId::Kind::sensor;
  for (const Measurement& one : kMeasurements) {
    if (!isSensor && one.key != "rssi") continue;
    beginEntity(json, one.key, "sensor", device, one.name);
    write(json, "device_class", one.deviceClass);
    write(json, "state_class", "measurement");
    write(json, "unit_of_measurement", one.unit);
    if (one.isDiagnostic) write(json, "entity_category", "diagnostic");
    write(json, "value_template", fmt::format("{{{{ value_json.{} }}}}", one.key));
    json.plainKey("expire_after").number(beacon.freshness.count()).endObject();
  }
  if (!isSensor) return;
  beginEntity(json, "emergency", "binary_sensor", device, "Emergency");
  write(json, "device_class", "safety");
  write(json, "value_template", "{{ 'ON' if value_json.emergency else 'OFF' }}");
  json.plainKey("expire_after").number(beacon.freshness.count()).endObject();
}

void Discovery::writePresence(JSONWriter& json, const BeaconId& beacon) const {
  beginEntity(json, "presence", "device_tracker", identifierOf(beacon), "Presence");
  write(json, "state_topic", (options_.isShared ? Topics::shared() : topics_).presence(beacon));
  write(json, "payload_home", "home");
  write(json, "payload_not_home", "not_home");
  write(json, "source_type", "bluetooth_le");
  json.endObject();
}

void Discovery::writeAlarms(JSONWriter& json, const BeaconId& beacon, const Settings& settings,
                            bool isNamed) const {
  std::set<std::string> keys;
  for (const AlarmRule& rule : settings.alarms) {
    if (!AlarmBook::concerns(rule, beacon, settings.beacon(beacon))) continue;
    std::string key = (isNamed ? Topics::wordOf(beacon) + '_' : std::string()) + "alarm_" + slugOf(rule.name);
    while (!keys.insert(key).second) key += '_';
    const std::string name = isNamed ? settings.nameOf(beacon) + ": " + rule.name : rule.name;
    beginEntity(json, key, "binary_sensor", isNamed ? gatewayIdentifier() : identifierOf(beacon), name);
    write(json, "state_topic", topics_.alarms(beacon));
    write(json, "device_class", "problem");
    write(json, "value_template",
          "{{ 'ON' if " + templateText(rule.name) + " in value_json.raised else 'OFF' }}");
    json.endObject();
  }
}

}  // namespace brenloft
