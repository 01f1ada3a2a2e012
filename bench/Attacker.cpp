// What an attacker in reach of the radio can send, and what the tool does meanwhile.
//
//   attacker capture KIND RATE SECONDS             so many advertisements a second, as btsnoop on standard
//   output attacker live KIND RATE SECONDS TOOL ARGUMENT…  the same over an H4 socket to the tool, which gets
//   a --source
//     --stalled before KIND: nobody reads what the tool writes
//
// KIND is `new` (each with an address, a service UUID and an identifier of its own), `spoofed` (emergencies
// of one known beacon, each from an address of its own) or a number of beacons that take turns.
//
// Live, each tenth of the time tells what the tool took meanwhile: processor time as a share of one core,
// memory. Then it gets SIGINT, and the time until it has ended is told.

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/bluetooth/capture/BtsnoopWriter.h"
#include "tests/support/H4Server.h"

namespace {

using platform::AdvertisingReport;
using platform::Data;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr uint32_t kFirstUUID = 0xA000;

/// Advertisements of 30 octets: one service UUID of 32 bits, so that there are enough, and a sensor frame.
class Air {
 public:
  explicit Air(std::string_view kind)
      : isNew_(kind == "new"), isSpoofed_(kind == "spoofed"), beacons_(std::atoi(std::string(kind).c_str())) {
    if (!isNew_ && !isSpoofed_ && beacons_ == 0) throw std::runtime_error("KIND: new, spoofed or a number");
    octets_[0] = std::byte{5};
    octets_[1] = std::byte{0x05};
    octets_[6] = std::byte{23};
    octets_[7] = std::byte{0xFF};
    for (std::size_t i = kFrame + 13; i < kFrame + 19; ++i) octets_[i] = std::byte{0x87};  // long texts
    report_.address.isRandom = true;
    report_.rssi = -60;
    report_.data = octets_;
  }
  const AdvertisingReport& next(platform::Date time) {
    const uint32_t number = count_++;
    const uint32_t beacon = isNew_ ? number : isSpoofed_ ? 0 : number % static_cast<uint32_t>(beacons_);
    const uint32_t sender = isSpoofed_ ? number : beacon;
    report_.time = time;
    for (unsigned i = 0; i < 4; ++i) {
      octets_[2 + i] = static_cast<std::byte>((kFirstUUID + beacon) >> 8 * i);
      octets_[kFrame + 7 + i] = static_cast<std::byte>(beacon >> 8 * i);  // the identifier
      report_.address.octets[2 + i] = static_cast<uint8_t>(sender >> 8 * i);
    }
    report_.address.octets[0] = 0xC0;
    const auto temperature = static_cast<uint16_t>(2'000 + number % 500);
    octets_[kFrame] = static_cast<std::byte>(temperature);
    octets_[kFrame + 1] = static_cast<std::byte>(temperature >> 8);
    octets_[kFrame + 2] = std::byte{0x20};
    octets_[kFrame + 3] = std::byte{0x10};
    octets_[kFrame + 5] = std::byte{90};
    octets_[kFrame + 6] = std::byte{isSpoofed_};
    return report_;
  }

 private:
  static constexpr std::size_t kFrame = 8;

  bool isNew_;
  bool isSpoofed_;
  int beacons_;
  uint32_t count_ = 0;
  std::array<std::byte, 30> octets_{};
  AdvertisingReport report_{};
};

int writeCapture(Air& air, int rate, int seconds) {
  const auto writer = platform::BtsnoopWriter::create([](platform::DataView octets) {
    if (std::fwrite(octets.data(), 1, octets.size(), stdout) != octets.size()) std::exit(1);
    return platform::Result<>();
  });
  const platform::Date start = platform::dateWithTimeIntervalSince1970(1'767'225'600);
  for (int64_t i = 0; i < int64_t{rate} * seconds; ++i) {
    (void)writer->write(air.next(start + std::chrono::microseconds(i * 1'000'000 / rate)));
  }
  (void)writer->flush();
  return 0;
}

/// The tool as a process of its own.
class Tool {
 public:
  Tool(std::vector<std::string> arguments, bool isStalled) {
    std::vector<char*> texts;
    for (auto& argument : arguments) texts.push_back(argument.data());
    texts.push_back(nullptr);
    if (::pipe2(pipe_.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    process_ = ::fork();
    if (process_ == 0) {
      ::dup2(isStalled ? pipe_[1] : ::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
      ::execv(texts.front(), texts.data());
      std::perror(texts.front());
      ::_exit(127);
    }
  }
  double processorSeconds() const {
    std::ifstream file("/proc/" + std::to_string(process_) + "/stat");
    std::string text(std::istreambuf_iterator<char>(file), {});
    text.erase(0, text.rfind(')') + 1);
    unsigned long user = 0;
    unsigned long system = 0;
    std::sscanf(text.c_str(), " %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &user, &system);
    return static_cast<double>(user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
  }
  long megabytes() const {
    std::ifstream status("/proc/" + std::to_string(process_) + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("VmRSS:")) return std::stol(line.substr(6)) / 1024;
    }
    return 0;
  }
  /// Seconds from the signal to the end.
  double interrupt() {
    const auto begin = Clock::now();
    ::kill(process_, SIGINT);
    ::wait4(process_, &status_, 0, &usage_);
    return Seconds(Clock::now() - begin).count();
  }
  int status() const { return WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_); }
  long peakMegabytes() const { return usage_.ru_maxrss / 1024; }

 private:
  std::array<int, 2> pipe_{};
  pid_t process_ = -1;
  int status_ = 0;
  rusage usage_{};
};

/// A legacy advertising report as a controller's event.
void appendEvent(Data& to, const AdvertisingReport& report) {
  const auto put = [&](size_t octet) { to.push_back(static_cast<std::byte>(octet)); };
  for (const size_t octet :
       {size_t{0x04}, size_t{0x3E}, report.data.size() + 12, size_t{2}, size_t{1}, size_t{3}, size_t{1}})
    put(octet);
  std::for_each(report.address.octets.rbegin(), report.address.octets.rend(), put);
  put(report.data.size());
  to.insert(to.end(), report.data.begin(), report.data.end());
  put(static_cast<uint8_t>(report.rssi));
}

int flood(Air& air, int rate, int seconds, bool isStalled, std::vector<std::string> arguments) {
  support::H4Server server;
  arguments.insert(arguments.end(), {"--source", server.address()});
  Tool tool(std::move(arguments), isStalled);
  if (!server.waitForScan()) throw std::runtime_error("the tool does not scan");
  const auto begin = Clock::now();
  const Seconds step(seconds / 10.0);
  Seconds told{};
  double processor = 0;
  int64_t sent = 0;
  int64_t sentBefore = 0;
  for (Seconds elapsed{}; elapsed.count() < seconds; elapsed = Clock::now() - begin) {
    Data octets;
    for (const auto due = static_cast<int64_t>(elapsed.count() * rate); sent < due; ++sent) {
      appendEvent(octets, air.next({}));
      if (octets.size() > 60'000) break;
    }
    server.send(octets);
    if (elapsed - told >= step) {
      const double now = tool.processorSeconds();
      const double span = (elapsed - told).count();
      std::printf("%5.0f s  %6.0f advertisements/s  %5.1f %% of a core  %5ld MB\n", elapsed.count(),
                  static_cast<double>(sent - sentBefore) / span, (now - processor) / span * 100,
                  tool.megabytes());
      std::fflush(stdout);
      told = elapsed;
      processor = now;
      sentBefore = sent;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  const double all = tool.processorSeconds();
  std::jthread onwards([&](const std::stop_token& stop) {  // the flood goes on while the tool stops
    while (!stop.stop_requested()) {
      Data octets;
      for (int i = 0; i < rate / 200; ++i) appendEvent(octets, air.next({}));
      if (!server.sendSome(octets)) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  const double taken = tool.interrupt();
  std::printf(
      "%lld advertisements, %.1f %% of a core, %.2f us each; ended %.2f s after SIGINT, status %d; peak %ld "
      "MB\n",
      static_cast<long long>(sent), all / seconds * 100, all * 1e6 / static_cast<double>(sent), taken,
      tool.status(), tool.peakMegabytes());
  return tool.status();
}

int run(std::vector<std::string> arguments) {
  const bool isStalled = arguments.size() > 1 && arguments[1] == "--stalled";
  if (isStalled) arguments.erase(arguments.begin() + 1);
  if (arguments.size() < 4) throw std::runtime_error("usage: see the head of Attacker.cpp");
  Air air(arguments[1]);
  const int rate = std::stoi(arguments[2]);
  const int seconds = std::stoi(arguments[3]);
  if (arguments[0] == "capture") return writeCapture(air, rate, seconds);
  return flood(air, rate, seconds, isStalled, {arguments.begin() + 4, arguments.end()});
}

}  // namespace

int main(int count, char** arguments) {
  try {
    return run({arguments + 1, arguments + count});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "attacker: %s\n", error.what());
    return 2;
  }
}
