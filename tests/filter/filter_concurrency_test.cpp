// Two sessions may filter at once: the shared text of toString, the
// dictionary that any manager may release, and the filter log are used from
// several threads here (run under ThreadSanitizer with the tsan preset).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "device_fixtures.h"
#include "ordo/usb/dev_filter_mgr_agent.h"
#include "ordo/usb/filter_language.h"

namespace ordo::usb {
namespace {

constexpr int kRounds = 2000;

TEST(FilterConcurrency, SharedTextOfToStringBelongsToEachThread) {
  auto run = [](const std::string &word, std::atomic<int> &failures) {
    for (int i = 0; i < kRounds; ++i) {
      FltValue first(FilterTypeExfa, word);
      if (first.toString() != word) ++failures;
      FltValue second(FilterTypeExfa, word + "x");
      if (second.toString() != word + "x") ++failures;
      // first is cached and gives what this thread built last.
      if (first.toString() != word + "x") ++failures;
    }
  };
  std::atomic<int> failures{0};
  std::thread a(run, "audio", std::ref(failures));
  std::thread b(run, "storage", std::ref(failures));
  a.join();
  b.join();
  EXPECT_EQ(failures.load(), 0);
}

std::atomic<int> linesSeen{0};
void countLine(uint32_t, const char *format, va_list args) {
  char buffer[512];
  std::vsnprintf(buffer, sizeof buffer, format, args);
  ++linesSeen;
}

TEST(FilterConcurrency, TwoFilteringsWhileTheDictionaryIsReleased) {
  SetFilterLogHook(&countLine, 0);
  FilterSettings settings;
  settings.setDefaultPreferences(true);
  settings.list().add(
      "exid:m:vid-1234_pid-****;vid-12**_pid-5678 inid:m:vid-0001_pid-0002 exfa:m:storage "
      "usehid:o:false");
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  auto filter = [&](const std::string &id, int32_t expected) {
    for (int i = 0; i < kRounds; ++i) {
      if (settings.evaluateId(id) != expected) ++wrong;
      if (settings.evaluateFamily("storage") != FilterEvalExcluded) ++wrong;
      if (settings.getBool(FilterTypeUsehid)) ++wrong;
      FilterList local;
      local.add("exfa:m:hid spid:m:vid-1_pid-2(exintf:1) foo:%s");
      local.dump();
    }
  };
  std::thread releaser([&] {
    while (!stop.load()) {
      FilterDictionary::releaseInstance();
      std::this_thread::yield();
    }
  });
  std::thread a(filter, "vid-1234_pid-0042", FilterEvalExcluded);
  std::thread b(filter, "vid-0001_pid-0002", FilterEvalIncluded);
  a.join();
  b.join();
  stop = true;
  releaser.join();
  SetFilterLogHook(nullptr, 0);
  EXPECT_EQ(wrong.load(), 0);
  // Per round and thread: one refusal line and seven dump lines (banner,
  // two values, the MOI banner and two of its lines, end banner).
  EXPECT_EQ(linesSeen.load(), 2 * kRounds * 8);
}

TEST(FilterConcurrency, HookChangesWhileLogging) {
  std::atomic<bool> stop{false};
  std::thread setter([&] {
    while (!stop.load()) {
      SetFilterLogHook(&countLine, 0);
      SetFilterLogHook(nullptr, 0);
    }
  });
  for (int i = 0; i < kRounds; ++i) DevFltrLog(0, "line %d");
  stop = true;
  setter.join();
  SetFilterLogHook(&countLine, 7);
  EXPECT_EQ(GetFilterLogHook(), &countLine);
  EXPECT_EQ(GetFilterLogThreshold(), 7u);
  SetFilterLogHook(nullptr, 0);
}

// Every device record hands the filter log's hook to the descriptor model,
// so threads that filter devices write and read that hook together, while
// another session may change the filter log's.
TEST(FilterConcurrency, DevicesFilteredOnTwoThreadsWhileTheHookChanges) {
  const testing::DescriptorFile keyboard("realdesc/keyboard_holtek_04d9_1603.bin");
  const testing::DescriptorFile webcam("realdesc/webcam_logitech_c270_046d_0825.bin");
  DevFilterMgrAgent manager;
  manager.AddFilterRule("exfa:m:keyboard");
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  auto filter = [&](const testing::DescriptorFile &device, bool expected) {
    for (int i = 0; i < kRounds / 10; ++i) {
      if (manager.IsDeviceAllowed(device.device(), device.config()) != expected) ++wrong;
    }
  };
  std::thread setter([&] {
    while (!stop.load()) {
      SetFilterLogHook(&countLine, 0);
      SetFilterLogHook(nullptr, 0);
    }
  });
  std::thread a(filter, std::cref(keyboard), false);
  std::thread b(filter, std::cref(webcam), true);
  a.join();
  b.join();
  stop = true;
  setter.join();
  SetFilterLogHook(nullptr, 0);
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace ordo::usb
