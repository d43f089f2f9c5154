// The virtual hub as the later issues use it: its item queue and the
// notification event, the end-of-test report, fault injection, and how it
// forgets a session.
#include "virtual_hub.h"

#ifdef _WIN32
#include <windows.h>
#undef CreateEvent  // the platform layer's own function of that name
#else
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#endif

#include <cstring>

#include "hub/hub_control_codes.h"
#include "hub/hub_interface.h"
#include "hub/hub_records.h"
#include "hub/hub_request.h"
#include "hub/hub_requests.h"
#include "hub_fixture.h"
#include "request_frame.h"

namespace pelarix::testing {
namespace {

class VirtualHubTest : public HubChannelTest {
 protected:
  void SetEvent() {
    ASSERT_EQ(platform::CreateEvent(true, &event_), 0u);
    ASSERT_EQ(SetHubNotificationEvent(connection_, event_), Pelarix_Success);
  }
  ~VirtualHubTest() override { platform::CloseEvent(event_); }

  static platform::Event MakeEvent() {
    platform::Event event = nullptr;
    EXPECT_EQ(platform::CreateEvent(true, &event), 0u);
    return event;
  }

  bool EventUp() { return platform::WaitForEvent(event_, 0) == platform::kWaitObject0; }

  // Takes the next item; its record header, or a zeroed one for no item.
  HubItemRecord TakeItem(uint32_t *received = nullptr) {
    std::vector<uint8_t> record(600);
    uint32_t bytes = 0;
    EXPECT_EQ(HubGetItem(connection_, nullptr, record.data(), 600, &bytes), Pelarix_Success);
    if (received != nullptr) *received = bytes;
    return bytes >= 40 ? ReadHubItemRecord(record.data()) : HubItemRecord{};
  }

  void Complete(uint32_t itemId) {
    std::vector<uint8_t> record(12);
    WriteHubCompleteRecord(record.data(), itemId, 0, nullptr, 0);
    EXPECT_EQ(HubCompleteItem(connection_, nullptr, record.data(), 12), Pelarix_Success);
  }

