#include <cstdio>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/bluetooth/capture/ByteSource.h"

namespace platform {
namespace {

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

}  // namespace
}  // namespace platform
