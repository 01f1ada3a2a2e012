#include <utility>

#include <gtest/gtest.h>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/CBUUID.h"
#include "platform/foundation/Hex.h"

using platform::BluetoothAddress;
using platform::CBUUID;

namespace {

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

}  // namespace