  platform::Event event_ = nullptr;
};

TEST_F(VirtualHubTest, EventIsUpExactlyWhileItemsWait) {
  Connect();
  SetEvent();
  EXPECT_FALSE(EventUp());
  uint32_t first = Model().QueueItem({0, 1, {}, {}, 0});
  uint32_t second = Model().QueueItem({1, 1, {5, 0, 0, 0}, {}, 0});
  EXPECT_TRUE(EventUp());
  EXPECT_EQ(TakeItem().itemId, first);
  EXPECT_TRUE(EventUp());
  HubItemRecord notice = TakeItem();
  EXPECT_EQ(notice.itemId, second);
  EXPECT_EQ(notice.type, 1u);
  EXPECT_EQ(notice.params[0], 5u);
  EXPECT_FALSE(EventUp());
  uint32_t received = 7;
  TakeItem(&received);
  EXPECT_EQ(received, 0u);
}

TEST_F(VirtualHubTest, ItemsQueuedBeforeTheEventRaiseItWhenItComes) {
  Connect();
  Model().QueueItem({});
  SetEvent();
  EXPECT_TRUE(EventUp());
  EXPECT_TRUE(Model().NotificationRaised());
}

TEST_F(VirtualHubTest, ItemIdsAreUniqueAndNeverZero) {
  Connect();
  uint32_t a = Model().QueueItem({});
  uint32_t b = Model().QueueItem({});
  EXPECT_EQ(a, 1u);
  EXPECT_EQ(b, 2u);
}

TEST_F(VirtualHubTest, ReportNamesItemsNeverCompletedOrCompletedTwice) {
  Connect();
  SetEvent();
  uint32_t once = Model().QueueItem({0, 1, {}, {}, 0});
  uint32_t twice = Model().QueueItem({0, 2, {}, {}, 0});
  uint32_t never = Model().QueueItem({2, 3, {}, {}, 0});
  uint32_t waiting = Model().QueueItem({0, 4, {}, {}, 0});
  TakeItem();
  TakeItem();
  TakeItem();
  Complete(once);
  Complete(twice);
  Complete(twice);
  auto problems = Model().ItemProblems();
  ASSERT_EQ(problems.size(), 3u);
  EXPECT_EQ(problems[0].itemId, twice);
  EXPECT_EQ(problems[0].completions, 2u);
  EXPECT_EQ(problems[1].itemId, never);
  EXPECT_TRUE(problems[1].delivered);
  EXPECT_EQ(problems[1].completions, 0u);
  EXPECT_EQ(problems[2].itemId, waiting);
  EXPECT_FALSE(problems[2].delivered);
  EXPECT_EQ(Model().ItemReport(),
            "item 2 (PlugNo 2, type 0): completed 2 times\n"
            "item 3 (PlugNo 3, type 2): delivered, never completed\n"
            "item 4 (PlugNo 4, type 0): never delivered, never completed\n");
}

TEST_F(VirtualHubTest, CompletionOfAnUnknownIdIsRecordedAsUnknown) {
  Connect();
  Complete(0);
  auto completions = Model().Completions();
  ASSERT_EQ(completions.size(), 1u);
  EXPECT_FALSE(completions[0].known);
  EXPECT_EQ(Model().ItemReport(), "");
}

TEST_F(VirtualHubTest, UnplugDropsTheDevicesWaitingItems) {
  Connect();
  SetEvent();
  Model().QueueItem({0, 1, {}, {}, 0});
  uint32_t kept = Model().QueueItem({0, 2, {}, {}, 0});
  EXPECT_EQ(HubUnplugDevice(connection_, nullptr, 1), Pelarix_Success);
  EXPECT_EQ(Model().QueuedItems(), 1u);
  EXPECT_EQ(TakeItem().itemId, kept);
  EXPECT_FALSE(EventUp());
  Complete(kept);
  EXPECT_EQ(Model().ItemReport(), "");
}

TEST_F(VirtualHubTest, ClosingTheSessionForgetsIt) {
  Connect();
  SetEvent();
  std::vector<uint8_t> device = Bytes({18, 1, 0, 2, 0, 0, 0, 64, 1, 2, 3, 4, 0, 1, 1, 2, 3, 1});
  std::vector<uint8_t> config = Bytes({9, 2, 9, 0, 1, 1, 0, 0x80, 50});
  std::vector<uint8_t> record(74);
  HubPluginRecord fields{};
  fields.plugNo = 1;
  WriteHubPluginRecord(record.data(), fields, device.data(), config.data(), 9, nullptr, 0);
  ASSERT_EQ(HubPluginDevice(connection_, nullptr, record.data(), 74), Pelarix_Success);
  Model().QueueItem({0, 1, {}, {}, 0});
  platform::HubClose(connection_);
  connection_ = nullptr;
  ASSERT_TRUE(Model().WaitForNoSession(5000));
  EXPECT_TRUE(Model().PluggedDevices().empty());
  EXPECT_EQ(Model().QueuedItems(), 0u);
  EXPECT_EQ(Model().ItemReport(), "");  // dropped by the hub, not lost by the library
  // A new session may open, and the same PlugNo may be plugged in again.
  Connect();
  EXPECT_EQ(HubPluginDevice(connection_, nullptr, record.data(), 74), Pelarix_Success);
  // Its items wait for a new event: asking before that is the caller's error.
  uint8_t buffer[40];
  uint32_t received = 0;
  EXPECT_EQ(HubGetItem(connection_, nullptr, buffer, 40, &received), Pelarix_HubRequestFailed);
}

TEST_F(VirtualHubTest, InjectedAnswerStandsForTheRequestAndIsCounted) {
  Connect();
  Model().InjectAnswer(IOCTL_HUB_GET_NEXT_PLUG_NUMBER, vhub::HubAnswer{true, 0, {9, 0, 0, 0}}, 2);
  uint32_t plugNo = 0;
  EXPECT_EQ(HubGetNextPlugNumber(connection_, nullptr, &plugNo), Pelarix_Success);
  EXPECT_EQ(plugNo, 9u);
  EXPECT_EQ(HubGetNextPlugNumber(connection_, nullptr, &plugNo), Pelarix_Success);
  EXPECT_EQ(plugNo, 9u);
  EXPECT_EQ(HubGetNextPlugNumber(connection_, nullptr, &plugNo), Pelarix_Success);
  EXPECT_EQ(plugNo, 1u);
  auto requests = Model().RequestsOf(IOCTL_HUB_GET_NEXT_PLUG_NUMBER);
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_TRUE(requests[0].injected);
  EXPECT_FALSE(requests[2].injected);
}

TEST_F(VirtualHubTest, InjectionForeverLastsUntilCleared) {
  Connect();
  Model().FailRequest(IOCTL_HUB_GET_UNIQUE_ITEM_ID, 0x1F, false, vhub::HubModel::kForever);
  uint32_t id = 0;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(HubGetUniqueItemId(connection_, nullptr, &id), Pelarix_HubRequestFailed);
  }
  Model().ClearInjections();
  EXPECT_EQ(HubGetUniqueItemId(connection_, nullptr, &id), Pelarix_Success);
  EXPECT_EQ(id, 1u);
}

TEST_F(VirtualHubTest, BlankAnswerCanBeInjectedWhileTheEventIsUp) {
  Connect();
  SetEvent();
  Model().QueueItem({});
  Model().InjectAnswer(IOCTL_HUB_GET_ITEM, {});
  uint32_t received = 5;
  TakeItem(&received);
  EXPECT_EQ(received, 0u);
  EXPECT_TRUE(EventUp());
  EXPECT_EQ(Model().QueuedItems(), 1u);
}

TEST_F(VirtualHubTest, NotificationCanBeRaisedByHand) {
  Connect();
  SetEvent();
  Model().RaiseNotification(true);
  EXPECT_TRUE(EventUp());
  Model().RaiseNotification(false);
  EXPECT_FALSE(EventUp());
}

TEST_F(VirtualHubTest, UnknownRequestAndBufferWithoutItemAreInvalidFunction) {
  Connect();
  uint32_t bytes = 0;
  uint8_t out[8];
  EXPECT_EQ(HubRequest(connection_, 0x2A6015, nullptr, 0, out, 8, &bytes), 1u);
  EXPECT_EQ(HubRequest(connection_, IOCTL_HUB_GET_ITEM_BUFFER, nullptr, 0, out, 8, &bytes), 1u);
}

TEST_F(VirtualHubTest, ShortBuffersAndInputsAreRefused) {
  Connect();
  uint32_t bytes = 0;
  uint8_t out[4] = {};
  EXPECT_EQ(HubRequest(connection_, IOCTL_HUB_GET_VERSION, out, 4, out, 3, &bytes), 122u);
  EXPECT_EQ(HubRequest(connection_, IOCTL_HUB_UNPLUG_DEVICE, out, 3, nullptr, 0, &bytes), 87u);
  EXPECT_EQ(HubRequest(connection_, IOCTL_HUB_COMPLETE_ITEM, out, 4, nullptr, 0, &bytes), 87u);
  uint8_t completion[12] = {1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};  // claims one byte more
  EXPECT_EQ(HubRequest(connection_, IOCTL_HUB_COMPLETE_ITEM, completion, 12, nullptr, 0, &bytes),
            87u);
  uint64_t value = 0;
  EXPECT_EQ(HubRequest(connection_, IOCTL_HUB_SET_NOTIFICATION_EVENT, &value, 7, nullptr, 0, &bytes,
                       event_ = MakeEvent()),
            87u);
}

#ifndef _WIN32
// Without its descriptor the frame cannot be told from the next one's: the
// hub hangs up.
TEST_F(VirtualHubTest, NotificationEventWithoutItsDescriptorEndsTheSession) {
  Connect();
  uint64_t value = 0;
  uint32_t bytes = 0;
  EXPECT_EQ(
      HubRequest(connection_, IOCTL_HUB_SET_NOTIFICATION_EVENT, &value, 8, nullptr, 0, &bytes),
      1167u);
  EXPECT_TRUE(Model().WaitForNoSession(5000));
}
#endif

TEST_F(VirtualHubTest, PluginRecordWithWrongPayloadLengthIsRefused) {
  Connect();
  std::vector<uint8_t> record(74);
  uint32_t bytes = 0;
  EXPECT_EQ(HubRequest(connection_, IOCTL_HUB_PLUGIN_DEVICE, record.data(), 74, nullptr, 0, &bytes),
            87u);
  EXPECT_EQ(HubRequest(connection_, IOCTL_HUB_PLUGIN_DEVICE, record.data(), 46, nullptr, 0, &bytes),
            87u);
}

#ifndef _WIN32
TEST_F(VirtualHubTest, GarbageOnTheSessionEndsIt) {
  auto &hub = StartHub();
  int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, hub.SocketPath().c_str(), hub.SocketPath().size());
  ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  uint8_t status[4];
  ASSERT_EQ(recv(fd, status, 4, MSG_WAITALL), 4);
  ASSERT_EQ(send(fd, "GARBAGE!GARBAGE!", 16, 0), 16);
  ASSERT_TRUE(hub.Model().WaitForNoSession(5000));
  uint8_t rest;
  EXPECT_EQ(recv(fd, &rest, 1, 0), 0);  // the hub hung up
  close(fd);
  Connect();
  EXPECT_EQ(hub.Model().SessionsOpened(), 2u);
}
#endif

