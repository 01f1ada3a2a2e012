#include <condition_variable>
#include <future>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include "platform/bluetooth/hci/H4Decoder.h"
#include "platform/bluetooth/hci/HCIAdapters.h"
#include "platform/bluetooth/hci/HCIPackets.h"
#include "platform/bluetooth/hci/HCISource.h"
#include "platform/bluetooth/hci/ReadPause.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/foundation/Hex.h"
#include "tests/support/ControllerModel.h"
#include "tests/support/H4Server.h"
#include "tests/support/PseudoTerminals.h"

namespace {

using namespace platform;
using namespace platform::hci;
using support::ControllerModel;
using support::H4Server;

/// A driver on real time and what it told; `wait` gives up after a minute, which no test should take.
class HCITransportTest : public testing::Test {
 protected:
  ~HCITransportTest() override {
    if (driver) driver->close();
  }

  void open(const std::string& address) {
    const auto parsed = parseRadioAddress(address);
    ASSERT_TRUE(parsed) << parsed.error().text;
    driver = makeHCISource({*parsed, dispatch, nullptr});
    driver->open([this](const AdvertisingReport& report) { heard(report); },
                 [this](const RadioState& state) {
                   const std::lock_guard lock(mutex);
                   states.push_back(state);
                   changed.notify_all();
                 });
    driver->startScan({});
  }

  template <class Condition>
  bool wait(Condition condition) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::minutes(1), condition);
  }
  bool waitForState(CBManagerState state) {
    return wait([this, state] { return !states.empty() && states.back().state == state; });
  }

  /// Reports carry their number in the last four octets.
  void heard(const AdvertisingReport& report) {
    if (released.valid()) released.wait();
    uint32_t number = 0;
    for (std::size_t i = 4; i-- > 0;) number = number << 8 | octetAt(report.data, report.data.size() - 4 + i);
    const std::lock_guard lock(mutex);
    if (number != reports) ++misplaced;
    if (++reports >= awaited) changed.notify_all();
  }

  static Data numbered(uint32_t number) {
    return ControllerModel::legacyReport(
        static_cast<uint16_t>(number), parameters({0x07, 0xFF, 0x34, 0x12, number & 0xFFU,
                                                   number >> 8 & 0xFFU, number >> 16 & 0xFFU, number >> 24}));
  }

  std::shared_ptr<RealTimeDispatch> dispatch = RealTimeDispatch::make();
  std::shared_ptr<HCIDriver> driver;
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<RadioState> states;
  std::shared_future<void> released;  ///< reports are dealt with from then on, if there is one
  uint64_t reports = 0;
  uint64_t misplaced = 0;
  uint64_t awaited = 1;
};

TEST_F(HCITransportTest, LosesNoneOfTenSecondsOfFiftyThousandReportsASecond) {
  constexpr uint32_t kReports = 500'000;
  awaited = kReports;
  H4Server server;
  open(server.address());
  ASSERT_TRUE(server.waitForScan());
  std::thread flood([&] {
    Data chunk;
    for (uint32_t i = 0; i < kReports; ++i) {
      const Data report = numbered(i);
      chunk.insert(chunk.end(), report.begin(), report.end());
      if (chunk.size() < 4096 && i + 1 < kReports) continue;
      server.send(chunk);
      chunk.clear();
    }
  });
  EXPECT_TRUE(wait([this] { return reports == awaited; })) << reports << " of " << kReports;
  flood.join();
  EXPECT_EQ(misplaced, 0U);
  EXPECT_EQ(driver->counters().malformed, 0U);
  EXPECT_EQ(driver->counters().skippedOctets, 0U);
}

TEST_F(HCITransportTest, HoldsAFloodBackWhileItsReportsAreDealtWith) {
  // Nothing takes the reports: the sender must come to a stop instead of the driver's memory growing.
  H4Server server;
  std::promise<void> release;
  released = release.get_future().share();
  open(server.address());
  ASSERT_TRUE(server.waitForScan());
  Data chunk;
  while (chunk.size() < 1U << 16U) {
    const Data report = numbered(0);
    chunk.insert(chunk.end(), report.begin(), report.end());
  }
  std::size_t sent = 0;
  while (sent < (64U << 20U) && server.sendSome(chunk)) sent += chunk.size();
  EXPECT_LT(sent, 16U << 20U);
  release.set_value();
}

