// Many threads sending on one hub connection at once: each request keeps its
// own answer (run under ThreadSanitizer with the label concurrency).
#include <set>
#include <thread>

#include "hub/hub_control_codes.h"
#include "hub/hub_records.h"
#include "hub/hub_request.h"
#include "hub/hub_requests.h"
#include "hub_fixture.h"

namespace pelarix::testing {
namespace {

class HubConcurrencyTest : public HubChannelTest {};

TEST_F(HubConcurrencyTest, ConcurrentRequestsEachGetTheirOwnAnswer) {
  Connect();
  constexpr int kThreads = 4;
  constexpr int kEach = 50;
  std::vector<std::vector<uint32_t>> ids(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([this, &ids, t] {
      for (int i = 0; i < kEach; ++i) {
        uint32_t id = 0;
        if (HubGetUniqueItemId(connection_, nullptr, &id) == Pelarix_Success) ids[t].push_back(id);
        // A larger frame between them, so that frames could interleave if
        // they were not sent whole.
        std::vector<uint8_t> record(20000, static_cast<uint8_t>(t));
        WriteHubCompleteRecord(record.data(), id, 0, nullptr, 20000 - 12);
        HubCompleteItem(connection_, nullptr, record.data(), 20000);
      }
    });
  }
  for (auto &thread : threads) thread.join();
  std::set<uint32_t> all;
  for (const auto &list : ids) {
    EXPECT_EQ(list.size(), static_cast<size_t>(kEach));
    EXPECT_TRUE(std::is_sorted(list.begin(), list.end()));
    all.insert(list.begin(), list.end());
  }
  EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kEach));
  EXPECT_EQ(*all.begin(), 1u);
  EXPECT_EQ(*all.rbegin(), static_cast<uint32_t>(kThreads * kEach));
  auto completions = Model().Completions();
  ASSERT_EQ(completions.size(), static_cast<size_t>(kThreads * kEach));
  for (const auto &completion : completions) {
    ASSERT_EQ(completion.record.size(), 20000u);
    uint8_t fill = completion.record[12];
    EXPECT_EQ(std::count(completion.record.begin() + 12, completion.record.end(), fill), 19988);
  }
}

TEST_F(HubConcurrencyTest, HubRaisesTheEventFromItsThreadForAWaitingPump) {
  Connect();
  platform::Event event = nullptr;
  ASSERT_EQ(platform::CreateEvent(true, &event), 0u);
  uint64_t value = platform::EventHandleValue(event);
  uint32_t bytes = 0;
  ASSERT_EQ(platform::HubControl(connection_, IOCTL_HUB_SET_NOTIFICATION_EVENT, &value, 8, nullptr,
                                 0, &bytes, event)
                .error,
            0u);
  std::thread pump([&] {
    for (int taken = 0; taken < 20;) {
      ASSERT_EQ(platform::WaitForEvent(event, platform::kInfinite), platform::kWaitObject0);
      uint8_t record[40];
      uint32_t received = 0;
      ASSERT_EQ(HubGetItem(connection_, nullptr, record, 40, &received), Pelarix_Success);
      if (received == 40) ++taken;
    }
  });
  for (int i = 0; i < 20; ++i) Model().QueueItem({});
  pump.join();
  EXPECT_EQ(Model().QueuedItems(), 0u);
  EXPECT_EQ(platform::WaitForEvent(event, 0), platform::kWaitTimeout);
  platform::CloseEvent(event);
}

// A request held in flight by the hub does not hold up the others on the
// same connection, and gets its own answer when released.
TEST_F(HubConcurrencyTest, HeldRequestWaitsWhileOthersPass) {
  Connect();
  Model().HoldAnswer(IOCTL_HUB_GET_NEXT_PLUG_NUMBER, vhub::HubAnswer{true, 0, {7, 0, 0, 0}});
  uint32_t plugNo = 0;
  PelarixStatus heldStatus = Pelarix_Failure;
  std::thread held([&] { heldStatus = HubGetNextPlugNumber(connection_, nullptr, &plugNo); });
  ASSERT_TRUE(Model().WaitForHeld(1, 10000));
  uint32_t id = 0;
  EXPECT_EQ(HubGetUniqueItemId(connection_, nullptr, &id), Pelarix_Success);
  EXPECT_EQ(id, 1u);
  EXPECT_FALSE(Model().ReleaseHeld(IOCTL_HUB_GET_UNIQUE_ITEM_ID));
  EXPECT_TRUE(Model().ReleaseHeld(IOCTL_HUB_GET_NEXT_PLUG_NUMBER));
  held.join();
  EXPECT_EQ(heldStatus, Pelarix_Success);
  EXPECT_EQ(plugNo, 7u);
}

TEST_F(HubConcurrencyTest, HeldRequestOfAStoppedHubIsDeviceNotConnected) {
  Connect();
  Model().HoldAnswer(IOCTL_HUB_GET_VERSION, {});
  uint32_t bytes = 0;
  uint32_t version = 0;
  uint32_t error = 0;
  std::thread held([&] {
    error = HubRequest(connection_, IOCTL_HUB_GET_VERSION, &version, 4, &version, 4, &bytes);
  });
  ASSERT_TRUE(Model().WaitForHeld(1, 10000));
  hubs_.front()->Stop();
  held.join();
  EXPECT_EQ(error, 1167u);
}

}  // namespace
}  // namespace pelarix::testing
