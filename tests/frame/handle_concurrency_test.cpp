// References, releases and log lines from several threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "frame/handle.h"
#include "frame/log.h"
#include "frame/session.h"
#include "hub_directory.h"
#include "log_capture.h"
#include "pelarix.h"
#include "virtual_hub.h"

namespace pelarix {
namespace {

using testing::LogCapture;

constexpr int kThreads = 4;
constexpr int kRounds = 500;

// A session on a virtual hub of its own.
class HandleConcurrencyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    options_.directory = directory_.Path();
    hub_ = std::make_unique<vhub::VirtualHub>(options_);
    std::string error;
    ASSERT_TRUE(hub_->Start(&error)) << error;
    ASSERT_EQ(Pelarix_CreateSession(&handle_), Pelarix_Success);
  }

  vhub::ScopedHubDirectory directory_;
  vhub::VirtualHubOptions options_;
  std::unique_ptr<vhub::VirtualHub> hub_;
  LogCapture capture_{3};
  PelarixHandle handle_ = nullptr;
};

TEST_F(HandleConcurrencyTest, DuplicatesAndClosesBalance) {
  PelarixHandle handle = handle_;
  gLibrary.logLevel = 0;
  capture_.Clear();

  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        if (Pelarix_DuplicateHandle(handle) != Pelarix_Success) ++failures;
        if (Pelarix_CloseHandle(handle) != Pelarix_Success) ++failures;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(ReadRefCount(static_cast<HandleHeader *>(handle)), 1);
  EXPECT_TRUE(capture_.Lines().empty());
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
  EXPECT_FALSE(IsValidHandle(handle, kAnyHandle));
  EXPECT_TRUE(hub_->Model().WaitForNoSession(5000));
}

TEST_F(HandleConcurrencyTest, LastOfManyReleasesDestroysOnce) {
  PelarixHandle handle = handle_;
  for (int i = 1; i < kThreads * 10; ++i)
    ASSERT_EQ(Pelarix_DuplicateHandle(handle), Pelarix_Success);
  capture_.Clear();

  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 10; ++i) ReleaseHandle(static_cast<HandleHeader *>(handle));
    });
  }
  for (std::thread &thread : threads) thread.join();
  int destroyed = 0;
  for (const auto &[level, text] : capture_.Lines()) {
    if (text.rfind("Destroying inst: ", 0) == 0) ++destroyed;
  }
  EXPECT_EQ(destroyed, 1);
  EXPECT_FALSE(IsValidHandle(handle, kAnyHandle));
  EXPECT_TRUE(hub_->Model().WaitForNoSession(5000));
}

TEST(InitConcurrencyTest, OneOfManyInitCallsSucceeds) {
  testing::ResetLibraryState();
  std::atomic<int> successes{0};
  std::atomic<int> refusals{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads * 2; ++t) {
    threads.emplace_back([&] {
      const PelarixStatus status = Pelarix_InitEx(2, nullptr, 2, 0);
      if (status == Pelarix_Success) ++successes;
      if (status == Pelarix_InvalidState) ++refusals;
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(successes.load(), 1);
  EXPECT_EQ(refusals.load(), kThreads * 2 - 1);
  EXPECT_EQ(gLibrary.initCount.load(), 1);
  testing::ResetLibraryState();
}

TEST(LogConcurrencyTest, EveryThreadsLinesArriveWhole) {
  LogCapture capture(3);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kRounds; ++i) LogMessage(kLogTraffic, u"thread %d line %04d", t, i);
    });
  }
  for (std::thread &thread : threads) thread.join();
  const auto lines = capture.Lines();
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kRounds));
  std::vector<int> next(kThreads, 0);
  for (const auto &[level, text] : lines) {
    EXPECT_EQ(level, kLogTraffic);
    int thread = -1;
    int line = -1;
    ASSERT_EQ(std::sscanf(text.c_str(), "thread %d line %d", &thread, &line), 2) << text;
    ASSERT_GE(thread, 0);
    ASSERT_LT(thread, kThreads);
    EXPECT_EQ(line, next[thread]++);  // each thread's lines in its own order
  }
}

}  // namespace
}  // namespace pelarix
