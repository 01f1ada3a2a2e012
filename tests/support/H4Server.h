#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/bluetooth/hci/FileDescriptor.h"
#include "platform/bluetooth/hci/H4Decoder.h"
#include "tests/support/ControllerModel.h"

namespace support {

/// A controller that speaks H4 on a local socket of its own, to one host after the other, or on the
/// controller's end of a line. Threads: any.
class H4Server {
 public:
  H4Server();
  /// Takes the descriptor over; when it ends there is no other.
  explicit H4Server(int line);
  ~H4Server();
  H4Server(const H4Server&) = delete;
  H4Server& operator=(const H4Server&) = delete;

  std::string address() const { return "h4:unix:" + path_; }
  /// False when the host did not come to scan within a minute.
  bool waitForScan();
  /// Until the host has gone.
  bool waitForEnd();
  bool isScanning();
  /// All of the octets, waiting for the host to take them.
  void send(platform::DataView octets);
  /// False when the host takes none for a while, or is not there.
  bool sendSome(platform::DataView octets);
  /// Ends the present connection.
  void drop();

 private:
  void run();
  void serve(int descriptor);
  /// Kept open by whoever sends on it.
  std::shared_ptr<platform::hci::FileDescriptor> line();

  ControllerModel model_{{}};  ///< guarded by mutex_
  std::string path_;
  platform::hci::FileDescriptor listener_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::shared_ptr<platform::hci::FileDescriptor> line_;  ///< guarded by mutex_
  bool isStopping_ = false;                              ///< guarded by mutex_
  bool hasEnded_ = false;                                ///< guarded by mutex_
  std::thread thread_;
};

}  // namespace support
