#include <csignal>
#include <cstdlib>
#include <functional>

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gateway/history/HistoryFollower.h"
#include "gateway/history/HistoryMaintenance.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "tests/gateway/HistoryFixture.h"

namespace {

// What happens while the next commit waits for the disk.
std::function<void()> duringTheCommit;

}  // namespace

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): theirs is reserved
extern "C" __attribute__((visibility("default"))) int fdatasync(int descriptor) {
  if (const auto work = std::exchange(duringTheCommit, nullptr)) work();
  return static_cast<int>(::syscall(SYS_fdatasync, descriptor));
}

namespace brenloft {
namespace {

// Runs beside the test, in a process of its own, until it is killed.
class Child {
 public:
  explicit Child(const std::function<void()>& work) : pid_(::fork()) {
    if (pid_ != 0) return;
    work();
    ::_exit(1);
  }
  ~Child() { kill(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// True when it had not ended by itself.
  bool kill() {
    if (pid_ < 0) return true;
    ::kill(pid_, SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  }

 private:
  int pid_;
};

class KilledHistory : public HistoryTest {
 protected:
  void SetUp() override { ASSERT_EQ(::pipe(committed_), 0); }

  // Says the number of each event once that is committed; readings go between, and the oldest rows go.
  void writeForEver() const {
    const auto dispatch = platform::RealTimeDispatch::make();
    auto opened = HistoryWriter::open(file_, {.keepSize = 1 << 20}, dispatch, dispatch->mainQueue(), {});
    if (!opened) return;
    auto& writer = **opened;
    auto reader = *HistoryReader::open(file_);
    for (int64_t i = 0;; ++i) {
      for (int number = 0; number < 200; ++number)
        writer.accept(reading(number % 9, kNow + std::chrono::seconds(i), number));
      writer.accept(BeaconEvent{.beacon = beacon(1), .heard = kNow, .kind = BeaconEvent::Kind::found},
                    {"rule", "beacon", std::to_string(i)});
      writer.flush();
      const int64_t seq = *reader->lastSeq();
      if (::write(committed_[1], &seq, sizeof seq) != sizeof seq) return;
    }
  }

  void readForEver() const {
    while (true) {
      auto reader = HistoryReader::open(file_);
      if (!reader) {
        if (reader.error().kind == platform::Error::Kind::absent) continue;
        return;
      }
      int64_t after = 0;
      for (int page = 0; page < 40; ++page) {
        const auto rows = (*reader)->rows(after, {}, 500);
        if (!rows || !(*reader)->latest()) return;
        for (std::size_t i = 1; i < rows->rows.size(); ++i)
          if (rows->rows[i].seq != rows->rows[i - 1].seq + 1) return;
        after = rows->isLast ? 0 : rows->through;
      }
    }
  }

  int committed_[2] = {-1, -1};
};

// BRENLOFT_KILLS=500 kills longer.
TEST_F(KilledHistory, LosesNothingThatWasCommitted) {
  const char* wanted = std::getenv("BRENLOFT_KILLS");
  const int kills = wanted != nullptr ? std::atoi(wanted) : 8;
  openWriter()->flush();
  Child one([&] { readForEver(); });
  Child other([&] { readForEver(); });
  std::mt19937 random(7);
  int64_t committed = 0;
  for (int i = 0; i < kills; ++i) {
    {
      const Child writer([&] { writeForEver(); });
      for (int n = std::uniform_int_distribution(1, 60)(random); n > 0; --n)
        ASSERT_EQ(::read(committed_[0], &committed, sizeof committed), ssize_t{sizeof committed});
    }
    // What it said and nobody has read yet.
    pollfd rest{committed_[0], POLLIN, 0};
    while (::poll(&rest, 1, 0) > 0)
      ASSERT_EQ(::read(committed_[0], &committed, sizeof committed), ssize_t{sizeof committed});
    ASSERT_GE(*openReader()->lastSeq(), committed);
    const auto problems = checkHistory(file_);
    ASSERT_TRUE(problems) << problems.error().text;
    ASSERT_EQ(*problems, std::vector<std::string>());
  }
  EXPECT_TRUE(one.kill()) << "a reader has failed";
  EXPECT_TRUE(other.kill()) << "a reader has failed";
}

class FollowedHistory : public HistoryTest {
 protected:
  HistoryFollower::News newsAfter(int64_t seq) {
    while (true) {
      pollfd wake{follower_->wakeDescriptor(), POLLIN, 0};
      // The slow look beneath comes later than this.
      if (::poll(&wake, 1, 1500) != 1) return {};
      auto news = follower_->after(seq, 10);
      if (!news || !news->rows.empty()) return news ? *std::move(news) : HistoryFollower::News{};
    }
  }

  std::unique_ptr<HistoryFollower> follower_ = *HistoryFollower::open(file_);
};

TEST_F(FollowedHistory, RingsForALoneCommitAndCountsWhatWasDeleted) {
  auto writer = openWriter();
  for (int64_t i = 1; i <= 3; ++i) {
    writer->accept(reading(1, kNow, 2000));
    writer->flush();
    const auto news = newsAfter(i - 1);
    ASSERT_EQ(news.rows.size(), 1U);
    EXPECT_EQ(news.rows.front().seq, i);
    EXPECT_EQ(news.missing, 0U);
  }
  writer = nullptr;
  EXPECT_EQ(*pruneHistory(file_, {.before = kNow + std::chrono::seconds(1)}, kNow), 3U);
  writer = openWriter();
  writer->accept(reading(1, kNow, 2000));
  writer->flush();
  const auto news = *follower_->after(1, 10);
  EXPECT_EQ(news.missing, 2U);
  EXPECT_EQ(news.rows.size(), 1U);
}

TEST_F(FollowedHistory, SeesACommitThatWaitedForTheDisk) {
  auto writer = openWriter();
  writer->accept(reading(1, kNow, 2000));
  writer->flush();
  writer->accept(reading(1, kNow, 2001));
  // Its ring is taken for the one of the row before.
  duringTheCommit = [&] {
    EXPECT_EQ(follower_->after(0, 10)->rows.size(), 1U);
    EXPECT_EQ(follower_->after(1, 10)->rows.size(), 0U);
  };
  writer->flush();
  EXPECT_FALSE(duringTheCommit);
  EXPECT_EQ(newsAfter(1).rows.size(), 1U);
}

}  // namespace
}  // namespace brenloft
