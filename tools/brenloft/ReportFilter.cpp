#include "tools/brenloft/ReportFilter.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <fmt/format.h>

#include "BrenloftSDK/BRLSensorFrame.h"
#include "platform/location/iBeaconFrame.h"

namespace brenloft {
namespace {

constexpr std::chrono::minutes kRatePeriod{1};

template <class Values, class Wanted>
bool holdsOneOf(const Values& values, const Wanted& wanted) {
  return std::ranges::find_first_of(values, wanted) != std::ranges::end(values);
}

bool isOther(const platform::iBeaconFrame& frame, const IBeaconChoice& choice) {
  return frame.proximityUUID == choice.proximityUUID && (frame.major != choice.major.value_or(frame.major) ||
                                                         frame.minor != choice.minor.value_or(frame.minor));
}

bool isOfCompany(const std::optional<platform::Data>& manufacturerData,
                 const std::vector<uint16_t>& companies) {
  if (!manufacturerData || manufacturerData->size() < 2) return false;
  const auto low = std::to_integer<unsigned>((*manufacturerData)[0]);
  const auto high = std::to_integer<unsigned>((*manufacturerData)[1]);
  return std::ranges::find(companies, static_cast<uint16_t>(high << 8U | low)) != companies.end();
}

}  // namespace

class ReportFilter::FilteredSource : public platform::AdvertisingReportSource {
 public:
  FilteredSource(std::shared_ptr<const ReportFilter> filter, std::shared_ptr<AdvertisingReportSource> source)
      : filter_(std::move(filter)), source_(std::move(source)) {}

  void open(ReportHandler onReport, StateHandler onState) override {
    source_->open(
        [filter = filter_, onReport = std::move(onReport)](const platform::AdvertisingReport& report) {
          if (filter->isWanted(report)) onReport(report);
        },
        std::move(onState));
  }
  void startScan(const std::vector<platform::CBUUID>& services) override {
    source_->startScan(services.empty() ? filter_->choice_.services : services);
  }
  void stopScan() override { source_->stopScan(); }
  void close() override { source_->close(); }

 private:
  const std::shared_ptr<const ReportFilter> filter_;
  const std::shared_ptr<AdvertisingReportSource> source_;
};

std::shared_ptr<platform::AdvertisingReportSource> ReportFilter::wrap(
    std::shared_ptr<platform::AdvertisingReportSource> source) {
  return std::make_shared<FilteredSource>(shared_from_this(), std::move(source));
}

bool ReportFilter::isWanted(const platform::AdvertisingReport& report) const {
  if (choice_.leastRssi && report.rssi < *choice_.leastRssi) return false;
  return choice_.addresses.empty() || choice_.addresses.contains(report.address.octets);
}

bool ReportFilter::isWanted(const platform::CBAdvertisementData& data) const {
  const auto& manufacturerData = data.manufacturerData;
  if (!choice_.services.empty() && !(data.serviceUUIDs && holdsOneOf(*data.serviceUUIDs, choice_.services)))
    return false;
  if (!choice_.companies.empty() && !isOfCompany(manufacturerData, choice_.companies)) return false;
  if (!choice_.iBeacons || !manufacturerData) return true;
  const auto frame = platform::parseIBeaconFrame(*manufacturerData);
  return !frame || !isOther(*frame, *choice_.iBeacons);
}

bool ReportFilter::accepts(const platform::CBAdvertisementData& data) {
  if (!isWanted(data)) return false;
  if (choice_.mostBeacons == 0 && choice_.newPerMinute == 0) return true;
  std::string identity = identityOf(data);
  if (identity.empty() || known_.contains(identity)) return true;
  if (!hasRoom()) return false;
  known_.insert(std::move(identity));
  ++newInMinute_;
  return true;
}

// "" for what makes no beacon.
std::string ReportFilter::identityOf(const platform::CBAdvertisementData& data) const {
  if (!data.manufacturerData) return {};
  if (choice_.iBeacons) {
    const auto frame = platform::parseIBeaconFrame(*data.manufacturerData);
    if (!frame || frame->proximityUUID != choice_.iBeacons->proximityUUID) return {};
    return fmt::format("{}/{}", frame->major, frame->minor);
  }
  const auto readings = BRLSensorReadings::fromFrame(*data.manufacturerData);
  if (!readings || !data.serviceUUIDs || data.serviceUUIDs->empty()) return {};
  return data.serviceUUIDs->front().UUIDString() + '/' + readings->uniqueId;
}

bool ReportFilter::hasRoom() {
  if (choice_.mostBeacons != 0 && known_.size() >= choice_.mostBeacons) {
    warnOnce(hasWarnedOfMost_,
             fmt::format("--max-beacons: {} are known; others are not heard", known_.size()));
    return false;
  }
  if (choice_.newPerMinute == 0) return true;
  const auto now = now_();
  if (newInMinute_ == 0 || now - minuteBegan_ >= kRatePeriod) {
    minuteBegan_ = now;
    newInMinute_ = 0;
  }
  if (newInMinute_ < choice_.newPerMinute) return true;
  warnOnce(hasWarnedOfRate_,
           fmt::format("--new-per-minute: {} new ones in a minute; others are not heard until it "
                       "is over",
                       newInMinute_));
  return false;
}

void ReportFilter::warnOnce(bool& hasWarned, const std::string& line) const {
  if (!std::exchange(hasWarned, true) && onMessage_) onMessage_(line);
}

}  // namespace brenloft
