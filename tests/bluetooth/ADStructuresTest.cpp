#include <string>

#include <gtest/gtest.h>

#include "platform/bluetooth/ADBuilder.h"
#include "platform/bluetooth/ADStructures.h"
#include "platform/foundation/Hex.h"

using platform::ADBuilder;
using platform::ADStructures;
using platform::CBUUID;
using platform::Data;
using platform::hexText;
using platform::octetsFromHex;

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

}  // namespace
