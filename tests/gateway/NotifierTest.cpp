#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gateway/alarms/Notifier.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "tests/foundation/TemporaryFolder.h"

namespace brenloft {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

// Commands are processes of the machine: they take real time.
class NotifierTest : public testing::Test {
 protected:
  void notify(const std::string& rule, const std::string& script, bool isRaised = true,
              std::chrono::microseconds timeout = 1h) {
    notifier_->notify({.rule = {.name = rule,
                                .severity = AlarmRule::Severity::critical,
                                .text = "close the door",
                                .exec = {"/bin/sh", "-c", script, "sh", output().string(), "$HOME `id`"},
                                .execTimeout = timeout},
                       .beacon = *BeaconId::fromText("C0-C1-5C-00-00-01"),
                       .isRaised = isRaised,
                       .at = platform::Date(std::chrono::sys_days(std::chrono::year(2026) / 3 / 1)),
                       .value = 825},
                      {"fridge", "kitchen"});
  }
  void waitForDone(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return done_.size() >= count; });
  }
  std::vector<std::string> messages() {
    const std::scoped_lock lock(mutex_);
    return messages_;
  }
  std::filesystem::path output() const { return folder_.path() / "output"; }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> done_;

 private:
  void keep(std::vector<std::string>& lines, std::string line) {
    const std::scoped_lock lock(mutex_);
    lines.push_back(std::move(line));
    changed_.notify_all();
  }

  std::vector<std::string> messages_;
  test::TemporaryFolder folder_;
  const std::shared_ptr<platform::RealTimeDispatch> dispatch_ = platform::RealTimeDispatch::make();
  const std::unique_ptr<Notifier> notifier_ = std::make_unique<Notifier>(
      dispatch_, dispatch_->createQueue("handlers"),
      Notifier::Handlers{.onDone = [this](const AlarmNotice& notice) { keep(done_, notice.rule.name); },
                         .onMessage = [this](std::string_view line) { keep(messages_, std::string(line)); }});
};

TEST_F(NotifierTest, GivesTheCommandTheFactsAndNoShell) {
  notify("too warm",
         "env | grep ^BRENLOFT_ | grep -v ^BRENLOFT_MUTANT= | sort > \"$1\"; echo \"$2\" >> \"$1\"");
  waitForDone(1);
  EXPECT_EQ(test::contentsOf(output()),
            "BRENLOFT_ALARM=too warm\nBRENLOFT_BEACON=C0-C1-5C-00-00-01\nBRENLOFT_EVENT=raised\n"
            "BRENLOFT_NAME=fridge\nBRENLOFT_PLACE=kitchen\nBRENLOFT_QUANTITY=temperature\n"
            "BRENLOFT_SEVERITY=critical\nBRENLOFT_TEXT=close the door\n"
            "BRENLOFT_TIME=2026-03-01T00:00:00.000000Z\nBRENLOFT_VALUE=8.25\n$HOME `id`\n");
}

TEST_F(NotifierTest, RunsOneAtATimePerRuleAndLetsNoRuleWaitForAnother) {
  // The first waits for what only the other rule's command brings.
  notify("one", "mkfifo \"$1.pipe\" 2>/dev/null; read x < \"$1.pipe\"; echo raised >> \"$1\"");
  notify("one", "echo cleared >> \"$1\"", false);
  notify("two", "mkfifo \"$1.pipe\" 2>/dev/null; echo go > \"$1.pipe\"");
  waitForDone(3);
  EXPECT_EQ(test::contentsOf(output()), "raised\ncleared\n");
}

TEST_F(NotifierTest, EndsWhatHangsAndTellsAFailureOnce) {
  notify("warm", "sleep 1000 & sleep 1000", true, 20ms);
  notify("warm", "exit 3");
  notify("warm", "true");
  notify("warm", "kill -9 $$");
  waitForDone(4);
  EXPECT_THAT(messages(),
              ElementsAre("alarm \"warm\": /bin/sh failed: it took longer than 0.02 s and was ended",
                          "alarm \"warm\": /bin/sh works again",
                          "alarm \"warm\": /bin/sh failed: signal 9 ended it"));
}

}  // namespace
}  // namespace brenloft
