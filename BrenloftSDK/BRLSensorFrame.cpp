#include "BrenloftSDK/BRLSensorFrame.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "BrenloftSDK/BRLProperties.h"
#include "platform/foundation/Hex.h"

namespace {

// A single-precision quotient is off by far less than half a hundredth in this range, so that integer
// arithmetic gives the digits of "%0.2f" on it. Zero means that there is no reading.
std::string hundredthsText(int32_t value) {
  if (value == 0) return {};
  std::array<char, 8> buffer;
  char* out = buffer.data();
  if (value < 0) *out++ = '-';
  const int32_t magnitude = value < 0 ? -value : value;
  out = std::to_chars(out, buffer.data() + buffer.size(), magnitude / 100).ptr;
  *out++ = '.';
  *out++ = static_cast<char>('0' + magnitude / 10 % 10);
  *out++ = static_cast<char>('0' + magnitude % 10);
  return {buffer.data(), out};
}

std::string decimalText(int16_t value) {
  std::array<char, 6> buffer;
  return {buffer.data(), std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr};
}

// Two digits of each octet, with room for a separator where there is one.
template <size_t Octets, char Separator = 0>
std::string hexDigits(const std::byte* octets) {
  constexpr size_t kStep = Separator == 0 ? 2 : 3;
  std::array<char, Octets * kStep> digits;
  for (size_t i = 0; i < Octets; ++i) {
    const auto octet = std::to_integer<uint8_t>(octets[i]);
    digits[i * kStep] = platform::kUpperHexDigits[octet >> 4];
    digits[i * kStep + 1] = platform::kUpperHexDigits[octet & 15];
    if (Separator != 0) digits[i * kStep + 2] = Separator;
  }
  return {digits.data(), digits.size() - (Separator == 0 ? 0 : 1)};
}

platform::Value valueOf(uint32_t number) {
  return platform::NSNumber(number);
}
platform::Value valueOf(const std::string& text) {
  return text;
}

}  // namespace

std::optional<BRLSensorFrame> BRLSensorFrame::of(platform::DataView manufacturerData) {
  if (manufacturerData.size() < kBRLSensorFrameLength) return std::nullopt;
  BRLSensorFrame frame;
  std::copy_n(manufacturerData.begin(), kBRLSensorFrameLength, frame.octets_.begin());
  return frame;
}

uint16_t BRLSensorFrame::littleEndianAt(size_t offset) const {
  return static_cast<uint16_t>(octetAt(offset) | octetAt(offset + 1) << 8);
}
int16_t BRLSensorFrame::bigEndianAt(size_t offset) const {
  return static_cast<int16_t>(octetAt(offset) << 8 | octetAt(offset + 1));
}

std::string BRLSensorFrame::temperature() const {
  return hundredthsText(static_cast<int16_t>(littleEndianAt(0)));
}
std::string BRLSensorFrame::humidity() const {
  return hundredthsText(littleEndianAt(2));
}
std::string BRLSensorFrame::uniqueId() const {
  return hexDigits<6, '-'>(&octets_[7]);
}
std::string BRLSensorFrame::xAccel() const {
  return decimalText(bigEndianAt(13));
}
std::string BRLSensorFrame::yAccel() const {
  return decimalText(bigEndianAt(15));
}
std::string BRLSensorFrame::zAccel() const {
  return decimalText(bigEndianAt(17));
}
std::string BRLSensorFrame::tbd() const {
  return hexDigits<3>(&octets_[19]);
}

BRLSensorReadings BRLSensorFrame::readings() const {
  return {.uniqueId = uniqueId(),
          .txPower = txPower(),
          .temperature = temperature(),
          .humidity = humidity(),
          .battery = battery(),
          .emergency = emergency(),
          .tbd = tbd(),
          .xAccel = xAccel(),
          .yAccel = yAccel(),
          .zAccel = zAccel()};
}

std::optional<BRLSensorReadings> BRLSensorReadings::fromFrame(platform::DataView manufacturerData) {
  const auto frame = BRLSensorFrame::of(manufacturerData);
  return frame ? std::optional(frame->readings()) : std::nullopt;
}

platform::Dictionary BRLSensorReadings::dictionary() const {
  platform::Dictionary dictionary;
  BRLForEach(kBRLReadings,
             [&](const auto& reading) { dictionary.emplace(reading.name, valueOf(this->*reading.member)); });
  return dictionary;
}
