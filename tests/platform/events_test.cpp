// Events: set/reset semantics of both kinds, the any-of wait's lowest index,
// time-outs, and the descriptor the hub sees.
#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#undef CreateEvent  // the platform layer's own function of that name
#else
#include <unistd.h>
#endif

#include <cstdint>

#include "platform/platform.h"

namespace pelarix::platform {
namespace {

class EventsTest : public ::testing::Test {
 protected:
  Event Make(bool manualReset) {
    Event event = nullptr;
    EXPECT_EQ(CreateEvent(manualReset, &event), kErrorSuccess);
    EXPECT_NE(event, nullptr);
    made_[count_++] = event;
    return event;
  }
  void TearDown() override {
    for (int i = 0; i < count_; ++i) CloseEvent(made_[i]);
  }

 private:
  Event made_[8] = {};
  int count_ = 0;
};

TEST_F(EventsTest, NewEventIsNotSignalled) {
  EXPECT_EQ(WaitForEvent(Make(true), 0), kWaitTimeout);
  EXPECT_EQ(WaitForEvent(Make(false), 0), kWaitTimeout);
}

TEST_F(EventsTest, ManualResetStaysSetUntilReset) {
  Event event = Make(true);
  SetEvent(event);
  EXPECT_EQ(WaitForEvent(event, 0), kWaitObject0);
  EXPECT_EQ(WaitForEvent(event, 0), kWaitObject0);
  ResetEvent(event);
  EXPECT_EQ(WaitForEvent(event, 0), kWaitTimeout);
}

TEST_F(EventsTest, ManualResetSetTwiceIsClearedByOneReset) {
  Event event = Make(true);
  SetEvent(event);
  SetEvent(event);
  ResetEvent(event);
  EXPECT_EQ(WaitForEvent(event, 0), kWaitTimeout);
}

TEST_F(EventsTest, AutoResetReleasesOneWait) {
  Event event = Make(false);
  SetEvent(event);
  EXPECT_EQ(WaitForEvent(event, 0), kWaitObject0);
  EXPECT_EQ(WaitForEvent(event, 0), kWaitTimeout);
}

TEST_F(EventsTest, AutoResetSetsWithoutWaiterFoldIntoOne) {
  Event event = Make(false);
  SetEvent(event);
  SetEvent(event);
  EXPECT_EQ(WaitForEvent(event, 0), kWaitObject0);
  EXPECT_EQ(WaitForEvent(event, 0), kWaitTimeout);
}

TEST_F(EventsTest, ResetOfClearEventKeepsItClear) {
  Event event = Make(false);
  ResetEvent(event);
  EXPECT_EQ(WaitForEvent(event, 0), kWaitTimeout);
}

TEST_F(EventsTest, AnyWaitReportsLowestSignalledIndex) {
  Event events[3] = {Make(false), Make(true), Make(true)};
  SetEvent(events[2]);
  SetEvent(events[1]);
  EXPECT_EQ(WaitForAnyEvent(events, 3, 0), kWaitObject0 + 1);
  SetEvent(events[0]);
  EXPECT_EQ(WaitForAnyEvent(events, 3, 0), kWaitObject0 + 0);
  // The auto-reset event at index 0 was consumed by that wait.
  EXPECT_EQ(WaitForAnyEvent(events, 3, 0), kWaitObject0 + 1);
  ResetEvent(events[1]);
  EXPECT_EQ(WaitForAnyEvent(events, 3, 0), kWaitObject0 + 2);
}

TEST_F(EventsTest, AnyWaitConsumesOnlyTheReportedAutoResetEvent) {
  Event events[2] = {Make(false), Make(false)};
  SetEvent(events[0]);
  SetEvent(events[1]);
  EXPECT_EQ(WaitForAnyEvent(events, 2, 0), kWaitObject0);
  EXPECT_EQ(WaitForAnyEvent(events, 2, 0), kWaitObject0 + 1);
  EXPECT_EQ(WaitForAnyEvent(events, 2, 0), kWaitTimeout);
}

TEST_F(EventsTest, AnyWaitTimesOutWhenNothingIsSet) {
  Event events[2] = {Make(false), Make(true)};
  EXPECT_EQ(WaitForAnyEvent(events, 2, 20), kWaitTimeout);
}

TEST_F(EventsTest, AnyWaitRefusesBadCounts) {
  Event event = Make(true);
  EXPECT_EQ(WaitForAnyEvent(&event, 0, 0), kWaitFailed);
  Event many[kMaxWaitEvents + 1] = {};
  for (auto &slot : many) slot = event;
  EXPECT_EQ(WaitForAnyEvent(many, kMaxWaitEvents + 1, 0), kWaitFailed);
}

TEST_F(EventsTest, NullEventIsToleratedAndFailsWaits) {
  SetEvent(nullptr);
  ResetEvent(nullptr);
  CloseEvent(nullptr);
  EXPECT_EQ(WaitForEvent(nullptr, 0), kWaitFailed);
  EXPECT_EQ(EventHandleValue(nullptr), 0u);
}

#ifdef _WIN32
// The hub raises and clears the session's event through the HANDLE value it
// was given: the library's waits must see both.
TEST_F(EventsTest, HandleValueIsAHandleAnotherPartyCanRaiseAndClear) {
  Event event = Make(true);
  HANDLE handle = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(EventHandleValue(event)));
  ASSERT_TRUE(::SetEvent(handle));
  EXPECT_EQ(WaitForEvent(event, 0), kWaitObject0);
  ASSERT_TRUE(::ResetEvent(handle));
  EXPECT_EQ(WaitForEvent(event, 0), kWaitTimeout);
}
#else
// The hub raises the session's event by writing to the descriptor it was
// given and clears it by reading: the library's waits must see both.
TEST_F(EventsTest, HandleValueIsADescriptorAnotherPartyCanRaiseAndClear) {
  Event event = Make(true);
  int fd = static_cast<int>(EventHandleValue(event));
  ASSERT_GE(fd, 0);
  uint64_t one = 1;
  ASSERT_EQ(write(fd, &one, sizeof one), 8);
  EXPECT_EQ(WaitForEvent(event, 0), kWaitObject0);
  uint64_t count = 0;
  ASSERT_EQ(read(fd, &count, sizeof count), 8);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(WaitForEvent(event, 0), kWaitTimeout);
}
#endif

TEST_F(EventsTest, ManyEventsAreDistinctDescriptors) {
  Event a = Make(true);
  Event b = Make(true);
  EXPECT_NE(EventHandleValue(a), EventHandleValue(b));
}

}  // namespace
}  // namespace pelarix::platform