TEST_F(HCITransportTest, ComesBackWhenTheOtherSideClosesAndListensAgain) {
  H4Server server;
  open(server.address());
  ASSERT_TRUE(server.waitForScan());
  server.drop();
  ASSERT_TRUE(waitForState(CBManagerState::resetting));
  ASSERT_TRUE(waitForState(CBManagerState::poweredOn));
  ASSERT_TRUE(server.waitForScan());
  server.send(numbered(0));
  EXPECT_TRUE(wait([this] { return reports == 1; }));
}

TEST_F(HCITransportTest, NamesTheLineThatIsNone) {
  const std::pair<std::string, CBManagerState> cases[] = {
      {"h4:unix:/nonexistent/controller", CBManagerState::poweredOff},
      {"h4:/dev/null", CBManagerState::unsupported}};
  for (const auto& [address, state] : cases) {
    states.clear();
    open(address);
    ASSERT_TRUE(waitForState(state));
    EXPECT_NE(states[0].reason.find(address.substr(address.find('/'))), std::string::npos)
        << states[0].reason;
    driver->close();
  }
}

TEST_F(HCITransportTest, HearsOverASerialLineAndNoticesThatItIsUnplugged) {
  if (!support::hasPseudoTerminals()) GTEST_SKIP() << support::kNoPseudoTerminals;
  int controllerEnd = -1;
  int hostEnd = -1;
  char name[128];
  ASSERT_EQ(::openpty(&controllerEnd, &hostEnd, name, nullptr, nullptr), 0);
  H4Server server{controllerEnd};
  open("h4:" + std::string(name) + ",1000000");
  ASSERT_TRUE(server.waitForScan());
  ::close(hostEnd);
  server.send(numbered(0));
  EXPECT_TRUE(wait([this] { return reports == 1; }));
  server.drop();
  EXPECT_TRUE(wait([this] { return states.size() > 1; }));
}

TEST_F(HCITransportTest, WithoutAnAdapterItSaysWhy) {
  const auto adapters = listHCIAdapters();
  if (adapters && !adapters->empty()) GTEST_SKIP() << "this machine has a Bluetooth adapter";
  open("hci:0");
  ASSERT_TRUE(wait([this] { return !states.empty(); }));
  if (adapters) {
    EXPECT_EQ(states[0].state, CBManagerState::poweredOff);
    EXPECT_EQ(states[0].reason, "no adapter hci0; none is plugged in");
  } else {
    EXPECT_EQ(states[0].state, CBManagerState::unsupported);
    EXPECT_EQ(states[0].reason, adapters.error().text);
  }
}

TEST(HCITransportPauseTest, LeavesOnlyABusyLineAloneAndNeverACommand) {
  ReadPause pause;
  const auto readQuickly = [&](int count) {
    for (int i = 0; i < count; ++i) pause.wasRead();
  };
  EXPECT_FALSE(pause.isTimed());  // an idle line wakes nobody
  readQuickly(ReadPause::kBusyReads - 1);
  EXPECT_FALSE(pause.isPaused());
  EXPECT_TRUE(pause.isTimed());
  readQuickly(1);
  EXPECT_TRUE(pause.isPaused());

  // It stays busy: after each pause one read leads to the next, unless that leaves some of a flood behind.
  pause.timedOut();
  EXPECT_FALSE(pause.isPaused());
  pause.wasRead(true);
  EXPECT_FALSE(pause.isPaused());
  readQuickly(1);
  EXPECT_TRUE(pause.isPaused());

  pause.wasWritten();
  EXPECT_FALSE(pause.isPaused());
  readQuickly(ReadPause::kBusyReads);
  EXPECT_TRUE(pause.isPaused());

  // Two waits without a read: the pause, and the silence behind it.
  pause.timedOut();
  pause.timedOut();
  EXPECT_FALSE(pause.isTimed());
  readQuickly(1);
  EXPECT_FALSE(pause.isPaused());
}

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
    const auto read = parseRadioAddress(row.text);
    ASSERT_TRUE(read) << read.error().text;
    EXPECT_EQ(*read, row.address);
    EXPECT_EQ(textOf(*read), row.shortest != nullptr ? row.shortest : row.text);
  }
}

