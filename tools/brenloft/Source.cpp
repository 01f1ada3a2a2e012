#include "tools/brenloft/Source.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "gateway/Suggestion.h"
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

// The file behind `capture:`; `-` is standard input.
std::string captureFile(std::string_view address) {
  const std::string_view file = address.substr(kCapture.size());
  return file == "-" ? "/dev/stdin" : std::string(file);
}

std::unique_ptr<RunLoop> makeLoop(bool paced) {
  return std::make_unique<RunLoop>(paced ? RunLoop::Clock::realTime : RunLoop::Clock::virtualTime);
}

Source openCapture(std::string address, SourceEvents events) {
  const bool paced = takePaced(address);
  Source source{makeLoop(paced), nullptr, false, captureFile(address)};
  auto made = platform::CaptureSource::make(
      {.path = source.capture,
       .paced = paced,
       .onEnd = std::move(events.onEnd),
       .onDiagnostic =
           [onMessage = events.onMessage](const platform::CaptureDiagnostic& diagnostic) {
             if (onMessage) onMessage(diagnostic.line());
           },
       .onProgress = std::move(events.onProgress),
       .stop = std::move(events.stop)},
      source.loop->dispatch());
  if (!made) throw Failure(ExitStatus::failed, made.error().text);
  source.reports = *std::move(made);
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

Failure failureFor(const platform::Error& error) {
  using Kind = platform::Error::Kind;
  if (error.kind == Kind::notPermitted) return {ExitStatus::notPermitted, error.text};
  if (error.kind == Kind::unsupported) return {ExitStatus::usage, error.text};
  return {ExitStatus::noRadio, noRadioLine(error.text)};
}

Source openRadio(std::string address, SourceEvents events) {
  Source source{makeLoop(true), nullptr, true};
  const platform::RadioSourceOptions options{.address = std::move(address),
                                             .dispatch = source.loop->dispatch(),
                                             .onDiagnostic = std::move(events.onMessage)};
  auto made = platform::makeRadioSource(options);
  if (!made) throw failureFor(made.error());
  source.reports = *std::move(made);
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

// What an address that is none was most probably meant to be; else "".
std::string meantSource(const std::string& address) {
  std::error_code ignored;
  if (std::filesystem::exists(address, ignored)) return std::string(kCapture) + address;
  const auto end = std::min(address.find_first_of(":?"), address.size());
  const std::string rest = address.substr(end);
  const std::string kind = nearest(address.substr(0, end), {"capture", "demo", "auto", "bluez", "hci", "h4"});
  const bool isWhole = !kind.empty() && kind != address.substr(0, end);
  return !isWhole ? "" : kind == "capture" && rest.empty() ? "capture:FILE" : kind + rest;
}

}  // namespace

Source openSource(const std::string& address, SourceEvents events) {
  for (const Kind& kind : kKinds)
    if (kind.accepts(address)) return kind.open(address, std::move(events));
  const std::string meant = meantSource(address);
  const std::string hint = meant.empty() ? fmt::format("; one of {}", kSourceForms) : didYouMean(meant);
  throw Failure(ExitStatus::usage, fmt::format("no such source: {}{}", address, hint));
}

std::string captureFileOf(const std::string& address) {
  const bool isPlain = address.starts_with(kCapture) && !address.ends_with(kPaced);
  return isPlain ? captureFile(address) : std::string();
}

std::string pacedSource(const std::string& address) {
  const bool isWhole = address == kDemo || !captureFileOf(address).empty();
  return isWhole ? address + std::string(kPaced) : address;
}

bool isDemo(const std::string& address) {
  return pacedSource(address) == "demo?paced";
}

bool isReadAtOnce(const std::string& address) {
  std::error_code ignored;
  return std::filesystem::is_regular_file(captureFileOf(address), ignored);
}

}  // namespace brenloft
