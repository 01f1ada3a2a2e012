#include "platform/bluetooth/HCIAdvertisingEvents.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace platform {
namespace {

constexpr std::string_view kEventCut = "HCI event shorter than its length field";
constexpr std::string_view kReportCut = "advertising report runs past the end of its event";
constexpr std::string_view kUnknownType = "advertising report of an unknown event type";

constexpr uint8_t kLEMetaEvent = 0x3E;
constexpr uint8_t kAdvertisingReport = 0x02;
constexpr uint8_t kExtendedAdvertisingReport = 0x0D;
constexpr uint8_t kAnonymous = 0xFF;

// Event_Type of extended reports (7.7.65.13).
constexpr unsigned kConnectableBit = 1U << 0;
constexpr unsigned kScannableBit = 1U << 1;
constexpr unsigned kDirectedBit = 1U << 2;
constexpr unsigned kScanResponseBit = 1U << 3;
constexpr unsigned kLegacyBit = 1U << 4;
enum class DataStatus : uint8_t { complete = 0, moreToCome = 1, truncated = 2 };

// Data of one advertisement in all its fragments; the standard allows no more.
constexpr size_t kLongestData = 1650;
// More than one controller can have under way; bounds what a hostile event stream can make us keep.
constexpr size_t kMostUnfinished = 64;

class OctetReader {
 public:
  explicit OctetReader(DataView octets) : rest_(octets) {}
  bool has(size_t count) const { return rest_.size() >= count; }
  DataView take(size_t count) {
    const DataView taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }
  uint8_t octet() { return std::to_integer<uint8_t>(take(1)[0]); }
  unsigned word() {
    const unsigned low = octet();
    return low | static_cast<unsigned>(octet()) << 8;
  }

 private:
  DataView rest_;
};

BluetoothAddress readAddress(OctetReader& reader) {
  const uint8_t type = reader.octet();
  const auto octets = reader.take(6).first<6>();
  // Identity addresses (types 2 and 3) keep their kind in the lowest bit.
  return type == kAnonymous ? BluetoothAddress{} : BluetoothAddress::fromPacket(octets, type & 1);
}

AdvertisingKind legacyKind(unsigned eventType) {
  if (eventType & kScanResponseBit) return AdvertisingKind::scanResponse;
  if (eventType & kDirectedBit) return AdvertisingKind::directed;
  if (eventType & kConnectableBit) return AdvertisingKind::connectable;
  return eventType & kScannableBit ? AdvertisingKind::scannable : AdvertisingKind::nonConnectable;
}

AdvertisingKind extendedKind(unsigned eventType) {
  if (eventType & kLegacyBit) return legacyKind(eventType);
  if (eventType & kScanResponseBit) return AdvertisingKind::extendedScanResponse;
  if (eventType & kConnectableBit) return AdvertisingKind::extendedConnectable;
  return eventType & kScannableBit ? AdvertisingKind::extendedScannable : AdvertisingKind::extended;
}

DataStatus dataStatus(unsigned eventType) {
  const unsigned status = eventType >> 5 & 3;
  if (eventType & kLegacyBit || status == 0) return DataStatus::complete;
  return status == 1 ? DataStatus::moreToCome : DataStatus::truncated;  // 3 is reserved and promises nothing
}

std::string_view readLegacyReport(OctetReader& reader, AdvertisingReport& report) {
  constexpr size_t kHead = 9;
  if (!reader.has(kHead)) return kReportCut;
  const uint8_t type = reader.octet();
  report.address = readAddress(reader);
  const size_t length = reader.octet();
  if (!reader.has(length + 1)) return kReportCut;
  report.data = reader.take(length);
  report.rssi = static_cast<int8_t>(reader.octet());
  if (type > static_cast<uint8_t>(AdvertisingKind::scanResponse)) return kUnknownType;
  report.kind = static_cast<AdvertisingKind>(type);
  return {};
}

// A report of an unknown type does not hide those behind it.
std::string_view readLegacyReports(OctetReader& reader, Date time,
                                   const HCIAdvertisingEvents::Handler& handler) {
  std::string_view unknown;
  AdvertisingReport report;
  report.time = time;
  for (unsigned count = reader.octet(); count > 0; --count) {
    const std::string_view fault = readLegacyReport(reader, report);
    if (fault == kReportCut) return fault;
    if (fault.empty()) {
      handler(report);
    } else {
      unknown = fault;
    }
  }
  return unknown;
}

struct ExtendedHead {
  unsigned eventType = 0;
  uint8_t set = 0;
};

std::string_view readExtendedReport(OctetReader& reader, AdvertisingReport& report, ExtendedHead& head) {
  constexpr size_t kHead = 24;
  if (!reader.has(kHead)) return kReportCut;
  head.eventType = reader.word();
  report.address = readAddress(reader);
  reader.take(2);  // PHYs
  head.set = reader.octet();
  reader.take(1);  // transmit power of the controller, not of the AD structure
  report.rssi = static_cast<int8_t>(reader.octet());
  reader.take(9);  // periodic interval, direct address
  const size_t length = reader.octet();
  if (!reader.has(length)) return kReportCut;
  report.data = reader.take(length);
  report.kind = extendedKind(head.eventType);
  return {};
}

struct Unfinished {
  BluetoothAddress address;
  uint8_t set = 0;
  bool isScanResponse = false;
  bool isOverlong = false;
  Date heard;  ///< the newest fragment
  Data data;

