#include <cstdlib>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/dispatch/VirtualDispatch.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSFileManager.h"
#include "platform/foundation/NSLog.h"
#include "tests/foundation/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

TEST(BundleTest, FindsResourcesByNameAndExtension) {
  const Data model{std::byte{1}, std::byte{2}};
  const auto bundle = makeBundle({{"ServiceModel.momd", model}, {"plain", {}}});
  const auto url = bundle->URLForResource_withExtension("ServiceModel", "momd");
  ASSERT_TRUE(url);
  ASSERT_TRUE(bundle->contentsOfURL(*url));
  EXPECT_EQ(toData(*bundle->contentsOfURL(*url)), model);
  const auto plain = bundle->URLForResource_withExtension("plain", "");
  ASSERT_TRUE(plain);
  EXPECT_TRUE(bundle->contentsOfURL(*plain)->empty());
  EXPECT_EQ(bundle->URLForResource_withExtension("ServiceModel", ""), std::nullopt);
  EXPECT_EQ(bundle->URLForResource_withExtension("servicemodel", "momd"), std::nullopt);
  EXPECT_EQ(bundle->contentsOfURL("ServiceModel.momd"), std::nullopt) << "a name is no address";
  EXPECT_EQ(bundle->contentsOfURL(*url + "x"), std::nullopt);
}

TEST(FileManagerTest, MakesTheDocumentsFolderWhenAskedAndNamesItWhenItCannot) {
  const test::TemporaryFolder folder;
  const auto ask = [](const fs::path& documents) {
    return makeFileManager(documents)->URLsForDirectory_inDomains(NSSearchPathDirectory::NSDocumentDirectory,
                                                                  NSSearchPathDomainMask::NSUserDomainMask);
  };
  EXPECT_EQ(ask(folder / "a/b"), std::vector<fs::path>{folder / "a/b"});
  EXPECT_TRUE(fs::is_directory(folder / "a/b"));
  EXPECT_EQ(ask("/proc/none/here"), std::vector<fs::path>{"/proc/none/here"});
}

TEST(FileManagerTest, FindsTheDataFolderByTheXDGRules) {
  setenv("HOME", "/home/someone", 1);
  setenv("XDG_DATA_HOME", "/data", 1);
  EXPECT_EQ(applicationDataFolder("app"), "/data/app");
  for (const auto* ignored : {"", "relative/data"}) {
    setenv("XDG_DATA_HOME", ignored, 1);
    EXPECT_EQ(applicationDataFolder("app"), "/home/someone/.local/share/app");
  }
  unsetenv("HOME");
  EXPECT_EQ(applicationDataFolder("app"), "/var/lib/app");
}

TEST(LogTest, WritesDateProgramProcessThreadAndTextOnOneLine) {
  setenv("TZ", "KST-9", 1);
  const auto dispatch = VirtualDispatch::make(Date(std::chrono::milliseconds(1'769'862'896'789)));
  testing::internal::CaptureStderr();
  const LogSink log = standardErrorLog(dispatch);
  log("\xEC\x95\x88\xEB\x85\x95");
  std::thread([&] { log(""); }).join();
  const std::string text = testing::internal::GetCapturedStderr();
  const std::string begin = "2026-01-31 21:34:56.789 foundation_tests[" + std::to_string(getpid()) + ":";
  const std::string first = begin + std::to_string(getpid()) + "] \xEC\x95\x88\xEB\x85\x95\n";
  ASSERT_TRUE(text.starts_with(first)) << text;
  const std::string second = text.substr(first.size());
  EXPECT_TRUE(second.starts_with(begin)) << second;
  EXPECT_TRUE(second.ends_with("] \n")) << second;
  EXPECT_FALSE(second.starts_with(begin + std::to_string(getpid()) + "]")) << "another thread: " << second;
}

}  // namespace
}  // namespace platform
