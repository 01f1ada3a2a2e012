#include "platform/bluetooth/hci/DescriptorTransport.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/bluetooth/hci/HCIPackets.h"
#include "platform/foundation/ErrorNumber.h"

namespace platform::hci {
namespace {

constexpr std::size_t kChunk = 65536;
constexpr std::size_t kLargestPacket = 4096;
// However much waits, one read of a serial line gives no more.
constexpr ssize_t kMostOfATerminal = 4095;
// Two, so that one is read while the other is dealt with.
constexpr int kMostChunksUnderway = 2;

bool isTransient(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

/// Never raises SIGPIPE, which would end an application that does not expect it.
ssize_t writeQuietly(int descriptor, DataView octets) {
  const ssize_t count = ::send(descriptor, octets.data(), octets.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (count >= 0 || errno != ENOTSOCK) return count;
  return ::write(descriptor, octets.data(), octets.size());
}

Error::Kind kindOf(int error) {
  switch (error) {
    case ENETDOWN:
    case ERFKILL:
      return Error::Kind::off;
    case ENODEV:
    case ENXIO:
    case ECONNREFUSED:
      return Error::Kind::absent;
    case EAFNOSUPPORT:
    case EPROTONOSUPPORT:
    case ENOTTY:  // the rest: what was named is no line at all
    case ENOTSOCK:
    case EPROTOTYPE:
    case ENAMETOOLONG:
      return Error::Kind::unsupported;
    default:
      return kindOfErrorNumber(error);
  }
}

}  // namespace

void FileDescriptor::reset() {
  if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
}

Error errorOf(int error, const std::string& what) {
  return {kindOf(error), what + ": " + std::generic_category().message(error)};
}

DescriptorTransport::DescriptorTransport(Opener opener)
    : opener_(std::move(opener)), buffer_(kChunk), wakeUp_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

DescriptorTransport::~DescriptorTransport() {
  stop();
}

void DescriptorTransport::open(Handlers handlers) {
  handlers_ = std::move(handlers);
  thread_ = std::thread([this] { run(); });
}

void DescriptorTransport::send(Data packet) {
  {
    const std::lock_guard lock(mutex_);
    outgoing_.push_back(std::move(packet));
  }
  wake();
}

void DescriptorTransport::consumed() {
  bool wasFull = false;
  {
    const std::lock_guard lock(mutex_);
    wasFull = chunksUnderway_-- == kMostChunksUnderway;
  }
  if (wasFull) wake();
}

void DescriptorTransport::close() {
  stop();
}

void DescriptorTransport::stop() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
  }
  wake();
  thread_.join();
}

void DescriptorTransport::wake() {
  const uint64_t one = 1;
  (void)!::write(wakeUp_.get(), &one, sizeof one);  // fails only when it is readable already
}

void DescriptorTransport::run() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);  // signals are the application's threads' business
  auto opened = opener_();
  std::optional<Error> closed;
  if (opened) {
    line_ = *std::move(opened);
    handlers_.onOpened(line_.opened);
    closed = serve();
    line_.descriptor.reset();
  } else {
    closed = opened.error();
  }
  if (closed) handlers_.onClosed(*closed);
}