// The daemon's hub keeps no lists: only the items still unanswered.
// A notification event as the transport hands it to the model.
vhub::CallerHandle NewNotificationEvent() {
#ifdef _WIN32
  return reinterpret_cast<vhub::CallerHandle>(CreateEventW(nullptr, TRUE, FALSE, nullptr));
#else
  return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
#endif
}

TEST(HubModelTest, WithoutRecordsOnlyUnansweredItemsAreKept) {
  vhub::HubModel model(vhub::kDefaultHubVersion, {}, false);
  ASSERT_EQ(model.OpenSession(), 0u);
  uint64_t handle = 0;
  auto eventSet =
      model.Handle(IOCTL_HUB_SET_NOTIFICATION_EVENT, reinterpret_cast<const uint8_t *>(&handle), 8,
                   0, NewNotificationEvent());
  ASSERT_EQ(eventSet.error, 0u);
  uint32_t answered = model.QueueItem({0, 1, {}, {}, 0});
  uint32_t unanswered = model.QueueItem({0, 2, {}, {}, 0});
  model.QueueItem({0, 3, {}, {}, 0});
  EXPECT_EQ(model.Handle(IOCTL_HUB_GET_ITEM, nullptr, 0, 40, -1).output.size(), 40u);
  EXPECT_EQ(model.Handle(IOCTL_HUB_GET_ITEM, nullptr, 0, 40, -1).output.size(), 40u);
  std::vector<uint8_t> completion(12);
  WriteHubCompleteRecord(completion.data(), answered, 0, nullptr, 0);
  EXPECT_EQ(model.Handle(IOCTL_HUB_COMPLETE_ITEM, completion.data(), 12, 0, -1).error, 0u);
  EXPECT_EQ(model.Handle(IOCTL_HUB_UNPLUG_DEVICE, Bytes({3, 0, 0, 0}).data(), 4, 0, -1).error, 0u);
  EXPECT_TRUE(model.Requests().empty());
  EXPECT_TRUE(model.Completions().empty());
  EXPECT_TRUE(model.Unplugs().empty());
  EXPECT_EQ(model.ItemReport(), "item " + std::to_string(unanswered) +
                                    " (PlugNo 2, type 0): delivered, never completed\n");
  model.CloseSession("test over");
}

