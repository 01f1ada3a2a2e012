#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/dispatch/Dispatch.h"

namespace support {

/// A radio that hears what a test says, on a queue of its choice, and notes what it was asked to do. It
/// reports whether or not it was asked to hear, as a radio that is shared with other programs does.
class ScriptedReportSource : public platform::AdvertisingReportSource {
 public:
  explicit ScriptedReportSource(platform::dispatch_queue_t queue) : queue_(std::move(queue)) {}

  void open(ReportHandler onReport, StateHandler onState) override {
    note("open");
    handlers_ = std::make_shared<Handlers>(std::move(onReport), std::move(onState));
    setState(platform::CBManagerState::poweredOn);
    if (onOpen) onOpen();
  }
  void startScan(const std::vector<platform::CBUUID>& services) override {
    if (onStart) onStart();
    std::string text = "scan";
    for (const platform::CBUUID& uuid : services) text += " " + uuid.UUIDString();
    note(text);
  }
  void stopScan() override { note("stop"); }
  void close() override {
    note("close");
    handlers_->isOpen = false;
  }

  void hear(const std::string& address, platform::AdvertisingKind kind, platform::Data data,
            int8_t rssi = -60) {
    queue_->async([handlers = handlers_, address, kind, data = std::move(data), rssi] {
      const auto sender = platform::BluetoothAddress::fromText(address).value();
      if (handlers->isOpen) handlers->report({.address = sender, .kind = kind, .rssi = rssi, .data = data});
    });
  }
  void setState(platform::CBManagerState state, std::string reason = "") {
    queue_->async([handlers = handlers_, radio = platform::RadioState{state, std::move(reason)}] {
      if (handlers->isOpen) handlers->state(radio);
    });
  }

  /// What was asked since the last call: "open", "scan", "scan 180F 180A", "stop", "close".
  std::vector<std::string> takeNotes() {
    const std::lock_guard lock(mutex_);
    return std::exchange(notes_, {});
  }

  std::function<void()> onOpen;   ///< runs inside `open`
  std::function<void()> onStart;  ///< runs inside `startScan`, before it is noted

 private:
  struct Handlers {
    Handlers(ReportHandler onReport, StateHandler onState)
        : report(std::move(onReport)), state(std::move(onState)) {}
    ReportHandler report;
    StateHandler state;
    std::atomic<bool> isOpen = true;
  };

  void note(std::string text) {
    const std::lock_guard lock(mutex_);
    notes_.push_back(std::move(text));
  }

  const platform::dispatch_queue_t queue_;
  std::shared_ptr<Handlers> handlers_;
  std::mutex mutex_;
  std::vector<std::string> notes_;
};

}  // namespace support
