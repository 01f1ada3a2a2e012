#include "platform/bluetooth/hci/RadioAddress.h"

#include <charconv>
#include <utility>

namespace platform {
namespace {

constexpr std::string_view kUnixPrefix = "unix:";
constexpr std::size_t kLongestSocketPath = 107;  // sockaddr_un, with a zero behind it
constexpr unsigned kHighestBaud = 20'000'000;
constexpr int kHighestAdapter = 65534;

bool takePrefix(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

template <class Number>
std::optional<Number> numberFrom(std::string_view text, Number highest) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole && value >= 0 && value <= highest ? std::optional(value) : std::nullopt;
}

Error notAnAddress(std::string text) {
  return {Error::Kind::unsupported, std::move(text)};
}

Result<RadioAddress> parseH4(std::string_view text) {
  if (takePrefix(text, kUnixPrefix)) {
    if (!text.empty() && text.size() <= kLongestSocketPath) return H4UnixAddress{std::string(text)};
    return notAnAddress(text.empty() ? "h4:unix: needs the path of a socket"
                                     : "h4:unix: takes a path of 107 octets at most, as sockets do");
  }
  H4SerialAddress address;
  if (const auto comma = text.rfind(','); comma != std::string_view::npos) {
    const auto baud = numberFrom<unsigned>(text.substr(comma + 1), kHighestBaud);
    if (!baud || *baud == 0)
      return notAnAddress("\"" + std::string(text.substr(comma + 1)) + "\" is no baud rate");
    address.baud = *baud;
    text = text.substr(0, comma);
  }
  address.device = text;
  if (!address.device.empty()) return address;
  return notAnAddress("h4: needs a serial device, such as h4:/dev/ttyACM0,1000000");
}

std::optional<HCIChannel> channelFrom(std::string_view& text) {
  const auto mark = text.find('?');
  if (mark == std::string_view::npos) return HCIChannel::automatic;
  const auto name = text.substr(mark + 1);
  text = text.substr(0, mark);
  if (name == "user") return HCIChannel::user;
  if (name == "raw") return HCIChannel::raw;
  return std::nullopt;
}

Result<RadioAddress> parseHCI(std::string_view text) {
  HCIAdapterAddress address;
  const auto channel = channelFrom(text);
  if (!channel) return notAnAddress("the channel of an adapter is ?user or ?raw");
  address.channel = *channel;
  if (const auto device = BluetoothAddress::fromText(text)) {
    address.adapter = *device;
    return address;
  }
  takePrefix(text, "hci");
  if (const auto index = numberFrom<int>(text, kHighestAdapter)) {
    address.adapter = *index;
    return address;
  }
  return notAnAddress("hci: needs an adapter: a number, hciN or its Bluetooth address");
}

std::string textOfChannel(HCIChannel channel) {
  if (channel == HCIChannel::automatic) return "";
  return channel == HCIChannel::user ? "?user" : "?raw";
}

}  // namespace

Result<RadioAddress> parseRadioAddress(std::string_view text) {
  if (takePrefix(text, "h4:")) return parseH4(text);
  if (takePrefix(text, "hci:")) return parseHCI(text);
  return notAnAddress("a radio begins with h4: or hci:");
}

std::string textOf(const RadioAddress& address) {
  if (const auto* serial = std::get_if<H4SerialAddress>(&address)) {
    const bool isUsual = serial->baud == H4SerialAddress{}.baud;
    return "h4:" + serial->device + (isUsual ? "" : "," + std::to_string(serial->baud));
  }
  if (const auto* local = std::get_if<H4UnixAddress>(&address)) return "h4:unix:" + local->path;
  const auto& adapter = std::get<HCIAdapterAddress>(address);
  const auto* index = std::get_if<int>(&adapter.adapter);
  const std::string name =
      index != nullptr ? std::to_string(*index) : std::get<BluetoothAddress>(adapter.adapter).text();
  return "hci:" + name + textOfChannel(adapter.channel);
}

}  // namespace platform
