#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/bluetooth/hci/FileDescriptor.h"
#include "platform/bluetooth/hci/H4Decoder.h"
#include "tests/support/ControllerModel.h"

namespace support {

/// A controller that speaks H4 on a local socket of its own, to one host after the other, or on the
/// controller's end of a line. Threads: any.
class H4Server {
 public:
  H4Server() {
    std::signal(SIGPIPE, SIG_IGN);  // a host that has gone is no reason to end
    static std::atomic<int> count = 0;
    path_ = std::filesystem::temp_directory_path() /
            ("h4-" + std::to_string(::getpid()) + "-" + std::to_string(++count));
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    path_.copy(name.sun_path, sizeof name.sun_path - 1);
    listener_ = hci::FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ::unlink(path_.c_str());
    if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 ||
        ::listen(listener_.get(), 5) != 0) {
      throw std::runtime_error("no server socket at " + path_);
    }
    thread_ = std::thread([this] { run(); });
  }
  /// Takes the descriptor over; when it ends there is no other.
  explicit H4Server(int line) {
    thread_ = std::thread([this, line] { serve(line); });
  }
  ~H4Server() {
    {
      const std::lock_guard lock(mutex_);
      isStopping_ = true;
    }
    thread_.join();
    if (!path_.empty()) ::unlink(path_.c_str());
  }
  H4Server(const H4Server&) = delete;
  H4Server& operator=(const H4Server&) = delete;

  std::string address() const { return "h4:unix:" + path_; }
  /// False when the host did not come to scan within a minute.
  bool waitForScan() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [this] { return line_ && model_.scan().has_value(); });
  }
  bool waitForHost() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [this] { return line_ != nullptr; });
  }
  /// Until the host has gone.
  bool waitForEnd() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [this] { return hasEnded_; });
  }
  bool isScanning() {
    const std::lock_guard lock(mutex_);
    return model_.scan().has_value();
  }
  /// All of the octets, waiting for the host to take them.
  void send(DataView octets) {
    const auto line = this->line();
    while (line && !octets.empty()) {
      const ssize_t count = ::write(line->get(), octets.data(), octets.size());
      if (count <= 0) return;
      octets = octets.subspan(static_cast<std::size_t>(count));
    }
  }
  /// False when the host takes none for a while, or is not there.
  bool sendSome(DataView octets) {
    const auto line = this->line();
    while (line && !octets.empty()) {
      pollfd polled{line->get(), POLLOUT, 0};
      if (::poll(&polled, 1, 500) <= 0) return false;
      const ssize_t count = ::send(polled.fd, octets.data(), octets.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
      if (count <= 0) return false;
      octets = octets.subspan(static_cast<std::size_t>(count));
    }
    return line != nullptr;
  }
  /// Ends the present connection.
  void drop() {
    const std::lock_guard lock(mutex_);
    model_.reset();
    line_.reset();
  }

 private:
  static constexpr auto kPatience = std::chrono::minutes(1);
  static constexpr int kStopCheck = 20;  // ms

  void run() {
    while (true) {
      pollfd polled{listener_.get(), POLLIN, 0};
      if (::poll(&polled, 1, kStopCheck) > 0) serve(::accept(listener_.get(), nullptr, nullptr));
      const std::lock_guard lock(mutex_);
      if (isStopping_) return;
    }
  }
  void serve(int descriptor) {
    const auto line = std::make_shared<hci::FileDescriptor>(descriptor);
    {
      const std::lock_guard lock(mutex_);
      line_ = line;
      hasEnded_ = false;
    }
    hci::H4Decoder decoder;
    std::array<std::byte, 4096> buffer{};
    while (true) {
      pollfd polled{descriptor, POLLIN, 0};
      const int rc = ::poll(&polled, 1, kStopCheck);
      std::unique_lock lock(mutex_);
      if (isStopping_ || !line_) break;
      if (rc <= 0) continue;
      const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
      if (count <= 0) break;
      decoder.feed(DataView(buffer).first(static_cast<std::size_t>(count)), [&](DataView command) {
        const Data answer = model_.answer(command);
        (void)!::write(descriptor, answer.data(), answer.size());
      });
      changed_.notify_all();
    }
    const std::lock_guard lock(mutex_);
    ::shutdown(descriptor, SHUT_RDWR);
    line_.reset();
    hasEnded_ = true;
    changed_.notify_all();
  }
  /// Kept open by whoever sends on it.
  std::shared_ptr<hci::FileDescriptor> line() {
    const std::lock_guard lock(mutex_);
    return line_;
  }

  ControllerModel model_{{}};  ///< guarded by mutex_
  std::string path_;
  hci::FileDescriptor listener_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::shared_ptr<hci::FileDescriptor> line_;  ///< guarded by mutex_
  bool isStopping_ = false;                    ///< guarded by mutex_
  bool hasEnded_ = false;                      ///< guarded by mutex_
  std::thread thread_;
};

}  // namespace support
