#include "platform/bluetooth/bluez/BlueZSource.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "platform/bluetooth/Backlog.h"
#include "platform/bluetooth/Backoff.h"
#include "platform/bluetooth/QueuedSource.h"
#include "platform/bluetooth/bluez/BlueZAdapters.h"
#include "platform/bluetooth/bluez/BlueZDevices.h"
#include "platform/bluetooth/bluez/BlueZSession.h"
#include "platform/dispatch/BlockBatch.h"

namespace platform {
namespace {

constexpr std::chrono::milliseconds kLongestPause{30'000};
/// A daemon that lives answers within a moment; for another one nobody's end is held up longer.
constexpr std::chrono::milliseconds kFarewell{2000};

/// The hearing through one bus. Nothing waits; what the bus says hops to the queue first.
class BlueZSource final : public QueuedSource<> {
 public:
  explicit BlueZSource(BlueZOptions options)
      : QueuedSource(options.dispatch, "radio", options.queue),
        options_(std::move(options)),
        adapters_(options_.adapter, options_.root),
        pauses_(options_.firstPause, kLongestPause) {}
  ~BlueZSource() override { close(); }

  void startScan(const std::vector<CBUUID>& services) override {
    std::vector<std::string> uuids;
    uuids.reserve(services.size());
    for (const auto& service : services) uuids.push_back(service.uuid128().UUIDString());
    post(&BlueZSource::want, std::optional(std::move(uuids)));
  }

  void stopScan() override { post(&BlueZSource::want, std::optional<std::vector<std::string>>()); }

 private:
  enum class Scan { idle, starting, running, pausing };

  void didOpen() override { connect(); }

  void didClose() override {
    if (session_ && (isDiscovering_ || scan_ == Scan::starting)) session_->endDiscovery(adapter_, kFarewell);
    session_.reset();
    backlog_->close();
  }

  /// A handler for the bus's thread. What the bus says in one read is taken together, in the order in which
  /// it was said.
  template <class Step>
  auto fromBus(Step step) {
    return [run = within(step), batch = batch_](auto... arguments) {
      batch->async([run, ... arguments = std::move(arguments)] { run(arguments...); });
    };
  }

  /// The same that also says when that had what it says, and leaves out what exceeds
  /// the backlog.
  auto fromBusWithTime(void (BlueZSource::*step)(Date, const bluez::Object&)) {
    return [run = within(step), batch = batch_, dispatch = options_.dispatch,
            backlog = backlog_](bluez::Object object) {
      if (!backlog->add()) return backlog->drop();
      batch->async([run, backlog, time = dispatch->date(), object = std::move(object)] {
        backlog->remove();
        run(time, object);
      });
    };
  }

  // --- the bus and the daemon

  /// A stalled bus is waited for, for minutes, by a thread that nobody else waits for.
  void connect() {
    beginConnection();
    bluez::BlueZSession::Handlers handlers{.onDaemon = fromBus(&BlueZSource::daemonChanged),
                                           .onAdded = fromBusWithTime(&BlueZSource::added),
                                           .onChanged = fromBusWithTime(&BlueZSource::changed),
                                           .onRemoved = fromBus(&BlueZSource::removed),
                                           .onLost = fromBus(&BlueZSource::busLost)};
    std::thread([forward = fromBus(&BlueZSource::connected), busAddress = options_.busAddress,
                 handlers = std::move(handlers)] {
      auto opened = bluez::BlueZSession::open(busAddress, handlers);
      using Session = Result<std::shared_ptr<bluez::BlueZSession>>;
      forward(opened ? Session(*std::move(opened)) : Session(opened.error()));
    }).detach();
  }

  void connected(const Result<std::shared_ptr<bluez::BlueZSession>>& session) {
    if (session) {
      session_ = *session;
      session_->run();
      return load();
    }
    announceIfNew({CBManagerState::unsupported, session.error().text});
    later(pauses_.next(), &BlueZSource::connect);
  }

  void busLost(const std::string& reason) {
    beginConnection();
    session_.reset();
    forgetDaemon();
    announceIfNew({CBManagerState::resetting, "the connection to the system bus ended: " + reason});
    later(pauses_.next(), &BlueZSource::connect);
  }

  void daemonChanged(bool isThere) {
    forgetDaemon();
    if (isThere) return load();
    announceIfNew({CBManagerState::resetting, "bluetoothd went away; waiting for it to return"});
  }

  void forgetDaemon() {
    adapters_.clear();
    devices_.clear();
    adapter_.clear();
    isLoaded_ = false;
    endAttempt();
  }

  void load() { session_->objects().getManagedObjects(fromBus(&BlueZSource::loaded)); }

  void loaded(const Result<bluez::ObjectManagerClient::Objects>& objects) {
    if (!objects) return loadFailed(objects.error());
    isLoaded_ = true;
    pauses_.reset();
    for (const auto& object : *objects) {
      if (object.adapter) adapters_.update(object.path, *object.adapter);
      if (object.device) devices_.learn(object.path, *object.device);
    }
    reconcile();
  }

  void loadFailed(const Error& error) {
    if (error.kind == Error::Kind::absent) {
      announceIfNew(
          {CBManagerState::unsupported, "bluetoothd is not running; 'systemctl start bluetooth' starts it"});
      return;  // its coming is announced
    }
    if (error.kind == Error::Kind::notPermitted)
      announceIfNew(denied(error));
    else
      announceIfNew({CBManagerState::resetting, "bluetoothd does not answer: " + error.text});
    later(pauses_.next(), &BlueZSource::reload);
  }

  void reload() {
    if (session_ && !isLoaded_) load();
  }

  static RadioState denied(const Error& error) {
    return {CBManagerState::unauthorized, bluezRefusal(error.text)};
  }

  // --- objects

  void added(Date time, const bluez::Object& object) {
    if (object.adapter) {
      adapters_.update(object.path, *object.adapter);
      reconcile();
    }
    if (object.device) heard(time, object);
  }

  void changed(Date time, const bluez::Object& object) {
    if (object.adapter && adapters_.find(object.path) != nullptr) {
      const bool isOurs = object.path == adapter_ && scan_ == Scan::running;
      const uint64_t attempt = attempt_;  // reconciling may end it, and nothing is to be resumed then
      adapters_.update(object.path, *object.adapter);
      reconcile();
      if (isOurs && object.adapter->discovering == false)
        later(options_.firstPause, &BlueZSource::resumeIfEnded, attempt);
    }
    if (object.device) heard(time, object);
  }

  void removed(const std::string& path, const std::vector<std::string>& interfaces) {
    if (std::ranges::find(interfaces, bluez::kDeviceInterface) != interfaces.end()) devices_.forget(path);
    if (std::ranges::find(interfaces, bluez::kAdapterInterface) == interfaces.end()) return;
    adapters_.remove(path);
    devices_.forgetBelow(path);
    reconcile();
  }

  /// What is said of a device outside our own discovery is not heard, only known. The daemon answers
  /// StartDiscovery before it tells what that finds.
  void heard(Date time, const bluez::Object& object) {
    if (!isDiscovering_ || !object.path.starts_with(adapter_ + "/"))
      return devices_.learn(object.path, *object.device);
    const auto sighting = devices_.hear(object.path, *object.device);
    if (!sighting) return;
    report({.time = time,
            .address = sighting->address,
            .kind = sighting->kind,
            .rssi = sighting->rssi,
            .data = sighting->data});
  }

  // --- the scan

  void want(std::optional<std::vector<std::string>> uuids) {
    const bool isRefined = uuids && wanted_ && *uuids != *wanted_;
    wanted_ = std::move(uuids);
    if (isRefined && scan_ == Scan::running) scan_ = Scan::idle;  // the filter may change under way
    reconcile();
  }

  /// Brings the daemon to what is wanted, as far as its adapters allow.
  void reconcile() {
    if (!isLoaded_) return;
    const std::string chosen = adapters_.choose(adapter_);
    if (chosen != adapter_) {
      if (scan_ != Scan::idle && adapters_.find(adapter_) != nullptr) stopDiscovery();
      adapter_ = chosen;
      endAttempt();
    }
    const RadioState state = adapters_.stateOf(adapter_);
    const bool isOn = state.state == CBManagerState::poweredOn;
    if (!isOn) endAttempt();
    if (!isOn || scan_ != Scan::pausing) announceIfNew(state);
    if (isOn && wanted_ && scan_ == Scan::idle) startDiscovery();
    if (isOn && !wanted_ && scan_ != Scan::idle && !isRefused()) {
      if (scan_ != Scan::pausing) stopDiscovery();
      endAttempt();
    }
  }

  void endAttempt() {
    ++attempt_;
    scan_ = Scan::idle;
    isDiscovering_ = false;
    pauses_.reset();
  }

  /// A reply counts only for the attempt that asked for it.
  auto inAttempt(void (BlueZSource::*next)(const std::optional<Error>&)) {
    return [forward = fromBus(&BlueZSource::replied), attempt = attempt_, next](std::optional<Error> error) {
      forward(attempt, next, std::move(error));
    };
  }

  using Next = void (BlueZSource::*)(const std::optional<Error>&);
  void replied(uint64_t attempt, Next next, const std::optional<Error>& error) {
    if (attempt == attempt_) (this->*next)(error);
  }

  void startDiscovery() {
    scan_ = Scan::starting;
    filter_ = *wanted_;
    session_->adapter(adapter_).setDiscoveryFilter(*wanted_, inAttempt(&BlueZSource::filterSet));
  }

  void filterSet(const std::optional<Error>& error) {
    if (error) return discoveryFailed(*error);
    if (isDiscovering_) return discoveryStarted({});
    session_->adapter(adapter_).startDiscovery(inAttempt(&BlueZSource::discoveryStarted));
  }

  void discoveryStarted(const std::optional<Error>& error) {
    if (error) return discoveryFailed(*error);
    scan_ = Scan::running;
    isDiscovering_ = true;
    pauses_.reset();
    announceIfNew(adapters_.stateOf(adapter_));
    if (wanted_ && *wanted_ != filter_) startDiscovery();  // it was changed meanwhile
  }

  void stopDiscovery() {
    isDiscovering_ = false;
    session_->adapter(adapter_).stopDiscovery([](const std::optional<Error>&) {});
  }

  void discoveryFailed(const Error& error) {
    // The daemon still holds an earlier request of ours, is busy with somebody's connection, or was killed
    // and finds the controller scanning for the one before it, ten seconds at most.
    const bool isBusy = error.kind == Error::Kind::busy;
    if (isBusy) stopDiscovery();
    scan_ = Scan::pausing;
    const dispatch_time_t pause = isBusy ? options_.firstPause : pauses_.next();
    if (error.kind == Error::Kind::notPermitted)
      announceIfNew(denied(error));
    else
      announceIfNew({CBManagerState::poweredOn,
                     "bluetoothd did not start the scan (" + error.text + "); trying again"});
    later(pause, &BlueZSource::retry, attempt_);
  }

  void retry(uint64_t attempt) {
    if (attempt != attempt_ || scan_ != Scan::pausing) return;
    scan_ = Scan::idle;
    if (wanted_) return startDiscovery();
    announceIfNew(adapters_.stateOf(adapter_));
  }

  /// A scan was refused to this user. Whoever wanted it has ended it, as that is a radio that is not there,
  /// and wants it again when the radio is back: not before the pause is over, or the two would go round
  /// without one.
  bool isRefused() const {
    return scan_ == Scan::pausing && announced_.state == CBManagerState::unauthorized;
  }

  /// The daemon ended the discovery by itself, as it does over a suspend.
  void resumeIfEnded(uint64_t attempt) {
    const auto* adapter = adapters_.find(adapter_);
    if (attempt != attempt_ || scan_ != Scan::running || adapter == nullptr || adapter->isDiscovering) return;
    isDiscovering_ = false;
    startDiscovery();
  }

  // --- helpers

  void announceIfNew(const RadioState& state) {
    if (state.state == announced_.state && state.reason == announced_.reason) return;
    announced_ = state;
    announce(state);
  }

  const BlueZOptions options_;
  const std::shared_ptr<BlockBatch> batch_ = std::make_shared<BlockBatch>(queue());
  const std::shared_ptr<Backlog> backlog_ = std::make_shared<Backlog>(options_.onDiagnostic);
  std::shared_ptr<bluez::BlueZSession> session_;
  bool isLoaded_ = false;
  bluez::BlueZAdapters adapters_;
  bluez::BlueZDevices devices_;
  std::string adapter_;  ///< the path of the one in use

  std::optional<std::vector<std::string>> wanted_;  ///< service UUIDs of the scan that is wanted
  std::vector<std::string> filter_;                 ///< what the daemon was asked for last
  Scan scan_ = Scan::idle;
  uint64_t attempt_ = 0;
  bool isDiscovering_ = false;  ///< the daemon holds a request of ours
  Backoff pauses_;
  RadioState announced_;
};

}  // namespace

std::shared_ptr<AdvertisingReportSource> makeBlueZSource(BlueZOptions options) {
  return std::make_shared<BlueZSource>(std::move(options));
}

}  // namespace platform