  /// A clock that was set back makes no fragment younger.
  bool isStale(Date now) const { return now < heard || now - heard > HCIAdvertisingEvents::kLongestGap; }
};

void append(Unfinished& to, Date time, DataView data) {
  to.heard = time;
  const size_t room = kLongestData - to.data.size();
  if (data.size() > room) to.isOverlong = true;
  const DataView kept = data.first(std::min(room, data.size()));
  to.data.insert(to.data.end(), kept.begin(), kept.end());
}

}  // namespace

struct HCIAdvertisingEvents::State {
  std::vector<Unfinished> unfinished;  ///< oldest first

  std::vector<Unfinished>::iterator find(const AdvertisingReport& report, uint8_t set);
  Unfinished& open(const AdvertisingReport& report, uint8_t set);
  std::string_view readReports(OctetReader& reader, Date time, const Handler& handler);
  void take(AdvertisingReport& report, uint8_t set, DataStatus status, const Handler& handler);
};

std::vector<Unfinished>::iterator HCIAdvertisingEvents::State::find(const AdvertisingReport& report,
                                                                    uint8_t set) {
  return std::find_if(unfinished.begin(), unfinished.end(), [&](const Unfinished& one) {
    return one.address == report.address && one.set == set &&
           one.isScanResponse == platform::isScanResponse(report.kind);
  });
}

Unfinished& HCIAdvertisingEvents::State::open(const AdvertisingReport& report, uint8_t set) {
  const auto found = find(report, set);
  if (found != unfinished.end()) return *found;
  if (unfinished.size() == kMostUnfinished) unfinished.erase(unfinished.begin());
  return unfinished.emplace_back(
      Unfinished{report.address, set, platform::isScanResponse(report.kind), false, {}, {}});
}

void HCIAdvertisingEvents::State::take(AdvertisingReport& report, uint8_t set, DataStatus status,
                                       const Handler& handler) {
  report.isTruncated = status == DataStatus::truncated;
  if (status == DataStatus::moreToCome) return append(open(report, set), report.time, report.data);
  const auto found = unfinished.empty() ? unfinished.end() : find(report, set);
  if (found == unfinished.end()) return handler(report);

  append(*found, report.time, report.data);
  const Unfinished whole = std::move(*found);
  unfinished.erase(found);
  report.data = whole.data;
  report.isTruncated = report.isTruncated || whole.isOverlong;
  handler(report);
}

std::string_view HCIAdvertisingEvents::State::readReports(OctetReader& reader, Date time,
                                                          const Handler& handler) {
  std::erase_if(unfinished, [&](const Unfinished& one) { return one.isStale(time); });
  AdvertisingReport report;
  report.time = time;
  for (unsigned count = reader.octet(); count > 0; --count) {
    ExtendedHead head;
    const std::string_view fault = readExtendedReport(reader, report, head);
    if (!fault.empty()) return fault;
    take(report, head.set, dataStatus(head.eventType), handler);
  }
  return {};
}

HCIAdvertisingEvents::HCIAdvertisingEvents() : state_(std::make_unique<State>()) {}
HCIAdvertisingEvents::~HCIAdvertisingEvents() = default;

void HCIAdvertisingEvents::reset() {
  state_->unfinished.clear();
}

std::string_view HCIAdvertisingEvents::read(DataView event, Date time, const Handler& handler) {
  OctetReader head(event);
  if (!head.has(2)) return kEventCut;
  const uint8_t code = head.octet();
  const size_t length = head.octet();
  const bool isCut = !head.has(length);
  OctetReader parameters(isCut ? event.subspan(2) : head.take(length));

  std::string_view fault;
  if (code == kLEMetaEvent && parameters.has(2)) {
    const uint8_t subevent = parameters.octet();
    if (subevent == kAdvertisingReport) fault = readLegacyReports(parameters, time, handler);
    if (subevent == kExtendedAdvertisingReport) fault = state_->readReports(parameters, time, handler);
  }
  return isCut ? kEventCut : fault;
}

}  // namespace platform
