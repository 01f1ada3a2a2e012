#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "platform/bluetooth/AdvertisingReport.h"
#include "platform/bluetooth/capture/ByteSource.h"
#include "platform/foundation/Error.h"

namespace platform {

/// What is wrong with a record of a capture.
struct CaptureDiagnostic {
  std::string file;
  uint64_t record = 0;  ///< from 1
  std::string text;

  /// "FILE: record N: what is wrong"
  std::string line() const;
};

/// Reads the advertising reports of a capture: btsnoop (data links 1001, 1002, 2001), pcap and pcapng (link
/// types 187, 201, 251, 254, 256, 272). The kind of file is found in its first octets. The file is read as a
/// stream; memory does not depend on its size or on what it announces.
///
/// A record whose fault leaves the next one findable is skipped, another one ends the reading. Each gives one
/// diagnostic, as far as they are few; the end tells how many more there were. Nothing before is lost.
///
/// Threads: one at a time.
class CaptureReader {
 public:
  enum class Next {
    record,   ///< a record that has to do with advertising
    state,    ///< a state of the radio that the capture was recorded from
    skipped,  ///< another record, or a faulty one
    end,
  };
  using DiagnosticHandler = std::function<void(const CaptureDiagnostic&)>;
  using ReportHandler = std::function<void(const AdvertisingReport&)>;

  /// Fails, with a text that names the file, when it is no capture that can be read. A pipe is waited for
  /// until `stop` is requested, here and by `next`: then the capture ends with the last whole record that
  /// came.
  static Result<std::unique_ptr<CaptureReader>> open(const std::string& path, DiagnosticHandler onDiagnostic,
                                                     std::stop_token stop = {});
  /// The same from anywhere; `name` stands for the file in what is said.
  static Result<std::unique_ptr<CaptureReader>> open(std::unique_ptr<ByteSource> source,
                                                     const std::string& name, DiagnosticHandler onDiagnostic);
  ~CaptureReader();

  /// Moves to the next record.
  Next next();
  /// Hands on the reports of the record that `next` moved to, once. Their data is lent for the call.
  void read(const ReportHandler& handler);

  /// The state that `next` moved to.
  const RadioState& radioState() const;

  /// Of the record that `next` moved to, from 1.
  uint64_t record() const;
  /// When that record was captured; that of the record before where it has none.
  Date time() const;

  /// Octets read so far, and in all when that is known.
  uint64_t position() const;
  std::optional<uint64_t> size() const;

 private:
  struct State;
  explicit CaptureReader(std::unique_ptr<State> state);

  std::unique_ptr<State> state_;
};

}  // namespace platform
