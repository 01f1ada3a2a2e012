#include <array>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/bluetooth/hci/FileDescriptor.h"
#include "platform/bluetooth/hci/H4Decoder.h"
#include "platform/bluetooth/hci/HCIPackets.h"
#include "platform/bluetooth/hci/HCISource.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "platform/foundation/Hex.h"

namespace {

using namespace platform;
using namespace platform::hci;

constexpr char kProgram[] = "/usr/bin/btvirt";
constexpr uint16_t kLESetAdvertisingParameters = 0x2006;
constexpr uint16_t kLESetAdvertisingData = 0x2008;
constexpr uint16_t kLESetAdvertiseEnable = 0x200A;

// Flags, a service UUID and the 22-octet frame behind its company identifier; then the same with one octet
// changed; then an iBeacon.
constexpr const char* kSensorFrame =
    "020106"
    "0303f0ff"
    "17ff34120102030405060708090a0b0c0d0e0f1011121314";
constexpr const char* kChangedFrame =
    "020106"
    "0303f0ff"
    "17ff34120102030405060708090a0b0c0d0e0f1011121399";
constexpr const char* kBeacon =
    "020106"
    "1aff4c000215000102030405060708090a0b0c0d0e0f00010201c5";

/// The controller emulator of bluez-test-tools as a process of its own, with LE controllers behind a local
/// socket: each connection is one controller, and they hear each other. One advertises, the other is driven.
class HCIBtvirtTest : public testing::Test {
 protected:
  void SetUp() override {
    if (::access(kProgram, X_OK) != 0) GTEST_SKIP() << "btvirt is not installed (package bluez-test-tools)";
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
    spawn();
    for (int i = 0; i < 1000 && !connect() && ::waitpid(process, nullptr, WNOHANG) == 0; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (!line) GTEST_SKIP() << "btvirt does not start";
    command(opcode::kReset, {});
    command(opcode::kSetEventMask, parameters({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x1F, 0, 0x20}));
    // 100 ms, non-connectable, public address, all channels.
    command(kLESetAdvertisingParameters, parameters({0xA0, 0, 0xA0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 7, 0}));
    std::string problem;
    driver =
        makeHCISource({parseRadioAddress("h4:unix:" + folder + "/le", problem).value(), dispatch, nullptr});
    driver->open([this](const AdvertisingReport& report) { heard(report); }, [](const RadioState&) {});
    driver->startScan({});
  }
  ~HCIBtvirtTest() override {
    if (driver) driver->close();
    if (process > 0) {
      ::kill(process, SIGTERM);
      ::waitpid(process, nullptr, 0);
    }
    std::filesystem::remove_all(folder);
  }

  void spawn() {
    std::string preload = "LD_PRELOAD=" BRENLOFT_AF_ALG_SHIM;
    std::string where = "BTVIRT_DIR=" + folder;
    const std::array<char*, 3> environment{preload.data(), where.data(), nullptr};
    process = ::fork();
    if (process != 0) return;
    ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    ::execle(kProgram, kProgram, "-s", nullptr, environment.data());
    ::_exit(127);
  }

  bool connect() {
    line = FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    (folder + "/le").copy(name.sun_path, sizeof name.sun_path - 1);
    if (::connect(line.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) line.reset();
    return static_cast<bool>(line);
  }

  /// Of the advertising controller; returns when it has answered.
  void command(uint16_t opcode, DataView parameters) {
    const Data packet = commandPacket(opcode, parameters);
    if (::write(line.get(), packet.data(), packet.size()) < 0) throw std::runtime_error("btvirt hung up");
    H4Decoder decoder;
    std::array<std::byte, 512> buffer{};
    for (bool answered = false; !answered;) {
      const ssize_t count = ::read(line.get(), buffer.data(), buffer.size());
      if (count <= 0) throw std::runtime_error("btvirt hung up");
      decoder.feed(DataView(buffer).first(static_cast<std::size_t>(count)), [&](DataView event) {
        if (octetAt(event, 1) != event::kCommandComplete && octetAt(event, 1) != event::kCommandStatus)
          return;
        const auto answer = CommandAnswer::read(event);
        answered = answered || (answer && answer->opcode == opcode);
      });
    }
  }

  /// The emulator delivers one report for each call.
  void advertise(const char* data) {
    command(kLESetAdvertiseEnable, parameters({0}));
    Data content = octetsFromHex(data).value();
    content.insert(content.begin(), static_cast<std::byte>(content.size()));
    content.resize(32);
    command(kLESetAdvertisingData, content);
    command(kLESetAdvertiseEnable, parameters({1}));
  }

  void heard(const AdvertisingReport& report) {
    const std::lock_guard lock(mutex);
    latest = hexText(report.data);
    latestKind = report.kind;
    latestRssi = report.rssi;
    ++reports;
    changed.notify_all();
  }

  /// Advertises until it is heard: the scan may begin later than the advertiser.
  bool isHeard(const char* data) {
    for (int i = 0; i < 60; ++i) {
      advertise(data);
      std::unique_lock lock(mutex);
      if (changed.wait_for(lock, std::chrono::seconds(1), [&] { return latest == data; })) return true;
    }
    return false;
  }

  std::shared_ptr<RealTimeDispatch> dispatch = RealTimeDispatch::make();
  std::string folder = std::filesystem::temp_directory_path() / "btvirt-XXXXXX";
  int process = -1;
  FileDescriptor line;
  std::shared_ptr<HCIDriver> driver;
  std::mutex mutex;
  std::condition_variable changed;
  std::string latest;
  AdvertisingKind latestKind = AdvertisingKind::connectable;
  int8_t latestRssi = 0;
  int reports = 0;
};

TEST_F(HCIBtvirtTest, HearsWhatAnotherControllerSendsItsChangesAndTheSameAgain) {
  EXPECT_TRUE(isHeard(kSensorFrame));
  EXPECT_TRUE(isHeard(kChangedFrame));
  EXPECT_TRUE(isHeard(kBeacon));
  std::unique_lock lock(mutex);
  const int least = reports + 20;
  lock.unlock();
  for (int i = 0; i < 20; ++i) advertise(kBeacon);
  lock.lock();
  EXPECT_TRUE(changed.wait_for(lock, std::chrono::minutes(1), [&] { return reports >= least; })) << reports;
  EXPECT_EQ(latestKind, AdvertisingKind::nonConnectable);
  EXPECT_EQ(latestRssi, AdvertisingReport::kNoRssi);
  EXPECT_EQ(driver->counters().malformed, 0U);
}

}  // namespace