#ifndef _WIN32  // eventfd descriptors
// A client's event descriptor that is blocking and whose counter the client
// keeps full: the hub makes it non-blocking when it receives it, so raising it
// fails instead of stopping the hub, and clearing an empty one returns.
TEST(HubModelTest, BlockingEventDescriptorNeverStopsTheHub) {
  vhub::HubModel model;
  ASSERT_EQ(model.OpenSession(), 0u);
  int full = eventfd(0, EFD_CLOEXEC);
  const uint64_t nearlyFull = 0xFFFFFFFFFFFFFFFEull;
  ASSERT_EQ(write(full, &nearlyFull, sizeof nearlyFull), 8);
  int clientCopy = dup(full);
  uint64_t handle = 0;
  ASSERT_EQ(model
                .Handle(IOCTL_HUB_SET_NOTIFICATION_EVENT,
                        reinterpret_cast<const uint8_t *>(&handle), 8, 0, full)
                .error,
            0u);
  EXPECT_NE(fcntl(clientCopy, F_GETFL) & O_NONBLOCK, 0);
  model.QueueItem({0, 1, {}, {}, 0});  // raising finds no room and goes on
  EXPECT_EQ(model.QueuedItems(), 1u);
  uint64_t count = 0;
  ASSERT_EQ(read(clientCopy, &count, sizeof count), 8);  // the client empties it
  model.RaiseNotification(false);                        // clearing an empty one returns
  model.RaiseNotification(true);
  ASSERT_EQ(read(clientCopy, &count, sizeof count), 8);
  EXPECT_EQ(count, 1u);
  close(clientCopy);
  model.CloseSession("test over");
}
#endif

