#include <atomic>
#include <cmath>
#include <csignal>
#include <random>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/foundation/NSUserDefaults.h"
#include "tests/foundation/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

class UserDefaultsTest : public testing::Test {
 protected:
  std::shared_ptr<NSUserDefaults> open() { return makeFileUserDefaults(file_); }
  void write(std::string_view text) const {
    fs::create_directories(file_.parent_path());
    test::writeFile(file_, text);
  }

  const test::TemporaryFolder folder_;
  const fs::path file_ = folder_ / "deep/settings.json";
};

TEST_F(UserDefaultsTest, ReadsNumbersFromNumbersAndTextsAndNothingElse) {
  struct {
    Value value;
    double number;
    bool truth;
  } const cases[] = {
      {NSNumber(2.5), 2.5, true},
      {NSNumber(0), 0.0, false},
      {NSNumber(UINT64_MAX), 0x1p64, true},
      {std::string(" +7.25 s"), 7.25, false},
      {std::string("-1e3"), -1000.0, false},
      {std::string("seven"), 0.0, false},
      {std::string(), 0.0, false},
      {NSNull(), 0.0, false},
      {Date(std::chrono::seconds(5)), 0.0, false},
  };
  for (const auto& defaults : {makeInMemoryUserDefaults(), open()}) {
    EXPECT_EQ(defaults->doubleForKey("absent"), 0.0);
    EXPECT_FALSE(defaults->boolForKey("absent"));
    EXPECT_EQ(defaults->objectForKey("absent"), std::nullopt);
    for (const auto& [value, number, truth] : cases) {
      defaults->setObject_forKey(value, "key");
      EXPECT_EQ(defaults->doubleForKey("key"), number);
      EXPECT_EQ(defaults->boolForKey("key"), truth);
    }
    defaults->removeObjectForKey("key");
    defaults->removeObjectForKey("key");
    EXPECT_EQ(defaults->objectForKey("key"), std::nullopt);
    EXPECT_TRUE(defaults->synchronize());
  }
}

TEST_F(UserDefaultsTest, RestoresEveryKindOfValueExactly) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  // Each octet, behind none to eight others.
  std::string octets;
  for (std::size_t octet = 0; octet < 256; ++octet)
    octets += std::string(octet % 9, 'a') + static_cast<char>(octet);
  const Dictionary values{
      {"", std::string("the empty key")},
      {"bool", NSNumber(true)},
      {"data", Data{std::byte{0}, std::byte{255}}},
      {"date", Date(std::chrono::microseconds(-1))},
      {"each octet " + octets, octets},
      {"double", NSNumber(5.0)},
      {"no data", Data()},
      {"infinite", NSNumber(-kInfinity)},
      {"int32", NSNumber(INT32_MIN)},
      {"int64", NSNumber(INT64_MIN)},
      {"null", NSNull()},
      {"smallest", NSNumber(5e-324)},
      {"sum", NSNumber(0.1 + 0.2)},
      {"text \"\\\n", std::string("\0 \x1F \xEA\xB0\x80 \"", 9)},
      {"uint32", NSNumber(UINT32_MAX)},
      {"uint64", NSNumber(UINT64_MAX)},
      {"zero", NSNumber(-0.0)},
  };
  {
    const auto defaults = open();
    for (const auto& [key, value] : values) defaults->setObject_forKey(value, key);
    defaults->setDouble_forKey(std::nan(""), "nan");
  }
  const auto defaults = open();
  for (const auto& [key, value] : values) EXPECT_EQ(defaults->objectForKey(key), value) << key;
  EXPECT_TRUE(std::signbit(defaults->doubleForKey("zero")));
  EXPECT_TRUE(std::isnan(defaults->doubleForKey("nan")));
}

TEST_F(UserDefaultsTest, SetsAnUnreadableFileAsideAtTheFirstChange) {
  for (const std::string text : {"", "{", "[1]", "5", "{\"a\":1,}", "\xFF\xFE"}) {
    write(text);
    std::vector<std::string> lines;
    const auto defaults =
        makeFileUserDefaults(file_, [&](std::string_view line) { lines.emplace_back(line); });
    EXPECT_EQ(defaults->objectForKey("a"), std::nullopt);
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(test::contentsOf(file_), text);
    EXPECT_EQ(lines.size(), 1U) << "why it cannot be read";
    defaults->setBool_forKey(true, "b");
    EXPECT_TRUE(open()->boolForKey("b"));
    EXPECT_EQ(test::contentsOf(file_.string() + ".bad"), text);
  }
}

TEST_F(UserDefaultsTest, OpensTheFileToNobodyWhoHadNoAccess) {
  const auto permissions = [](const fs::path& path) { return fs::status(path).permissions(); };
  makeFileUserDefaults(file_, {}, FolderAccess::ownerOnly)->setBool_forKey(true, "a");
  EXPECT_EQ(permissions(file_), fs::perms(0600));
  EXPECT_EQ(permissions(file_.parent_path()), fs::perms(0700));
  fs::permissions(file_, fs::perms(04640));
  open()->setBool_forKey(true, "b");
  EXPECT_EQ(permissions(file_), fs::perms(0640)) << "kept, but for the set-id bit";
  fs::remove(file_);
  const mode_t mask = ::umask(0027);
  open()->setBool_forKey(true, "c");
  ::umask(mask);
  EXPECT_EQ(permissions(file_), fs::perms(0640));
}

