#include "tools/brenloft/Source.h"

#include <array>
#include <filesystem>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "platform/bluetooth/capture/CaptureSource.h"
#include "platform/bluetooth/radios/RadioSource.h"
#include "platform/simulated/SimulatedWorldSource.h"
#include "tools/brenloft/ExitStatus.h"
#include "tools/brenloft/Messages.h"

namespace brenloft {

const char* const kSourceForms =
    "capture:FILE[?paced], demo[?paced], auto, bluez[:ADAPTER], hci[:ADAPTER], h4:DEVICE[,BAUD], "
    "h4:unix:PATH";

namespace {

constexpr std::string_view kCapture = "capture:";
constexpr std::string_view kDemo = "demo";
constexpr std::string_view kPaced = "?paced";
constexpr std::chrono::seconds kDemoDuration{60};

// Takes `?paced` off the end.
bool takePaced(std::string& address) {
  if (!address.ends_with(kPaced)) return false;
  address.resize(address.size() - kPaced.size());
  return true;
}

std::unique_ptr<RunLoop> makeLoop(bool paced) {
  return std::make_unique<RunLoop>(paced ? RunLoop::Clock::realTime : RunLoop::Clock::virtualTime);
}

Source openCapture(std::string address, SourceEvents events) {
  const bool paced = takePaced(address);
  Source source{makeLoop(paced), nullptr, false, address.substr(kCapture.size())};
  std::string error;
  source.reports = platform::CaptureSource::make(
      {.path = source.capture,
       .paced = paced,
       .onEnd = std::move(events.onEnd),
       .onDiagnostic =
           [say = events.onMessage](const platform::CaptureDiagnostic& diagnostic) {
             if (say) say(diagnostic.line());
           },
       .onProgress = std::move(events.onProgress),
       .stop = std::move(events.stop)},
      source.loop->dispatch(), error);
  if (!source.reports) throw Failure(ExitStatus::failed, error);
  return source;
}

Source openDemo(std::string address, SourceEvents events) {
  const bool paced = takePaced(address);
  Source source{makeLoop(paced), nullptr};
  const platform::BeaconWorldOptions world{.sensors = 5, .iBeacons = 6};
  const platform::dispatch_time_t duration = paced ? platform::DISPATCH_TIME_FOREVER : kDemoDuration;
  source.reports =
      platform::makeSimulatedWorldSource(source.loop->dispatch(), world, duration, std::move(events.onEnd));
  return source;
}

Failure failureFor(const platform::RadioProblem& problem) {
  switch (problem.kind) {
    case platform::RadioProblem::Kind::noRadio:
      return {ExitStatus::noRadio, noRadioLine(problem.text)};
    case platform::RadioProblem::Kind::notPermitted:
      return {ExitStatus::notPermitted, problem.text};
    case platform::RadioProblem::Kind::usage:
      return {ExitStatus::usage, problem.text};
  }
  return {ExitStatus::failed, problem.text};
}

Source openRadio(std::string address, SourceEvents events) {
  Source source{makeLoop(true), nullptr, true};
  const platform::RadioSourceOptions options{
      .address = std::move(address), .dispatch = source.loop->dispatch(), .onDiagnostic = events.onMessage};
  auto made = platform::makeRadioSource(options);
  if (made.problem) throw failureFor(*made.problem);
  source.reports = std::move(made.source);
  return source;
}

struct Kind {
  bool (*accepts)(std::string_view address);
  Source (*open)(std::string address, SourceEvents events);
};

constexpr std::array kKinds{
    Kind{[](std::string_view address) { return address.starts_with(kCapture); }, openCapture},
    Kind{[](std::string_view address) { return address == kDemo || address == "demo?paced"; }, openDemo},
    Kind{platform::isRadioAddress, openRadio},
};

}  // namespace

Source openSource(const std::string& address, SourceEvents events) {
  for (const Kind& kind : kKinds)
    if (kind.accepts(address)) return kind.open(address, std::move(events));
  throw Failure(ExitStatus::usage, fmt::format("no such source: {}; one of {}", address, kSourceForms));
}

std::string captureFileOf(const std::string& address) {
  const bool isPlain = address.starts_with(kCapture) && !address.ends_with(kPaced);
  return isPlain ? address.substr(kCapture.size()) : std::string();
}

bool isReadAtOnce(const std::string& address) {
  std::error_code ignored;
  return std::filesystem::is_regular_file(captureFileOf(address), ignored);
}

}  // namespace brenloft
