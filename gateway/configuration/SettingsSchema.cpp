#include "gateway/configuration/SettingsSchema.h"

namespace brenloft {

using Kind = SettingsKey::Kind;

const std::vector<SettingsKey>& beaconKeys() {
  static const std::vector<SettingsKey> keys{
      {.name = "name", .kind = Kind::text, .help = "what people call it"},
      {.name = "place",
       .kind = Kind::text,
       .help = "where it is; an alarm can be for all beacons of a place"},
      {.name = "temperature",
       .kind = Kind::number,
       .help = "degrees added to what it measures",
       .fallback = "0",
       .least = -50,
       .most = 50},
      {.name = "humidity",
       .kind = Kind::number,
       .help = "percent of relative humidity added to what it measures",
       .fallback = "0",
       .least = -50,
       .most = 50},
      {.name = "exit-time",
       .kind = Kind::duration,
       .help = "silence after which it is lost; \"auto\": learned from its own gaps",
       .fallback = "as --exit-time says",
       .least = 1,
       .words = {"auto"}},
      {.name = "expected-interval", .kind = Kind::duration, .help = "how often it sends", .least = 0.02},
      {.name = "ignore",
       .kind = Kind::flag,
       .help = "true: nothing of it is shown, kept or judged",
       .fallback = "false"},
  };
  return keys;
}

const std::vector<SettingsKey>& alarmKeys() {
  static const std::vector<SettingsKey> keys{
      {.name = "name", .kind = Kind::text, .help = "what it is called; every alarm has one of its own"},
      {.name = "beacon",
       .kind = Kind::text,
       .help = "the name or the identifier of the one beacon it is for"},
      {.name = "place",
       .kind = Kind::text,
       .help = "the place whose beacons it is for; without beacon and place: every beacon"},
      {.name = "quantity",
       .kind = Kind::choice,
       .help = "what is compared with above and below",
       .words = {"temperature", "humidity", "dew-point", "battery", "rssi"}},
      {.name = "above", .kind = Kind::number, .help = "raised by larger values", .least = -1e6, .most = 1e6},
      {.name = "below", .kind = Kind::number, .help = "raised by smaller values", .least = -1e6, .most = 1e6},
      {.name = "silent",
       .kind = Kind::duration,
       .help = "raised when the beacon was not heard for so long",
       .least = 1},
      {.name = "emergency", .kind = Kind::flag, .help = "true: raised by the beacon's emergency signal"},
      {.name = "for",
       .kind = Kind::duration,
       .help = "how long it must last before it is raised",
       .fallback = "0"},
      {.name = "hysteresis",
       .kind = Kind::number,
       .help = "how far back inside the limit a value must be to clear it",
       .fallback = "0",
       .least = 0,
       .most = 1e6},
      {.name = "cooldown",
       .kind = Kind::duration,
       .help = "the shortest time from one raise to the next",
       .fallback = "0"},
      {.name = "severity",
       .kind = Kind::choice,
       .help = "how much it matters",
       .fallback = "warning",
       .words = {"info", "warning", "critical"}},
      {.name = "text", .kind = Kind::text, .help = "what people should know or do"},
      {.name = "exec",
       .kind = Kind::command,
       .help =
           "a program, by its full path, and its arguments: run when it is raised and when it is cleared"},
      {.name = "exec-timeout",
       .kind = Kind::duration,
       .help = "how long that program may run before it is ended",
       .fallback = "30s",
       .least = 1},
  };
  return keys;
}

}  // namespace brenloft
