// Recursive locks and suspended threads, run across threads (label
// concurrency, so they also run under ThreadSanitizer).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>

#include "platform/platform.h"

namespace pelarix::platform {
namespace {

struct Counter {
  RecursiveLock lock{};
  int value = 0;
};

uint32_t AddUnderNestedLock(void *argument) {
  auto *counter = static_cast<Counter *>(argument);
  for (int i = 0; i < 1000; ++i) {
    EnterLock(&counter->lock);
    EnterLock(&counter->lock);  // re-entry by the holder must not block
    counter->value += 1;
    LeaveLock(&counter->lock);
    LeaveLock(&counter->lock);
  }
  return 0;
}

TEST(LocksTest, RecursiveLockIsReenterableAndExcludesOtherThreads) {
  Counter counter;
  InitLock(&counter.lock);
  Thread threads[4] = {};
  for (auto &thread : threads) {
    ASSERT_EQ(CreateSuspendedThread(AddUnderNestedLock, &counter, &thread), kErrorSuccess);
  }
  for (auto &thread : threads) ResumeThread(thread);
  for (auto &thread : threads) {
    EXPECT_EQ(WaitForThread(thread, kInfinite), kWaitObject0);
    CloseThread(thread);
  }
  EXPECT_EQ(counter.value, 4000);
  DeleteLock(&counter.lock);
}

struct Flag {
  std::atomic<int> runs{0};
};

uint32_t MarkRun(void *argument) {
  static_cast<Flag *>(argument)->runs.fetch_add(1);
  return 0;
}

TEST(ThreadsTest, ThreadRunsOnlyOnceResumed) {
  Flag flag;
  Thread thread = nullptr;
  ASSERT_EQ(CreateSuspendedThread(MarkRun, &flag, &thread), kErrorSuccess);
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(WaitForThread(thread, 50), kWaitTimeout);
  EXPECT_EQ(flag.runs.load(), 0);
  ResumeThread(thread);
  EXPECT_EQ(WaitForThread(thread, kInfinite), kWaitObject0);
  EXPECT_EQ(flag.runs.load(), 1);
  EXPECT_EQ(WaitForThread(thread, 0), kWaitObject0);
  CloseThread(thread);
}

TEST(ThreadsTest, ThreadClosedBeforeResumeNeverRuns) {
  Flag flag;
  Thread thread = nullptr;
  ASSERT_EQ(CreateSuspendedThread(MarkRun, &flag, &thread), kErrorSuccess);
  CloseThread(thread);
  Sleep(20);
  EXPECT_EQ(flag.runs.load(), 0);
}

struct Gate {
  Event release = nullptr;
  std::atomic<int> done{0};
};

uint32_t WaitForGate(void *argument) {
  auto *gate = static_cast<Gate *>(argument);
  WaitForEvent(gate->release, kInfinite);
  gate->done.store(1);
  return 0;
}

TEST(ThreadsTest, RunningThreadGoesOnAfterItsHandleIsClosed) {
  Gate gate;
  ASSERT_EQ(CreateEvent(true, &gate.release), kErrorSuccess);
  Thread thread = nullptr;
  ASSERT_EQ(CreateSuspendedThread(WaitForGate, &gate, &thread), kErrorSuccess);
  ResumeThread(thread);
  CloseThread(thread);
  SetEvent(gate.release);
  while (gate.done.load() == 0) Sleep(1);
  CloseEvent(gate.release);
}

TEST(ThreadsTest, NullThreadIsTolerated) {
  ResumeThread(nullptr);
  CloseThread(nullptr);
  EXPECT_EQ(WaitForThread(nullptr, 0), kWaitFailed);
}

// Several waiters on one auto-reset event: each set releases exactly one.
struct AutoResetRace {
  Event event = nullptr;
  Event stop = nullptr;
  std::atomic<int> released{0};
};

uint32_t WaitOnAutoReset(void *argument) {
  auto *race = static_cast<AutoResetRace *>(argument);
  Event events[2] = {race->stop, race->event};
  while (WaitForAnyEvent(events, 2, kInfinite) == kWaitObject0 + 1) race->released.fetch_add(1);
  return 0;
}

TEST(EventsConcurrencyTest, AutoResetSetReleasesExactlyOneOfManyWaiters) {
  AutoResetRace race;
  ASSERT_EQ(CreateEvent(false, &race.event), kErrorSuccess);
  ASSERT_EQ(CreateEvent(true, &race.stop), kErrorSuccess);
  Thread threads[3] = {};
  for (auto &thread : threads) {
    ASSERT_EQ(CreateSuspendedThread(WaitOnAutoReset, &race, &thread), kErrorSuccess);
    ResumeThread(thread);
  }
  for (int round = 1; round <= 20; ++round) {
    SetEvent(race.event);
    while (race.released.load() < round) Sleep(1);
    Sleep(1);
    EXPECT_EQ(race.released.load(), round);
  }
  SetEvent(race.stop);
  for (auto &thread : threads) {
    EXPECT_EQ(WaitForThread(thread, kInfinite), kWaitObject0);
    CloseThread(thread);
  }
  EXPECT_EQ(race.released.load(), 20);
  CloseEvent(race.event);
  CloseEvent(race.stop);
}

TEST(EventsConcurrencyTest, ManualResetReleasesEveryWaiter) {
  Gate gates[3];
  Event shared = nullptr;
  ASSERT_EQ(CreateEvent(true, &shared), kErrorSuccess);
  Thread threads[3] = {};
  for (int i = 0; i < 3; ++i) {
    gates[i].release = shared;
    ASSERT_EQ(CreateSuspendedThread(WaitForGate, &gates[i], &threads[i]), kErrorSuccess);
    ResumeThread(threads[i]);
  }
  SetEvent(shared);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(WaitForThread(threads[i], kInfinite), kWaitObject0);
    CloseThread(threads[i]);
    EXPECT_EQ(gates[i].done.load(), 1);
  }
  CloseEvent(shared);
}

}  // namespace
}  // namespace pelarix::platform
