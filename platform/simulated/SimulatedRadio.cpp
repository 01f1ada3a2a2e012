#include "platform/simulated/SimulatedRadio.h"

#include <map>
#include <mutex>
#include <utility>

#include "platform/bluetooth/HandlerGate.h"

namespace platform {
namespace {

class Radio final : public SimulatedRadio, public std::enable_shared_from_this<Radio> {
 public:
  Radio(std::shared_ptr<DispatchService> dispatch, RadioState initial)
      : dispatch_(std::move(dispatch)),
        queue_(dispatch_->createQueue("SimulatedRadio")),
        state_(std::move(initial)) {}

  void open(ReportHandler onReport, StateHandler onState) override;
  void startScan(const std::vector<CBUUID>& services) override;
  void stopScan() override;
  void close() override { gate_.close(); }

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

  void submit(dispatch_block_t block) { queue_->async(std::move(block)); }
  void send(AdvertisingReport report, DataView octets);
  void repeat(int number);

  const std::shared_ptr<DispatchService> dispatch_;
  const dispatch_queue_t queue_;
  HandlerGate gate_;
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

void Radio::open(ReportHandler onReport, StateHandler onState) {
  gate_.open(std::move(onReport), std::move(onState));
  submit([self = shared_from_this()] {
    std::unique_lock lock(self->mutex_);
    const RadioState state = self->state_;
    lock.unlock();
    self->gate_.state(state);
  });
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
  submit([self = shared_from_this(), report = reportOf(advertisement), octets = advertisement.octets()] {
    self->send(report, octets);
  });
}

void Radio::report(const AdvertisingReport& report) {
  submit([self = shared_from_this(), report, octets = toData(report.data)] { self->send(report, octets); });
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
  submit([self = shared_from_this(), number] { self->repeat(number); });
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
  dispatch_->after(repetition->interval, queue_, [weak = weak_from_this(), number] {
    if (const auto self = weak.lock()) self->repeat(number);
  });
}

void Radio::send(AdvertisingReport report, DataView octets) {
  {
    const std::scoped_lock lock(mutex_);
    if (!isScanning_ || isDeaf_ || state_.state != CBManagerState::poweredOn) return;
    ++heardCount_;
  }
  report.time = dispatch_->date();
  report.data = octets;
  gate_.report(report);
}

void Radio::setState(CBManagerState state, std::string reason) {
  submit([self = shared_from_this(), radio = RadioState{state, std::move(reason)}] {
    {
      const std::scoped_lock lock(self->mutex_);
      self->state_ = radio;
    }
    self->gate_.state(radio);
  });
}

void Radio::setDeaf(bool deaf) {
  submit([self = shared_from_this(), deaf] {
    const std::scoped_lock lock(self->mutex_);
    self->isDeaf_ = deaf;
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
