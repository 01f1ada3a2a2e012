#include <string>

#include <gtest/gtest.h>

#include "platform/bluetooth/ADBuilder.h"
#include "platform/bluetooth/ADStructures.h"
#include "platform/bluetooth/AdvertisementMerger.h"
#include "platform/foundation/Hex.h"

using namespace platform;

namespace {

// One text for all that was read, so that a table row names nothing that it does not have.
std::string summary(const ADStructures& read) {
  std::string text;
  if (read.flags) text += " flags=" + std::to_string(*read.flags);
  for (const CBUUID& uuid : read.serviceUUIDs) text += " " + uuid.UUIDString();
  if (read.localName) text += " name=" + std::string(*read.localName);
  if (read.txPowerLevel) text += " tx=" + std::to_string(*read.txPowerLevel);
  for (const auto& [uuid, value] : read.serviceData) text += " " + uuid.UUIDString() + "=" + hexText(value);
  if (read.manufacturerData) text += " maker=" + hexText(*read.manufacturerData);
  return text.empty() ? text : text.substr(1);
}

struct Row {
  const char* name;
  const char* octets;
  const char* expected;
  bool isWhole = true;
};

void expectRows(const std::vector<Row>& rows) {
  ADStructures read;  // one for all rows: nothing of an earlier row may show in a later one
  for (const Row& row : rows) {
    const Data octets = octetsFromHex(row.octets).value();
    EXPECT_EQ(read.read(octets), row.isWhole) << row.name;
    EXPECT_EQ(summary(read), row.expected) << row.name;
  }
}

TEST(ADStructuresReading, FindsEveryKindOfField) {
  expectRows({
      {"nothing", "", ""},
      {"flags", "020106", "flags=6"},
      {"16-bit list", "0503e0ff0f18", "FFE0 180F"},
      {"incomplete 16-bit list", "0302e0ff", "FFE0"},
      {"32-bit list", "050504030201", "01020304"},
      {"incomplete 32-bit list", "0504e0ff0000", "FFE0"},
      {"128-bit list", "11071bc5d5a50200baafe211a88400fae139", "39E1FA00-84A8-11E2-AFBA-0002A5D5C51B"},
      {"128-bit UUID on the base UUID", "1106fb349b5f80000080001000000f180000", "180F"},
      {"complete name", "03094142", "name=AB"},
      {"shortened name", "02085a", "name=Z"},
      {"tx power is signed", "020ac9", "tx=-55"},
      {"service data of all widths", "04160f18640620040302010011211bc5d5a50200baafe211a88400fae139",
       "180F=64 01020304=00 39E1FA00-84A8-11E2-AFBA-0002A5D5C51B="},
      {"manufacturer data", "05ff4c000215", "maker=4c000215"},
      {"manufacturer data of one octet", "02ff03", "maker=03"},
      {"kinds that do not matter", "0319c1030512060008000201050000", "flags=5", true},
  });
}

TEST(ADStructuresReading, TakesTheFirstOfAKindAndAddsUpUUIDLists) {
  expectRows({
      {"flags", "020106020101", "flags=6"},
      {"names of both kinds", "02085a03094142", "name=Z"},
      {"tx power", "020a01020a02", "tx=1"},
      {"manufacturer data", "03ff010203ff0304", "maker=0102"},
      {"empty manufacturer data counts as the first", "01ff03ff0304", "maker="},
      {"service data of one UUID", "04160f180104160f180203160a18", "180F=01 180A="},
      {"the same UUID in two widths", "04160f180106200f18000002", "180F=01"},
      {"lists in the order sent", "0303e0ff05050403020103020f180303e0ff", "FFE0 01020304 180F FFE0"},
  });
}

TEST(ADStructuresReading, SurvivesWhatIsMalformed) {
  expectRows({
      {"lone length", "02", "", false},
      {"length one over the end",
       "020106"
       "0303e0",
       "flags=6", false},
      {"all ones", "ffffffffffffffff", "", false},
      {"zero length ends early",
       "02010600"
       "0303e0ff",
       "flags=6"},
      {"16-bit list with a ragged tail", "0403e0ff0f", "FFE0"},
      {"32-bit list with a ragged tail", "080504030201ffffff", "01020304"},
      {"128-bit list one octet short", "10071bc5d5a50200baafe211a88400fae1", ""},
      {"empty list", "0103", ""},
      {"empty flags leave room for whole ones", "0101020106", "flags=6"},
      {"empty tx power leaves room for a whole one", "010a020a07", "tx=7"},
      {"service data shorter than its UUID", "02160f0420040302", ""},
  });
}

TEST(ADBuilderWriting, IsReadBackAsWritten) {
  const std::vector<CBUUID> uuids = {
      CBUUID::fromShort(0xFFE0), CBUUID::fromShort(0x180F), CBUUID::fromShort(0x12345678),
      CBUUID::UUIDWithString("39E1FA00-84A8-11E2-AFBA-0002A5D5C51B").value(), CBUUID::fromShort(0x1800)};
  ADBuilder builder;
  builder.flags(6).serviceUUIDs(uuids).localName("AB").txPowerLevel(-4);
  builder.serviceData(uuids[2], octetsFromHex("01").value())
      .manufacturerData(octetsFromHex("4c0002").value());
  ADStructures read;
  EXPECT_TRUE(read.read(builder.octets()));
  EXPECT_EQ(summary(read),
            "flags=6 FFE0 180F 12345678 39E1FA00-84A8-11E2-AFBA-0002A5D5C51B 1800 name=AB tx=-4 "
            "12345678=01 maker=4c0002");
  // One list for neighbours of one width, each UUID in its shortest width.
  EXPECT_EQ(hexText(ADBuilder().serviceUUIDs(std::span(uuids).first(3)).octets()),
            "0503e0ff0f18050578563412");
}

TEST(ADBuilderWriting, CutsAValueThatNoStructureHolds) {
  ADStructures read;
  ADBuilder builder;
  builder.manufacturerData(Data(255)).flags(6);
  EXPECT_TRUE(read.read(builder.octets()));
  EXPECT_EQ(read.manufacturerData->size(), 254U);
  EXPECT_EQ(read.flags, 6);

  const std::vector<CBUUID> many(200, CBUUID::fromShort(0x180F));
  ADBuilder lists;
  EXPECT_TRUE(read.read(lists.serviceUUIDs(many).octets()));
  EXPECT_EQ(read.serviceUUIDs, many);
}

TEST(BluetoothUUID, HasTheShortestTextWhateverTextItCameFrom) {
  const std::pair<const char*, const char*> rows[] = {
      {"ffe0", "FFE0"},
      {"0000FFE0", "FFE0"},
      {"0000ffe0-0000-1000-8000-00805f9b34fb", "FFE0"},
      {"00010000", "00010000"},
      {"FFFFFFFF-0000-1000-8000-00805F9B34FB", "FFFFFFFF"},
      {"0000FFE0-0000-1000-8000-00805F9B34FC", "0000FFE0-0000-1000-8000-00805F9B34FC"},
      {"39e1fa00-84a8-11e2-afba-0002a5d5c51b", "39E1FA00-84A8-11E2-AFBA-0002A5D5C51B"},
  };
  for (const auto& [text, canonical] : rows) {
    const auto uuid = CBUUID::UUIDWithString(text);
    ASSERT_TRUE(uuid) << text;
    EXPECT_EQ(uuid->UUIDString(), canonical) << text;
    EXPECT_EQ(CBUUID::UUIDWithString(canonical), uuid) << text;
  }
}

TEST(BluetoothUUID, RefusesWhatIsNoUUID) {
  for (const char* text :
       {"", "FFE", "FFE00", "FFG0", "0x12", "0000FFE00", "0000FFE0-0000-1000-8000-00805F9B34F",
        "0000FFE0+0000-1000-8000-00805F9B34FB", "0000FFE000001000800000805F9B34FB"}) {
    EXPECT_FALSE(CBUUID::UUIDWithString(text)) << text;
  }
}

TEST(BluetoothUUID, OfAPacketComesLeastSignificantOctetFirst) {
  const std::pair<const char*, const char*> rows[] = {
      {"e0ff", "FFE0"},
      {"e0ff0000", "FFE0"},
      {"04030201", "01020304"},
      {"fb349b5f80000080001000000f180000", "180F"},
      {"1bc5d5a50200baafe211a88400fae139", "39E1FA00-84A8-11E2-AFBA-0002A5D5C51B"},
  };
  for (const auto& [octets, text] : rows) {
    const auto uuid = CBUUID::fromPacket(platform::octetsFromHex(octets).value());
    ASSERT_TRUE(uuid) << octets;
    EXPECT_EQ(uuid->UUIDString(), text);
  }
  for (const size_t length : {0, 1, 3, 8, 15, 17}) {
    EXPECT_FALSE(CBUUID::fromPacket(platform::Data(length))) << length;
  }
}

TEST(BluetoothAddressText, IsUpperCaseAndReadInEitherCase) {
  EXPECT_EQ(BluetoothAddress::fromText("c0:0a:00:00:00:fF")->text(), "C0:0A:00:00:00:FF");
  for (const char* text : {"", "C0:0A:00:00:00", "C0:0A:00:00:00:0", "C0:0A:00:00:00:00:",
                           "C0-0A-00-00-00-00", "C0:0A:00:00:00:0G", "C0:0A:00:00:00:0:"}) {
    EXPECT_FALSE(BluetoothAddress::fromText(text)) << text;
  }
}

using Merged = std::shared_ptr<const MergedAdvertisement>;

class Merging : public testing::Test {
 protected:
  Merged hear(const std::string& device, AdvertisingKind kind, const Data& octets, bool isRandom = true) {
    AdvertisingReport report;
    report.address = BluetoothAddress::fromText("C0:00:00:00:00:" + device).value();
    report.address.isRandom = isRandom;
    report.kind = kind;
    report.data = octets;
    return merger.merge(report);
  }
  static std::string uuids(const Merged& merged) {
    std::string text;
    for (const CBUUID& uuid : merged->data.serviceUUIDs.value_or(std::vector<CBUUID>{})) {
      text += uuid.UUIDString() + " ";
    }
    return text;
  }
  static Data services(const std::vector<uint32_t>& values) {
    std::vector<CBUUID> list;
    list.reserve(values.size());
    for (const uint32_t value : values) list.push_back(CBUUID::fromShort(value));
    return ADBuilder().serviceUUIDs(list).octets();
  }
  static Data named(const char* name) { return ADBuilder().localName(name).octets(); }

