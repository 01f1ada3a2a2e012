#include "platform/bluetooth/capture/RadioStateEvent.h"

#include <array>
#include <string>
#include <string_view>

namespace platform {
namespace {

constexpr std::byte kVendorEvent{0xFF};
constexpr std::size_t kLongestContent = 255;

// What the content begins with; the state and the reason follow.
constexpr std::string_view kMark = "brenloft radio state ";
constexpr std::size_t kHeader = 2;  // code and length
constexpr std::size_t kStateAt = kHeader + kMark.size();

}  // namespace

Data radioStateEvent(const RadioState& state) {
  std::string content(kMark);
  content += static_cast<char>(state.state);
  content += state.reason.substr(0, kLongestContent - content.size());
  const std::array header{kVendorEvent, static_cast<std::byte>(content.size())};
  content.insert(0, textOf(header));
  return toData(viewOf(content));
}

std::optional<RadioState> radioStateOf(DataView event) {
  if (event.size() <= kStateAt || event[0] != kVendorEvent) return std::nullopt;
  const auto length = static_cast<std::size_t>(event[1]);
  if (event.size() < kHeader + length || kHeader + length <= kStateAt) return std::nullopt;
  if (textOf(event.subspan(kHeader, kMark.size())) != kMark) return std::nullopt;
  const auto state = static_cast<CBManagerState>(event[kStateAt]);
  if (state > CBManagerState::poweredOn) return std::nullopt;
  return RadioState{state, std::string(textOf(event.subspan(kStateAt + 1, kHeader + length - kStateAt - 1)))};
}

}  // namespace platform