/// Until the line breaks, which it returns, or `close` is called.
std::optional<Error> DescriptorTransport::serve() {
  while (true) {
    const bool mayReadNow = mayRead() && !pause_.isPaused();
    const auto wanted = static_cast<short>((mayReadNow ? POLLIN : 0) | (hasToWrite() ? POLLOUT : 0));
    std::array<pollfd, 2> polled{
        {{wanted != 0 ? line_.descriptor.get() : -1, wanted, 0}, {wakeUp_.get(), POLLIN, 0}}};
    const bool wasTimed = pause_.isTimed();
    const int rc = ::poll(polled.data(), polled.size(), longestWait());
    if (rc < 0 && errno != EINTR) return errorOf(errno, line_.opened.description);
    if (rc == 0 && wasTimed) pause_.timedOut();
    if (polled[1].revents != 0) {
      uint64_t count = 0;
      (void)!::read(wakeUp_.get(), &count, sizeof count);
    }
    const bool isLast = isStopping();  // asked first: what was sent before `close` is then waiting by now
    auto closed = writeWaiting();
    if (isLast) return std::nullopt;
    if (!closed && (polled[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0 && mayRead()) closed = readOnce();
    if (line_.check && (closed || (rc == 0 && !wasTimed))) closed = line_.check(std::move(closed));
    if (closed) return closed;
  }
}

int DescriptorTransport::longestWait() const {
  if (pause_.isTimed()) return static_cast<int>(ReadPause::kLength.count());
  return line_.check ? static_cast<int>(kCheckInterval.count()) : -1;
}

bool DescriptorTransport::mayRead() {
  const std::lock_guard lock(mutex_);
  return chunksUnderway_ < kMostChunksUnderway;
}

bool DescriptorTransport::isStopping() {
  const std::lock_guard lock(mutex_);
  return isStopping_;
}

bool DescriptorTransport::hasToWrite() {
  const std::lock_guard lock(mutex_);
  return !outgoing_.empty();
}

std::optional<Error> DescriptorTransport::readOnce() {
  return line_.keepsPackets ? readPackets() : readStream();
}

std::optional<Error> DescriptorTransport::readStream() {
  const ssize_t count = ::read(line_.descriptor.get(), buffer_.data(), buffer_.size());
  if (count > 0) {
    pause_.wasRead(count >= kMostOfATerminal);
    deliver(toData(DataView(buffer_).first(static_cast<std::size_t>(count))));
    return std::nullopt;
  }
  if (count == 0)
    return Error{Error::Kind::failed, line_.opened.description + ": the other side closed the line"};
  if (isTransient(errno)) return std::nullopt;
  return errorOf(errno, line_.opened.description);
}

/// Collects the packets that are there; a packet whose length is wrong would upset those behind it.
std::optional<Error> DescriptorTransport::readPackets() {
  Data collected;
  std::optional<Error> closed;
  while (collected.size() + kLargestPacket <= kChunk) {
    const ssize_t count = ::read(line_.descriptor.get(), buffer_.data(), kLargestPacket);
    if (count <= 0) {
      if (count == 0) closed = Error{Error::Kind::failed, line_.opened.description + ": end of stream"};
      if (count < 0 && !isTransient(errno)) closed = errorOf(errno, line_.opened.description);
      break;
    }
    const auto packet = DataView(buffer_).first(static_cast<std::size_t>(count));
    if (packetSize(packet) == packet.size()) {
      collected.insert(collected.end(), packet.begin(), packet.end());
    } else {
      handlers_.onFault("a packet of " + std::to_string(count) + " octets that says another length");
    }
  }
  if (!collected.empty()) {
    pause_.wasRead(collected.size() + kLargestPacket > kChunk);
    deliver(std::move(collected));
  }
  return closed;
}

void DescriptorTransport::deliver(Data octets) {
  {
    const std::lock_guard lock(mutex_);
    ++chunksUnderway_;
  }
  handlers_.onOctets(std::move(octets));
}

std::optional<Error> DescriptorTransport::writeWaiting() {
  while (true) {
    Data packet;
    {
      const std::lock_guard lock(mutex_);
      if (outgoing_.empty()) return std::nullopt;
      packet = std::move(outgoing_.front());
      outgoing_.pop_front();
    }
    pause_.wasWritten();
    const ssize_t count = writeQuietly(line_.descriptor.get(), packet);
    if (count < 0 && !isTransient(errno)) return errorOf(errno, line_.opened.description);
    const std::size_t done = count < 0 ? 0 : static_cast<std::size_t>(count);
    if (done == packet.size()) continue;
    packet.erase(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(done));
    const std::lock_guard lock(mutex_);
    outgoing_.push_front(std::move(packet));
    return std::nullopt;
  }
}

}  // namespace platform::hci
