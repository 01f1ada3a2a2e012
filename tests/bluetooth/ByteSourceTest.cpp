#include <cstdio>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/bluetooth/CaptureVectors.h"

namespace platform {
namespace {

using namespace support;

class NamedPipe : public testing::Test {
 protected:
  void SetUp() override {
    ::unlink(path_.c_str());
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  }
  void TearDown() override { ::unlink(path_.c_str()); }

  const std::string path_ = testing::TempDir() + "brenloft-pipe-" + std::to_string(::getpid());
  std::stop_source stop_;
  std::string error_;
};

TEST_F(NamedPipe, isWaitedForUntilAWriterHasComeAndGone) {
  const auto source = openFileSource(path_, error_, stop_.get_token());
  ASSERT_TRUE(source) << error_;
  const std::jthread writer([&] {
    const int descriptor = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(::write(descriptor, "abc", 3), 3);
    ::close(descriptor);
  });
  Data octets(10);
  EXPECT_EQ(source->read(octets), 3U);
  EXPECT_EQ(source->read(octets), 0U);
  EXPECT_FALSE(source->isStopped());
  EXPECT_EQ(source->error(), "");
}

TEST_F(NamedPipe, aStopOnAnotherThreadEndsTheWaitWithoutAFault) {
  const auto source = openFileSource(path_, error_, stop_.get_token());
  ASSERT_TRUE(source) << error_;
  const std::jthread stopper([&] { stop_.request_stop(); });
  Data octets(10);
  EXPECT_EQ(source->read(octets), 0U);
  EXPECT_TRUE(source->isStopped());
  EXPECT_EQ(source->error(), "");
}

TEST_F(NamedPipe, aStoppedCaptureEndsWithItsLastWholeRecord) {
  const int descriptor = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
  const Data record = btsnoopRecord(h4(advertisingEvent(1)), 0);
  const Data octets = btsnoopFile(1002) + record + Data(record.begin(), record.end() - 1);
  ASSERT_EQ(::write(descriptor, octets.data(), octets.size()), static_cast<ssize_t>(octets.size()));
  const auto fail = [](const CaptureDiagnostic& diagnostic) { ADD_FAILURE() << diagnostic.line(); };
  const auto reader = CaptureReader::open(path_, fail, error_, stop_.get_token());
  ASSERT_TRUE(reader) << error_;
  EXPECT_EQ(reader->next(), CaptureReader::Next::record);
  const std::jthread stopper([&] { stop_.request_stop(); });
  EXPECT_EQ(reader->next(), CaptureReader::Next::end);
  ::close(descriptor);

  // One that was stopped before it told its format holds nothing, which is no fault either.
  const auto silent = CaptureReader::open(path_, fail, error_, stop_.get_token());
  ASSERT_TRUE(silent) << error_;
  EXPECT_EQ(silent->next(), CaptureReader::Next::end);
}

}  // namespace
}  // namespace platform
