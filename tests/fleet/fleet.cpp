// Plays a fleet of gateways against a broker, for tests and for whoever plans a site.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <random>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sys/resource.h>

#include "tests/fleet/SimulatedGateway.h"

namespace {

using namespace brenloft;
using namespace brenloft::fleet;
using std::chrono::steady_clock;

std::atomic<bool> isStopped{false};

struct Options {
  std::string host = "localhost";
  int port = 1883;
  int gateways = 100;
  int first = 0;
  int beacons = 2;
  double period = 1;
  double batch = 1;
  double seconds = 60;
  uint32_t seed = 1;
  bool hasStates = false;
  int connecting = 500;
};

Options optionsFrom(int argc, char** argv) {
  Options options;
  CLI::App app("Play a fleet of gateways against an MQTT broker");
  app.add_option("--host", options.host, "the broker");
  app.add_option("--port", options.port, "its port");
  app.add_option("--gateways", options.gateways, "how many; each is a connection");
  app.add_option("--first", options.first, "number of the first; other fleets play those before it");
  app.add_option("--beacons", options.beacons, "that each gateway hears");
  app.add_option("--period", options.period, "seconds between two readings of a beacon");
  app.add_option("--batch", options.batch, "seconds that a batch collects");
  app.add_option("--seconds", options.seconds, "how long they hear; then what waits is sent");
  app.add_option("--seed", options.seed, "other histories");
  app.add_option("--connecting", options.connecting, "that connect for the first time in a second");
  app.add_flag("--states", options.hasStates, "publish each reading as a state, too");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    std::exit(app.exit(error) == 0 ? 0 : 2);
  }
  return options;
}

std::chrono::nanoseconds durationOf(double seconds) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
}

GatewayPlan planOf(const Options& options, int index) {
  return {.name = fmt::format("gw{:05}", index),
          .store = fmt::format("{:08x}-0000-4000-8000-{:012x}", options.seed, index),
          .beacons = options.beacons,
          .period = durationOf(options.period),
          .batch = durationOf(options.batch),
          .hasStates = options.hasStates};
}

struct Sums {
  int connected = 0;
  int64_t heard = 0;
  std::size_t waiting = 0;
  uint64_t taken = 0;
};

class Fleet {
 public:
  explicit Fleet(const Options& options) : random_(options.seed) {
    const auto chance = [this] { return std::uniform_real_distribution<>()(random_); };
    for (int i = 0; i < options.gateways; ++i)
      gateways_.push_back(
          std::make_unique<SimulatedGateway>(loop_, FleetClient::Broker{options.host, options.port, {}},
                                             planOf(options, options.first + i), chance));
  }

  // A second; each gateway is looked at twenty times in it.
  void second(int connecting) {
    constexpr std::size_t kSlices = 20;
    for (std::size_t slice = 0; slice < kSlices; ++slice) {
      const auto end = steady_clock::now() + std::chrono::milliseconds(1'000 / kSlices);
      const std::size_t more = static_cast<std::size_t>(connecting) / kSlices + 1;
      for (std::size_t i = 0; i < more && begun_ < gateways_.size(); ++i)
        gateways_[begun_++]->start(steady_clock::now().time_since_epoch());
      for (std::size_t i = 0; i < begun_; ++i) {
        gateways_[i]->advance(steady_clock::now().time_since_epoch(), today());
        if (i % kSlices == slice) gateways_[i]->keepAlive();
      }
      do loop_.turn(1);
      while (steady_clock::now() < end);
    }
  }
  // Their beacons are gone; what was heard is still to be sent.
  void silence() {
    for (auto& gateway : gateways_) gateway->silence(today());
  }

  Sums sums() const {
    Sums sums;
    for (const auto& gateway : gateways_) {
      sums.connected += gateway->isConnected() ? 1 : 0;
      sums.heard += gateway->heard();
      sums.waiting += gateway->waiting();
      sums.taken += gateway->taken();
    }
    return sums;
  }

 private:
  static platform::Date today() {
    return std::chrono::time_point_cast<platform::Date::duration>(std::chrono::system_clock::now());
  }

  std::mt19937 random_;
  FleetLoop loop_;
  std::vector<std::unique_ptr<SimulatedGateway>> gateways_;
  std::size_t begun_ = 0;
};

void print(double elapsed, const Sums& sums) {
  fmt::print("{:.0f} s: {} connected, {} readings, {} batches waiting, {} messages taken\n", elapsed,
             sums.connected, sums.heard, sums.waiting, sums.taken);
  std::fflush(stdout);
}

int run(const Options& options) {
  for (const int signal : {SIGINT, SIGTERM}) std::signal(signal, [](int) { isStopped = true; });
  rlimit files{};
  ::getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &files);

  Fleet fleet(options);
  // On a machine that cannot keep up, a turn takes longer than its second.
  const auto start = steady_clock::now();
  const auto elapsed = [start] { return std::chrono::duration<double>(steady_clock::now() - start).count(); };
  for (int turn = 1; !isStopped && elapsed() < options.seconds; ++turn) {
    fleet.second(options.connecting);
    if (turn % 5 == 0) print(elapsed(), fleet.sums());
  }
  fleet.silence();
  constexpr int kPatience = 120;
  for (int waited = 0; waited < kPatience && fleet.sums().waiting != 0; ++waited)
    fleet.second(options.connecting);
  print(elapsed(), fleet.sums());
  return fleet.sums().waiting == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(optionsFrom(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "brenloft_fleet: %s\n", error.what());
    return 2;
  }
}
