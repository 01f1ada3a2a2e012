#include <future>
#include <iostream>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/bluetooth/bluez/BlueZSource.h"
#include "platform/bluetooth/bluez/DBusClients.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/foundation/Hex.h"
#include "tests/bluetooth/BlueZFakeDaemon.h"
#include "tests/foundation/TemporaryFolder.h"

using namespace platform;
using support::FakeBlueZ;
using support::octetsByKey;
using support::Properties;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const std::string kBeacon = "/org/bluez/hci0/dev_C0_00_00_00_00_01";
const std::string kFilter = "hci0.SetDiscoveryFilter Transport=le DuplicateData=1";

template <class Predicate>
testing::AssertionResult comesTrue(Predicate predicate) {
  for (int i = 0; i < 10'000; ++i) {
    if (predicate()) return testing::AssertionSuccess();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return testing::AssertionFailure() << "it never came true";
}

sdbus::Variant text(const std::string& value) {
  return sdbus::Variant(value);
}

Properties strength(int16_t rssi) {
  return {{"RSSI", sdbus::Variant(rssi)}};
}

Properties manufacturer(const std::map<uint16_t, std::vector<uint8_t>>& byCompany) {
  return {{"ManufacturerData", octetsByKey(byCompany)}};
}

Properties appearance(const std::string& address, const std::vector<uint8_t>& octets) {
  return {{"Address", text(address)},
          {"AddressType", text("random")},
          {"Alias", text("C0-00")},
          {"RSSI", sdbus::Variant(int16_t{-55})},
          {"ManufacturerData", octetsByKey<uint16_t>({{0x1234, octets}})}};
}

/// A source on a private bus, and what it said: "C0:00:00:00:00:01 -55 ADV_NONCONN_IND 04ff…", "5 reason".
class BlueZSource : public testing::Test {
 protected:
  void SetUp() override {
    if (!support::PrivateBus::isAvailable()) GTEST_SKIP() << "dbus-daemon is not installed";
    bus_.start();
  }

  void TearDown() override {
    if (source_) source_->close();
    if (!HasFailure()) return;
    std::cerr << "told: " << testing::PrintToString(states()) << '\n';
    if (daemon_) std::cerr << "asked: " << testing::PrintToString(daemon_->calls()) << '\n';
  }

  void startDaemon(const std::vector<FakeBlueZ::Adapter>& adapters = {FakeBlueZ::Adapter()}) {
    daemon_ = std::make_unique<FakeBlueZ>(bus_.address());
    for (const auto& adapter : adapters) daemon_->addAdapter(adapter);
    daemon_->start();
  }

  void openSource(const std::string& adapter = {}) {
    source_ = makeBlueZSource({.adapter = adapter,
                               .busAddress = bus_.address(),
                               .dispatch = dispatch_,
                               .root = root_.path(),
                               .firstPause = std::chrono::milliseconds(5)});
    source_->open(
        [this](const AdvertisingReport& report) {
          const std::lock_guard lock(mutex_);
          reports_.push_back(report.address.text() + (report.address.isRandom ? " random " : " public ") +
                             std::to_string(report.rssi) + " " + std::string(textOf(report.kind)) + " " +
                             hexText(report.data));
        },
        [this](const RadioState& state) {
          if (scansWhenOn_ && state.state == CBManagerState::poweredOn) source_->startScan({});
          if (scansWhenOn_ && state.state != CBManagerState::poweredOn) source_->stopScan();
          const std::lock_guard lock(mutex_);
          states_.push_back(std::to_string(static_cast<int>(state.state)) + " " + state.reason);
        });
  }

  void scan() {
    source_->startScan({});
    ASSERT_TRUE(comesTrue([&] { return daemon_->count("hci0.StartDiscovery") > 0; }));
  }

  /// Far from the minutes that a stalled bus is waited for, and far from what a busy machine takes.
  template <class Work>
  bool endsSoon(Work work) {
    const auto worker = std::async(std::launch::async, work);  // joined at its end
    const bool isDone = worker.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    if (!isDone) bus_.goOn();
    return isDone;
  }

  std::vector<std::string> reports() const {
    const std::lock_guard lock(mutex_);
    return reports_;
  }
  std::vector<std::string> states() const {
    const std::lock_guard lock(mutex_);
    return states_;
  }
  bool isState(const std::string& part) const {
    const auto all = states();
    return !all.empty() && all.back().find(part) != std::string::npos;
  }

  support::PrivateBus bus_;
  test::TemporaryFolder root_;
  std::shared_ptr<RealTimeDispatch> dispatch_ = RealTimeDispatch::make();
  std::unique_ptr<FakeBlueZ> daemon_;
  std::shared_ptr<AdvertisingReportSource> source_;
  bool scansWhenOn_ = false;  ///< and ends its scan when the radio is not
  mutable std::mutex mutex_;
  std::vector<std::string> reports_;
  std::vector<std::string> states_;
};

TEST_F(BlueZSource, AsksForLowEnergyWithDuplicatesAndTheServices) {
  startDaemon();
  openSource();
  source_->startScan({CBUUID::fromShort(0xFFF0)});
  const std::string filtered = kFilter + " UUIDs=0000FFF0-0000-1000-8000-00805F9B34FB";
  ASSERT_TRUE(comesTrue([&] { return daemon_->calls().size() == 2; }));
  EXPECT_THAT(daemon_->calls(), ElementsAre(filtered, "hci0.StartDiscovery"));
  EXPECT_EQ(states().back(), "5 hci0 (00:AA:01:00:00:42) through bluetoothd");

  // Another scan changes the filter of the discovery that goes on.
  source_->startScan({});
  ASSERT_TRUE(comesTrue([&] { return daemon_->count(kFilter) == 1; }));
  source_->stopScan();
  ASSERT_TRUE(comesTrue([&] { return daemon_->count("hci0.StopDiscovery") == 1; }));
  EXPECT_EQ(daemon_->count("hci0.StartDiscovery"), 1U);

  // So does one that comes before the discovery has begun.
  source_->startScan({CBUUID::fromShort(0xFFF0)});
  source_->startScan({});
  EXPECT_TRUE(comesTrue([&] { return daemon_->count(kFilter) == 2; }));
}

TEST_F(BlueZSource, ReportsEveryRefreshWithWhatWasHeardLast) {
  startDaemon();
  openSource();
  scan();
  const std::vector<std::string> services{"0000fff0-0000-1000-8000-00805f9b34fb", "nonsense"};
  const std::string battery = "0000180f-0000-1000-8000-00805f9b34fb";
  daemon_->deviceAppears(kBeacon, appearance("C0:00:00:00:00:01", {0x01, 0x02}));
  for (const Properties& changed :
       {strength(-60), manufacturer({{0x1234, {0x03}}}),
        // Another company's data is added to what is known; later the first one's changes again.
        manufacturer({{0x004C, {0x09}}, {0x1234, {0x03}}}), strength(-61),
        manufacturer({{0x004C, {0x09}}, {0x1234, {0x04}}}),
        // Not from the air, and not a signal strength.
        Properties{{"Connected", sdbus::Variant(true)}},
        Properties{{"RSSI", sdbus::Variant(int16_t{127})},
                   {"Name", text("A")},
                   {"TxPower", sdbus::Variant(int16_t{-4})},
                   {"UUIDs", sdbus::Variant(services)},
                   {"ServiceData", octetsByKey<std::string>({{battery, {0x64}}})}},
        manufacturer({{0x1234, std::vector<uint8_t>(27, 7)}})})
    daemon_->deviceChanges(kBeacon, changed);
  ASSERT_TRUE(comesTrue([&] { return reports().size() == 8; }));
  const std::string sender = "C0:00:00:00:00:01 random ";
  EXPECT_THAT(
      reports(),
      ElementsAre(sender + "-55 ADV_NONCONN_IND 05ff34120102", sender + "-60 ADV_NONCONN_IND 05ff34120102",
                  sender + "-60 ADV_NONCONN_IND 04ff341203", sender + "-60 ADV_NONCONN_IND 04ff4c0009",
                  sender + "-61 ADV_NONCONN_IND 04ff4c0009", sender + "-61 ADV_NONCONN_IND 04ff341204",
                  sender + "127 ADV_NONCONN_IND 0303f0ff04ff3412040416" + "0f1864020afc020941",
                  testing::StartsWith(sender + "127 EXT_ADV 0303f0ff1eff341207070707")));
}

TEST_F(BlueZSource, ReportsNothingThatWasKnownBefore) {
  daemon_ = std::make_unique<FakeBlueZ>(bus_.address());
  daemon_->addAdapter({});
  daemon_->addKnownDevice(kBeacon, appearance("C0:00:00:00:00:01", {0x01}));
  daemon_->start();
  openSource();
  ASSERT_TRUE(comesTrue([&] { return isState("5 "); }));
  // Somebody else's discovery is not ours.
  daemon_->deviceChanges(kBeacon, manufacturer({{0x1234, {0x02}}}));
  scan();
  // A change that lacks the signal strength does not show the one of back then.
  daemon_->deviceChanges(kBeacon, manufacturer({{0x1234, {0x03}}}));
  ASSERT_TRUE(comesTrue([&] { return !reports().empty(); }));
  source_->stopScan();
  ASSERT_TRUE(comesTrue([&] { return daemon_->count("hci0.StopDiscovery") == 1; }));
  daemon_->deviceChanges(kBeacon, strength(-50));
  daemon_->setPowered("hci0", false, "off");
  ASSERT_TRUE(comesTrue([&] { return isState("4 hci0 is switched off"); }));
  EXPECT_THAT(reports(), ElementsAre("C0:00:00:00:00:01 random 127 ADV_NONCONN_IND 04ff341203"));
}

TEST_F(BlueZSource, HearsOnWhenTheDaemonOrTheBusReturns) {
  openSource();
  source_->startScan({});
  ASSERT_TRUE(comesTrue([&] { return isState("2 bluetoothd is not running"); }));
  for (int round = 1; round <= 2; ++round) {
    startDaemon();
    ASSERT_TRUE(comesTrue([&] { return daemon_->count("hci0.StartDiscovery") == 1; }));
    daemon_->deviceAppears(kBeacon, appearance("C0:00:00:00:00:01", {0x01}));
    ASSERT_TRUE(comesTrue([&] { return reports().size() == static_cast<std::size_t>(round); }));
    daemon_.reset();
    ASSERT_TRUE(comesTrue([&] { return isState("1 bluetoothd went away"); }));
  }
  startDaemon();
  scan();
  bus_.stop();
  ASSERT_TRUE(comesTrue([&] { return isState("2 the system bus cannot be reached"); }));
  EXPECT_THAT(states(), Contains(HasSubstr("1 the connection to the system bus ended")));
  bus_.start();
  startDaemon();
  EXPECT_TRUE(comesTrue([&] { return daemon_->count("hci0.StartDiscovery") == 1; }));
}

TEST_F(BlueZSource, ACallOnAConnectionThatHasEndedFailsAsOthersDo) {
  startDaemon();
  const auto connection = bluez::DBusConnection::open(bus_.address());
  ASSERT_TRUE(connection) << connection.error().text;
  bluez::Adapter1Client adapter(**connection, "/org/bluez/hci0");
  bus_.stop();
  std::optional<Error> failure;
  for (int i = 0; i < 3 && !failure; ++i) adapter.startDiscovery([&](auto error) { failure = error; });
  EXPECT_TRUE(failure);
}

TEST_F(BlueZSource, FollowsItsAdapterThroughPowerAndNumbers) {
  startDaemon({{.name = "hci0", .address = "00:AA:01:00:00:41"}, {.name = "hci1"}});
  openSource("00:AA:01:00:00:42");
  source_->startScan({});
  ASSERT_TRUE(comesTrue([&] { return daemon_->count("hci1.StartDiscovery") == 1; }));
  const auto rfkill = root_ / "sys/class/rfkill/rfkill0";  // of a block the daemon tells nothing
  std::filesystem::create_directories(rfkill);
  for (const auto& [file, content] : {std::pair("name", "hci1"), {"type", "bluetooth"}, {"soft", "1"}})
    test::writeFile(rfkill / file, content);
  daemon_->setPowered("hci1", false, "off");
  ASSERT_TRUE(
      comesTrue([&] { return isState("4 hci1 is blocked by software; 'rfkill unblock bluetooth'"); }));
  daemon_->setPowered("hci1", true, "on");
  ASSERT_TRUE(comesTrue([&] { return daemon_->count("hci1.StartDiscovery") == 2; }));
  daemon_->removeAdapter("hci1");
  ASSERT_TRUE(comesTrue([&] { return isState("2 bluetoothd has no adapter 00:AA:01:00:00:42"); }));
  daemon_->addAdapter({.name = "hci2"});
  ASSERT_TRUE(comesTrue([&] { return daemon_->count("hci2.StartDiscovery") == 1; }));
  EXPECT_EQ(daemon_->count("hci0.StartDiscovery"), 0U);
}

TEST_F(BlueZSource, TakesThePoweredAdapterAndMovesWhenItGoes) {
  startDaemon({{.name = "hci0", .powered = false, .powerState = "off"}, {.name = "hci1"}, {.name = "hci10"}});
  openSource();
  source_->startScan({});
  ASSERT_TRUE(comesTrue([&] { return daemon_->count("hci1.StartDiscovery") == 1; }));
  for (const std::string adapter : {"hci10", "hci1"}) daemon_->setPowered(adapter, false, "off");
  EXPECT_TRUE(comesTrue([&] { return isState("4 hci1 is switched off"); })) << "no reason to move";
  for (const std::string adapter : {"hci1", "hci10"}) daemon_->setPowered(adapter, true, "on");
  ASSERT_TRUE(comesTrue([&] { return daemon_->count("hci1.StartDiscovery") == 2; }));
  daemon_->setPowered("hci0", true, "on");  // nor that
  daemon_->removeAdapter("hci1");
  ASSERT_TRUE(comesTrue([&] { return daemon_->count("hci0.StartDiscovery") == 1; }));
  daemon_->deviceAppears("/org/bluez/hci10/dev_C0_00_00_00_00_02", appearance("C0:00:00:00:00:02", {0x01}));
  daemon_->deviceAppears(kBeacon, appearance("C0:00:00:00:00:01", {0x01}));
  ASSERT_TRUE(comesTrue([&] { return !reports().empty(); }));
  EXPECT_THAT(reports(), ElementsAre(HasSubstr("C0:00:00:00:00:01")));
}

TEST_F(BlueZSource, TriesAgainUntilTheDaemonStartsTheScan) {
  startDaemon();
  // A daemon that is busy is asked again and again, with no longer pauses: twelve would last half a minute.
  std::deque<std::string> errors(12, "org.bluez.Error.InProgress");
  errors.insert(errors.end(),
                {"org.bluez.Error.NotReady", "org.bluez.Error.Failed", "org.bluez.Error.NotAuthorized"});
  daemon_->failStarts(errors);
  openSource();
  scan();
  ASSERT_TRUE(comesTrue([&] { return daemon_->count("hci0.StartDiscovery") == 16 && isState("5 hci0 ("); }));
  EXPECT_THAT(states(), Contains(HasSubstr("5 bluetoothd did not start the scan (not now)")));
  EXPECT_THAT(states(), Contains(HasSubstr("3 bluetoothd refuses this user")));
  EXPECT_EQ(daemon_->count("hci0.StopDiscovery"), 12U) << "to be rid of a request that the daemon still held";

  // The daemon ends the discovery by itself, as over a suspend.
  daemon_->endDiscovery("hci0");
  EXPECT_TRUE(comesTrue([&] { return daemon_->count("hci0.StartDiscovery") == 17; }));
}

TEST_F(BlueZSource, PausesBeforeItIsOnAgainAfterARefusal) {
  startDaemon();
  daemon_->failStarts(std::deque<std::string>(3, "org.bluez.Error.NotAuthorized"));
  scansWhenOn_ = true;
  openSource();
  EXPECT_TRUE(comesTrue([&] { return daemon_->count("hci0.StartDiscovery") == 4 && isState("5 hci0 ("); }));
  EXPECT_EQ(daemon_->count("hci0.StopDiscovery"), 0U) << "nothing ran";
}

TEST_F(BlueZSource, SaysWhenTheBusDoesNotLetItAsk) {
  bus_.stop();
  bus_.start("<deny send_destination='org.bluez' send_interface='org.freedesktop.DBus.ObjectManager'/>");
  startDaemon();
  openSource();
  EXPECT_TRUE(comesTrue([&] { return isState("3 bluetoothd refuses this user"); }));
  EXPECT_EQ(listBlueZAdapters(bus_.address()).daemon, BlueZInventory::Daemon::notPermitted);
}

TEST_F(BlueZSource, PassesOverMessagesThatAreNotAsTheyShouldBe) {
  startDaemon();
  openSource();
  scan();
  const std::string other = "/org/bluez/hci0/dev_C0_00_00_00_00_02";
  const std::map<uint16_t, sdbus::Variant> mixed{{1, text("text")},
                                                 {2, sdbus::Variant(std::vector<uint8_t>{9})}};
  daemon_->deviceChanges(other, strength(-50));  // nobody said its address
  daemon_->deviceAppears(other, {{"Address", text("no address")}, {"RSSI", sdbus::Variant(int16_t{-50})}});
  daemon_->deviceAppears(kBeacon, {{"Address", text("C0:00:00:00:00:01")},
                                   {"RSSI", text("loud")},
                                   {"UUIDs", sdbus::Variant(7)},
                                   {"ManufacturerData", sdbus::Variant(mixed)}});
  ASSERT_TRUE(comesTrue([&] { return !reports().empty(); }));
  EXPECT_THAT(reports(), ElementsAre("C0:00:00:00:00:01 public 127 ADV_NONCONN_IND 04ff020009"));
}

TEST_F(BlueZSource, DoesNotWaitLongForAStalledBus) {
  startDaemon();
  openSource();
  scan();
  bus_.stall();
  EXPECT_TRUE(endsSoon([&] { source_.reset(); })) << "during a scan";
  openSource();
  EXPECT_TRUE(endsSoon([&] {
    source_->close();
    source_.reset();
    dispatch_.reset();
  })) << "during its attempt to connect";

  // What the bus does not take does not hold up the end of a connection.
  bus_.goOn();
  auto opened = bluez::DBusConnection::open(bus_.address());
  ASSERT_TRUE(opened) << opened.error().text;
  auto connection = *std::move(opened);
  auto adapter = std::make_unique<bluez::Adapter1Client>(*connection, "/org/bluez/hci0");
  bus_.stall();
  for (int i = 0; i < 30'000; ++i) adapter->startDiscovery([](const auto&) {});
  EXPECT_TRUE(endsSoon([&] {
    adapter.reset();
    connection.reset();
  })) << "with messages that wait";
  bus_.goOn();
}

TEST_F(BlueZSource, ListsTheDaemonsAdapters) {
  EXPECT_EQ(listBlueZAdapters(bus_.address()).daemon, BlueZInventory::Daemon::absent);
  startDaemon(
      {{}, {.name = "hci1", .address = "00:AA:01:00:00:43", .powered = false, .powerState = "off-blocked"}});
  const auto inventory = listBlueZAdapters(bus_.address());
  EXPECT_EQ(inventory.daemon, BlueZInventory::Daemon::present);
  ASSERT_EQ(inventory.adapters.size(), 2U);
  EXPECT_EQ(inventory.adapters[0].name, "hci0");
  EXPECT_TRUE(inventory.adapters[0].isPowered);
  EXPECT_EQ(inventory.adapters[1].address, "00:AA:01:00:00:43");
  EXPECT_TRUE(inventory.adapters[1].isBlocked);
  daemon_.reset();
  bus_.stop();
  const auto nothing = listBlueZAdapters(bus_.address());
  EXPECT_EQ(nothing.daemon, BlueZInventory::Daemon::noBus);
  EXPECT_THAT(nothing.problem, HasSubstr("the system bus cannot be reached"));

  // As the bus does with a user whom it does not know.
  sockaddr_un name{.sun_family = AF_UNIX, .sun_path = {}};
  root_.file("bus").copy(name.sun_path, sizeof name.sun_path - 1);
  const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
  ASSERT_EQ(::listen(listener, 1), 0);
  std::thread hangUp([listener] { ::close(::accept(listener, nullptr, nullptr)); });
  EXPECT_THAT(listBlueZAdapters("unix:path=" + root_.file("bus")).problem,
              HasSubstr("the system bus hung up on user " + std::to_string(::geteuid())));
  hangUp.join();
  ::close(listener);
}

}  // namespace