TEST(HCITransportAddressTest, SaysWhatIsWrongWithOthers) {
  for (const char* text :
       {"", "h4:", "h4:,9600", "h4:/dev/ttyACM0,", "h4:/dev/ttyACM0,fast", "h4:/dev/ttyACM0,0",
        "h4:/dev/ttyACM0,99999999999", "h4:unix:", "hci:", "hci:hci", "hci:-1", "hci:1?both",
        "hci:C0:00:00:00:00", "hci:C0:00:00:00:00:0G", "hci:70000", "HCI:0"}) {
    const auto read = parseRadioAddress(text);
    ASSERT_FALSE(read) << text;
    EXPECT_FALSE(read.error().text.empty()) << text;
  }
  EXPECT_TRUE(parseRadioAddress("h4:unix:" + std::string(107, 'a')));
  const auto tooLong = parseRadioAddress("h4:unix:" + std::string(108, 'a'));
  ASSERT_FALSE(tooLong);
  EXPECT_NE(tooLong.error().text.find("107"), std::string::npos) << tooLong.error().text;
}

struct StreamCase {
  const char* name;
  const char* stream;
  std::vector<std::string> packets;
  uint64_t skipped;
};

const StreamCase kStreams[] = {
    {"one event", "040e0401030c00", {"040e0401030c00"}, 0},
    {"two events", "040e0401030c00041001aa", {"040e0401030c00", "041001aa"}, 0},
    {"an event without parameters", "04ff00041001aa", {"04ff00", "041001aa"}, 0},
    {"a command of another program", "010c2002010004100142", {"010c20020100", "04100142"}, 0},
    {"ACL, SCO and ISO data",
     "02010002000102030100010905010001000a",
     {"02010002000102", "0301000109", "05010001000a"},
     0},
    {"ISO data, whose length leaves two bits to others",
     "05010001c00a041001aa",
     {"05010001c00a", "041001aa"},
     0},
    {"garbage in front", "ffee00041001aa", {"041001aa"}, 3},
    {"garbage between", "041001aa7e7e041001bb", {"041001aa", "041001bb"}, 2},
    {"garbage that looks like an event of no known kind", "00042000041001aa", {"041001aa"}, 4},
    {"garbage that looks like an answer, with nothing sensible behind",
     "00040f0411223344ff041001aa",
     {"041001aa"},
     9},
    {"huge ACL data is garbage", "020100ffff041001aa", {"041001aa"}, 5},
    {"a packet that has not ended", "043e20", {}, 0},
};

std::vector<std::string> decode(H4Decoder& decoder, const Data& stream, std::size_t piece) {
  std::vector<std::string> packets;
  for (std::size_t at = 0; at < stream.size(); at += piece) {
    const auto octets = DataView(stream).subspan(at, std::min(piece, stream.size() - at));
    decoder.feed(octets, [&](DataView packet) { packets.push_back(hexText(packet)); });
  }
  return packets;
}

TEST(HCITransportDecoderTest, CutsStreamsIntoPacketsWhateverPiecesTheyComeIn) {
  for (const auto& row : kStreams) {
    SCOPED_TRACE(row.name);
    const Data stream = octetsFromHex(row.stream).value();
    // What follows a doubtful packet is not known yet when it comes in pieces.
    for (std::size_t piece = row.skipped > 0 ? stream.size() : 1; piece <= stream.size(); ++piece) {
      H4Decoder decoder;
      EXPECT_EQ(decode(decoder, stream, piece), row.packets) << "in pieces of " << piece;
      EXPECT_EQ(decoder.skippedOctets(), row.skipped);
    }
  }
}

TEST(HCITransportDecoderTest, LosesFewPacketsWhenOctetsAreLost) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const Data report = octetsFromHex("043e15020103010100000000c00902010605ff3412abcdc4").value();
  Data stream;
  constexpr std::size_t kPackets = 20'000;
  std::size_t damaged = 0;
  for (std::size_t i = 0; i < kPackets; ++i) {
    const bool isDamaged = random() % 100 == 0;
    const std::size_t lost = isDamaged ? random() % report.size() : report.size();
    damaged += isDamaged ? 1 : 0;
    for (std::size_t k = 0; k < report.size(); ++k) {
      if (k != lost) stream.push_back(report[k]);
    }
  }
  H4Decoder decoder;
  std::size_t intact = 0;
  decoder.feed(stream, [&](DataView packet) { intact += hexText(packet) == hexText(report) ? 1 : 0; });
  EXPECT_GE(intact, kPackets - 3 * damaged - 1);
}

}  // namespace
