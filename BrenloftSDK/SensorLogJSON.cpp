#include "BrenloftSDK/SensorLogJSON.h"

#include <charconv>
#include <cstdint>
#include <utility>

#include "platform/foundation/Date.h"

namespace {

constexpr std::size_t kPieceSize = std::size_t{64} * 1024;
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

template <typename Integer>
void appendInteger(std::string& out, Integer value) {
  std::array<char, 20> digits{};
  const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value);
  out.append(digits.data(), result.ptr);
}

void appendEscape(std::string& out, unsigned char c) {
  constexpr std::string_view hex = "0123456789abcdef";
  if (c == '"' || c == '\\')
    out += {'\\', static_cast<char>(c)};
  else if (c == '\n')
    out += "\\n";
  else if (c == '\r')
    out += "\\r";
  else if (c == '\t')
    out += "\\t";
  else
    out += {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 15]};
}

// The length of the well-formed UTF-8 sequence at the start of a text (Unicode, table 3-7), 0 for none.
std::size_t sequenceLength(std::string_view text) {
  const auto at = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  const auto continues = [&](std::size_t i) { return (at(i) & 0xC0U) == 0x80U; };
  const unsigned lead = at(0);
  const unsigned second = at(1);
  if (lead >= 0xC2 && lead <= 0xDF) return continues(1) ? 2 : 0;
  if (lead >= 0xE0 && lead <= 0xEF) {
    const unsigned low = lead == 0xE0 ? 0xA0 : 0x80;
    const unsigned high = lead == 0xED ? 0x9F : 0xBF;
    return second >= low && second <= high && continues(2) ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    const unsigned low = lead == 0xF0 ? 0x90 : 0x80;
    const unsigned high = lead == 0xF4 ? 0x8F : 0xBF;
    return second >= low && second <= high && continues(2) && continues(3) ? 4 : 0;
  }
  return 0;
}

constexpr std::array<bool, 256> plainOctets() {
  std::array<bool, 256> plain{};
  for (std::size_t octet = 0x20; octet < 0x80; ++octet) plain[octet] = octet != '"' && octet != '\\';
  return plain;
}
constexpr auto kPlain = plainOctets();

// How much of a text stands for itself in a JSON string.
std::size_t plainLength(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && kPlain[static_cast<unsigned char>(text[length])]) ++length;
  return length;
}

}  // namespace

void appendJSONString(std::string& out, std::string_view text) {
  out += '"';
  while (!text.empty()) {
    const std::size_t plain = plainLength(text);
    out.append(text.data(), plain);
    text.remove_prefix(plain);
    if (text.empty()) break;
    std::size_t length = 1;
    if (const auto octet = static_cast<unsigned char>(text.front()); octet < 0x80) {
      appendEscape(out, octet);
    } else if (const auto sequence = sequenceLength(text); sequence != 0) {
      length = sequence;
      out.append(text.data(), length);
    } else {
      out += kReplacement;
    }
    text.remove_prefix(length);
  }
  out += '"';
}

SensorLogJSON::SensorLogJSON(const platform::NSEntityDescription& entity, Sink sink)
    : columns_(entity), dates_("yyyyMMddHHmmss"), sink_(std::move(sink)) {
  for (std::size_t i = 0; i < keys_.size(); ++i) {
    keys_[i] = (i == 0 ? "\n    \"" : ",\n    \"") + std::string(kSensorLogMembers[i].name) + "\": ";
  }
}

void SensorLogJSON::add(const platform::StoredRow& row) {
  text_ += empty_ ? "[\n  {" : ",\n  {";
  empty_ = false;
  const std::size_t present = columns_.presentMembers(row);
  for (std::size_t i = 0; i < present; ++i) {
    text_ += keys_[i];
    addValue(kSensorLogMembers[i].kind, columns_.valueAt(row, i));
  }
  text_ += present == 0 ? "}" : "\n  }";
  if (text_.size() < kPieceSize) return;
  sink_(text_);
  text_.clear();
}

void SensorLogJSON::addValue(BRLKind kind, const platform::StoredView& value) {
  switch (kind) {
    case BRLKind::integer:
      return appendInteger(text_, std::get<int64_t>(value));
    case BRLKind::unsignedInteger:
      return appendInteger(text_, static_cast<uint64_t>(std::get<int64_t>(value)));
    case BRLKind::text:
      return appendJSONString(text_, std::get<std::string_view>(value));
    case BRLKind::date:
      text_ += '"';
      dates_.appendDate(platform::dateWithTimeIntervalSince1970(std::get<double>(value)), text_);
      text_ += '"';
  }
}

void SensorLogJSON::finish() {
  text_ += empty_ ? "[]" : "\n]";
  sink_(text_);
  text_.clear();
}
