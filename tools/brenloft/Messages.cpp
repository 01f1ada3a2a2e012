#include "tools/brenloft/Messages.h"

#include <cstdio>

#include <fmt/format.h>
#include <unistd.h>

#include "gateway/Texts.h"
#include "tools/brenloft/Output.h"

namespace brenloft {

void printMessage(std::string_view line) {
  const std::string whole = printable(line) + '\n';
  // Nobody may be there to read it.
  std::fwrite(whole.data(), 1, whole.size(), stderr);
}

std::string_view textOf(platform::CBManagerState state) {
  using platform::CBManagerState;
  switch (state) {
    case CBManagerState::unknown:
      return "unknown";
    case CBManagerState::resetting:
      return "resetting";
    case CBManagerState::unsupported:
      return "unsupported";
    case CBManagerState::unauthorized:
      return "unauthorized";
    case CBManagerState::poweredOff:
      return "poweredOff";
    case CBManagerState::poweredOn:
      return "poweredOn";
  }
  return "unknown";
}

std::string radioLine(const platform::RadioState& state) {
  const std::string reason = state.reason.empty() ? std::string() : fmt::format(" ({})", state.reason);
  return fmt::format("radio: {}{}", textOf(state.state), reason);
}

std::string noRadioLine(std::string_view reason) {
  return fmt::format("{}; '--source demo' works without a radio", reason);
}

namespace {

constexpr uint64_t kLongFile = 4'194'304;
constexpr int kWidth = 40;

}  // namespace

// On a terminal of its own: one that shows the data as well would show the bar inside its lines.
ProgressBar::ProgressBar() : isShown_(Output::isScreen(STDERR_FILENO) && !Output::isTerminal()) {}

void ProgressBar::show(uint64_t position, uint64_t size) {
  if (!isShown_ || size < kLongFile) return;
  const uint64_t percent = position >= size ? 100 : position * 100 / size;
  if (percent == shown_) return;
  shown_ = percent;
  const auto full = static_cast<std::size_t>(percent) * kWidth / 100;
  fmt::print(stderr, "\r[{:<{}}] {:3} %", std::string(full, '='), kWidth, percent);
  std::fflush(stderr);
}

void ProgressBar::clear() {
  if (shown_ == UINT64_MAX) return;
  shown_ = UINT64_MAX;
  fmt::print(stderr, "\r\x1b[K");
}

}  // namespace brenloft
