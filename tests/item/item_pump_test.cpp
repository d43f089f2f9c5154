// The pump against the virtual hub: one request for a short item, two for a
// long one, the caller's room, both allocation modes, the items it never
// hands out, cancel and the order of its three sources.
#include <thread>

#include "item_fixture.h"

namespace pelarix {
namespace {

using testing::AskRoom;
using testing::Decimal;
using testing::InfoBytes;
using testing::ItemTest;
using testing::kGeneralKey;
using testing::LogLines;
using testing::Pattern;
using testing::Ptr;
using testing::RoomAnswers;
using testing::RoomCall;

std::string NextLine(PelarixHandle session, const void *item, uint32_t status) {
  char tail[32];
  std::snprintf(tail, sizeof tail, ", status: 0x%x", status);
  return "Get next item, handle: " + Ptr(session) + ", item handle: " + Ptr(item) + tail;
}

std::vector<uint8_t> DataOf(PelarixHandle item) {
  PelarixItemInfo info{};
  EXPECT_EQ(Pelarix_GetItemInfo(item, &info), Pelarix_Success);
  const auto *data = static_cast<const uint8_t *>(info.data);
  return std::vector<uint8_t>(data, data + info.dataLength);
}

TEST_F(ItemTest, ShortItemTakesOneRequestAndItsInfoIsExact) {
  Start();
  const std::vector<uint8_t> data = Pattern(512);
  const uint32_t id = Queue(0, data, 0, {0x11, 0x22, 0x33, 0x44});
  PelarixHandle item = Next();
  // The call's reference on the device goes as it ends: the item holds none.
  EXPECT_EQ(Lines(), (LogLines{{3, "Deref inst: " + Ptr(device_) + ", refCount: 2"},
                               {3, NextLine(session_, item, 0)}}));
  const auto gets = Model().RequestsOf(IOCTL_HUB_GET_ITEM);
  ASSERT_EQ(gets.size(), 1u);
  EXPECT_EQ(gets[0].outputCapacity, 552u);
  EXPECT_TRUE(Model().RequestsOf(IOCTL_HUB_GET_ITEM_BUFFER).empty());
  PelarixItemInfo info;
  std::memset(&info, 0xCC, sizeof info);
  ASSERT_EQ(Pelarix_GetItemInfo(item, &info), Pelarix_Success);
  std::vector<uint8_t> expected;
  for (uint32_t word : {0u, id, 0x11u, 0x22u, 0x33u, 0x44u, 512u}) testing::PutU32(expected, word);
  const uint64_t address = reinterpret_cast<uintptr_t>(Record(item)->record + 40);
  for (int shift = 0; shift < 64; shift += 8) expected.push_back(uint8_t(address >> shift));
  expected.insert(expected.end(), {0, 0, 0, 0});
  EXPECT_EQ(InfoBytes(info), expected);
  EXPECT_EQ(DataOf(item), data);
  EXPECT_EQ(Record(item)->dataLength, 552u);
  EXPECT_EQ(Device()->itemCount, 1u);
  EXPECT_EQ(Device()->itemCallCount, 1u);
  EXPECT_EQ(Device()->itemMaxLen, 512u);
  EXPECT_EQ(Device()->items, Record(item));
  EXPECT_EQ(Pelarix_CompleteItem(item, 0, 0, nullptr), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

TEST_F(ItemTest, OneByteMoreTakesTwoRequests) {
  Start();
  const std::vector<uint8_t> data = Pattern(513);
  Queue(0, data);
  PelarixHandle item = Next();
  const auto second = Model().RequestsOf(IOCTL_HUB_GET_ITEM_BUFFER);
  ASSERT_EQ(second.size(), 1u);
  EXPECT_EQ(second[0].outputCapacity, 513u + 40);  // settled: counts the header too
  EXPECT_EQ(Record(item)->dataLength, 553u);
  EXPECT_EQ(DataOf(item), data);
  EXPECT_EQ(Device()->itemCallCount, 2u);
  EXPECT_EQ(Device()->itemMaxLen, 513u);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

TEST_F(ItemTest, ItemOfExactlyTheExpectedLengthTakesOneRequest) {
  WriteRegistry("[" + kGeneralKey + "]\r\n\"ExpectedItemLength\"=dword:00000064\r\n");
  Start();
  Queue(0, Pattern(60));
  Queue(0, Pattern(61));
  PelarixHandle exact = Next();
  EXPECT_EQ(Model().RequestsOf(IOCTL_HUB_GET_ITEM)[0].outputCapacity, 100u);
  EXPECT_TRUE(Model().RequestsOf(IOCTL_HUB_GET_ITEM_BUFFER).empty());
  EXPECT_EQ(Record(exact)->dataLength, 100u);
  PelarixHandle longer = Next();
  EXPECT_EQ(Model().RequestsOf(IOCTL_HUB_GET_ITEM_BUFFER).size(), 1u);
  EXPECT_EQ(DataOf(longer), Pattern(61));
  EXPECT_EQ(Device()->itemCallCount, 3u);
  EXPECT_EQ(Pelarix_CloseHandle(exact), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(longer), Pelarix_Success);
}

TEST_F(ItemTest, CallersRoomSurroundsTheRecord) {
  RoomAnswers room{{{16, 8}}, {}};
  Start(AskRoom, &room);
  Queue(0, Pattern(100));
  PelarixHandle item = Next();
  uint32_t prefix = 0, suffix = 0, length = 0;
  void *buffer = nullptr;
  ASSERT_EQ(Pelarix_GetItemRaw(item, &prefix, &suffix, &length, &buffer), Pelarix_Success);
  EXPECT_EQ(prefix, 16u);
  EXPECT_EQ(suffix, 8u);
  EXPECT_EQ(length, 140u);
  EXPECT_EQ(buffer, Record(item)->buffer);
  EXPECT_EQ(static_cast<uint8_t *>(buffer) + 16, Record(item)->record);
  EXPECT_EQ(Record(item)->bufferLength, 552u + 24);
  EXPECT_EQ(room.calls, (std::vector<RoomCall>{{552, 0xFFFFFFFF}}));
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

TEST_F(ItemTest, LongItemAsksForRoomAgainAndTheNewAnswerStands) {
  RoomAnswers room{{{16, 8}, {32, 4}}, {}};
  Start(AskRoom, &room);
  Queue(0, Pattern(1000));
  PelarixHandle item = Next();
  uint32_t prefix = 0, suffix = 0, length = 0;
  void *buffer = nullptr;
  ASSERT_EQ(Pelarix_GetItemRaw(item, &prefix, &suffix, &length, &buffer), Pelarix_Success);
  EXPECT_EQ(prefix, 32u);
  EXPECT_EQ(suffix, 4u);
  EXPECT_EQ(length, 1040u);
  EXPECT_EQ(static_cast<uint8_t *>(buffer) + 32, Record(item)->record);
  EXPECT_EQ(DataOf(item), Pattern(1000));
  EXPECT_EQ(room.calls, (std::vector<RoomCall>{{552, 0xFFFFFFFF}, {1040, 0xFFFFFFFF}}));
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

TEST_F(ItemTest, LateAllocationAsksWithTheDevicesPlugNo) {
  gLibrary.lateItemAllocation = 1;
  RoomAnswers room{{{16, 8}}, {}};
  Start(AskRoom, &room);
  Queue(0, Pattern(100));
  Queue(0, Pattern(1000));
  PelarixHandle shortItem = Next();
  PelarixHandle longItem = Next();
  EXPECT_EQ(room.calls, (std::vector<RoomCall>{{552, 1}, {552, 1}, {1040, 1}}));
  EXPECT_EQ(DataOf(shortItem), Pattern(100));
  EXPECT_EQ(DataOf(longItem), Pattern(1000));
  EXPECT_EQ(Record(shortItem)->record, Record(shortItem)->buffer + 16);
  EXPECT_EQ(Pelarix_CloseHandle(shortItem), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(longItem), Pelarix_Success);
}

TEST_F(ItemTest, SessionWithoutCallbackGetsNoRoom) {
  Start();
  Queue(0, Pattern(10));
  PelarixHandle item = Next();
  EXPECT_EQ(Record(item)->prefixLength, 0u);
  EXPECT_EQ(Record(item)->suffixLength, 0u);
  EXPECT_EQ(Record(item)->buffer, Record(item)->record);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

TEST_F(ItemTest, NoticesCarryOneParameterAndNoData) {
  Start();
  const uint32_t notice = Queue(1, {}, 0, {7, 8, 9, 10});
  const uint32_t quiet = Queue(2, {}, 0, {5, 6, 7, 8});
  const uint32_t other = Queue(9, Pattern(4), 1, {5, 6, 7, 8});
  PelarixItemInfo info{};
  PelarixHandle first = Next();
  ASSERT_EQ(Pelarix_GetItemInfo(first, &info), Pelarix_Success);
  std::vector<uint8_t> expected;
  for (uint32_t word : {1u, notice, 7u, 0u, 0u, 0u, 0u, 0u, 0u, 0u}) {
    testing::PutU32(expected, word);
  }
  EXPECT_EQ(InfoBytes(info), expected);
  EXPECT_EQ(Record(first)->flags, 0u);
  PelarixHandle second = Next();
  ASSERT_EQ(Pelarix_GetItemInfo(second, &info), Pelarix_Success);
  expected.clear();
  for (uint32_t word : {2u, quiet, 5u, 0u, 0u, 0u, 0u, 0u, 0u, 0u}) {
    testing::PutU32(expected, word);
  }
  EXPECT_EQ(InfoBytes(info), expected);
  EXPECT_EQ(Record(second)->flags, uint32_t{kItemNoCompletion});
  PelarixHandle third = Next();
  ASSERT_EQ(Pelarix_GetItemInfo(third, &info), Pelarix_Success);
  expected.clear();
  for (uint32_t word : {9u, other, 0u, 0u, 0u, 0u, 0u, 0u, 0u, 0u}) {
    testing::PutU32(expected, word);
  }
  EXPECT_EQ(InfoBytes(info), expected);
  EXPECT_EQ(Device()->itemCallCount, 3u);
  EXPECT_EQ(Device()->itemMaxLen, 4u);
  // The notice is answered when dropped, the quiet one is not, nor is the
  // request that asked not to be.
  ClearLog();
  EXPECT_EQ(Pelarix_CloseHandle(first), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(second), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(third), Pelarix_Success);
  const auto completions = Model().Completions();
  ASSERT_EQ(completions.size(), 1u);
  EXPECT_EQ(completions[0].itemId, notice);
  EXPECT_EQ(completions[0].status, 0xFFFFFFFFu);
  EXPECT_EQ(completions[0].record.size(), 12u);
}

TEST_F(ItemTest, RequestMarkedNoCompletionPassesItsFirstByteOn) {
  Start();
  Queue(0, Pattern(8), 0x12345601);
  PelarixHandle item = Next();
  PelarixItemInfo info{};
  ASSERT_EQ(Pelarix_GetItemInfo(item, &info), Pelarix_Success);
  EXPECT_EQ(info.noCompletion, 1);
  EXPECT_EQ(Record(item)->flags, uint32_t{kItemNoCompletion});
  // An explicit completion is still sent.
  EXPECT_EQ(Pelarix_CompleteItem(item, 0, 2, "ok"), Pelarix_Success);
  EXPECT_EQ(Model().Completions().size(), 1u);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  EXPECT_EQ(Model().Completions().size(), 1u);
}

TEST_F(ItemTest, BlankUnknownAndUnpluggedItemsAreNotHandedOut) {
  Start();
  PelarixHandle unplugged = Stringless();
  ASSERT_EQ(Pelarix_PluginDevice(unplugged), Pelarix_Success);
  ASSERT_EQ(Pelarix_UnplugDevice(unplugged), Pelarix_Success);
  ClearLog();
  vhub::ItemSpec unknown;
  unknown.plugNo = 99;
  const uint32_t unknownId = Model().QueueItem(unknown);
  vhub::ItemSpec late;
  late.plugNo = 2;
  const uint32_t lateId = Model().QueueItem(late);
  const uint32_t good = Queue(0, Pattern(3));
  PelarixHandle item = Next();
  ASSERT_EQ(Record(item)->itemId, good);
  EXPECT_EQ(Lines(),
            (LogLines{{2, "Item returned for non-existant device, handle: " + Ptr(session_) +
                              ", PlugNo: 99"},
                      {3, "Deref inst: " + Ptr(unplugged) + ", refCount: 2"},
                      {2, "Item returned for a non-plugged in device, handle: " + Ptr(session_) +
                              ", state: 2, PlugNo: 2"},
                      {3, "Deref inst: " + Ptr(device_) + ", refCount: 2"},
                      {3, NextLine(session_, item, 0)}}));
  const auto completions = Model().Completions();
  ASSERT_EQ(completions.size(), 1u);
  EXPECT_EQ(completions[0].itemId, unknownId);
  EXPECT_EQ(completions[0].status, 0xFFFFFFFFu);
  EXPECT_EQ(completions[0].record.size(), 12u);
  EXPECT_EQ(Pelarix_CompleteItem(item, 0, 0, nullptr), Pelarix_Success);
  // The unplugged device's item is deliberately left unanswered.
  const auto problems = Model().ItemProblems();
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0].itemId, lateId);
  EXPECT_EQ(problems[0].completions, 0u);
  EXPECT_EQ(static_cast<PelarixDevice *>(unplugged)->header.refCount, 1);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(unplugged), Pelarix_Success);
}

TEST_F(ItemTest, BlankItemIsLoggedAndTheCallWaitsOn) {
  Start();
  Model().RaiseNotification(true);
  PelarixHandle item = nullptr;
  std::thread pump([&] { EXPECT_EQ(Pelarix_GetNextItem(session_, &item), Pelarix_Success); });
  ASSERT_TRUE(WaitForLine("Blank item returned, handle: " + Ptr(session_)));
  const uint32_t id = Queue(0, Pattern(5));
  pump.join();
  EXPECT_EQ(Record(item)->itemId, id);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

// The device slot is cleared with the release of step 16: a cancel in the
// next pass must not release the device a second time.
TEST_F(ItemTest, ItemOfAnUnpluggedDeviceThenCancelReleasesTheDeviceOnce) {
  Start();
  ASSERT_EQ(Pelarix_UnplugDevice(device_), Pelarix_Success);
  Queue(0, Pattern(5));
  PelarixHandle item = &item;
  std::thread pump([&] { EXPECT_EQ(Pelarix_GetNextItem(session_, &item), Pelarix_Cancelled); });
  ASSERT_TRUE(WaitForLine("Item returned for a non-plugged in device, handle: " + Ptr(session_) +
                          ", state: 2, PlugNo: 1"));
  EXPECT_EQ(Pelarix_CancelGetItem(session_), Pelarix_Success);
  pump.join();
  EXPECT_EQ(item, nullptr);
  EXPECT_EQ(Device()->header.refCount, 1);
  EXPECT_TRUE(IsValidHandle(device_, kDeviceHandle));
  EXPECT_EQ(Pelarix_CloseHandle(device_), Pelarix_Success);
}

TEST_F(ItemTest, CancelEndsTheNextCallAtOnce) {
  Start();
  EXPECT_EQ(Pelarix_CancelGetItem(session_), Pelarix_Success);
  Queue(0, Pattern(5));
  PelarixHandle item = &item;
  EXPECT_EQ(Pelarix_GetNextItem(session_, &item), Pelarix_Cancelled);
  EXPECT_EQ(item, nullptr);
  EXPECT_EQ(Lines(),
            (LogLines{{2, "Cancel get item, handle: " + Decimal(session_) + ", status: 0x0"},
                      {2, "Get next item cancelled, handle: " + Ptr(session_)},
                      {3, NextLine(session_, nullptr, 10)}}));
  // One cancel releases one call: the item is served next.
  PelarixHandle served = Next();
  EXPECT_NE(served, nullptr);
  EXPECT_EQ(Pelarix_CloseHandle(served), Pelarix_Success);
}

TEST_F(ItemTest, BadHandlesAndNullOut) {
  Start();
  PelarixHandle item = nullptr;
  EXPECT_EQ(Pelarix_GetNextItem(device_, &item), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_GetNextItem(session_, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_CancelGetItem(device_), Pelarix_InvalidHandle);
  EXPECT_EQ(Lines(),
            (LogLines{{0, "Invalid session handle: " + Ptr(device_)},
                      {3, NextLine(device_, nullptr, 5)},
                      {0, "Invalid parameter, itemHandle is null"},
                      {3, NextLine(session_, nullptr, 6)},
                      {0, "Invalid session handle: " + Ptr(device_)},
                      {2, "Cancel get item, handle: " + Decimal(device_) + ", status: 0x5"}}));
}

TEST_F(ItemTest, FirstRequestFailureEndsTheCall) {
  for (uint32_t late : {0u, 1u}) {
    gLibrary.lateItemAllocation = late;
    if (session_ == nullptr) Start();
    Model().FailRequest(IOCTL_HUB_GET_ITEM, 31, false);
    Model().RaiseNotification(true);
    ClearLog();
    PelarixHandle item = nullptr;
    EXPECT_EQ(Pelarix_GetNextItem(session_, &item), Pelarix_HubRequestFailed);
    EXPECT_EQ(Lines(), (LogLines{{0, "Failed to get item length from virtual hub handle: " +
                                         Ptr(session_) + ", error: 0x1f"},
                                 {3, NextLine(session_, nullptr, 9)}}));
  }
}

// The second request's failure: the item made for it is destroyed before
// its id was filled in, so the hub gets a completion of id 0.
TEST_F(ItemTest, SecondRequestFailureCompletesIdZero) {
  Start();
  const uint32_t id = Queue(0, Pattern(600));
  Model().FailRequest(IOCTL_HUB_GET_ITEM_BUFFER, 31, false);
  PelarixHandle item = nullptr;
  EXPECT_EQ(Pelarix_GetNextItem(session_, &item), Pelarix_HubRequestFailed);
  EXPECT_EQ(item, nullptr);
  EXPECT_EQ(Lines()[0], (LogLines::value_type{0,
                                              "Failed to get item buffer from virtual hub, "
                                              "handle: " +
                                                  Ptr(session_) + ", error: 0x1f"}));
  const auto completions = Model().Completions();
  ASSERT_EQ(completions.size(), 1u);
  EXPECT_EQ(completions[0].itemId, 0u);
  EXPECT_EQ(completions[0].status, 0xFFFFFFFFu);
  EXPECT_EQ(Model().ItemProblems()[0].itemId, id);
  EXPECT_EQ(Device()->items, nullptr);
}

}  // namespace
}  // namespace pelarix
