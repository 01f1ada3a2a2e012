#include <string>

#include <gtest/gtest.h>

#include "platform/bluetooth/ADBuilder.h"
#include "platform/bluetooth/AdvertisementMerger.h"
#include "platform/foundation/Hex.h"

using platform::ADBuilder;
using platform::AdvertisementMerger;
using platform::AdvertisingKind;
using platform::AdvertisingReport;
using platform::BluetoothAddress;
using platform::CBUUID;
using platform::Data;
using platform::MergedAdvertisement;
using platform::octetsFromHex;

namespace {

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

  AdvertisementMerger merger{3};
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

}  // namespace
