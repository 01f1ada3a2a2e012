#include <string>

#include <gtest/gtest.h>

#include "platform/bluetooth/hci/RadioAddress.h"

namespace {

using namespace platform;

const BluetoothAddress kAddress = BluetoothAddress::fromText("C0:00:00:00:00:01").value();

struct AddressCase {
  const char* text;
  RadioAddress address;
  const char* shortest;  ///< when it is not `text`
};

const AddressCase kAddresses[] = {
    {"h4:/dev/ttyACM0,1000000", H4SerialAddress{"/dev/ttyACM0", 1'000'000}, nullptr},
    {"h4:/dev/ttyACM0", H4SerialAddress{"/dev/ttyACM0", 115'200}, nullptr},
    {"h4:/dev/ttyUSB0,115200", H4SerialAddress{"/dev/ttyUSB0", 115'200}, "h4:/dev/ttyUSB0"},
    {"h4:/dev/a,b,9600", H4SerialAddress{"/dev/a,b", 9600}, nullptr},
    {"h4:unix:/run/controller", H4UnixAddress{"/run/controller"}, nullptr},
    {"hci:0", HCIAdapterAddress{0, HCIChannel::automatic}, nullptr},
    {"hci:hci12", HCIAdapterAddress{12, HCIChannel::automatic}, "hci:12"},
    {"hci:hci1?user", HCIAdapterAddress{1, HCIChannel::user}, "hci:1?user"},
    {"hci:c0:00:00:00:00:01", HCIAdapterAddress{kAddress, HCIChannel::automatic}, "hci:C0:00:00:00:00:01"},
    {"hci:C0:00:00:00:00:01?raw", HCIAdapterAddress{kAddress, HCIChannel::raw}, nullptr},
};

TEST(HCITransportAddressTest, ReadsAndWritesEachForm) {
  for (const auto& row : kAddresses) {
    SCOPED_TRACE(row.text);
    std::string problem;
    const auto read = parseRadioAddress(row.text, problem);
    ASSERT_TRUE(read) << problem;
    EXPECT_EQ(*read, row.address);
    EXPECT_EQ(textOf(*read), row.shortest != nullptr ? row.shortest : row.text);
  }
}

TEST(HCITransportAddressTest, SaysWhatIsWrongWithOthers) {
  for (const char* text :
       {"", "h4:", "h4:,9600", "h4:/dev/ttyACM0,", "h4:/dev/ttyACM0,fast", "h4:/dev/ttyACM0,0",
        "h4:/dev/ttyACM0,99999999999", "h4:unix:", "hci:", "hci:hci", "hci:-1", "hci:1?both",
        "hci:C0:00:00:00:00", "hci:C0:00:00:00:00:0G", "hci:70000", "HCI:0"}) {
    std::string problem;
    EXPECT_FALSE(parseRadioAddress(text, problem)) << text;
    EXPECT_FALSE(problem.empty()) << text;
  }
  std::string problem;
  EXPECT_TRUE(parseRadioAddress("h4:unix:" + std::string(107, 'a'), problem));
  EXPECT_FALSE(parseRadioAddress("h4:unix:" + std::string(108, 'a'), problem));
  EXPECT_NE(problem.find("107"), std::string::npos) << problem;
}

}  // namespace
