// The pump's deferred fetch branch and the completion of fetch items, with a
// stand-in for the device's fetch steps (set by hand, as a deferred plug-in
// thread sets them).
#include <cstdlib>

#include "frame/record_pool.h"
#include "item_fixture.h"

namespace pelarix {
namespace {

using testing::ItemTest;
using testing::LogLines;
using testing::Pattern;
using testing::Ptr;

struct FetchSeen {
  int getCalls = 0;
  bool fail = false;
  int completeCalls = 0;
  bool wasParked = false;
  uint32_t status = 0;
  uint32_t length = 0;
  const void *data = nullptr;
};
FetchSeen gSeen;

void StubComplete(PelarixItem *item, bool wasParked, uint32_t status, uint32_t length,
                  const void *data) {
  ++gSeen.completeCalls;
  gSeen.wasParked = wasParked;
  gSeen.status = status;
  gSeen.length = length;
  gSeen.data = data;
  DeviceOf(item)->fetchComplete = nullptr;
}

PelarixStatus StubGetItem(PelarixDevice *device, PelarixItem **out) {
  ++gSeen.getCalls;
  device->fetchGetItem = nullptr;
  if (gSeen.fail) return Pelarix_OutOfMemory;
  auto *item = static_cast<PelarixItem *>(AllocateRecord(kItemHandle, sizeof(PelarixItem)));
  InitHandleHeader(&item->header, kItemHandle, &device->header);
  platform::InitLock(&item->lock);
  item->flags = kItemInternal;
  item->buffer = static_cast<uint8_t *>(std::calloc(1, 120));
  item->bufferLength = 120;
  item->record = item->buffer;
  item->dataLength = 120;
  item->itemId = device->fetchItemId;
  device->fetchComplete = StubComplete;
  *out = item;
  return Pelarix_Success;
}

class FetchTest : public ItemTest {
 protected:
  void AnnounceFetch() {
    gSeen = FetchSeen{};
    Device()->fetchItemId = 555;
    Device()->fetchGetItem = StubGetItem;
    platform::SetEvent(static_cast<PelarixSession *>(session_)->deferredPluginEvent);
  }
};

TEST_F(FetchTest, CancelBeatsTheFetchAndTheFetchBeatsTheHub) {
  Start();
  const uint32_t hubItem = Queue(0, Pattern(4));
  AnnounceFetch();
  ASSERT_EQ(Pelarix_CancelGetItem(session_), Pelarix_Success);
  PelarixHandle item = nullptr;
  EXPECT_EQ(Pelarix_GetNextItem(session_, &item), Pelarix_Cancelled);
  EXPECT_EQ(gSeen.getCalls, 0);
  ClearLog();
  PelarixHandle fetch = Next();
  EXPECT_EQ(gSeen.getCalls, 1);
  EXPECT_EQ(Record(fetch)->itemId, 555u);
  EXPECT_EQ(Record(fetch)->flags, uint32_t{kItemInternal});
  EXPECT_EQ(Device()->items, Record(fetch));
  EXPECT_EQ(Lines()[0], (LogLines::value_type{2, "Deferred plugin get item found, handle: " +
                                                     Ptr(session_) + ", PlugNo: 1, Item Id: 555"}));
  EXPECT_TRUE(Model().RequestsOf(IOCTL_HUB_GET_ITEM).empty());
  // The event is still up: one more pass finds nothing, resets it, and the
  // hub's item follows.
  PelarixHandle fromHub = Next();
  EXPECT_EQ(Record(fromHub)->itemId, hubItem);
  EXPECT_EQ(Device()->itemCount, 1u);  // the fetch item is not counted
  EXPECT_EQ(Device()->header.refCount, 1);
  EXPECT_EQ(Pelarix_CloseHandle(fromHub), Pelarix_Success);
  // A dropped fetch item is completed through its device, not the hub.
  const size_t before = Model().Completions().size();
  EXPECT_EQ(Pelarix_CloseHandle(fetch), Pelarix_Success);
  EXPECT_EQ(gSeen.completeCalls, 1);
  EXPECT_EQ(gSeen.status, 0xFFFFFFFFu);
  EXPECT_EQ(Model().Completions().size(), before);
}

TEST_F(FetchTest, FailedFetchGivesItsDeviceReferenceBack) {
  Start();
  const uint32_t hubItem = Queue(0, Pattern(4));
  AnnounceFetch();
  gSeen.fail = true;
  PelarixHandle item = Next();
  EXPECT_EQ(gSeen.getCalls, 1);
  EXPECT_EQ(Record(item)->itemId, hubItem);
  EXPECT_EQ(Device()->header.refCount, 1);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

TEST_F(FetchTest, FetchItemCompletionsGoToTheDevice) {
  Start();
  AnnounceFetch();
  PelarixHandle fetch = Next();
  const std::vector<uint8_t> answer = Pattern(90);
  EXPECT_EQ(Pelarix_CompleteItem(fetch, 0, 90, answer.data()), Pelarix_Success);
  EXPECT_EQ(gSeen.completeCalls, 1);
  EXPECT_EQ(gSeen.status, 0u);
  EXPECT_EQ(gSeen.length, 90u);
  EXPECT_EQ(gSeen.data, answer.data());
  EXPECT_TRUE(Model().Completions().empty());
  EXPECT_EQ(Pelarix_CloseHandle(fetch), Pelarix_Success);
  EXPECT_EQ(gSeen.completeCalls, 1);
}

// The raw record is read only as far as the caller's length reaches.
TEST_F(FetchTest, RawCompletionOfAFetchItemReadsOnlyTheRecord) {
  Start();
  AnnounceFetch();
  PelarixHandle shortRecord = Next();
  const uint8_t cut[4] = {1, 2, 3, 4};
  EXPECT_EQ(Pelarix_CompleteItemRaw(shortRecord, sizeof cut, cut), Pelarix_Success);
  EXPECT_EQ(gSeen.status, 0xFFFFFFFFu);
  EXPECT_EQ(gSeen.length, 0u);
  EXPECT_EQ(gSeen.data, nullptr);
  EXPECT_EQ(Pelarix_CloseHandle(shortRecord), Pelarix_Success);

  AnnounceFetch();
  PelarixHandle overlong = Next();
  std::vector<uint8_t> record = {0, 0, 0, 0, 0, 0, 0, 0, 200, 0, 0, 0, 7, 7};
  EXPECT_EQ(Pelarix_CompleteItemRaw(overlong, static_cast<uint32_t>(record.size()), record.data()),
            Pelarix_Success);
  EXPECT_EQ(gSeen.status, 0u);
  EXPECT_EQ(gSeen.length, 2u);
  EXPECT_EQ(gSeen.data, record.data() + 12);
  EXPECT_EQ(Pelarix_CloseHandle(overlong), Pelarix_Success);
  EXPECT_TRUE(Model().RequestsOf(IOCTL_HUB_COMPLETE_ITEM).empty());
}

}  // namespace
}  // namespace pelarix
