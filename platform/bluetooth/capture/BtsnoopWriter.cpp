#include "platform/bluetooth/capture/BtsnoopWriter.h"

#include <algorithm>
#include <utility>

#include "platform/bluetooth/capture/BtsnoopFormat.h"
#include "platform/bluetooth/capture/FileSink.h"
#include "platform/bluetooth/capture/PacketReader.h"
#include "platform/bluetooth/capture/RadioStateEvent.h"

namespace platform {
namespace {

constexpr std::size_t kManyOctets = 65'536;
constexpr std::size_t kLongestLegacyData = 31;
constexpr std::size_t kLongestFragment = 229;  // what is left of an event's 255 octets
constexpr std::size_t kLongestData = 1650;
constexpr auto kLongestDelay = std::chrono::seconds(1);

// Event types and data status of LE Extended Advertising Reports (Bluetooth Core, Vol 4, Part E, 7.7.65.13).
constexpr unsigned kLegacyPdu = 0x10;
constexpr unsigned kMoreToCome = 1U << 5;
constexpr unsigned kTruncated = 2U << 5;

bool isLegacy(AdvertisingKind kind) {
  return kind <= AdvertisingKind::scanResponse;
}

unsigned extendedEventType(AdvertisingKind kind) {
  switch (kind) {
    case AdvertisingKind::connectable:
      return 0x03 | kLegacyPdu;
    case AdvertisingKind::directed:
      return 0x05 | kLegacyPdu;
    case AdvertisingKind::scannable:
      return 0x02 | kLegacyPdu;
    case AdvertisingKind::nonConnectable:
      return kLegacyPdu;
    case AdvertisingKind::scanResponse:
      return 0x0A | kLegacyPdu;
    case AdvertisingKind::extended:
      return 0x00;
    case AdvertisingKind::extendedConnectable:
      return 0x01;
    case AdvertisingKind::extendedScannable:
      return 0x02;
    case AdvertisingKind::extendedScanResponse:
      return 0x0A;
  }
  return 0;
}

class BufferedBtsnoopWriter : public BtsnoopWriter {
 public:
  explicit BufferedBtsnoopWriter(Sink sink) : sink_(std::move(sink)) {
    buffer_.reserve(kManyOctets + 4096);
    put(viewOf(btsnoop::kMagic));
    putBigEndian(btsnoop::kVersion, 4);
    putBigEndian(btsnoop::kLinkH4, 4);
  }
  ~BufferedBtsnoopWriter() override { BufferedBtsnoopWriter::flush(); }

  Result<> write(const AdvertisingReport& report) override {
    if (hasFailed_) return {};
    if (buffer_.empty()) oldest_ = report.time;
    if (isLegacy(report.kind) && report.data.size() <= kLongestLegacyData)
      putLegacy(report);
    else
      putExtended(report);
    const bool isLate = report.time - oldest_ >= kLongestDelay || report.time < oldest_;
    return isLate || buffer_.size() >= kManyOctets ? flush() : Result<>();
  }

  Result<> write(Date time, const RadioState& state) override {
    if (hasFailed_) return {};
    const Data event = radioStateEvent(state);
    beginPacket(time, event.size());
    put(event);
    return flush();
  }

  Result<> flush() override {
    if (hasFailed_) return {};
    auto written = sink_(buffer_);
    hasFailed_ = !written;
    buffer_.clear();
    return written;
  }

 private:
  void put(DataView octets) { buffer_.insert(buffer_.end(), octets.begin(), octets.end()); }
  void putOctet(unsigned value) { buffer_.push_back(static_cast<std::byte>(value)); }
  void putBigEndian(uint64_t value, int width) {
    for (int i = width - 1; i >= 0; --i) putOctet(static_cast<unsigned>(value >> (8 * i) & 0xFF));
  }
  void putSigned(int8_t value) { putOctet(static_cast<uint8_t>(value)); }
  void putZeros(int count) {
    for (int i = 0; i < count; ++i) putOctet(0);
  }
  void putAddress(const BluetoothAddress& address) {
    std::for_each(address.octets.rbegin(), address.octets.rend(), [this](uint8_t octet) { putOctet(octet); });
  }