TEST(RequestFrameTest, ParsesWholeFramesAndWaitsForPartOnes) {
  std::vector<uint8_t> frame = Bytes(
      {0x50, 0x48, 0x52, 0x51, 0x06, 0x60, 0x2A, 0, 2, 0, 0, 0, 4, 0, 0, 0, 0xAA, 0xBB, 0x99});
  vhub::RequestFrame parsed;
  size_t consumed = 0;
  EXPECT_EQ(vhub::ParseRequestFrame(frame.data(), 17, &parsed, &consumed),
            vhub::FrameParse::kIncomplete);
  EXPECT_EQ(vhub::ParseRequestFrame(frame.data(), frame.size(), &parsed, &consumed),
            vhub::FrameParse::kComplete);
  EXPECT_EQ(consumed, 18u);
  EXPECT_EQ(parsed.code, 0x2A6006u);
  EXPECT_EQ(parsed.inputLength, 2u);
  EXPECT_EQ(parsed.outputCapacity, 4u);
  EXPECT_EQ(parsed.input[1], 0xBB);
  frame[0] = 0;
  EXPECT_EQ(vhub::ParseRequestFrame(frame.data(), frame.size(), &parsed, &consumed),
            vhub::FrameParse::kBadMagic);
}

TEST(RequestFrameTest, ClaimOfAHugeInputIsMalformed) {
  std::vector<uint8_t> frame = Bytes({0x50, 0x48, 0x52, 0x51, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0});
  vhub::RequestFrame parsed;
  size_t consumed = 0;
  EXPECT_EQ(vhub::ParseRequestFrame(frame.data(), frame.size(), &parsed, &consumed),
            vhub::FrameParse::kInputTooLong);
}

TEST(RequestFrameTest, AnswerIsHeaderThenOutput) {
  EXPECT_EQ(vhub::EncodeAnswer(vhub::HubAnswer{true, 0xE0000002, {7}}),
            Bytes({0x50, 0x48, 0x52, 0x50, 1, 0, 0, 0, 2, 0, 0, 0xE0, 1, 0, 0, 0, 7}));
}

}  // namespace
}  // namespace pelarix::testing
