#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "gateway/configuration/LiveSettings.h"
#include "tests/foundation/TemporaryFolder.h"

namespace brenloft {
namespace {

using namespace std::chrono_literals;

std::string checkOption(const std::string&, const OptionSetting& setting) {
  const bool isWrong = setting.option == "format" && setting.words != std::vector<std::string>{"csv"};
  return isWrong ? "--format: is wrong" : "";
}

const CommandVocabulary kVocabulary{
    .commands = {{"scan", {{"source"}, {"log", true}, {"out", false, true}, {"format"}, {"count"}}},
                 {"log show", {{"format"}, {"container"}, {"last"}}},
                 {"log count", {{"container"}}}},
    .check = checkOption};

// "LINE: REASON" for each complaint.
std::string complaintsOf(std::string_view text) {
  const auto parsed = parseSettings(text, kVocabulary);
  std::string lines;
  if (const auto* complaints = std::get_if<std::vector<Complaint>>(&parsed))
    for (const Complaint& one : *complaints) lines += std::to_string(one.line) + ": " + one.reason + '\n';
  return lines;
}

Settings settingsOf(std::string_view text) {
  EXPECT_EQ(complaintsOf(text), "");
  return std::get<Settings>(parseSettings(text, kVocabulary));
}

TEST(ConfigurationTest, SaysWhatTheFileSays) {
  const Settings settings = settingsOf(R"(
container = "/srv/beacons"
[scan]
source = "hci:0"
count = 12
log = true
out = ["readings:a", "influx:b"]
[log.show]
container = "elsewhere"
[beacon."c0:c1:5c:00:00:01"]
name = "fridge"
place = "kitchen"
temperature = -0.4
humidity = 2
exit-time = "auto"
expected-interval = 0.5
[beacon."F7826DA6-4FA2-4E98-8024-BC5B71E0893E/1/2"]
exit-time = "1m30s"
ignore = true
[[alarm]]
name = "too warm"
beacon = "fridge"
quantity = "temperature"
above = 8.25
below = 2
for = "10m"
hysteresis = 0.5
cooldown = 3600
severity = "critical"
text = "Close the door"
exec = ["/usr/bin/notify", "-u", ""]
exec-timeout = "5s"
[[alarm]]
name = "gone"
place = "kitchen"
silent = "10m"
[[alarm]]
name = "help"
emergency = true
)");
  const auto fridge = *BeaconId::fromText("C0-C1-5C-00-00-01");
  EXPECT_EQ(settings.options.at("scan"),
            (std::vector<OptionSetting>{
                {"source", {"hci:0"}}, {"count", {"12"}}, {"log"}, {"out", {"readings:a", "influx:b"}}}));
  EXPECT_EQ(settings.options.at("log show"), (std::vector<OptionSetting>{{"container", {"elsewhere"}}}));
  EXPECT_EQ(settings.options.at("log count"), (std::vector<OptionSetting>{{"container", {"/srv/beacons"}}}));
  EXPECT_EQ(settings.nameOf(fridge), "fridge");
  EXPECT_EQ(*settings.beacon(fridge), (BeaconSettings{.name = "fridge",
                                                      .place = "kitchen",
                                                      .temperatureOffset = -40,
                                                      .humidityOffset = 200,
                                                      .exitTime = ExitTime{},
                                                      .expectedInterval = 500ms}));
  EXPECT_EQ(*settings.beacon(*BeaconId::fromText("F7826DA6-4FA2-4E98-8024-BC5B71E0893E/1/2")),
            (BeaconSettings{.exitTime = ExitTime{90s}, .ignore = true}));
  using Quantity = AlarmRule::Quantity;
  EXPECT_EQ(settings.alarms[0], (AlarmRule{.name = "too warm",
                                           .beacon = fridge,
                                           .quantity = Quantity::temperature,
                                           .above = 825,
                                           .below = 200,
                                           .hysteresis = 50,
                                           .hold = 10min,
                                           .cooldown = 1h,
                                           .severity = AlarmRule::Severity::critical,
                                           .text = "Close the door",
                                           .exec = {"/usr/bin/notify", "-u", ""},
                                           .execTimeout = 5s}));
  EXPECT_EQ(settings.alarms[1],
            (AlarmRule{.name = "gone", .place = "kitchen", .quantity = Quantity::silence, .hold = 10min}));
  EXPECT_EQ(settings.alarms[2], (AlarmRule{.name = "help", .quantity = Quantity::emergency, .above = 0}));
}

TEST(ConfigurationTest, NamesTheLineAndTheWordThatIsWrong) {
  const std::string beacon = "[beacon.\"C0-C1-5C-00-00-01\"]\nname = \"fridge\"\nplace = \"kitchen\"\n";
  const std::string alarm = beacon + "[[alarm]]\nname = \"warm\"\nquantity = \"temperature\"\n";
  const std::pair<std::string, std::string> cases[] = {
      {"a = 1\nb = \n", "2: b: there is no value behind the =\n"},
      {"[beacon.\"C0-C1-5C-00-00-01]\n",
       "1: [beacon.\"C0-C1-5C-00-00-01] is not a header of a section: write "
       "[beacon.\"C0-C1-5C-00-00-01\"]\n"},
      {"[beacon.“C0:C1:5C:00:00:01”]  # mine\n",
       "1: [beacon.“C0:C1:5C:00:00:01”] is not a header of a section: write "
       "[beacon.\"C0:C1:5C:00:00:01\"]\n"},
      {"[log show]\n", "1: [log show] is not a header of a section: write [log.show]\n"},
      {"[log-show]\nlast = 2\n", "1: there is no section [log-show]; did you mean log.show?\n"},
      {"out = \"a\", \"b\"\n", "1: out: several values stand in brackets: out = [\"a\", \"b\"]\n"},
      {"exec = /bin/sh -c\n",
       "1: exec: texts need quotes, and stand in a list: exec = [\"/bin/sh\", \"-c\"]\n"},
      {"[[alarm]\n", "1: [[alarm] is not a header of a section: write [[alarm]]\n"},
      {"name = “Fridge”\n", "1: name: these quotes are typographic ones; write name = \"Fridge\"\n"},
      {"exec = [\"/bin/sh\", ‘-c’]\n",
       "1: exec: these quotes are typographic ones; write exec = [\"/bin/sh\", '-c']\n"},
      {"above = 8,5 °C\n", "1: above: write the number alone: above = 8.5\n"},
      {"for = 10 Minutes\n", "1: for: texts need quotes: for = \"10m\"\n"},
      {"[scan]\nlast = 2\n[log]\nsource = 3\n",
       "2: last is not an option of scan; [log.show] has it\n4: source is not an option of log; [scan] has "
       "it\n"},
      {"[scan]\nsource = hci:0  # here\n", "2: source: texts need quotes: source = \"hci:0\"\n"},
      {"a = true\na = true\n", "2: cannot redefine existing boolean 'a'\n"},
      {"name = \"x\n", "1: name: the text has no quote at its end\n"},
      {"a = 0,5\n", "1: a: numbers have a point: a = 0.5\n"},
      {"[[alarms]]\nname = \"a\"\n", "1: there is no section [alarms]; did you mean alarm?\n"},
      {"[[alarm]]\nnmae = \"a\"\nsilent = 10\n", "2: nmae is not a key of [[alarm]]; did you mean name?\n"},
      {"[scan]\nlog = True\n", "2: log: write true, in small letters\n"},
      {"[scan.\"C0-C1-5C-00-00-01\"]\n",
       "1: there is no section [scan.\"C0-C1-5C-00-00-01\"]; did you mean [beacon.\"C0-C1-5C-00-00-01\"]?\n"},
      {"[scan]\nsource = \"auto\"\nsource = \"demo\"\n", "3: cannot redefine existing string 'source'\n"},
      {"\n[scam]\n", "2: there is no section [scam]; did you mean scan?\n"},
      {"contaner = \"/srv\"\n", "1: no command has the option contaner; did you mean container?\n"},
      {"scan = 1\n", "1: the options of scan stand below [scan]\n"},
      {"[scan]\nlog = true\nsuorce = \"hci:0\"\n",
       "3: suorce is not an option of scan; did you mean source?\n"},
      {"[log]\nsohw = 1\n", "2: sohw is not an option of log; did you mean show?\n"},
      {"[scan]\nlog = \"yes\"\nsource = [\"a\"]\nout = [1, true]\ncount = \"a\\u0000b\"\n",
       "2: log: it must be true or false, without quotes\n3: source: it must be a text or a number\n"
       "4: out: it must be a text or a number, or a list of them\n5: count: it must be a text or a number\n"},
      {"format = \"xml\"\n", "1: --format: is wrong, for log show\n1: --format: is wrong, for scan\n"},
      {"[beacon]\nname = \"x\"\n",
       "2: \"name\" is not a beacon's identifier: write [beacon.\"C0-C1-5C-00-00-01\"], or "
       "[beacon.\"UUID/major/minor\"] for an iBeacon\n"},
      {beacon + "temprature = 1\nhumidity = \"1\"\nexit-time = \"soon\"\nignore = 1\nexpected-interval = 0\n",
       "4: temprature is not a key of [beacon]; did you mean temperature?\n5: humidity: it must be a number, "
       "without quotes: humidity = 1\n"
       "6: exit-time: it must be a duration: seconds, or a text with d, h, m, s or ms such as \"1h30m\" or "
       "\"auto\"\n"
       "7: ignore: it must be true or false\n8: expected-interval: it must be 0.02 seconds at least\n"},
      {beacon + "temperature = nan\n", "4: temperature: nan is not between -50 and 50\n"},
      {beacon + "[beacon.\"c0-c1-5c-00-00-01\"]\n[beacon.\"C0-C1-5C-00-00-02\"]\nname = \"fridge\"\n",
       "4: C0-C1-5C-00-00-01 is here a second time\n6: C0-C1-5C-00-00-01 is named \"fridge\", too\n"},
      {"[beacon.\"C0-C1-5C-00-00-01\"]\nname = \"a\\u001bb\"\nplace = \"\"\n",
       "2: name: it holds a control character\n3: place: it is empty\n"},
      {"[alarm]\nname = \"x\"\n", "1: an alarm begins with [[alarm]]\n"},
      {"\n[[alarm]]\nsilent = 10\n", "2: an alarm needs a name\n"},
      {"[[alarm]]\nname = \"a\"\n",
       "1: an alarm needs a quantity with above or below, or silent, or emergency\n"},
      {"[[alarm]]\nname = \"a\"\nemergency = false\n",
       "1: an alarm needs a quantity with above or below, or silent, or emergency\n"},
      {"[[alarm]]\nname = \"a\"\nabove = 8\n",
       "3: above of what? Add quantity = \"temperature\", for example\n"},
      {alarm, "6: quantity: it needs above or below, such as above = 8\n"},
      {alarm + "abov = 8\n", "7: abov is not a key of [[alarm]]; did you mean above?\n"},
      {alarm + "above = 1\n[[alarm]]\nname = \"warm\"\nsilent = 9\n",
       "9: another alarm is named \"warm\", too\n"},
      {alarm + "above = 1\nplace = \"kichen\"\n",
       "8: no beacon has the place \"kichen\"; did you mean kitchen?\n"},
      {alarm + "above = 1\nbeacon = \"frigde\"\n",
       "8: \"frigde\" is neither a beacon's name nor an identifier; did you mean fridge?\n"},
      {alarm + "above = 1\nbeacon = \"fridge\"\nplace = \"kitchen\"\n",
       "9: give an alarm a beacon or a place, not both\n"},
      {alarm + "above = 1.234\n", "7: above: 1.234 has more decimals than the two that are measured\n"},
      {alarm + "above = 200\n", "7: above: 200 is out of range: temperature goes from -60 to 125\n"},
      {alarm + "above = \"8 °C\"\nunit = \"C\"\n",
       "7: above: it must be a number, without quotes and unit: above = 8\n8: unit is not a key of "
       "[[alarm]]: "
       "leave "
       "it out; temperatures are in °C, humidity and battery in %, rssi in dBm\n"},
      {alarm + "above = 4\nbelow = 5\n",
       "8: below: 5 is larger than above, 4: every value would raise the alarm; below is the smaller one\n"},
      {alarm + "above = 4\nbelow = 3\nhysteresis = 0.6\n",
       "9: hysteresis: 0.6 leaves no value that clears the alarm; half of above minus below at most: 0.5\n"},
      {alarm + "silent = 10\n",
       "6: an alarm has one of quantity, silent and emergency; write one alarm for each\n"},
      {"[[alarm]]\nname = \"a\"\nsilent = 10\nfor = 5\n", "4: for has no effect beside silent\n"},
      {"[[alarm]]\nname = \"a\"\nsilent = 10\nseverity = \"criticl\"\nexec-timeout = 5\n",
       "4: severity: \"criticl\" is none of info, warning, critical; did you mean critical?\n"
       "5: exec-timeout has no effect without exec\n"},
      {"[[alarm]]\nname = \"a\"\nsilent = 10\nexec = \"notify\"\n",
       "4: exec: it must be a list of texts, [\"/usr/bin/notify\", \"--urgent\"]; no shell runs it\n"},
      {"[[alarm]]\nname = \"a\"\nsilent = 10\nexec = [\"notify\"]\n",
       "4: exec: \"notify\" is not a full path of a program, such as \"/usr/bin/notify\"\n"},
      {"[[alarm]]\nname = \"a\"\nsilent = 2026-01-01\n",
       "3: silent: it must be a duration: seconds, or a text with d, h, m, s or ms such as \"1h30m\"\n"},
      {"[[alarm]]\nname = \"a\"\nsilent = \"1 hr 10 mins\"\n",
       "3: silent: it must be a duration: seconds, or a text with d, h, m, s or ms such as \"1h30m\"; did "
       "you mean "
       "\"1h10m\"?\n"},
  };
  for (const auto& [text, complaints] : cases) EXPECT_EQ(complaintsOf(text), complaints) << text;
}

TEST(ConfigurationTest, IsReadFromAFileAndNotFromAPipeThatWouldBeEmpty) {
  const test::TemporaryFolder folder;
  const std::filesystem::path pipe = folder.path() / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const SettingsReader reader(pipe, SettingsReader::Absence::isAllowed, kVocabulary);
  EXPECT_THAT(reader.read().complaints, testing::ElementsAre(pipe.string() + ": it is not a file"));
}

TEST(ConfigurationTest, ReadAgainIsInForceOnlyWhereItIsRightAndNew) {
  const test::TemporaryFolder folder;
  const std::filesystem::path file = folder.path() / "settings.toml";
  const SettingsReader reader(file, SettingsReader::Absence::isAllowed, kVocabulary);
  LiveSettings live(reader, reader.read().settings);
  const auto none = live.current();
  EXPECT_EQ(*none, Settings());

  const std::string beacon = "[beacon.\"C0-C1-5C-00-00-01\"]\nname = \"fridge\"\n";
  test::writeFile(file, beacon);
  const auto named = live.reload();
  EXPECT_EQ(named.settings, live.current());
  EXPECT_EQ(named.settings->beacons.size(), 1U);
  EXPECT_THAT(named.lines, testing::ElementsAre("settings read again: 1 beacon, 0 alarms"));
  EXPECT_TRUE(none->beacons.empty()) << "who still holds it sees it as it was";
  EXPECT_EQ(live.reload().settings, nullptr);

  test::writeFile(file, beacon + "nam = 1\nplase = 2\n");
  EXPECT_THAT(
      live.reload().lines,
      testing::ElementsAre(file.string() + ":3: nam is not a key of [beacon]; did you mean name? (and 1 "
                                           "more); the settings stay as they were"));
  EXPECT_EQ(live.current(), named.settings);

  test::writeFile(file, "[scan]\nlog = true\n" + beacon);
  EXPECT_THAT(live.reload().lines,
              testing::ElementsAre("settings read again: 1 beacon, 0 alarms",
                                   "options of commands are as at the start until the next one"));
}

}  // namespace
}  // namespace brenloft
