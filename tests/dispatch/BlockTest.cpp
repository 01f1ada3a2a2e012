#include <array>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/dispatch/BlockBatch.h"
#include "platform/dispatch/VirtualDispatch.h"

namespace platform {
namespace {

template <class Padding>
void expectKeptAndLetGoOf() {
  const auto calls = std::make_shared<int>(0);
  {
    dispatch_block_t block = [calls, padding = Padding{}] {
      static_cast<void>(padding);
      ++*calls;
    };
    dispatch_block_t copy = block;
    dispatch_block_t moved = std::move(block);
    EXPECT_FALSE(block);  // NOLINT(bugprone-use-after-move): that nothing is left is promised
    EXPECT_EQ(calls.use_count(), 3);
    block = copy;
    copy = std::move(moved);
    EXPECT_EQ(calls.use_count(), 3);
    block();
    copy();
  }
  EXPECT_EQ(*calls, 2);
  EXPECT_EQ(calls.use_count(), 1);
}

TEST(Block, KeepsWhatItRunsInItselfOrOutside) {
  expectKeptAndLetGoOf<char>();
  expectKeptAndLetGoOf<std::array<char, 64>>();
  EXPECT_FALSE(dispatch_block_t(std::function<void()>()));
}

TEST(BlockBatch, RunsWhatComesMeanwhileBehindItsFirstBlock) {
  const auto dispatch = VirtualDispatch::make();
  const auto queue = dispatch->createQueue("batch");
  const auto batch = std::make_shared<BlockBatch>(queue);
  std::string order;
  const auto note = [&order](char name) { return [&order, name] { order += name; }; };
  for (int round = 0; round < 2; ++round) {
    batch->async(note('a'));
    queue->async(note('x'));
    batch->async([&, note] {
      order += 'b';
      batch->async(note('d'));
    });
    batch->async(note('c'));
    dispatch->runDue();
  }
  EXPECT_EQ(order, "abcxdabcxd");
}

TEST(Mutex, LetsOneInAtATime) {
  constexpr int kTimes = 20'000;
  Mutex mutex;
  int count = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int time = 0; time < kTimes; ++time) {
        mutex.lock();
        ++count;
        mutex.unlock();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(count, 4 * kTimes);
}

}  // namespace
}  // namespace platform
