#include "tests/support/H4Server.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/bluetooth/hci/HCIPackets.h"

namespace support {

using namespace platform;

namespace {

constexpr auto kPatience = std::chrono::minutes(1);
constexpr int kStopCheck = 20;  // ms

}  // namespace

H4Server::H4Server() {
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

H4Server::H4Server(int line) {
  thread_ = std::thread([this, line] { serve(line); });
}

H4Server::~H4Server() {
  {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
  }
  thread_.join();
  if (!path_.empty()) ::unlink(path_.c_str());
}

void H4Server::run() {
  while (true) {
    pollfd polled{listener_.get(), POLLIN, 0};
    if (::poll(&polled, 1, kStopCheck) > 0) serve(::accept(listener_.get(), nullptr, nullptr));
    const std::lock_guard lock(mutex_);
    if (isStopping_) return;
  }
}

void H4Server::serve(int descriptor) {
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

bool H4Server::waitForScan() {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kPatience, [this] { return line_ && model_.scan().has_value(); });
}

bool H4Server::waitForEnd() {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kPatience, [this] { return hasEnded_; });
}

bool H4Server::isScanning() {
  const std::lock_guard lock(mutex_);
  return model_.scan().has_value();
}

std::shared_ptr<hci::FileDescriptor> H4Server::line() {
  const std::lock_guard lock(mutex_);
  return line_;
}

void H4Server::send(DataView octets) {
  const auto line = this->line();
  while (line && !octets.empty()) {
    const ssize_t count = ::write(line->get(), octets.data(), octets.size());
    if (count <= 0) return;
    octets = octets.subspan(static_cast<std::size_t>(count));
  }
}

bool H4Server::sendSome(DataView octets) {
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

void H4Server::drop() {
  const std::lock_guard lock(mutex_);
  model_.reset();
  line_.reset();
}

}  // namespace support
