#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gateway/Gateway.h"
#include "gateway/formats/RecordFile.h"
#include "platform/dispatch/VirtualDispatch.h"
#include "tests/foundation/TemporaryFolder.h"

namespace brenloft {
namespace {

using namespace std::chrono_literals;
using test::TemporaryFolder;

const BeaconId kHeardFridge = BeaconId::sensor("C0-C1-5C-00-00-01");

class Line : public testing::Test {
 protected:
  std::unique_ptr<Gateway> gateway() {
    return std::make_unique<Gateway>(dispatch_, queue_, settings_, BeaconChoice{});
  }
  std::shared_ptr<RecordFile> file(const std::filesystem::path& path) {
    auto opened = TextFile::open(path, dispatch_, queue_, [this](const Sink::State& state) {
      states_.push_back(state.isWorking ? "working" : state.reason);
    });
    if (!opened) return nullptr;
    return std::make_shared<RecordFile>(*std::move(opened), RecordLines(RecordLines::Format::influx),
                                        [](const BeaconId&) { return Label{}; });
  }
  void hear(Gateway& gateway, int32_t temperature) {
    gateway.hear({.beacon = kHeardFridge, .heard = dispatch_->date(), .raw = {.temperature = temperature}});
    dispatch_->advance(1s);
  }
  static std::size_t linesOf(const std::filesystem::path& path) {
    std::size_t lines = 0;
    for (const char c : test::contentsOf(path)) lines += c == '\n' ? 1 : 0;
    return lines;
  }

  std::shared_ptr<platform::VirtualDispatch> dispatch_ = platform::VirtualDispatch::make();
  platform::dispatch_queue_t queue_ = dispatch_->createQueue("gateway");
  std::shared_ptr<Settings> settings_ = std::make_shared<Settings>();
  std::vector<std::string> states_;
  TemporaryFolder folder_;
};

class Remembering final : public Sink {
 public:
  void accept(const Record& record) override {
    if (const auto* event = std::get_if<BeaconEvent>(&record))
      log += std::string(textOf(event->kind)) + (event->count > 0 ? std::to_string(event->count) : "") + ' ';
    else
      ++readings;
  }
  void flush() override { log += "flushed "; }
  State state() const override { return {}; }

  std::string log;
  uint64_t readings = 0;
};

TEST_F(Line, KeepsTheOrderAndCountsWhatItHadToDrop) {
  const auto line = gateway();
  const auto sink = std::make_shared<Remembering>();
  line->add(std::shared_ptr<Sink>(sink));
  constexpr uint64_t kTooMany = 3;
  for (uint64_t i = 0; i < Gateway::kMostWaiting + kTooMany; ++i)
    line->hear({.beacon = kHeardFridge, .raw = {.emergency = i == 1 ? 1 : 0}});
  dispatch_->runDue();
  line->radio(false, "off");
  bool isDone = false;
  line->finish([&] { isDone = true; });
  dispatch_->runDue();
  EXPECT_TRUE(isDone);
  EXPECT_EQ(sink->log, "gap3 found emergency emergency_over radio flushed ");
  const Gateway::Census census = line->census();
  EXPECT_EQ(census.dropped, kTooMany);
  EXPECT_EQ(census.judged.of(Verdict::plausible), sink->readings);
  EXPECT_EQ(census.heard, sink->readings + kTooMany);
}

TEST_F(Line, GoesOnWhereOneFileFailsAndOpensARotatedOneAgain) {
  const auto line = gateway();
  const std::string path = folder_.file("readings");
  line->add(std::shared_ptr<Sink>(file("/dev/full")));
  line->add(std::shared_ptr<Sink>(file(path)));
  hear(*line, 1);
  hear(*line, 2);
  EXPECT_EQ(linesOf(path), 3U) << "found and two readings";
  EXPECT_EQ(states_, std::vector<std::string>{"No space left on device"}) << "told once";

  std::filesystem::rename(path, path + ".1");
  hear(*line, 3);
  line->reopen();
  dispatch_->runDue();
  hear(*line, 4);
  EXPECT_EQ(linesOf(path + ".1"), 4U);
  EXPECT_EQ(linesOf(path), 1U);

  EXPECT_FALSE(file(folder_.file("no/such/folder")));
  EXPECT_FALSE(file(folder_.path()));
}

TEST_F(Line, WritesWhatWaitedForAPipesReaderInOrder) {
  const std::string path = folder_.file("pipe");
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_FALSE(file(path)) << "nobody reads";
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  const auto line = gateway();
  line->add(std::shared_ptr<Sink>(file(path)));
  constexpr int kMany = 3000;
  for (int i = 0; i < kMany; ++i) hear(*line, i);
  EXPECT_EQ(states_, std::vector<std::string>{"its reader stalls"});
  std::string text;
  for (int rounds = 0; rounds < 10; ++rounds) {
    std::string part(1 << 20, '\0');
    const ssize_t size = ::read(reader, part.data(), part.size());
    if (size > 0) text.append(part, 0, static_cast<std::size_t>(size));
    dispatch_->advance(1s);
  }
  ::close(reader);
  EXPECT_EQ(states_.back(), "working");
  std::size_t at = 0;
  for (int i = 0; i < kMany && at != std::string::npos; ++i)
    at = text.find(fmt::format("temperature={}.{:02} ", i / 100, i % 100), at);
  EXPECT_NE(at, std::string::npos);
}

TEST_F(Line, JudgesByTheRulesWhatItTold) {
  settings_->alarms.push_back({.name = "warm", .above = 800});
  const auto line = gateway();
  const auto sink = std::make_shared<Remembering>();
  line->add(std::shared_ptr<Sink>(sink));
  std::vector<bool> notices;
  line->setOnNotice([&](const AlarmNotice& notice) { notices.push_back(notice.isRaised); });
  hear(*line, 900);
  hear(*line, 700);
  EXPECT_EQ(sink->log, "found alarm_raised alarm_cleared ");
  EXPECT_TRUE(notices.empty());  // no command

  auto other = std::make_shared<Settings>(*settings_);
  other->alarms[0].exec = {"/bin/true"};
  line->setSettings(other);
  hear(*line, 900);
  line->radio(false, "off");
  dispatch_->runDue();
  EXPECT_EQ(notices, std::vector<bool>{true});
  EXPECT_EQ(line->alarms().raised(kHeardFridge).size(), 1U);
}

}  // namespace
}  // namespace brenloft
