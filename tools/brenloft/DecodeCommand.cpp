#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include <fmt/format.h>
#include <unistd.h>

#include "platform/foundation/Error.h"
#include "platform/foundation/Hex.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/Readings.h"

namespace brenloft {
namespace {

constexpr const char* kRow = "{:<17}  {:>7}  {:>6}  {:>3}  {:>3}  {:>3}  {:>6}  {:>6}  {:>6}  {}\n";

// The octets of a frame as people write them: in pairs of digits, between which blanks, colons and hyphens
// may stand, and `0x` before any of them.
class HexText {
 public:
  explicit HexText(std::string_view text) : text_(text) {}

  platform::Result<platform::Data> octets() {
    platform::Data octets;
    while (skipToOctet()) {
      const int high = digit();
      const int low = digit();
      if (high < 0 || low < 0) return platform::Error{.text = faultAtPosition()};
      octets.push_back(static_cast<std::byte>(high << 4 | low));
    }
    return octets;
  }

 private:
  // False at the end.
  bool skipToOctet() {
    constexpr std::string_view kSeparators = " \t:-";
    position_ = std::min(text_.find_first_not_of(kSeparators, position_), text_.size());
    if (text_.substr(position_, 2) == "0x" || text_.substr(position_, 2) == "0X") position_ += 2;
    return position_ < text_.size();
  }

  // -1, and the position stays, where none stands.
  int digit() {
    const int value = position_ < text_.size() ? platform::hexDigitValue(text_[position_]) : -1;
    if (value >= 0) ++position_;
    return value;
  }

  std::string faultAtPosition() const {
    if (position_ == text_.size()) return "an odd number of hexadecimal digits";
    return fmt::format("character {} is not a hexadecimal digit", position_ + 1);
  }

  std::string_view text_;
  std::size_t position_ = 0;
};

class Decoder {
 public:
  Decoder(const DecodeOptions& options, Output& out) : format_(options.format), out_(out) {
    if (format_ == Format::table)
      out_.write(fmt::format(fmt::runtime(kRow), "uniqueId", "temp", "humid", "tx", "bat", "emg", "xAccel",
                             "yAccel", "zAccel", "tbd"));
    else if (format_ == Format::csv)
      out_.write(fmt::format("{}\n", readingsNames()));
  }

  /// `place` names the frame when it is no hexadecimal text.
  void decode(const std::string& hex, const std::string& place) {
    const auto octets = HexText(hex).octets();
    if (!octets) throw Failure(ExitStatus::failed, octets.error().in(place).text);
    const auto readings = BRLSensorReadings::fromFrame(*octets);
    switch (format_) {
      case Format::table:
        return out_.write(readings ? row(*readings) : tooShort(octets->size()));
      case Format::csv:
        return writeFields(readings);
      case Format::jsonl:
        return writeLine(readings);
    }
  }

 private:
  static std::string row(const BRLSensorReadings& r) {
    const auto orDash = [](const std::string& text) { return text.empty() ? std::string("-") : text; };
    return fmt::format(fmt::runtime(kRow), r.uniqueId, orDash(r.temperature), orDash(r.humidity), r.txPower,
                       r.battery, r.emergency, r.xAccel, r.yAccel, r.zAccel, r.tbd);
  }

  static std::string tooShort(std::size_t length) {
    return fmt::format("(too short: {} of {} octets)\n", length, kBRLSensorFrameLength);
  }

  void writeFields(const std::optional<BRLSensorReadings>& readings) {
    std::string fields;
    appendReadings(fields, readings);
    out_.write(fields += '\n');
  }

  void writeLine(const std::optional<BRLSensorReadings>& readings) {
    writeReadings(line_, readings);
    out_.write(line_.take());
  }

  Format format_;
  Output& out_;
  JsonLine line_;
};

void decodeInput(Decoder& decoder, const Output& out) {
  // Every line went out already, so nothing is lost by ending at once.
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, [](int) { ::_exit(0); });
  std::string line;
  for (uint64_t number = 1; !out.isClosed() && std::getline(std::cin, line); ++number) {
    if (line.ends_with('\r')) line.pop_back();
    decoder.decode(line, fmt::format("standard input: line {}", number));
  }
  if (out.isClosed() || std::ferror(stdin) == 0) return;
  throw Failure(ExitStatus::failed, "standard input: " + std::generic_category().message(errno));
}

}  // namespace

ExitStatus runDecode(const DecodeOptions& options) {
  Output out(Output::Buffering::lines);
  Decoder decoder(options, out);
  if (options.frames.empty()) decodeInput(decoder, out);
  for (std::size_t i = 0; i < options.frames.size(); ++i)
    decoder.decode(options.frames[i], fmt::format("argument {}", i + 1));
  out.finish();
  return ExitStatus::done;
}

}  // namespace brenloft
