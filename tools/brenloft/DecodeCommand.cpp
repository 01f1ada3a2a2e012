#include <cerrno>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>
#include <system_error>

#include <fmt/format.h>
#include <unistd.h>

#include "platform/foundation/Hex.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/Readings.h"

namespace brenloft {
namespace {

constexpr const char* kRow = "{:<17}  {:>7}  {:>6}  {:>3}  {:>3}  {:>3}  {:>6}  {:>6}  {:>6}  {}\n";

class Decoder {
 public:
  Decoder(const DecodeOptions& options, Output& out) : format_(options.format), out_(out) {
    if (format_ == Format::table)
      out_.write(fmt::format(fmt::runtime(kRow), "uniqueId", "temp", "humid", "tx", "bat", "emg", "xAccel",
                             "yAccel", "zAccel", "tbd"));
  }

  /// `place` names the frame when it is no hexadecimal text.
  void decode(const std::string& hex, const std::string& place) {
    const auto octets = platform::octetsFromHex(hex);
    if (!octets) throw Failure(ExitStatus::failed, fmt::format("{}: {}", place, faultOf(hex)));
    const auto readings = BRLSensorReadings::fromFrame(*octets);
    if (format_ == Format::table)
      out_.write(readings ? row(*readings) : tooShort(octets->size()));
    else
      writeLine(readings);
  }

 private:
  static std::string faultOf(const std::string& hex) {
    for (std::size_t i = 0; i < hex.size(); ++i)
      if (platform::hexDigitValue(hex[i]) < 0)
        return fmt::format("character {} is no hexadecimal digit", i + 1);
    return "an odd number of hexadecimal digits";
  }

  static std::string row(const BRLSensorReadings& r) {
    const auto orDash = [](const std::string& text) { return text.empty() ? std::string("-") : text; };
    return fmt::format(fmt::runtime(kRow), r.uniqueId, orDash(r.temperature), orDash(r.humidity), r.txPower,
                       r.battery, r.emergency, r.xAccel, r.yAccel, r.zAccel, r.tbd);
  }

  static std::string tooShort(std::size_t length) {
    return fmt::format("(too short: {} of {} octets)\n", length, kBRLSensorFrameLength);
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
