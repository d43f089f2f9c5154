// The fetch steps on their own, driven here on a thread of the test's as the
// deferred thread drives them once its pause is over: the fetch item's
// buffer with the caller's room, in both allocation modes.
#include "device/string_fetch.h"

#include "deferred_fixture.h"
#include "device/string_store.h"

namespace pelarix {
namespace {

using testing::AnswerBytes;
using testing::DeferredTest;
using testing::FetchRecordBytes;
using testing::StringDescriptor;

struct RoomAsked {
  uint32_t length;
  uint32_t plugNo;
  friend bool operator==(const RoomAsked &, const RoomAsked &) = default;
};

void PELARIX_CALL AskForRoom(void *context, uint32_t length, uint32_t *prefix, uint32_t *suffix,
                             uint32_t plugNo) {
  static_cast<std::vector<RoomAsked> *>(context)->push_back({length, plugNo});
  *prefix = 16;
  *suffix = 8;
}

// The callback is asked for the first request's usual length (not the 120
// bytes the item takes), with no PlugNo, or with the device's own in late
// allocation mode, where a hub record would have named it.
TEST_F(DeferredTest, FetchItemGetsTheCallersRoomInBothAllocationModes) {
  std::vector<RoomAsked> asked;
  OpenSession(AskForRoom, &asked);
  PelarixHandle handle = Stringless();
  ASSERT_EQ(Pelarix_PluginDevice(handle), Pelarix_Success);
  auto *device = static_cast<PelarixDevice *>(handle);
  ASSERT_EQ(platform::CreateEvent(false, &device->deferredEvent), 0u);
  for (uint32_t late : {0u, 1u}) {
    gLibrary.lateItemAllocation = late;
    asked.clear();
    PelarixStatus fetched = Pelarix_Failure;
    std::thread fetcher([&] { fetched = GetStringDescriptor(device, 2, kEnglishUs); });
    PelarixHandle item = nullptr;
    ASSERT_EQ(Pelarix_GetNextItem(session_, &item), Pelarix_Success);
    EXPECT_EQ(asked, (std::vector<RoomAsked>{{552, late != 0 ? device->plugNo : 0xFFFFFFFFu}}));
    uint32_t prefix = 0;
    uint32_t suffix = 0;
    uint32_t dataLength = 0;
    void *buffer = nullptr;
    ASSERT_EQ(Pelarix_GetItemRaw(item, &prefix, &suffix, &dataLength, &buffer), Pelarix_Success);
    EXPECT_EQ(prefix, 16u);
    EXPECT_EQ(suffix, 8u);
    EXPECT_EQ(dataLength, 120u);
    EXPECT_EQ(static_cast<PelarixItem *>(item)->bufferLength, 16u + 120 + 8);
    const auto *bytes = static_cast<const uint8_t *>(buffer);
    const std::vector<uint8_t> record(bytes + prefix, bytes + prefix + dataLength);
    const uint32_t itemId = static_cast<PelarixItem *>(item)->itemId;
    EXPECT_EQ(record, FetchRecordBytes(itemId, 2, kEnglishUs));
    const std::vector<uint8_t> answer = AnswerBytes(record, StringDescriptor("Room"));
    EXPECT_EQ(Pelarix_CompleteItem(item, 0, static_cast<uint32_t>(answer.size()), answer.data()),
              Pelarix_Success);
    fetcher.join();
    EXPECT_EQ(fetched, Pelarix_Success);
    EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  }
  gLibrary.lateItemAllocation = 0;
  EXPECT_EQ(StringStoreCount(device->stringStore), 2u);
  EXPECT_EQ(Pelarix_UnplugDevice(handle), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
}

}  // namespace
}  // namespace pelarix
