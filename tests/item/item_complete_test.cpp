// Answering, reading and parking items, and how they end with their device.
#include "item_fixture.h"

namespace pelarix {
namespace {

using testing::Decimal;
using testing::ItemTest;
using testing::LogLines;
using testing::Pattern;
using testing::Ptr;

std::vector<uint8_t> CompletionBytes(uint32_t id, uint32_t status, std::vector<uint8_t> data) {
  std::vector<uint8_t> bytes;
  testing::PutU32(bytes, id);
  testing::PutU32(bytes, status);
  testing::PutU32(bytes, static_cast<uint32_t>(data.size()));
  bytes.insert(bytes.end(), data.begin(), data.end());
  return bytes;
}

TEST_F(ItemTest, CompletionRecordIsExactAndASecondSendsNothing) {
  Start();
  const uint32_t id = Queue(0, Pattern(8));
  PelarixHandle item = Next();
  ClearLog();
  const std::vector<uint8_t> answer = {1, 2, 3, 4, 5};
  EXPECT_EQ(Pelarix_CompleteItem(item, 0x7, 5, answer.data()), Pelarix_Success);
  EXPECT_EQ(Pelarix_CompleteItem(item, 0, 0, nullptr), Pelarix_Success);
  const auto completions = Model().Completions();
  ASSERT_EQ(completions.size(), 1u);
  EXPECT_EQ(completions[0].record, CompletionBytes(id, 7, answer));
  const std::string internal = "Complete item, handle: " + Ptr(item) +
                               ", PlugNo: 1, Item Id: " + std::to_string(id) + ", status: 0x0";
  const std::string closing = "Complete item, handle: " + Decimal(item) + ", status: 0x0";
  EXPECT_EQ(Lines(), (LogLines{{3, internal}, {3, closing}, {3, internal}, {3, closing}}));
  EXPECT_EQ(Record(item)->state, kItemCompleted);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  EXPECT_EQ(Model().Completions().size(), 1u);
  EXPECT_EQ(Model().ItemProblems().size(), 0u);
}

TEST_F(ItemTest, EmptyCompletionIsTwelveBytesAndNullDataIsZeros) {
  Start();
  const uint32_t first = Queue(0);
  const uint32_t second = Queue(0);
  PelarixHandle a = Next();
  PelarixHandle b = Next();
  EXPECT_EQ(Pelarix_CompleteItem(a, 0, 0, nullptr), Pelarix_Success);
  EXPECT_EQ(Pelarix_CompleteItem(b, 1, 3, nullptr), Pelarix_Success);
  const auto completions = Model().Completions();
  ASSERT_EQ(completions.size(), 2u);
  EXPECT_EQ(completions[0].record, CompletionBytes(first, 0, {}));
  EXPECT_EQ(completions[1].record, CompletionBytes(second, 1, {0, 0, 0}));
  EXPECT_EQ(Pelarix_CloseHandle(a), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(b), Pelarix_Success);
}

TEST_F(ItemTest, LongCompletionIsSentWhole) {
  Start();
  const uint32_t id = Queue(0, Pattern(4));
  PelarixHandle item = Next();
  const std::vector<uint8_t> answer = Pattern(65536, 3);
  EXPECT_EQ(Pelarix_CompleteItem(item, 0, 65536, answer.data()), Pelarix_Success);
  EXPECT_EQ(Model().Completions()[0].record, CompletionBytes(id, 0, answer));
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

TEST_F(ItemTest, FailedCompletionIsRetriedByTheClose) {
  Start();
  const uint32_t id = Queue(0, Pattern(4));
  PelarixHandle item = Next();
  Model().FailRequest(IOCTL_HUB_COMPLETE_ITEM, 31, false);
  ClearLog();
  EXPECT_EQ(Pelarix_CompleteItem(item, 0, 1, "x"), Pelarix_HubRequestFailed);
  EXPECT_EQ(
      Lines(),
      (LogLines{{3, "Failed to complete virtual hub item handle: " + Ptr(item) + ", error: 0x1f"},
                {3, "Complete item, handle: " + Ptr(item) +
                        ", PlugNo: 1, Item Id: " + std::to_string(id) + ", status: 0x9"},
                {3, "Complete item, handle: " + Decimal(item) + ", status: 0x9"}}));
  EXPECT_EQ(Record(item)->state, kItemOpen);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  const auto completions = Model().Completions();
  ASSERT_EQ(completions.size(), 1u);
  EXPECT_EQ(completions[0].record, CompletionBytes(id, 0xFFFFFFFF, {}));
}

TEST_F(ItemTest, RawCompletionGoesAsItStands) {
  Start();
  const uint32_t id = Queue(0, Pattern(4));
  PelarixHandle item = Next();
  // Neither the id nor the length field is checked.
  std::vector<uint8_t> record = CompletionBytes(id + 1000, 0, {9, 9});
  record.push_back(0xEE);
  ClearLog();
  EXPECT_EQ(Pelarix_CompleteItemRaw(item, static_cast<uint32_t>(record.size()), record.data()),
            Pelarix_Success);
  EXPECT_EQ(Pelarix_CompleteItemRaw(item, static_cast<uint32_t>(record.size()), record.data()),
            Pelarix_Success);
  const auto requests = Model().RequestsOf(IOCTL_HUB_COMPLETE_ITEM);
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].input, record);
  EXPECT_EQ(Lines(),
            (LogLines{{3, "Complete item (raw), handle: " + Decimal(item) + ", status: 0x0"},
                      {3, "Complete item (raw), handle: " + Decimal(item) + ", status: 0x0"}}));
  EXPECT_EQ(Pelarix_CompleteItemRaw(item, 4, nullptr), Pelarix_Success);  // completed already
  EXPECT_EQ(Pelarix_CompleteItemRaw(device_, 0, nullptr), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

// The caller's record is what the hub reads: null with a length has nothing
// to send.
TEST_F(ItemTest, RawCompletionWithoutARecordIsAnInvalidParameter) {
  Start();
  Queue(0, Pattern(4));
  PelarixHandle item = Next();
  ClearLog();
  EXPECT_EQ(Pelarix_CompleteItemRaw(item, 12, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Lines(),
            (LogLines{{3, "Complete item (raw), handle: " + Decimal(item) + ", status: 0x6"}}));
  EXPECT_TRUE(Model().RequestsOf(IOCTL_HUB_COMPLETE_ITEM).empty());
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

TEST_F(ItemTest, GettersCheckTheirHandleAndPointers) {
  Start();
  const uint32_t id = Queue(0, Pattern(4));
  PelarixHandle item = Next();
  ClearLog();
  uint32_t word = 0;
  EXPECT_EQ(Pelarix_GetItemId(item, &word), Pelarix_Success);
  EXPECT_EQ(word, id);
  uint32_t a = 1, b = 2, c = 3;
  void *buffer = &buffer;
  EXPECT_EQ(Pelarix_GetItemRaw(item, nullptr, &b, &c, &buffer), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_GetItemRaw(item, &a, nullptr, &c, &buffer), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_GetItemRaw(item, &a, &b, nullptr, &buffer), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_GetItemRaw(item, &a, &b, &c, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(a, 1u);
  EXPECT_EQ(b, 2u);
  EXPECT_EQ(c, 3u);
  EXPECT_EQ(buffer, &buffer);
  EXPECT_EQ(Pelarix_GetItemId(item, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_GetItemInfo(item, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_GetItemDeviceHandle(item, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_GetItemId(device_, &word), Pelarix_InvalidHandle);
  const std::string h = Decimal(item);
  const LogLines expected = {{3, "Get item ID, handle: " + h + ", status: 0x0"},
                             {0, "Invalid parameter, null param"},
                             {3, "Get item info (raw), handle: " + h + ", status: 0x6"},
                             {0, "Invalid parameter, null param"},
                             {3, "Get item info (raw), handle: " + h + ", status: 0x6"},
                             {0, "Invalid parameter, null param"},
                             {3, "Get item info (raw), handle: " + h + ", status: 0x6"},
                             {0, "Invalid parameter, null param"},
                             {3, "Get item info (raw), handle: " + h + ", status: 0x6"},
                             {0, "Invalid parameter, itemId is null"},
                             {3, "Get item ID, handle: " + h + ", status: 0x6"},
                             {0, "Invalid parameter, itemInfo is null"},
                             {3, "Get item info, handle: " + h + ", status: 0x6"},
                             {0, "Invalid parameter, deviceHandle is null"},
                             {3, "Get item device handle, handle: " + h + ", status: 0x6"},
                             {0, "Invalid item handle: " + Ptr(device_)},
                             {3, "Get item ID, handle: " + Decimal(device_) + ", status: 0x5"}};
  EXPECT_EQ(Lines(), expected);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

TEST_F(ItemTest, DeviceHandleOfAnItemIsANewReference) {
  Start();
  Queue(0, Pattern(4));
  PelarixHandle item = Next();
  PelarixHandle device = nullptr;
  EXPECT_EQ(Pelarix_GetItemDeviceHandle(item, &device), Pelarix_Success);
  EXPECT_EQ(device, device_);
  EXPECT_EQ(Device()->header.refCount, 2);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  // The device's own handle closed: it lingers for its item, but cannot be
  // handed out again. Completing the item still works.
  EXPECT_EQ(Pelarix_CloseHandle(device_), Pelarix_Success);
  ClearLog();
  PelarixHandle again = nullptr;
  EXPECT_EQ(Pelarix_GetItemDeviceHandle(item, &again), Pelarix_InvalidHandle);
  EXPECT_EQ(again, nullptr);
  EXPECT_EQ(Lines(),
            (LogLines{{0, "Invalid handle: " + Ptr(device_)},
                      {3, "Duplicate handle: " + Ptr(device_) + ", Ref: 0, status: 0x5"},
                      {3, "Get item device handle, handle: " + Decimal(item) + ", status: 0x5"}}));
  EXPECT_EQ(Pelarix_CompleteItem(item, 0, 0, nullptr), Pelarix_Success);
  EXPECT_EQ(Model().Completions().size(), 1u);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

// The open item of a device whose handle is closed: the device lingers, and
// the close of the item completes it with 0xFFFFFFFF and frees both, and the
// session too once its handle is gone.
TEST_F(ItemTest, OpenItemIsCompletedWhenItsDeviceGoes) {
  Start();
  const uint32_t id = Queue(0, Pattern(4));
  PelarixHandle item = Next();
  ASSERT_EQ(Pelarix_CloseHandle(device_), Pelarix_Success);
  EXPECT_EQ(Model().Unplugs(), (std::vector<uint32_t>{1}));  // unplugged at the close
  EXPECT_EQ(Device()->header.magic, kHandleMagic);           // lingering for its item
  ASSERT_EQ(Pelarix_CloseHandle(session_), Pelarix_Success);
  EXPECT_TRUE(Model().SessionOpen());
  EXPECT_TRUE(Model().Completions().empty());
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  const auto completions = Model().Completions();
  ASSERT_EQ(completions.size(), 1u);
  EXPECT_EQ(completions[0].record, CompletionBytes(id, 0xFFFFFFFF, {}));
  EXPECT_EQ(Device()->header.magic, 0u);
  EXPECT_TRUE(Model().WaitForNoSession(5000));
  session_ = nullptr;
}

TEST_F(ItemTest, UnplugLinePrintsTheCounters) {
  Start();
  Queue(0, Pattern(600));
  Queue(0, Pattern(10));
  Queue(1);
  for (int i = 0; i < 3; ++i) {
    PelarixHandle item = Next();
    EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  }
  ClearLog();
  ASSERT_EQ(Pelarix_UnplugDevice(device_), Pelarix_Success);
  EXPECT_EQ(Lines().back(),
            (LogLines::value_type{2, "Unplug device, handle: " + Ptr(device_) +
                                         ", PlugNo: 1, Item Count: 3, Item Call Count: 4, Item "
                                         "Max Len: 600, status: 0x0"}));
}

TEST_F(ItemTest, UniqueItemIdsComeFromTheHub) {
  Start();
  uint32_t id = 5;
  EXPECT_EQ(Pelarix_GetUniqueItemId(session_, &id), Pelarix_Success);
  EXPECT_EQ(id, 1u);
  Model().FailRequest(IOCTL_HUB_GET_UNIQUE_ITEM_ID, 31, false);
  EXPECT_EQ(Pelarix_GetUniqueItemId(session_, &id), Pelarix_HubRequestFailed);
  EXPECT_EQ(id, 0u);
  EXPECT_EQ(Pelarix_GetUniqueItemId(session_, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_GetUniqueItemId(device_, &id), Pelarix_InvalidHandle);
  const std::string hub = Ptr(static_cast<PelarixSession *>(session_)->hubHandle);
  EXPECT_EQ(Lines(), (LogLines{{2, "Get unique item Id, Item Id: 1, status: 0x0"},
                               {0, "Failed to retrieve unique item Id from virtual hub handle: " +
                                       hub + ", error: 0x1f"},
                               {2, "Get unique item Id, Item Id: 0, status: 0x9"},
                               {0, "Invalid parameter, itemId is null"},
                               {2, "Get unique item Id, Item Id: 0, status: 0x6"},
                               {0, "Invalid session handle: " + Ptr(device_)},
                               {2, "Get unique item Id, Item Id: 0, status: 0x5"}}));
}

TEST_F(ItemTest, ParkedItemIsFoundAgainByIdOnAnotherThread) {
  Start();
  const uint32_t id = Queue(0, Pattern(4));
  PelarixHandle item = Next();
  ClearLog();
  EXPECT_EQ(Pelarix_ParkItem(item), Pelarix_Success);
  EXPECT_EQ(Record(item)->state, kItemParked);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);  // the parked state holds it
  EXPECT_EQ(Record(item)->header.magic, kHandleMagic);
  PelarixHandle found = nullptr;
  std::thread other([&] { EXPECT_EQ(Pelarix_UnparkItem(id, session_, &found), Pelarix_Success); });
  other.join();
  EXPECT_EQ(found, item);
  EXPECT_EQ(Record(item)->state, kItemOpen);
  const LogLines lines = Lines();
  EXPECT_EQ(lines.front(),
            (LogLines::value_type{3, "Duplicate handle: " + Ptr(item) + ", Ref: 2, status: 0x0"}));
  EXPECT_EQ(lines[1],
            (LogLines::value_type{3, "Park item, handle: " + Decimal(item) + ", status: 0x0"}));
  EXPECT_EQ(lines.back(),
            (LogLines::value_type{3, "Unpark item, handle: " + Decimal(&found) + ", status: 0x0"}));
  // Not parked any more: a second unpark finds nothing.
  PelarixHandle none = &none;
  EXPECT_EQ(Pelarix_UnparkItem(id, session_, &none), Pelarix_InvalidParameter);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(Pelarix_CompleteItem(found, 0, 0, nullptr), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(found), Pelarix_Success);
  EXPECT_EQ(Record(item)->header.magic, 0u);
}

TEST_F(ItemTest, UnparkChecksItsArguments) {
  Start();
  PelarixHandle none = &none;
  EXPECT_EQ(Pelarix_UnparkItem(42, session_, &none), Pelarix_InvalidParameter);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(Pelarix_UnparkItem(42, session_, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_UnparkItem(42, device_, &none), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_ParkItem(device_), Pelarix_InvalidHandle);
  EXPECT_EQ(Lines(), (LogLines{{3, "Unpark item, handle: " + Decimal(&none) + ", status: 0x6"},
                               {0, "Invalid parameter, handle is null"},
                               {3, "Unpark item, handle: 0, status: 0x6"},
                               {0, "Invalid session handle: " + Ptr(device_)},
                               {3, "Unpark item, handle: " + Decimal(&none) + ", status: 0x5"},
                               {0, "Invalid item handle: " + Ptr(device_)},
                               {3, "Park item, handle: " + Decimal(device_) + ", status: 0x5"}}));
}

TEST_F(ItemTest, ParkingTwiceTakesTwoReferences) {
  Start();
  const uint32_t id = Queue(0, Pattern(4));
  PelarixHandle item = Next();
  EXPECT_EQ(Pelarix_ParkItem(item), Pelarix_Success);
  EXPECT_EQ(Pelarix_ParkItem(item), Pelarix_Success);
  EXPECT_EQ(Record(item)->header.refCount, 3);
  PelarixHandle found = nullptr;
  EXPECT_EQ(Pelarix_UnparkItem(id, session_, &found), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(found), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  EXPECT_EQ(Record(item)->header.refCount, 1);  // one reference nobody gives back
  EXPECT_EQ(Pelarix_CompleteItem(item, 0, 0, nullptr), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

TEST_F(ItemTest, UnparkFindsItemsOfEveryDeviceOfTheSession) {
  Start();
  PelarixHandle second = Stringless();
  ASSERT_EQ(Pelarix_PluginDevice(second), Pelarix_Success);
  vhub::ItemSpec raised;
  raised.plugNo = 2;
  const uint32_t id = Model().QueueItem(raised);
  PelarixHandle item = Next();
  EXPECT_EQ(Pelarix_ParkItem(item), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  PelarixHandle found = nullptr;
  EXPECT_EQ(Pelarix_UnparkItem(id, session_, &found), Pelarix_Success);
  EXPECT_EQ(found, item);
  EXPECT_EQ(DeviceOf(Record(found)), second);
  EXPECT_EQ(Pelarix_CloseHandle(found), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(second), Pelarix_Success);
}

// Unplug gives back the parking references: an item nobody else holds is
// destroyed and answered with 0xFFFFFFFF. Until then unpark finds it, also
// on a device whose handle is closed.
TEST_F(ItemTest, UnplugReleasesParkedItems) {
  Start();
  const uint32_t held = Queue(0, Pattern(4));
  const uint32_t dropped = Queue(0, Pattern(4));
  PelarixHandle kept = Next();
  PelarixHandle parked = Next();
  EXPECT_EQ(Pelarix_ParkItem(kept), Pelarix_Success);
  EXPECT_EQ(Pelarix_ParkItem(parked), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(parked), Pelarix_Success);
  ASSERT_EQ(Pelarix_UnplugDevice(device_), Pelarix_Success);
  const auto completions = Model().Completions();
  ASSERT_EQ(completions.size(), 1u);
  EXPECT_EQ(completions[0].record, CompletionBytes(dropped, 0xFFFFFFFF, {}));
  EXPECT_EQ(Record(kept)->state, kItemOpen);
  EXPECT_EQ(Record(kept)->header.refCount, 1);
  PelarixHandle none = nullptr;
  EXPECT_EQ(Pelarix_UnparkItem(held, session_, &none), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_CloseHandle(kept), Pelarix_Success);
  EXPECT_EQ(Model().Completions().size(), 2u);
}

// A completed item is no longer parked: unpark does not find it and unplug
// does not give its parking reference back. Callers unpark first.
TEST_F(ItemTest, CompletingAParkedItemEndsItsParking) {
  Start();
  const uint32_t id = Queue(0, Pattern(4));
  PelarixHandle item = Next();
  EXPECT_EQ(Pelarix_ParkItem(item), Pelarix_Success);
  EXPECT_EQ(Pelarix_CompleteItem(item, 0, 0, nullptr), Pelarix_Success);
  EXPECT_EQ(Model().Completions().size(), 1u);
  PelarixHandle none = nullptr;
  EXPECT_EQ(Pelarix_UnparkItem(id, session_, &none), Pelarix_InvalidParameter);
  ASSERT_EQ(Pelarix_UnplugDevice(device_), Pelarix_Success);
  EXPECT_EQ(Record(item)->header.refCount, 2);
  // Give both references back by hand, so the test ends clean.
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

}  // namespace
}  // namespace pelarix
