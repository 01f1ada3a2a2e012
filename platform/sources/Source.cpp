#include "platform/sources/Source.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/bluetooth/capture/CaptureSource.h"
#include "platform/bluetooth/radios/RadioSource.h"
#include "platform/foundation/Suggestion.h"
#include "platform/simulated/SimulatedWorldSource.h"

namespace platform {
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

std::shared_ptr<RunLoop> makeLoop(bool paced) {
  return std::make_shared<RunLoop>(paced ? RunLoop::Clock::realTime : RunLoop::Clock::virtualTime);
}

Result<Source> openCapture(std::string address, SourceOptions options) {
  const bool paced = takePaced(address);
  Source source{makeLoop(paced), nullptr, false, captureFile(address)};
  auto made = CaptureSource::make({.path = source.capture,
                                   .paced = paced,
                                   .onEnd = std::move(options.onEnd),
                                   .onDiagnostic =
                                       [onMessage = options.onMessage](const CaptureDiagnostic& diagnostic) {
                                         if (onMessage) onMessage(diagnostic.line());
                                       },
                                   .onProgress = std::move(options.onProgress),
                                   .stop = std::move(options.stop)},
                                  source.loop->dispatch());
  if (!made) return made.error();
  source.reports = *std::move(made);
  return source;
}

Result<Source> openDemo(std::string address, SourceOptions options) {
  const bool paced = takePaced(address);
  Source source{makeLoop(paced), nullptr};
  const BeaconWorldOptions world{.sensors = 5, .iBeacons = 6};
  const dispatch_time_t duration = paced ? DISPATCH_TIME_FOREVER : kDemoDuration;
  source.reports =
      makeSimulatedWorldSource(source.loop->dispatch(), world, duration, std::move(options.onEnd));
  return source;
}

Result<Source> openRadio(std::string address, SourceOptions options) {
  Source source{makeLoop(true), nullptr, true};
  auto made = makeRadioSource({.address = std::move(address),
                               .dispatch = source.loop->dispatch(),
                               .onDiagnostic = std::move(options.onMessage)});
  if (!made) return made.error();
  source.reports = *std::move(made);
  return source;
}

std::string captureProblem(const std::string& address) {
  return captureFile(address).empty() ? "no file in '" + address + "': capture:FILE" : std::string();
}

std::string radioProblem(const std::string& address) {
  const auto problem = radioAddressProblem(address);
  return problem ? problem->text : std::string();
}

struct Kind {
  bool (*accepts)(std::string_view address);
  std::string (*problem)(const std::string& address);
  Result<Source> (*open)(std::string address, SourceOptions options);
};

constexpr std::array kKinds{
    Kind{[](std::string_view address) { return address.starts_with(kCapture); }, captureProblem, openCapture},
    Kind{[](std::string_view address) { return address == kDemo || address == "demo?paced"; },
         [](const std::string&) { return std::string(); }, openDemo},
    Kind{isRadioAddress, radioProblem, openRadio},
};

const Kind* kindOf(const std::string& address) {
  const auto found = std::ranges::find_if(kKinds, [&](const Kind& kind) { return kind.accepts(address); });
  return found == kKinds.end() ? nullptr : &*found;
}

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

Result<Source> openSource(const std::string& address, SourceOptions options) {
  if (std::string problem = addressProblem(address); !problem.empty())
    return Error{Error::Kind::unsupported, std::move(problem)};
  return kindOf(address)->open(address, std::move(options));
}

std::string addressProblem(const std::string& address) {
  if (const Kind* kind = kindOf(address)) return kind->problem(address);
  const std::string meant = meantSource(address);
  const std::string hint = meant.empty() ? "; one of " + std::string(kSourceForms) : didYouMean(meant);
  return "no such source: " + address + hint;
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

}  // namespace platform