  /// A record with the beginning of an event packet; the event follows.
  void beginPacket(Date time, std::size_t event) {
    constexpr unsigned kEventPacket = 0x04;
    putBigEndian(event + 1, 4);
    putBigEndian(event + 1, 4);
    putBigEndian(CapturePacket::kReceivedEvent, 4);
    putBigEndian(0, 4);
    putBigEndian(static_cast<uint64_t>(time.time_since_epoch().count()) + btsnoop::kEpoch, 8);
    putOctet(kEventPacket);
  }

  /// A record with the beginning of an LE Meta event; `parameters` octets follow the subevent code.
  void beginEvent(Date time, unsigned subevent, std::size_t parameters) {
    constexpr unsigned kLEMeta = 0x3E;
    beginPacket(time, parameters + 3);
    putOctet(kLEMeta);
    putOctet(static_cast<unsigned>(parameters + 1));
    putOctet(subevent);
  }

  void putLegacy(const AdvertisingReport& report) {
    beginEvent(report.time, 0x02, 11 + report.data.size());
    putOctet(1);
    putOctet(static_cast<unsigned>(report.kind));
    putOctet(report.address.isRandom ? 1 : 0);
    putAddress(report.address);
    putOctet(static_cast<unsigned>(report.data.size()));
    put(report.data);
    putSigned(report.rssi);
  }

  void putExtended(const AdvertisingReport& report) {
    DataView rest = report.data.first(std::min(report.data.size(), kLongestData));
    const bool isTruncated = report.isTruncated || rest.size() < report.data.size();
    unsigned type = extendedEventType(report.kind);
    if (rest.size() > kLongestFragment) type &= ~kLegacyPdu;  // legacy reports have no fragments
    while (rest.size() > kLongestFragment) {
      putFragment(report, type | kMoreToCome, rest.first(kLongestFragment));
      rest = rest.subspan(kLongestFragment);
    }
    putFragment(report, type | (isTruncated ? kTruncated : 0), rest);
  }

  void putFragment(const AdvertisingReport& report, unsigned type, DataView data) {
    constexpr unsigned kAnonymous = 0xFF;
    constexpr unsigned kNoAdvertisingSet = 0xFF;
    constexpr unsigned kNoTransmitPower = 127;
    beginEvent(report.time, 0x0D, 25 + data.size());
    putOctet(1);
    putOctet(type);
    putOctet(0);
    putOctet(report.address.isAnonymous() ? kAnonymous : static_cast<unsigned>(report.address.isRandom));
    putAddress(report.address);
    putOctet(1);                                 // primary PHY: LE 1M
    putOctet((type & kLegacyPdu) != 0 ? 0 : 1);  // secondary PHY
    putOctet(kNoAdvertisingSet);
    putOctet(kNoTransmitPower);
    putSigned(report.rssi);
    putZeros(9);  // interval of periodic advertising, address that is advertised to
    putOctet(static_cast<unsigned>(data.size()));
    put(data);
  }

  const Sink sink_;
  Data buffer_;
  Date oldest_;
  bool hasFailed_ = false;
};

}  // namespace

Result<std::unique_ptr<BtsnoopWriter>> BtsnoopWriter::create(const std::string& path, std::stop_token stop) {
  auto opened = FileSink::open(path, std::move(stop));
  if (!opened) return opened.error();
  const std::shared_ptr<FileSink> file = *std::move(opened);
  if (!file) return std::unique_ptr<BtsnoopWriter>();
  return create([file](DataView octets) { return file->write(octets); });
}

std::unique_ptr<BtsnoopWriter> BtsnoopWriter::create(Sink sink) {
  return std::make_unique<BufferedBtsnoopWriter>(std::move(sink));
}

}  // namespace platform
