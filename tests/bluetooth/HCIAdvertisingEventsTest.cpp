#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/bluetooth/HCIAdvertisingEvents.h"
#include "platform/foundation/Hex.h"

using platform::AdvertisingReport;
using platform::HCIAdvertisingEvents;
using platform::hexText;
using platform::octetsFromHex;

namespace {

using Texts = std::vector<std::string>;

constexpr auto kCut = "HCI event shorter than its length field";
constexpr auto kOverrun = "advertising report runs past the end of its event";
constexpr auto kUnknown = "advertising report of an unknown event type";

std::string octet(size_t value) {
  std::string text;
  platform::appendHex(text, static_cast<uint8_t>(value), platform::kLowerHexDigits);
  return text;
}

std::string event(const std::string& subevent, const Texts& reports) {
  std::string all;
  for (const std::string& report : reports) all += report;
  return "3e" + octet(all.size() / 2 + 2) + subevent + octet(reports.size()) + all;
}

/// A legacy report of C0:00:00:00:00:`device`.
std::string legacy(const std::string& type, const std::string& device, const std::string& data,
                   const std::string& rssi = "c4", const std::string& addressType = "01") {
  return type + addressType + device + "00000000c0" + octet(data.size() / 2) + data + rssi;
}

/// An extended report; `type` as sent, least significant octet first.
std::string extended(const std::string& type, const std::string& device, const std::string& data,
                     const std::string& set = "00", const std::string& addressType = "01") {
  return type + addressType + device + "00000000c0" + "0100" + set + "7f" + "c4" + "0000" + "00000000000000" +
         octet(data.size() / 2) + data;
}

struct Heard {
  Texts reports;
  Texts faults;
};

Heard hear(const Texts& events) {
  Heard heard;
  HCIAdvertisingEvents reader;
  for (const std::string& hex : events) {
    const std::string_view fault =
        reader.read(octetsFromHex(hex).value(), {}, [&](const AdvertisingReport& report) {
          heard.reports.push_back(report.address.text().substr(15) + (report.address.isRandom ? "r " : "p ") +
                                  std::string(textOf(report.kind)) + " " + std::to_string(report.rssi) + " " +
                                  hexText(report.data) + (report.isTruncated ? "!" : ""));
        });
    if (!fault.empty()) heard.faults.emplace_back(fault);
  }
  return heard;
}

void expectHeard(const char* name, const Texts& events, const Texts& reports, const Texts& faults = {}) {
  const Heard heard = hear(events);
  EXPECT_EQ(heard.reports, reports) << name;
  EXPECT_EQ(heard.faults, faults) << name;
}

TEST(LegacyReports, OfOneEventFollowOneAnother) {
  expectHeard("as a controller sent it",
              {"3e350202"
               "0000a47a4c3e315c0e0201060aff0d0007065009040b00c9"
               "0400a47a4c3e315c110d09426565576920424244313030020a00c9"},
              {"A4p ADV_IND -55 0201060aff0d0007065009040b00",
               "A4p SCAN_RSP -55 0d09426565576920424244313030020a00"});
  expectHeard("every kind",
              {event("02", {legacy("00", "01", "aa"), legacy("01", "02", ""), legacy("02", "03", "bb"),
                            legacy("03", "04", "cc"), legacy("04", "05", "dd", "7f")})},
              {"01r ADV_IND -60 aa", "02r ADV_DIRECT_IND -60 ", "03r ADV_SCAN_IND -60 bb",
               "04r ADV_NONCONN_IND -60 cc", "05r SCAN_RSP 127 dd"});
  expectHeard("identity addresses keep their kind",
              {event("02", {legacy("00", "01", "", "c4", "02"), legacy("00", "01", "", "c4", "03")})},
              {"01p ADV_IND -60 ", "01r ADV_IND -60 "});
}

TEST(Reports, BeforeAFaultCount) {
  const std::string whole = legacy("00", "01", "aabb");
  const auto expectFirst = [](const char* subevent, const std::string& report, const char* heard) {
    for (const size_t octets : {1, 2, 3, 4, 11}) {
      const std::string both = report + report.substr(0, report.size() - octets * 2);
      expectHeard("second report cut", {"3e" + octet(2 + both.size() / 2) + subevent + "02" + both}, {heard},
                  {kOverrun});
    }
  };
  expectFirst("02", whole, "01r ADV_IND -60 aabb");
  expectFirst("0d", extended("0000", "01", "aabb"), "01r EXT_ADV -60 aabb");
  expectHeard("data length of all ones",
              {event("02", {whole,
                            "000102000000"
                            "00c0ff"
                            "aabb"})},
              {"01r ADV_IND -60 aabb"}, {kOverrun});
  expectHeard("unknown type between others",
              {event("02", {whole, legacy("05", "02", "cc"), legacy("03", "03", "dd")})},
              {"01r ADV_IND -60 aabb", "03r ADV_NONCONN_IND -60 dd"}, {kUnknown});
  expectHeard("event shorter than it says", {"3eff0202" + whole}, {"01r ADV_IND -60 aabb"}, {kCut});
  expectHeard("more octets than reports", {"3e0f0201" + whole + "00"}, {"01r ADV_IND -60 aabb"});
}

TEST(OtherEvents, ArePassedOver) {
  expectHeard("no reports", {"3e020200", "3e020d00"}, {});
  expectHeard("others", {"0e0401030c00", "3e0a0300000000000000", "3e00"}, {}, {kCut});
  expectHeard("too short for an event", {"", "3e"}, {}, {kCut, kCut});
}

TEST(ExtendedReports, MapTheirTypes) {
  const struct {
    const char* type;
    const char* kind;
  } rows[] = {{"1300", "ADV_IND"},         {"1500", "ADV_DIRECT_IND"}, {"1200", "ADV_SCAN_IND"},
              {"1000", "ADV_NONCONN_IND"}, {"1b00", "SCAN_RSP"},       {"1a00", "SCAN_RSP"},
              {"1380", "ADV_IND"},         {"0000", "EXT_ADV"},        {"0100", "EXT_ADV_CONN"},
              {"0200", "EXT_ADV_SCAN"},    {"0a00", "EXT_SCAN_RSP"},   {"0400", "EXT_ADV"},
              {"0500", "EXT_ADV_CONN"},    {"81ff", "EXT_ADV_CONN"}};
  for (const auto& row : rows) {
    expectHeard(row.type, {event("0d", {extended(row.type, "01", "aa")})},
                {std::string("01r ").append(row.kind).append(" -60 aa")});
  }
  expectHeard("anonymous", {event("0d", {extended("0000", "01", "aa", "00", "ff")})}, {"00p EXT_ADV -60 aa"});
}

TEST(Fragments, ArePutTogetherByAddressSetAndKind) {
  expectHeard("three fragments",
              {event("0d", {extended("2000", "01", "aa")}), event("0d", {extended("2000", "01", "bb")}),
               event("0d", {extended("0000", "01", "cc")})},
              {"01r EXT_ADV -60 aabbcc"});
  expectHeard("of two sets of one device",
              {event("0d", {extended("2000", "01", "a1", "01"), extended("2000", "01", "b1", "02"),
                            extended("0000", "01", "b2", "02"), extended("0000", "01", "a2", "01")})},
              {"01r EXT_ADV -60 b1b2", "01r EXT_ADV -60 a1a2"});
  expectHeard("a scan response between",
              {event("0d", {extended("2200", "01", "a1"), extended("0a00", "01", "cc"),
                            extended("0200", "01", "a2")})},
              {"01r EXT_SCAN_RSP -60 cc", "01r EXT_ADV_SCAN -60 a1a2"});
  expectHeard("a public address of the same octets",
              {event("0d", {extended("2000", "01", "a1"), extended("0000", "01", "cc", "00", "00")})},
              {"01p EXT_ADV -60 cc"});
}

TEST(Fragments, TellWhenDataIsMissing) {
  expectHeard("truncated at once", {event("0d", {extended("4000", "01", "aa")})}, {"01r EXT_ADV -60 aa!"});
  expectHeard("truncated after a fragment",
              {event("0d", {extended("2000", "01", "aa"), extended("4000", "01", "bb")}),
               event("0d", {extended("0000", "01", "cc")})},
              {"01r EXT_ADV -60 aabb!", "01r EXT_ADV -60 cc"});
}

TEST(Fragments, AreBoundedInLengthAndNumber) {
  const std::string most(440, 'a');
  Texts events(7, event("0d", {extended("2000", "01", most)}));
  events.push_back(event("0d", {extended("0000", "01", most)}));
  const Heard overlong = hear(events);
  ASSERT_EQ(overlong.reports.size(), 1U);
  EXPECT_EQ(overlong.reports[0], "01r EXT_ADV -60 " + std::string(3300, 'a') + "!");

  Texts many;
  for (size_t device = 0; device < 65; ++device) {
    many.push_back(event("0d", {extended("2000", octet(device), "aa")}));
  }
  many.push_back(event("0d", {extended("0000", octet(0), "bb"), extended("0000", octet(1), "bb"),
                              extended("0000", octet(64), "bb")}));
  EXPECT_EQ(hear(many).reports,
            (Texts{"00r EXT_ADV -60 bb", "01r EXT_ADV -60 aabb", "40r EXT_ADV -60 aabb"}));
}

// Else the old data would stand before, or instead of, those of a later report.
TEST(Fragments, AreForgottenByAResetAndWhenTheirRestDoesNotCome) {
  const struct {
    const char* name;
    bool isReset;
    int rest;  ///< milliseconds later
    const char* heard;
  } rows[] = {{"in time", false, 1000, "aabb"},
              {"too late", false, 1001, "bb"},
              {"a clock that was set back", false, -1, "bb"},
              {"after a reset", true, 0, "bb"}};
  for (const auto& row : rows) {
    HCIAdvertisingEvents reader;
    std::string heard;
    const auto read = [&](const char* type, const char* data, int milliseconds) {
      reader.read(octetsFromHex(event("0d", {extended(type, "01", data)})).value(),
                  platform::Date(std::chrono::milliseconds(milliseconds)),
                  [&](const AdvertisingReport& report) { heard += hexText(report.data); });
    };
    read("2000", "aa", 0);
    if (row.isReset) reader.reset();
    read("0000", "bb", row.rest);
    EXPECT_EQ(heard, row.heard) << row.name;
  }
}

}  // namespace
