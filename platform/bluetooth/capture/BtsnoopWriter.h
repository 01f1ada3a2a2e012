#pragma once

#include <functional>
#include <memory>
#include <stop_token>
#include <string>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/foundation/Error.h"

namespace platform {

/// Writes advertising reports as a btsnoop file of HCI events (data link 1002), so that reading it gives the
/// same reports. Legacy kinds with data of up to 31 octets become LE Advertising Reports, others LE Extended
/// Advertising Reports, in fragments where one event cannot hold them. Data is cut at 1,650 octets, the most
/// that an advertisement can have.
///
/// The states of the radio stand between them (RadioStateEvent.h).
///
/// Octets are kept back until there are many, until a report is a second younger than those, until a state,
/// or until `flush`. Threads: one at a time.
class BtsnoopWriter {
 public:
  /// Takes octets.
  using Sink = std::function<Result<>(DataView octets)>;

  /// Begins the file anew; fails, or gives none, as `FileSink::open` does.
  static Result<std::unique_ptr<BtsnoopWriter>> create(const std::string& path, std::stop_token stop = {});
  static std::unique_ptr<BtsnoopWriter> create(Sink sink);
  virtual ~BtsnoopWriter() = default;

  /// Fails once; from then on nothing is written.
  virtual Result<> write(const AdvertisingReport& report) = 0;
  virtual Result<> write(Date time, const RadioState& state) = 0;
  /// Hands everything to the file; returns as `write` does. The destructor does the same without a word.
  virtual Result<> flush() = 0;
};

}  // namespace platform
