#include "platform/simulated/SimulatedRadio.h"

#include <map>
#include <mutex>
#include <utility>

#include "platform/bluetooth/QueuedSource.h"

namespace platform {
namespace {

class Radio final : public QueuedSource<SimulatedRadio> {
 public:
  Radio(std::shared_ptr<DispatchService> dispatch, RadioState initial)
      : QueuedSource(std::move(dispatch), "simulated radio"), state_(std::move(initial)) {}

  void startScan(const std::vector<CBUUID>& services) override;
  void stopScan() override;

  void advertise(const SimulatedAdvertisement& advertisement) override;
  int startAdvertising(SimulatedAdvertisement advertisement, dispatch_time_t interval) override;
  void stopAdvertising(int number) override;
  void report(const AdvertisingReport& report) override;
  void setState(CBManagerState state, std::string reason) override;
  void setDeaf(bool deaf) override;
  bool isScanning() const override;
  std::vector<CBUUID> scannedServices() const override;
  std::size_t heardCount() const override;

 private:
  struct Repetition {
    AdvertisingReport report;
    Data octets;
    dispatch_time_t interval;
  };

  void didOpen() override;
  void send(AdvertisingReport heard, const Data& octets);
  void repeat(int number);

  mutable std::mutex mutex_;  // guards what follows
  RadioState state_;
  bool isDeaf_ = false;
  bool isScanning_ = false;
  std::vector<CBUUID> services_;
  std::size_t heardCount_ = 0;
  int lastNumber_ = 0;
  std::map<int, std::shared_ptr<const Repetition>> repetitions_;
};

AdvertisingReport reportOf(const SimulatedAdvertisement& advertisement) {
  return {.time = {},
          .address = advertisement.address,
          .kind = advertisement.kind,
          .rssi = advertisement.rssi,
          .isTruncated = false,
          .data = {}};
}

void Radio::didOpen() {
  std::unique_lock lock(mutex_);
  const RadioState state = state_;
  lock.unlock();
  announce(state);
}

void Radio::startScan(const std::vector<CBUUID>& services) {
  const std::scoped_lock lock(mutex_);
  isScanning_ = true;
  services_ = services;
}

void Radio::stopScan() {
  const std::scoped_lock lock(mutex_);
  isScanning_ = false;
}

void Radio::advertise(const SimulatedAdvertisement& advertisement) {
  post(&Radio::send, reportOf(advertisement), advertisement.octets());
}

void Radio::report(const AdvertisingReport& report) {
  post(&Radio::send, report, toData(report.data));
}

int Radio::startAdvertising(SimulatedAdvertisement advertisement, dispatch_time_t interval) {
  auto repetition = std::make_shared<const Repetition>(
      Repetition{.report = reportOf(advertisement), .octets = advertisement.octets(), .interval = interval});
  int number = 0;
  {
    const std::scoped_lock lock(mutex_);
    number = ++lastNumber_;
    repetitions_[number] = std::move(repetition);
  }
  post(&Radio::repeat, number);
  return number;
}

void Radio::stopAdvertising(int number) {
  const std::scoped_lock lock(mutex_);
  repetitions_.erase(number);
}

void Radio::repeat(int number) {
  std::shared_ptr<const Repetition> repetition;
  {
    const std::scoped_lock lock(mutex_);
    const auto found = repetitions_.find(number);
    if (found == repetitions_.end()) return;
    repetition = found->second;
  }
  send(repetition->report, repetition->octets);
  later(repetition->interval, &Radio::repeat, number);
}

void Radio::send(AdvertisingReport heard, const Data& octets) {
  {
    const std::scoped_lock lock(mutex_);
    if (!isScanning_ || isDeaf_ || state_.state != CBManagerState::poweredOn) return;
    ++heardCount_;
  }
  heard.time = dispatch().date();
  heard.data = octets;
  QueuedSource::report(heard);
}

void Radio::setState(CBManagerState state, std::string reason) {
  post([this, radio = RadioState{state, std::move(reason)}] {
    {
      const std::scoped_lock lock(mutex_);
      state_ = radio;
    }
    announce(radio);
  });
}

void Radio::setDeaf(bool deaf) {
  post([this, deaf] {
    const std::scoped_lock lock(mutex_);
    isDeaf_ = deaf;
  });
}

bool Radio::isScanning() const {
  const std::scoped_lock lock(mutex_);
  return isScanning_;
}

std::vector<CBUUID> Radio::scannedServices() const {
  const std::scoped_lock lock(mutex_);
  return services_;
}

std::size_t Radio::heardCount() const {
  const std::scoped_lock lock(mutex_);
  return heardCount_;
}

}  // namespace

std::shared_ptr<SimulatedRadio> SimulatedRadio::make(std::shared_ptr<DispatchService> dispatch,
                                                     RadioState initial) {
  return std::make_shared<Radio>(std::move(dispatch), std::move(initial));
}

}  // namespace platform
