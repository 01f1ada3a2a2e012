#include "BrenloftSDK/BRLSensorFrame.h"

#include <array>
#include <charconv>

#include "BrenloftSDK/BRLProperties.h"
#include "platform/foundation/Hex.h"

namespace {

using platform::DataView;

uint8_t octetAt(DataView frame, size_t offset) {
  return std::to_integer<uint8_t>(frame[offset]);
}

uint16_t littleEndianAt(DataView frame, size_t offset) {
  return static_cast<uint16_t>(octetAt(frame, offset) | octetAt(frame, offset + 1) << 8);
}

int16_t bigEndianAt(DataView frame, size_t offset) {
  return static_cast<int16_t>(octetAt(frame, offset) << 8 | octetAt(frame, offset + 1));
}

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
std::string hexDigits(DataView frame, size_t offset) {
  constexpr size_t kStep = Separator == 0 ? 2 : 3;
  std::array<char, Octets * kStep> digits;
  for (size_t i = 0; i < Octets; ++i) {
    const uint8_t octet = octetAt(frame, offset + i);
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

std::optional<BRLSensorReadings> BRLSensorReadings::fromFrame(DataView manufacturerData) {
  if (manufacturerData.size() < kBRLSensorFrameLength) return std::nullopt;
  const DataView frame = manufacturerData.first(kBRLSensorFrameLength);
  return BRLSensorReadings{
      .uniqueId = hexDigits<6, '-'>(frame, 7),
      .txPower = octetAt(frame, 4),
      .temperature = hundredthsText(static_cast<int16_t>(littleEndianAt(frame, 0))),
      .humidity = hundredthsText(littleEndianAt(frame, 2)),
      .battery = octetAt(frame, 5),
      .emergency = octetAt(frame, 6),
      .tbd = hexDigits<3>(frame, 19),
      .xAccel = decimalText(bigEndianAt(frame, 13)),
      .yAccel = decimalText(bigEndianAt(frame, 15)),
      .zAccel = decimalText(bigEndianAt(frame, 17)),
  };
}

platform::Dictionary BRLSensorReadings::dictionary() const {
  platform::Dictionary dictionary;
  BRLForEach(kBRLReadings,
             [&](const auto& reading) { dictionary.emplace(reading.name, valueOf(this->*reading.member)); });
  return dictionary;
}
