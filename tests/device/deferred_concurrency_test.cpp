// Many string fetches back to back on several devices while two pumps loop:
// no fetch loses its wake-up. Each device's fetches are driven here directly,
// one after the other, as its deferred thread drives them once the fixed
// pause is over; the run does not wait the pause out.
#include "deferred_fixture.h"
#include "device/device_state.h"
#include "device/string_fetch.h"
#include "device/string_store.h"
#include "frame/session.h"

namespace pelarix {
namespace {

using testing::AnswerBytes;
using testing::Clock;
using testing::DeferredTest;
using testing::StringDescriptor;

constexpr int kDevices = 4;
constexpr uint32_t kFetchesPerDevice = 150;
constexpr int kPumps = 2;

// A pump of the caller's: every item it gets is a fetch item, answered with
// a good string and closed.
void PumpUntilCancelled(PelarixHandle session, std::atomic<int> *answered,
                        std::atomic<int> *ended) {
  const std::vector<uint8_t> descriptor = StringDescriptor("Back to back");
  for (;;) {
    PelarixHandle item = nullptr;
    const PelarixStatus status = Pelarix_GetNextItem(session, &item);
    if (status != Pelarix_Success) {
      EXPECT_EQ(status, Pelarix_Cancelled);
      ++*ended;
      return;
    }
    auto *record = static_cast<PelarixItem *>(item);
    const std::vector<uint8_t> request(record->record, record->record + record->dataLength);
    const std::vector<uint8_t> answer = AnswerBytes(request, descriptor);
    EXPECT_EQ(Pelarix_CompleteItem(item, 0, static_cast<uint32_t>(answer.size()), answer.data()),
              Pelarix_Success);
    EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
    ++*answered;
  }
}

TEST_F(DeferredTest, ManyFetchesBackToBackOnSeveralDevicesNeverLoseTheirWakeUp) {
  OpenSession();
  gLibrary.logLevel = 0;  // only failures: the run makes thousands of lines otherwise
  std::vector<PelarixDevice *> devices;
  for (int i = 0; i < kDevices; ++i) {
    PelarixHandle handle = Stringless();
    ASSERT_EQ(Pelarix_PluginDevice(handle), Pelarix_Success);
    auto *device = static_cast<PelarixDevice *>(handle);
    // The event a deferred thread waits on; the device closes it at its end.
    ASSERT_EQ(platform::CreateEvent(false, &device->deferredEvent), 0u);
    devices.push_back(device);
  }
  std::atomic<int> answered{0};
  std::atomic<int> pumpsEnded{0};
  std::vector<std::thread> pumps;
  for (int i = 0; i < kPumps; ++i) {
    pumps.emplace_back(PumpUntilCancelled, session_, &answered, &pumpsEnded);
  }

  std::atomic<int> finished{0};
  std::atomic<int> failures{0};
  std::vector<std::thread> fetchers;
  for (PelarixDevice *device : devices) {
    fetchers.emplace_back([device, &finished, &failures] {
      for (uint32_t n = 0; n < kFetchesPerDevice; ++n) {
        const uint8_t index = static_cast<uint8_t>(1 + n % 200);
        if (GetStringDescriptor(device, index, kEnglishUs) != Pelarix_Success) ++failures;
      }
      ++finished;
    });
  }
  // A lost wake-up leaves a fetch waiting for ever: after a generous bound
  // the waits are ended by a stop, and the case fails.
  const auto deadline = Clock::now() + std::chrono::seconds(45);
  while (finished.load() < kDevices && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const bool allFinished = finished.load() == kDevices;
  while (finished.load() < kDevices) {
    for (PelarixDevice *device : devices) {
      StoreField(device->stopDeferred, 1);
      platform::SetEvent(device->deferredEvent);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  for (std::thread &fetcher : fetchers) fetcher.join();
  // Cancels that no pump has taken yet fold into one: cancel until each
  // pump has returned.
  while (pumpsEnded.load() < kPumps) {
    Pelarix_CancelGetItem(session_);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  for (std::thread &pump : pumps) pump.join();

  EXPECT_TRUE(allFinished) << "a fetch lost its wake-up";
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(answered.load(), kDevices * static_cast<int>(kFetchesPerDevice));
  for (PelarixDevice *device : devices) {
    EXPECT_EQ(StringStoreCount(device->stringStore), kFetchesPerDevice);
    EXPECT_EQ(device->fetchGetItem, nullptr);
    EXPECT_EQ(device->fetchComplete, nullptr);
    EXPECT_EQ(Pelarix_UnplugDevice(device), Pelarix_Success);
    EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  }
}

// The gap itself: a pump has walked the devices and not yet lowered
// deferredPluginEvent, both under deviceListLock (held here in its place).
// A fetch announced in that gap must not be lost to the reset.
TEST_F(DeferredTest, FetchAnnouncedBetweenThePumpsWalkAndResetKeepsItsWakeUp) {
  OpenSession();
  PelarixHandle handle = Stringless();
  ASSERT_EQ(Pelarix_PluginDevice(handle), Pelarix_Success);
  auto *device = static_cast<PelarixDevice *>(handle);
  ASSERT_EQ(platform::CreateEvent(false, &device->deferredEvent), 0u);
  auto *session = static_cast<PelarixSession *>(session_);

  platform::EnterLock(&session->deviceListLock);  // the pump's walk is over
  std::atomic<PelarixStatus> fetched{Pelarix_InvalidState};
  std::thread fetcher([&] { fetched = GetStringDescriptor(device, 0, 0); });
  // The announcement waits for the list: nothing is raised in the gap.
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(platform::WaitForEvent(session->deferredPluginEvent, 0), platform::kWaitTimeout);
  platform::ResetEvent(session->deferredPluginEvent);  // the pump's reset
  platform::LeaveLock(&session->deviceListLock);

  // The fetch raises the event after the reset, and the pump finds it.
  if (platform::WaitForEvent(session->deferredPluginEvent, 20000) != platform::kWaitObject0) {
    StoreField(device->stopDeferred, 1);  // ends the lost fetch's wait
    platform::SetEvent(device->deferredEvent);
    fetcher.join();
    FAIL() << "the fetch lost its wake-up";
  }
  PelarixHandle item = nullptr;
  ASSERT_EQ(Pelarix_GetNextItem(session_, &item), Pelarix_Success);
  EXPECT_NE(static_cast<PelarixItem *>(item)->flags & kItemInternal, 0u);
  const auto *record = static_cast<PelarixItem *>(item)->record;
  const std::vector<uint8_t> answer = AnswerBytes(
      std::vector<uint8_t>(record, record + kStringRequestRecordBytes), StringDescriptor("Gap"));
  EXPECT_EQ(Pelarix_CompleteItem(item, 0, static_cast<uint32_t>(answer.size()), answer.data()),
            Pelarix_Success);
  fetcher.join();
  EXPECT_EQ(fetched.load(), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  EXPECT_EQ(StringStoreCount(device->stringStore), 1u);
  EXPECT_EQ(Pelarix_UnplugDevice(handle), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
}

}  // namespace
}  // namespace pelarix
