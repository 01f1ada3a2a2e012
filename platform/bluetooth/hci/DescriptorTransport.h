#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "platform/bluetooth/hci/FileDescriptor.h"
#include "platform/bluetooth/hci/HCITransport.h"
#include "platform/bluetooth/hci/ReadPause.h"

namespace platform::hci {

/// A transport over anything that can be polled, read and written. It has one thread, which opens the line,
/// reads it and writes it.
class DescriptorTransport : public HCITransport {
 public:
  /// How often a line is asked whether it is still good.
  static constexpr std::chrono::milliseconds kCheckInterval{1000};

  struct Line {
    FileDescriptor descriptor;  ///< non-blocking
    Opened opened;
    bool keepsPackets = false;  ///< one read is one packet
    /// For what no read would tell: asked in silence, and when the line broke, with how it did. Returns why
    /// the line is good no more, or nothing. Empty when the line itself tells all.
    std::function<std::optional<Error>(std::optional<Error> broken)> check;
  };
  using Opener = std::function<Result<Line>()>;

  /// `open` is called on the transport's thread.
  explicit DescriptorTransport(Opener opener);
  ~DescriptorTransport() override;

  void open(Handlers handlers) override;
  void send(Data packet) override;
  void consumed() override;
  void close() override;

 private:
  void stop();
  void run();
  std::optional<Error> serve();
  std::optional<Error> readOnce();
  std::optional<Error> readPackets();
  std::optional<Error> readStream();
  std::optional<Error> writeWaiting();
  int longestWait() const;
  bool mayRead();
  bool hasToWrite();
  bool isStopping();
  void deliver(Data octets);
  void wake();

  Opener opener_;
  Handlers handlers_;
  Line line_;
  // Of the thread:
  Data buffer_;
  ReadPause pause_;
  FileDescriptor wakeUp_;
  std::thread thread_;

  std::mutex mutex_;
  std::deque<Data> outgoing_;  ///< guarded by mutex_
  int chunksUnderway_ = 0;     ///< guarded by mutex_
  bool isStopping_ = false;    ///< guarded by mutex_
};

/// What an error number says about a line named `what`.
Error errorOf(int error, const std::string& what);

}  // namespace platform::hci
