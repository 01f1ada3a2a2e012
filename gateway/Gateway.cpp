#include "gateway/Gateway.h"

#include <utility>

namespace brenloft {

Gateway::Gateway(std::shared_ptr<platform::DispatchService> dispatch, platform::dispatch_queue_t queue,
                 std::shared_ptr<const Settings> settings, BeaconChoice choice)
    : dispatch_(std::move(dispatch)),
      queue_(std::move(queue)),
      settings_(std::move(settings)),
      book_(
          dispatch_, queue_, settings_, std::move(choice),
          {.onReading =
               [this](const Reading& reading) {
                 report(reading);
                 alarms_.heard(reading);
               },
           .onEvent = [this](const BeaconEvent& event, const KeptState& state) { reportEvent(event, state); },
           .onRefused =
               [this](const Reading& reading) {
                 if (onRefused_) onRefused_(reading);
               },
           .onState = [this](const KeptState& state) { keep(state); }}),
      alarms_(
          dispatch_, queue_, settings_,
          {.onEvent = [this](const BeaconEvent& event, const KeptState& state) { reportEvent(event, state); },
           .onState = [this](const KeptState& state) { keep(state); },
           .onNotice =
               [this](const AlarmNotice& notice) {
                 if (onNotice_) onNotice_(notice);
               }}) {}

Gateway::~Gateway() = default;

void Gateway::add(std::shared_ptr<KeepingSink> sink, const AlarmsKept& kept) {
  keeper_ = sink;
  sinks_.push_back(std::move(sink));
  book_.restore(kept.states);
  alarms_.restore(kept);
}

void Gateway::hear(Reading reading) {
  ++heard_;
  if (waiting_.fetch_add(1) >= kMostWaiting) {
    --waiting_;
    ++dropped_;
    return;
  }
  queue_->async([this, reading = std::move(reading)]() mutable {
    --waiting_;
    reportGap();
    book_.heard(std::move(reading));
  });
}

void Gateway::radio(bool isListening, std::string text) {
  queue_->async([this, isListening, text = std::move(text)] {
    book_.radio(isListening);
    alarms_.radio(isListening);
    report(BeaconEvent{
        .beacon = {}, .heard = dispatch_->date(), .kind = BeaconEvent::Kind::radio, .text = text});
  });
}

void Gateway::setSettings(std::shared_ptr<const Settings> settings) {
  queue_->async([this, settings = std::move(settings)] {
    settings_ = settings;
    book_.setSettings(settings);
    alarms_.setSettings(settings);
  });
}

void Gateway::reopen() {
  queue_->async([this] {
    for (const auto& sink : sinks_) sink->reopen();
  });
}

void Gateway::finish(std::function<void()> onDone) {
  queue_->async([this, onDone = std::move(onDone)] {
    reportGap();
    alarms_.keepPending();
    for (const auto& sink : sinks_) sink->flush();
    onDone();
  });
}

Label Gateway::labelOf(const BeaconId& beacon) const {
  return settings_->labelOf(beacon);
}

Gateway::Census Gateway::census() const {
  return {heard_, dropped_, book_.census()};
}

void Gateway::report(const Record& record) {
  for (const auto& sink : sinks_) sink->accept(record);
}

void Gateway::reportGap() {
  const uint64_t dropped = dropped_;
  if (dropped == reportedDrops_) return;
  report(BeaconEvent{.beacon = {},
                     .heard = dispatch_->date(),
                     .kind = BeaconEvent::Kind::gap,
                     .count = dropped - std::exchange(reportedDrops_, dropped)});
}

void Gateway::reportEvent(const BeaconEvent& event, const KeptState& state) {
  for (const auto& sink : sinks_)
    if (sink == keeper_)
      keeper_->accept(event, state);
    else
      sink->accept(event);
}

void Gateway::keep(const KeptState& state) {
  if (keeper_) keeper_->keep(state);
}

}  // namespace brenloft