TEST_F(UserDefaultsTest, WritesThroughNoLinkAndRemovesOnlyWhatHasLostItsWriter) {
  const fs::path other = folder_ / "other";
  const fs::path inUse = folder_ / "deep/.brenloft-inused";
  const fs::path notes = folder_ / "deep/.brenloft-notes";
  test::writeFile(other, "precious");
  write("{}");
  for (const auto& file : {inUse, notes, folder_ / "deep/.brenloft-killed"}) test::writeFile(file, "{");
  fs::create_symlink(other, folder_ / "deep/settings.json.new");
  fs::create_symlink(other, folder_ / "deep/.brenloft-linked");
  const int held = ::open(inUse.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(held, LOCK_EX), 0);
  open()->setBool_forKey(true, "b");
  ::close(held);
  EXPECT_EQ(test::contentsOf(other), "precious");
  EXPECT_TRUE(fs::exists(inUse));
  EXPECT_TRUE(fs::exists(notes));
  EXPECT_FALSE(fs::exists(folder_ / "deep/.brenloft-killed"));
}

TEST_F(UserDefaultsTest, ReadsWhatAPersonWroteAndSkipsWhatIsNoValue) {
  write(R"({"exit": 5, "time": 2.5, "big": 18446744073709551615, "list": [1], "odd": {"int32": 1.5},
            "pair": {"int32": 1, "date": 2}, "hex": {"data": "0g"}, "name": "here"})");
  const auto defaults = open();
  EXPECT_EQ(defaults->doubleForKey("exit"), 5.0);
  EXPECT_EQ(defaults->doubleForKey("time"), 2.5);
  EXPECT_EQ(defaults->objectForKey("big"), Value(NSNumber(UINT64_MAX)));
  EXPECT_EQ(defaults->objectForKey("name"), Value(std::string("here")));
  for (const auto* key : {"list", "odd", "pair", "hex"}) EXPECT_EQ(defaults->objectForKey(key), std::nullopt);
}

TEST_F(UserDefaultsTest, PutsChangesOntoWhatAnotherWriterLeft) {
  const auto one = open();
  const auto two = open();
  one->setDouble_forKey(1.0, "one");
  one->setDouble_forKey(1.0, "both");
  two->setDouble_forKey(2.0, "two");
  two->removeObjectForKey("both");
  EXPECT_EQ(two->doubleForKey("one"), 1.0);
  const auto later = open();
  EXPECT_EQ(later->doubleForKey("one"), 1.0);
  EXPECT_EQ(later->doubleForKey("two"), 2.0);
  EXPECT_EQ(later->objectForKey("both"), std::nullopt);
}

TEST_F(UserDefaultsTest, KeepsWhatItCannotStoreInMemoryAndSaysSoOnce) {
  test::writeFile(folder_ / "deep", "a file where the folder should be");
  std::vector<std::string> lines;
  const auto defaults = makeFileUserDefaults(file_, [&](std::string_view line) { lines.emplace_back(line); });
  defaults->setDouble_forKey(1.0, "a");
  defaults->setDouble_forKey(2.0, "b");
  EXPECT_FALSE(defaults->synchronize());
  EXPECT_EQ(defaults->doubleForKey("a"), 1.0);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_NE(lines[0].find(file_.string()), std::string::npos) << lines[0];

  fs::remove(folder_ / "deep");
  EXPECT_TRUE(defaults->synchronize());
  EXPECT_EQ(open()->doubleForKey("a"), 1.0);
  EXPECT_EQ(open()->doubleForKey("b"), 2.0);
}

TEST_F(UserDefaultsTest, TakesChangesFromSeveralThreads) {
  constexpr int kEach = 30;
  const auto defaults = open();
  std::vector<std::thread> writers;
  for (int thread = 0; thread < 4; ++thread) {
    writers.emplace_back([&, thread] {
      for (int i = 1; i <= kEach; ++i) {
        defaults->setDouble_forKey(i, "key" + std::to_string(thread));
        EXPECT_EQ(defaults->doubleForKey("key" + std::to_string(thread)), i);
      }
    });
  }
  for (auto& writer : writers) writer.join();
  for (int thread = 0; thread < 4; ++thread) {
    EXPECT_EQ(open()->doubleForKey("key" + std::to_string(thread)), kEach);
  }
}

// Two keys are changed in turn by a process that is killed at any moment: what was acknowledged is there, at
// most one change is ahead, and the file is always whole.
TEST_F(UserDefaultsTest, SurvivesAKillAtAnyMoment) {
  auto* acknowledged = static_cast<std::atomic<int>*>(
      mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(acknowledged, MAP_FAILED);
  std::mt19937 random(11);
  std::uniform_int_distribution<int> microseconds(0, 8000);
  int last = 0;
  for (int round = 0; round < 60; ++round) {
    acknowledged->store(last);
    const pid_t child = fork();
    if (child == 0) {
      const auto defaults = open();
      for (int i = last + 1;; ++i) {
        defaults->setObject_forKey(NSNumber(i), "count");
        acknowledged->store(i);
        defaults->setObject_forKey(std::string(i % 997, 'x'), "text");
      }
    }
    usleep(microseconds(random));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const auto count = static_cast<int>(open()->doubleForKey("count"));
    ASSERT_GE(count, acknowledged->load()) << "round " << round;
    ASSERT_LE(count, acknowledged->load() + 1) << "round " << round;
    last = count;
  }
  EXPECT_GT(last, 0);
  munmap(acknowledged, sizeof(std::atomic<int>));
}

}  // namespace
}  // namespace platform
