#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bluetooth/capture/LinkLayer.h"
#include "tests/bluetooth/CaptureVectors.h"

namespace platform {
namespace {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const std::string kFirst = "C0:00:00:00:00:01 -60 020106";

struct Order {
  bool isBigEndian;

  Data u16(uint64_t value) const { return number(value, 2, isBigEndian); }
  Data u32(uint64_t value) const { return number(value, 4, isBigEndian); }
  Data u64(uint64_t value) const { return number(value, 8, isBigEndian); }
  Data pcapFile(uint32_t link, uint32_t magic = 0xA1B2C3D4) const {
    return u32(magic) + u16(2) + u16(4) + u32(0) + u32(0) + u32(65535) + u32(link);
  }
  Data pcapRecord(uint32_t seconds, uint32_t fraction, const Data& octets) const {
    return u32(seconds) + u32(fraction) + u32(octets.size()) + u32(octets.size()) + octets;
  }
  Data block(uint32_t type, Data body) const {
    body.resize((body.size() + 3) / 4 * 4);
    return u32(type) + u32(body.size() + 12) + body + u32(body.size() + 12);
  }
  Data section() const { return block(0x0A0D0D0A, u32(0x1A2B3C4D) + u16(1) + u16(0) + u64(UINT64_MAX)); }
  Data interface(uint32_t link, const Data& options = {}) const {
    return block(1, u16(link) + u16(0) + u32(0) + options);
  }
  Data option(uint32_t code, Data value) const {
    const auto size = value.size();
    value.resize((size + 3) / 4 * 4);
    return u16(code) + u16(size) + value;
  }
  Data enhanced(uint32_t number, uint64_t ticks, const Data& octets) const {
    return block(6, u32(number) + u32(ticks >> 32) + u32(ticks & 0xFFFFFFFF) + u32(octets.size()) +
                        u32(octets.size()) + octets);
  }
};
constexpr Order kLittle{false};
constexpr Order kBig{true};

/// A PDU as it is on the air.
Data onAir(const Data& pdu) {
  return hex("d6be898e") + pdu + little(advertisingCrc(pdu), 3);
}

/// A pcap file of one packet.
Data pcapOf(uint32_t link, const Data& octets) {
  return kLittle.pcapFile(link) + kLittle.pcapRecord(1, 0, octets);
}

/// That this was heard, or nothing, and nothing is wrong.
void expectOne(const Reading& reading, const std::string& report) {
  EXPECT_EQ(reading.reports, report.empty() ? std::vector<std::string>{} : std::vector{report});
  EXPECT_THAT(reading.diagnostics, IsEmpty());
}

TEST(CaptureReader, readsTheThreeLinksOfBtsnoopAndHearsOnlyTheController) {
  const Data event = advertisingEvent(1);
  const struct {
    uint32_t link;
    Data octets;
    uint32_t flags;
    bool isHeard;
  } cases[] = {
      {1001, event, 3, true},        {1001, event, 2, false},      {1001, event, 1, false},
      {1002, h4(event), 3, true},    {1002, h4(event), 2, false},  {1002, hex("02") + event, 1, false},
      {2001, event, 3, true},        {2001, event, 0x50003, true}, {2001, event, 2, false},
      {2001, event, 0x30005, false},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(testing::Message() << one.link << " " << one.flags);
    const Reading reading =
        readCapture(btsnoopFile(one.link) + btsnoopRecord(one.octets, -1'500'000, one.flags));
    expectOne(reading, one.isHeard ? "-1500000 " + kFirst : "");
  }
}

TEST(CaptureReader, readsPcapInBothOrdersAndResolutions) {
  for (const Order order : {kLittle, kBig})
    for (const bool isNanoseconds : {false, true}) {
      const Data file =
          order.pcapFile(187, isNanoseconds ? 0xA1B23C4D : 0xA1B2C3D4) +
          order.pcapRecord(0xF0000000, isNanoseconds ? 123456789 : 123456, h4(advertisingEvent(1)));
      EXPECT_THAT(readCapture(file).reports, ElementsAre("4026531840123456 " + kFirst));
    }
}

TEST(CaptureReader, unwrapsEveryLinkTypeOfPcap) {
  const Data event = advertisingEvent(1);
  const Data air = onAir(advertisingPdu(1));
  Data coded = air;
  coded.insert(coded.begin() + 4, std::byte{0});
  Data garbled = air;
  garbled.back() ^= std::byte{1};
  const Data nordic2 = hex("00") + little(10 + air.size(), 2) + hex("02ff3b06");
  const Data nordic1 = hex("0006") + little(10 + air.size(), 1) + hex("01ff3b06");
  const Data nordic3 = hex("00") + little(10 + air.size(), 2) + hex("03ff3b02");
  const struct {
    const char* what;
    uint32_t link;
    Data octets;
    std::string rssi;  // empty: nothing is heard
  } cases[] = {
      {"H4", 187, h4(event), "-60"},
      {"H4, an ACL packet", 187, hex("02") + event, ""},
      {"H4, received", 201, hex("00000001") + h4(event), "-60"},
      {"H4, sent", 201, hex("00000000") + h4(event), ""},
      {"monitor, event", 254, hex("00070003") + event, "-60"},
      {"monitor, command", 254, hex("00070002") + event, ""},
      {"link layer", 251, air, "127"},
      {"link layer, bad CRC", 251, garbled, ""},
      {"link layer, another access address", 251, hex("11") + air, ""},
      {"radio header, CRC not checked, no signal", 256, hex("25c48000d6be898e0100") + air, "127"},
      {"radio header, CRC not checked and bad", 256, hex("25c48000d6be898e0300") + garbled, ""},
      {"radio header, signal, CRC good", 256, hex("25c48000d6be898e030c") + garbled, "-60"},
      {"radio header, CRC bad", 256, hex("25c48000d6be898e0304") + air, ""},
      {"radio header, coded", 256, hex("25c48000d6be898e0380") + coded, "-60"},
      {"sniffer 1", 272, nordic1 + hex("0a01253c0000aabbccdd") + air, "-60"},
      {"sniffer 2", 272, nordic2 + hex("0a01253c0000aabbccdd") + air, "-60"},
      {"sniffer 2, CRC bad", 272, nordic2 + hex("0a00253c0000aabbccdd") + air, ""},
      {"sniffer 3", 272, nordic3 + hex("0a01253c0000aabbccdd") + air, "-60"},
      {"sniffer 3, coded", 272, nordic3 + hex("0a21253c0000aabbccdd") + coded, "-60"},
      {"sniffer, another kind of message", 272, hex("00000003ff3b04"), ""},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.what);
    const std::string heard = "1000000 C0:00:00:00:00:01 " + one.rssi + " 020106";
    expectOne(readCapture(pcapOf(one.link, one.octets)), one.rssi.empty() ? "" : heard);
  }
}

TEST(CaptureReader, tellsTheAdvertisingPdusApart) {
  const std::string address = "0100000000c0";
  const auto kindOf = [](const std::string& pdu) {
    const Data air = onAir(hex(pdu));
    const LinkLayerContent content = readLinkLayerPacket(air, {});
    EXPECT_EQ(content.fault, "");
    if (!content.report) return std::string("none");
    EXPECT_EQ(content.report->address.text(), "C0:00:00:00:00:01");
    return std::string(textOf(content.report->kind)) +
           (content.report->address.isRandom ? " random " : " public ") + hexText(content.report->data) +
           (content.report->isTruncated ? "..." : "");
  };
  EXPECT_EQ(kindOf("4009" + address + "020106"), "ADV_IND random 020106");
  EXPECT_EQ(kindOf("010c" + address + "0200000000c0"), "ADV_DIRECT_IND public ");
  EXPECT_EQ(kindOf("4209" + address + "020106"), "ADV_NONCONN_IND random 020106");
  EXPECT_EQ(kindOf("430c" + address + address), "none");
  EXPECT_EQ(kindOf("4406" + address), "SCAN_RSP random ");
  EXPECT_EQ(kindOf("4522" + address + address + std::string(44, '0')), "none");
  EXPECT_EQ(kindOf("4609" + address + "020106"), "ADV_SCAN_IND random 020106");
  // Extended: an address and data; a pointer to more; a pointer without data; data without an address.
  EXPECT_EQ(kindOf("470b0701" + address + "020106").substr(0, 7), "EXT_ADV");
  EXPECT_EQ(kindOf("470d4909" + address + "3412020106").substr(0, 12), "EXT_ADV_CONN");
  EXPECT_EQ(kindOf("470e8a11" + address + "112233020106"), "EXT_ADV_SCAN random 020106...");
  EXPECT_EQ(kindOf("470b0a11" + address + "112233"), "none");
  EXPECT_EQ(kindOf("4707030834"
                   "12020106"),
            "none");
}

TEST(CaptureReader, readsPcapngWithSeveralSectionsInterfacesAndBlocks) {
  const Data event = h4(advertisingEvent(1));
  const Data resolutions =
      kLittle.section() + kLittle.interface(187, kLittle.option(9, hex("09"))) +
      kLittle.block(0x0BAD, hex("0102030405")) +
      kLittle.interface(201, kLittle.option(2, hex("626c75")) + kLittle.option(9, hex("8a")) +
                                 kLittle.option(14, kLittle.u64(static_cast<uint64_t>(-5)))) +
      kLittle.enhanced(0, 7'000'001'999, event) +
      kLittle.enhanced(1, 10 * 1024 + 512, hex("00000001") + event);
  const Data obsolete =
      kBig.section() + kBig.interface(1) + kBig.interface(254) +
      kBig.block(2, kBig.u16(1) + kBig.u16(0) + kBig.u32(0) + kBig.u32(3'000'000) + kBig.u32(22) +
                        kBig.u32(22) + hex("00000003") + advertisingEvent(1)) +
      kBig.enhanced(0, 1, event) + kBig.enhanced(0, 2, event);
  const Data simple = kLittle.section() + kLittle.interface(187) + kLittle.enhanced(0, 9, event) +
                      kLittle.block(3, kLittle.u32(event.size()) + event);
  const Reading reading = readCapture(resolutions + obsolete + simple);
  EXPECT_THAT(reading.reports, ElementsAre("7000001 " + kFirst, "5500000 " + kFirst, "3000000 " + kFirst,
                                           "9 " + kFirst, "9 " + kFirst));
  EXPECT_THAT(
      reading.diagnostics,
      ElementsAre("FILE: record 4: interface 0 has link type 1, which is not supported; its records are "
                  "passed over"));
}

TEST(CaptureReader, survivesClocksThatCannotBe) {
  for (const char* resolution : {"00", "13", "14", "7f", "80", "ac", "bf", "c0", "d3", "d4", "ff"})
    for (const int64_t offset : {INT64_MIN, int64_t{0}, INT64_MAX}) {
      const Data options =
          kLittle.option(9, hex(resolution)) + kLittle.option(14, kLittle.u64(static_cast<uint64_t>(offset)));
      const Data file = kLittle.section() + kLittle.interface(187, options) +
                        kLittle.enhanced(0, UINT64_MAX, h4(advertisingEvent(1)));
      EXPECT_THAT(readCapture(file).reports, SizeIs(1)) << resolution;
    }
  for (const int64_t time : {INT64_MIN, INT64_MAX})
    EXPECT_THAT(readCapture(btsnoopFile(1002) + btsnoopRecord(h4(advertisingEvent(1)), time)).reports,
                SizeIs(1));
}

TEST(CaptureReader, putsTheFragmentsOfEachControllerTogether) {
  const auto fragment = [](const char* type, const char* octet) {
    return hex(std::string("3e1b0d01") + type + "010100000000c001010005c4") + Data(9) + hex("01") +
           hex(octet);
  };
  const Data file = btsnoopFile(2001) + btsnoopRecord(fragment("2000", "aa"), 1, 0x10003) +
                    btsnoopRecord(fragment("2000", "bb"), 2, 0x20003) +
                    btsnoopRecord(fragment("0000", "cc"), 3, 0x10003) +
                    btsnoopRecord(fragment("0000", "dd"), 4, 0x20003);
  EXPECT_THAT(readCapture(file).reports,
              ElementsAre("3 C0:00:00:00:00:01 -60 aacc", "4 C0:00:00:00:00:01 -60 bbdd"));
}

/// Files of three reports in each format.
std::vector<Data> sampleFiles() {
  Data btsnoop = btsnoopFile(1002), pcap = kBig.pcapFile(251),
       pcapng = kLittle.section() + kLittle.interface(272);
  for (const uint8_t nn : {1, 2, 3}) {
    const Data air = onAir(advertisingPdu(nn));
    btsnoop = btsnoop + btsnoopRecord(h4(advertisingEvent(nn)), nn);
    pcap = pcap + kBig.pcapRecord(nn, 0, air);
    pcapng = pcapng + kLittle.enhanced(0, nn, hex("001e0003ff3b020a01253c0000aabbccdd") + air);
  }
  return {btsnoop, pcap, pcapng};
}

TEST(CaptureReader, losesNothingBeforeACutAndSaysOneLineAboutIt) {
  for (const Data& file : sampleFiles()) {
    const Reading whole = readCapture(file);
    ASSERT_THAT(whole.reports, SizeIs(3));
    std::size_t reports = 0;
    for (std::size_t size = 0; size < file.size(); ++size) {
      const Reading cut = readCapture(DataView(file).first(size));
      EXPECT_EQ(cut.error.empty() ? 0 : 1, cut.error.starts_with("FILE: ")) << cut.error;
      ASSERT_LE(cut.diagnostics.size() + (cut.error.empty() ? 0 : 1), 1U) << size;
      ASSERT_GE(cut.reports.size(), reports) << size;
      reports = cut.reports.size();
      ASSERT_TRUE(std::equal(cut.reports.begin(), cut.reports.end(), whole.reports.begin())) << size;
    }
    EXPECT_EQ(reports, 2U);
    EXPECT_THAT(readCapture(DataView(file).first(file.size() - 1)).diagnostics,
                ElementsAre(testing::StartsWith("FILE: record 3: ")));
  }
}

TEST(CaptureReader, namesWhatIsNoCapture) {
  const auto errorOf = [](const Data& file) { return readCapture(file).error; };
  EXPECT_EQ(errorOf({}), "FILE: is empty");
  EXPECT_EQ(errorOf(hex("00")), "FILE: is no capture file (btsnoop, pcap or pcapng)");
  EXPECT_EQ(errorOf(hex("7b22") + Data(100)), "FILE: is no capture file (btsnoop, pcap or pcapng)");
  EXPECT_EQ(errorOf(btsnoopFile(1003)), "FILE: is btsnoop with data link 1003, which is not supported");
  EXPECT_EQ(errorOf(kBig.pcapFile(1)), "FILE: is pcap with link type 1, which is not supported");
  Data cut = btsnoopFile(1002);
  cut.resize(12);
  EXPECT_EQ(errorOf(cut), "FILE: ends inside its btsnoop header");
  EXPECT_EQ(CaptureReader::open("/nowhere/at/all", {}).error().text,
            "/nowhere/at/all: cannot be opened: No such file or directory");
  EXPECT_EQ(CaptureReader::open("/", {}).error().text, "/: cannot be read: Is a directory");
}

TEST(CaptureReader, skipsAFaultyRecordWhoseEndIsKnown) {
  const Data good = btsnoopRecord(h4(advertisingEvent(2)), 2);
  const Data cutEvent = toData(DataView(h4(advertisingEvent(1))).first(10));
  const Data huge = Data(200'000);
  for (const Data& bad : {cutEvent, huge, hex("04"), hex("043e"), Data()}) {
    const Reading reading = readCapture(btsnoopFile(1002) + btsnoopRecord(bad, 1) + good);
    EXPECT_THAT(reading.reports, SizeIs(1));
    EXPECT_THAT(reading.diagnostics, ElementsAre(testing::StartsWith("FILE: record 1: ")));
  }
  for (const uint32_t link : {201U, 254U, 251U, 256U, 272U})
    for (std::size_t size = 0; size < 4; ++size) {
      const Reading reading = readCapture(pcapOf(link, Data(size)) + kLittle.pcapRecord(2, 0, Data(size)));
      EXPECT_THAT(reading.diagnostics, SizeIs(2)) << link;
    }
  Data many = btsnoopFile(1002);
  for (int i = 0; i < 50; ++i) many = many + btsnoopRecord(cutEvent, 1);
  const Reading told = readCapture(many + good);
  EXPECT_THAT(told.reports, SizeIs(1));
  ASSERT_THAT(told.diagnostics, SizeIs(21));
  EXPECT_EQ(told.diagnostics.back(), "FILE: record 50: the last of 30 more faults");
  const Data body = kLittle.u32(0) + kLittle.u64(0) + kLittle.u32(99) + kLittle.u32(99) + Data(4);
  const Data pcapng = kLittle.section() + kLittle.interface(187) + kLittle.block(6, body) +
                      kLittle.block(6, Data(4)) + kLittle.enhanced(7, 0, Data(4)) +
                      kLittle.block(6, Data(200'000)) + kLittle.enhanced(0, 0, h4(advertisingEvent(1)));
  const Reading reading = readCapture(pcapng);
  EXPECT_THAT(reading.reports, SizeIs(1));
  EXPECT_THAT(reading.diagnostics,
              ElementsAre("FILE: record 1: it announces 99 octets in a block with room for 4",
                          "FILE: record 2: its block is too short for a packet",
                          "FILE: record 3: interface 7 was not described",
                          "FILE: record 4: 200012 octets are more than a packet can have"));
}

TEST(CaptureReader, endsWhereFramingIsLostWithoutTrustingLengths) {
  const Data event = h4(advertisingEvent(1));
  const Data section = kLittle.section() + kLittle.interface(187) + kLittle.enhanced(0, 1, event);
  Data torn = kLittle.enhanced(0, 2, event);
  torn.back() ^= std::byte{1};
  const std::vector<Data> files{
      btsnoopFile(1002) + btsnoopRecord(event, 1) + big(UINT32_MAX, 4) + big(UINT32_MAX, 4) + Data(16 + 50),
      kBig.pcapFile(187) + kBig.pcapRecord(1, 1, event) + Data(8) + big(UINT32_MAX, 4) + big(UINT32_MAX, 4) +
          Data(9),
      section + kLittle.u32(6) + kLittle.u32(0xFFFFFFFC) + Data(40),
      section + kLittle.u32(0xBAD) + kLittle.u32(0xFFFFFFFC) + Data(40),
      section + kLittle.u32(6) + kLittle.u32(33) + Data(40),
      section + torn + kLittle.enhanced(0, 3, event),
      section + kLittle.u32(0x0A0D0D0A) + kLittle.u32(28) + Data(20),
  };
  for (const Data& file : files) {
    const Reading reading = readCapture(file);
    EXPECT_THAT(reading.reports, SizeIs(1));
    EXPECT_THAT(reading.diagnostics, ElementsAre(testing::StartsWith("FILE: record 2: ")));
  }
}

}  // namespace
}  // namespace platform
