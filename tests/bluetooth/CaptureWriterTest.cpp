#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/bluetooth/capture/BtsnoopWriter.h"
#include "tests/bluetooth/CaptureVectors.h"

namespace platform {
namespace {

using namespace support;

std::string scratch(const std::string& name) {
  return testing::TempDir() + "brenloft-" + name;
}

Data contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  return toData(viewOf(text));
}

std::string lineOf(const AdvertisingReport& report) {
  return std::to_string(report.time.time_since_epoch().count()) + " " + report.address.text() +
         (report.address.isRandom ? " random " : " public ") + std::string(textOf(report.kind)) + " " +
         std::to_string(report.rssi) + " " + hexText(report.data) + (report.isTruncated ? "..." : "");
}

TEST(BtsnoopWriter, writesWhatReadsBackTheSame) {
  const std::string path = scratch("same.btsnoop");
  Data octets;
  for (int i = 0; i < 2000; ++i) octets.push_back(static_cast<std::byte>(i * 7));
  std::vector<std::string> written;
  {
    const auto writer = *BtsnoopWriter::create(path);
    ASSERT_TRUE(writer);
    AdvertisingReport report;
    for (int kind = 0; kind <= static_cast<int>(AdvertisingKind::extendedScanResponse); ++kind)
      for (const std::size_t size : {0, 31, 32, 229, 230, 458, 459, 1650}) {
        report.kind = static_cast<AdvertisingKind>(kind);
        const bool isLegacy = report.kind <= AdvertisingKind::scanResponse;
        if (isLegacy && size > 229) continue;  // beyond what a legacy report can hold
        report.time = Date(
            std::chrono::microseconds(kind * 1'700'000'000'000'000 / 8 - 5 + static_cast<int64_t>(size)));
        report.address = BluetoothAddress::fromText("C0:01:02:03:04:05").value();
        report.address.isRandom = size % 2 != 0;
        report.rssi = static_cast<int8_t>(kind % 2 != 0 ? 127 : -100);
        report.isTruncated = !isLegacy && size == 459;
        report.data = DataView(octets).first(size);
        written.push_back(lineOf(report));
        EXPECT_TRUE(writer->write(report));
      }
    report.data = octets;
    EXPECT_TRUE(writer->write(report));
    report.data = DataView(octets).first(1650);
    report.isTruncated = true;
    written.push_back(lineOf(report));
  }
  const auto reader = *CaptureReader::open(path, {});
  std::vector<std::string> read;
  while (reader->next() != CaptureReader::Next::end)
    reader->read([&](const AdvertisingReport& report) { read.push_back(lineOf(report)); });
  EXPECT_EQ(read, written);
}

TEST(BtsnoopWriter, losesAtMostASecondOrNothingAfterAFlush) {
  const std::string path = scratch("late.btsnoop");
  const auto writer = *BtsnoopWriter::create(path);
  ASSERT_TRUE(writer);
  const auto reportsInFile = [&] { return readCapture(contentOf(path)).reports.size(); };
  AdvertisingReport report;
  for (const int milliseconds : {0, 600, 1100}) {
    report.time = Date(std::chrono::milliseconds(milliseconds));
    EXPECT_TRUE(writer->write(report));
  }
  EXPECT_EQ(reportsInFile(), 3U);
  EXPECT_TRUE(writer->write(report));
  EXPECT_TRUE(writer->flush());
  EXPECT_EQ(reportsInFile(), 4U);
}

TEST(BtsnoopWriter, saysOnceWhatWentWrong) {
  EXPECT_EQ(BtsnoopWriter::create("/nowhere/at/all").error().text,
            "/nowhere/at/all: cannot be written: No such file or directory");
  const auto writer = *BtsnoopWriter::create("/dev/full");
  ASSERT_TRUE(writer);
  EXPECT_TRUE(writer->write({}));
  EXPECT_EQ(writer->flush().error().text, "/dev/full: cannot be written: No space left on device");
  EXPECT_TRUE(writer->write({}));
  EXPECT_TRUE(writer->flush());
}

TEST(BtsnoopWriter, givesUpAReaderThatStallsOrNeverComesOnceStopped) {
  const std::string path = scratch("pipe" + std::to_string(::getpid()));
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  std::stop_source stop;
  stop.request_stop();
  EXPECT_EQ(*BtsnoopWriter::create(path, stop.get_token()), nullptr);
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const auto writer = *BtsnoopWriter::create(path, stop.get_token());
  ASSERT_TRUE(writer);
  Result<> written;
  for (int i = 0; i < 100'000 && written; ++i) written = writer->write(AdvertisingReport());
  ASSERT_FALSE(written);
  EXPECT_EQ(written.error().text, path + ": cannot be written: its reader has stalled");
  ::close(reader);
  ::unlink(path.c_str());
}

}  // namespace
}  // namespace platform
