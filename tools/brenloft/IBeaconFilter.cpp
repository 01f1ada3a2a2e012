#include "tools/brenloft/IBeaconFilter.h"

#include <utility>
#include <vector>

#include "platform/bluetooth/ADStructures.h"
#include "platform/location/iBeaconFrame.h"

namespace brenloft {
namespace {

class FilteredSource : public platform::AdvertisingReportSource {
 public:
  FilteredSource(std::shared_ptr<AdvertisingReportSource> source, const IBeaconChoice& choice)
      : source_(std::move(source)), choice_(choice) {}

  void open(ReportHandler onReport, StateHandler onState) override {
    source_->open(
        [choice = choice_, structures = platform::ADStructures(),
         onReport = std::move(onReport)](const platform::AdvertisingReport& report) mutable {
          structures.read(report.data);
          if (!isOther(structures, choice)) onReport(report);
        },
        std::move(onState));
  }
  void startScan(const std::vector<platform::CBUUID>& services) override { source_->startScan(services); }
  void stopScan() override { source_->stopScan(); }
  void close() override { source_->close(); }

 private:
  static bool isOther(const platform::ADStructures& structures, const IBeaconChoice& choice) {
    if (!structures.manufacturerData) return false;
    const auto frame = platform::parseIBeaconFrame(*structures.manufacturerData);
    return frame && frame->proximityUUID == choice.proximityUUID &&
           (frame->major != choice.major.value_or(frame->major) ||
            frame->minor != choice.minor.value_or(frame->minor));
  }

  std::shared_ptr<AdvertisingReportSource> source_;
  const IBeaconChoice choice_;
};

}  // namespace

std::shared_ptr<platform::AdvertisingReportSource> filtered(
    std::shared_ptr<platform::AdvertisingReportSource> source, const IBeaconChoice& choice) {
  return std::make_shared<FilteredSource>(std::move(source), choice);
}

}  // namespace brenloft