  AdvertisementMerger merger{{.addresses = 3, .octets = 400}};
};

TEST_F(Merging, PutsOwnFieldsFirstAndFillsInTheRest) {
  ADBuilder first;
  first.manufacturerData(octetsFromHex("0102").value()).txPowerLevel(4);
  first.serviceData(CBUUID::fromShort(1), octetsFromHex("aa").value());
  ADBuilder second;
  second.manufacturerData(octetsFromHex("0304").value()).localName("B");
  second.serviceData(CBUUID::fromShort(1), octetsFromHex("bb").value());
  second.serviceData(CBUUID::fromShort(2), octetsFromHex("cc").value());

  EXPECT_FALSE(hear("01", AdvertisingKind::connectable, first.octets())->data.localName);
  const Merged response = hear("01", AdvertisingKind::scanResponse, second.octets());
  EXPECT_EQ(response->data.manufacturerData, octetsFromHex("0304"));
  EXPECT_EQ(response->data.serviceData.at(CBUUID::fromShort(1)), octetsFromHex("bb"));
  EXPECT_EQ(response->data.txPowerLevel, 4);

  const Merged advertisement = hear("01", AdvertisingKind::connectable, first.octets());
  EXPECT_EQ(advertisement->data.manufacturerData, octetsFromHex("0102"));
  EXPECT_EQ(advertisement->data.serviceData.at(CBUUID::fromShort(1)), octetsFromHex("aa"));
  EXPECT_EQ(advertisement->data.serviceData.at(CBUUID::fromShort(2)), octetsFromHex("cc"));
  EXPECT_EQ(advertisement->data.localName, "B");
  EXPECT_EQ(advertisement->peripheral.identifier, "C0:00:00:00:00:01");
}

TEST_F(Merging, PutsTheAdvertisementsServicesFirstWhicheverCameLast) {
  hear("01", AdvertisingKind::scanResponse, services({0x180A, 0xFFE0, 0x1800}));
  EXPECT_EQ(uuids(hear("01", AdvertisingKind::scannable, services({0xFFE0, 0x180F, 0xFFE0}))),
            "FFE0 180F FFE0 180A 1800 ");
  EXPECT_EQ(uuids(hear("01", AdvertisingKind::scanResponse, services({0x180A}))), "FFE0 180F FFE0 180A ");
  EXPECT_EQ(uuids(hear("01", AdvertisingKind::scannable, {})), "180A ");
  hear("01", AdvertisingKind::scanResponse, {});
  EXPECT_FALSE(hear("01", AdvertisingKind::scannable, named("A"))->data.serviceUUIDs);
}

TEST_F(Merging, ForgetsNothingThatItReturnedWhenTheSameOctetsComeAgain) {
  const Merged before = hear("01", AdvertisingKind::connectable, named("A"));
  EXPECT_EQ(hear("01", AdvertisingKind::connectable, named("A")), before);
  hear("01", AdvertisingKind::scanResponse, services({0x180F}));
  EXPECT_EQ(uuids(hear("01", AdvertisingKind::connectable, named("A"))), "180F ");
  EXPECT_EQ(uuids(before), "");
  EXPECT_EQ(hear("01", AdvertisingKind::connectable, named("B"))->data.localName, "B");
  EXPECT_EQ(hear("01", AdvertisingKind::scanResponse, services({0x180F}))->data.localName, "B");
}

TEST_F(Merging, TellsWhetherTheNewestAdvertisementIsConnectable) {
  EXPECT_FALSE(hear("01", AdvertisingKind::scanResponse, {})->data.isConnectable);
  EXPECT_TRUE(hear("01", AdvertisingKind::connectable, {})->data.isConnectable);
  EXPECT_TRUE(hear("01", AdvertisingKind::scanResponse, {})->data.isConnectable);
  EXPECT_FALSE(hear("01", AdvertisingKind::scannable, {})->data.isConnectable);
  EXPECT_FALSE(hear("01", AdvertisingKind::scanResponse, {})->data.isConnectable);
  EXPECT_TRUE(hear("02", AdvertisingKind::directed, {})->data.isConnectable);
  EXPECT_TRUE(hear("03", AdvertisingKind::extendedConnectable, {})->data.isConnectable);
}

TEST_F(Merging, KeepsDevicesApart) {
  hear("01", AdvertisingKind::scanResponse, named("A"));
  EXPECT_FALSE(hear("02", AdvertisingKind::connectable, {})->data.localName);
  EXPECT_FALSE(hear("01", AdvertisingKind::connectable, {}, false)->data.localName);
}

TEST_F(Merging, LeavesAnonymousReportsAlone) {
  AdvertisingReport report;
  report.kind = AdvertisingKind::extendedScanResponse;
  const Data name = named("A");
  report.data = name;
  EXPECT_EQ(merger.merge(report)->data.localName, "A");
  EXPECT_EQ(merger.merge(report)->peripheral.identifier, "");
  report.kind = AdvertisingKind::extendedConnectable;
  report.data = {};
  EXPECT_FALSE(merger.merge(report)->data.localName);
  EXPECT_TRUE(merger.merge(report)->data.isConnectable);
  EXPECT_EQ(merger.addressCount(), 0U);
}

TEST_F(Merging, ForgetsTheLeastRecentlyHeardAddress) {
  for (const char* device : {"01", "02", "03"}) hear(device, AdvertisingKind::scanResponse, named(device));
  hear("01", AdvertisingKind::scanResponse, named("01"));
  hear("04", AdvertisingKind::scanResponse, named("04"));
  EXPECT_EQ(merger.addressCount(), 3U);
  EXPECT_TRUE(hear("01", AdvertisingKind::connectable, {})->data.localName);
  EXPECT_TRUE(hear("03", AdvertisingKind::connectable, {})->data.localName);
  EXPECT_FALSE(hear("02", AdvertisingKind::connectable, {})->data.localName);
  EXPECT_FALSE(hear("04", AdvertisingKind::connectable, {})->data.localName);
  EXPECT_EQ(merger.addressCount(), 3U);
}

TEST_F(Merging, ForgetsTheLeastRecentlyHeardForTheRoomOfOthers) {
  const Data large(250);
  for (const char* device : {"01", "02"}) hear(device, AdvertisingKind::scanResponse, named(device));
  hear("01", AdvertisingKind::connectable, large);
  EXPECT_EQ(merger.addressCount(), 2U);
  hear("02", AdvertisingKind::connectable, large);
  EXPECT_EQ(merger.addressCount(), 1U);
  EXPECT_TRUE(hear("02", AdvertisingKind::connectable, {})->data.localName);
  EXPECT_FALSE(hear("01", AdvertisingKind::connectable, {})->data.localName);
  for (int i = 0; i < 2; ++i) hear("03", AdvertisingKind::connectable, Data(500));  // more than there is room
  EXPECT_EQ(merger.addressCount(), 1U);
}

}  // namespace
