#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "platform/bluetooth/capture/StopDescriptor.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Error.h"

namespace platform {

/// A file that is begun anew, a pipe or a device, written in place. A pipe is waited for until `stop` is
/// requested, and a second longer while it has a reader; that may be done on any thread.
///
/// Threads: one at a time.
class FileSink {
 public:
  /// Fails also when it is a terminal; gives none when it is a pipe that nobody reads before the stop. The
  /// text of an error, here and below, names the file.
  static Result<std::unique_ptr<FileSink>> open(const std::string& path, std::stop_token stop);
  ~FileSink();
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;

  /// Fails when not everything was written.
  Result<> write(DataView octets);

 private:
  FileSink(std::string path, std::stop_token stop) : path_(std::move(path)), stop_(std::move(stop)) {}
  void openToWrite();
  bool awaitReader() const;
  Error failure(int errorNumber) const;
  Error failure(Error::Kind kind, const std::string& reason) const;

  const std::string path_;
  const StopDescriptor stop_;
  int descriptor_ = -1;
};

}  // namespace platform
