// The requests of devices and items: what goes to the hub byte by byte, what
// comes back, and each failure line with its level and status.
#include "hub/hub_requests.h"

#include "hub/hub_control_codes.h"
#include "hub/hub_interface.h"
#include "hub/hub_records.h"
#include "hub_fixture.h"

namespace pelarix::testing {
namespace {

using ::testing::ElementsAre;

// What a caller's line names; any recognisable value will do.
const void *const kLogHandle = reinterpret_cast<const void *>(0x00ABCDEF12345678);
const std::string kLogHandleText = "00ABCDEF12345678";

class HubRequestsTest : public HubChannelTest {
 protected:
  // Hands the hub a notification event, as a session does.
  void SetEvent() {
    ASSERT_EQ(platform::CreateEvent(true, &event_), 0u);
    ASSERT_EQ(SetHubNotificationEvent(connection_, event_), Pelarix_Success);
    ClearLog();
  }
  ~HubRequestsTest() override { platform::CloseEvent(event_); }

  // A plug-in record for PlugNo with the given descriptors.
  static std::vector<uint8_t> PluginRecord(uint32_t plugNo, std::vector<uint8_t> device,
                                           std::vector<uint8_t> config) {
    uint32_t payload = 0;
    uint32_t size = 0;
    HubPluginRecordSizes(static_cast<uint32_t>(config.size()), 0, &payload, &size);
    std::vector<uint8_t> record(size);
    HubPluginRecord fields{};
    fields.plugNo = plugNo;
    WriteHubPluginRecord(record.data(), fields, device.data(), config.data(),
                         static_cast<uint32_t>(config.size()), nullptr, 0);
    return record;
  }
  static std::vector<uint8_t> Device() {
    return Bytes({18, 1, 0, 2, 0, 0, 0, 64, 0x34, 0x12, 0x78, 0x56, 0, 1, 1, 2, 3, 1});
  }
  static std::vector<uint8_t> Config() { return Bytes({9, 2, 9, 0, 1, 1, 0, 0x80, 50}); }

  PelarixStatus Plugin(const std::vector<uint8_t> &record) {
    return HubPluginDevice(connection_, kLogHandle, record.data(),
                           static_cast<uint32_t>(record.size()));
  }

  platform::Event event_ = nullptr;
};

TEST_F(HubRequestsTest, UniqueItemIdsStartAtOneAndAreShared) {
  Connect();
  uint32_t id = 0;
  EXPECT_EQ(HubGetUniqueItemId(connection_, kLogHandle, &id), Pelarix_Success);
  EXPECT_EQ(id, 1u);
  EXPECT_EQ(Model().QueueItem({}), 2u);  // items draw from the same counter
  EXPECT_EQ(HubGetUniqueItemId(connection_, kLogHandle, &id), Pelarix_Success);
  EXPECT_EQ(id, 3u);
  auto requests = Model().RequestsOf(IOCTL_HUB_GET_UNIQUE_ITEM_ID);
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_TRUE(requests[0].input.empty());
  EXPECT_EQ(requests[0].outputCapacity, 4u);
  EXPECT_TRUE(Lines().empty());
}

TEST_F(HubRequestsTest, UniqueItemIdFailureLine) {
  Connect();
  Model().FailRequest(IOCTL_HUB_GET_UNIQUE_ITEM_ID, 0x57, false);
  uint32_t id = 0;
  EXPECT_EQ(HubGetUniqueItemId(connection_, kLogHandle, &id), Pelarix_HubRequestFailed);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{0,
                                           "Failed to retrieve unique item Id from virtual hub "
                                           "handle: " +
                                               kLogHandleText + ", error: 0x57"}));
}

TEST_F(HubRequestsTest, PlugNumbersStartAtOne) {
  Connect();
  uint32_t plugNo = 0;
  for (uint32_t expected = 1; expected <= 3; ++expected) {
    EXPECT_EQ(HubGetNextPlugNumber(connection_, kLogHandle, &plugNo), Pelarix_Success);
    EXPECT_EQ(plugNo, expected);
  }
  auto requests = Model().RequestsOf(IOCTL_HUB_GET_NEXT_PLUG_NUMBER);
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_TRUE(requests[0].input.empty());
  EXPECT_EQ(requests[0].outputCapacity, 4u);
}

TEST_F(HubRequestsTest, PlugNumberFailureLineKeepsItsMissingBlank) {
  Connect();
  Model().FailRequest(IOCTL_HUB_GET_NEXT_PLUG_NUMBER, 0xE0000002, true);
  uint32_t plugNo = 0;
  EXPECT_EQ(HubGetNextPlugNumber(connection_, kLogHandle, &plugNo), Pelarix_HubRequestFailed);
  EXPECT_THAT(
      Lines(),
      ElementsAre(LogLine{0, "Device descriptor consistency check failed"},
                  LogLine{0, "Failed to retrieve next plug number fromvirtual hub handle: " +
                                 kLogHandleText + ", error: 0xe0000002"}));
}

TEST_F(HubRequestsTest, UnplugSendsThePlugNo) {
  Connect();
  ASSERT_EQ(Plugin(PluginRecord(0x0102, Device(), Config())), Pelarix_Success);
  EXPECT_EQ(HubUnplugDevice(connection_, kLogHandle, 0x0102), Pelarix_Success);
  auto requests = Model().RequestsOf(IOCTL_HUB_UNPLUG_DEVICE);
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].input, Bytes({0x02, 0x01, 0, 0}));
  EXPECT_EQ(requests[0].outputCapacity, 0u);
  EXPECT_TRUE(Model().PluggedDevices().empty());
  EXPECT_EQ(Model().Unplugs(), std::vector<uint32_t>{0x0102});
}

TEST_F(HubRequestsTest, UnplugFailureLine) {
  Connect();
  Model().FailRequest(IOCTL_HUB_UNPLUG_DEVICE, 0x48f, false);
  EXPECT_EQ(HubUnplugDevice(connection_, kLogHandle, 7), Pelarix_HubRequestFailed);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{0, "Failed to unplug device, handle: " + kLogHandleText +
                                                  ", PlugNo: 7, error: 0x48f"}));
}

TEST_F(HubRequestsTest, GetItemDeliversTheRecordByteForByte) {
  Connect();
  SetEvent();
  vhub::ItemSpec item;
  item.type = 0;
  item.plugNo = 3;
  item.params = {0x11, 0x22, 0x33, 0x44};
  item.data = Bytes({0xA1, 0xA2, 0xA3});
  item.noCompletion = 0x0100;
  uint32_t id = Model().QueueItem(item);
  std::vector<uint8_t> record(64, 0xEE);
  uint32_t received = 0;
  EXPECT_EQ(HubGetItem(connection_, kLogHandle, record.data(), 64, &received), Pelarix_Success);
  EXPECT_EQ(received, 43u);
  std::vector<uint8_t> expected = Bytes({0,    0,    0,   0,    static_cast<int>(id),
                                         0,    0,    0,   3,    0,
                                         0,    0,    0,   0,    0,
                                         0,    0x11, 0,   0,    0,
                                         0x22, 0,    0,   0,    0x33,
                                         0,    0,    0,   0x44, 0,
                                         0,    0,    3,   0,    0,
                                         0,    0,    1,   0,    0,
                                         0xA1, 0xA2, 0xA3});
  EXPECT_EQ(std::vector<uint8_t>(record.begin(), record.begin() + 43), expected);
  EXPECT_EQ(record[43], 0xEE);
  auto requests = Model().RequestsOf(IOCTL_HUB_GET_ITEM);
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_TRUE(requests[0].input.empty());
  EXPECT_EQ(requests[0].outputCapacity, 64u);
}

TEST_F(HubRequestsTest, GetItemWithNothingWaitingAnswersZeroBytes) {
  Connect();
  SetEvent();
  uint8_t record[40] = {};
  uint32_t received = 99;
  EXPECT_EQ(HubGetItem(connection_, kLogHandle, record, 40, &received), Pelarix_Success);
  EXPECT_EQ(received, 0u);
  EXPECT_TRUE(Lines().empty());
}

TEST_F(HubRequestsTest, GetItemBeforeTheEventWasSetFailsAfterPending) {
  Connect();
  Model().QueueItem({});
  uint8_t record[40] = {};
  uint32_t received = 0;
  EXPECT_EQ(HubGetItem(connection_, kLogHandle, record, 40, &received), Pelarix_HubRequestFailed);
  EXPECT_THAT(Lines(),
              ElementsAre(LogLine{0, "Item notification event has not been set"},
                          LogLine{0, "Failed to get item length from virtual hub handle: " +
                                         kLogHandleText + ", error: 0xe0000001"}));
  EXPECT_EQ(Model().QueuedItems(), 1u);
}

TEST_F(HubRequestsTest, GetItemBufferFetchesTheDataOfTheItemLastDelivered) {
  Connect();
  SetEvent();
  vhub::ItemSpec item;
  item.plugNo = 1;
  for (int i = 0; i < 100; ++i) item.data.push_back(static_cast<uint8_t>(i));
  Model().QueueItem(item);
  std::vector<uint8_t> record(50);
  uint32_t received = 0;
  ASSERT_EQ(HubGetItem(connection_, kLogHandle, record.data(), 50, &received), Pelarix_Success);
  EXPECT_EQ(received, 50u);
  EXPECT_EQ(ReadHubItemRecord(record.data()).dataLength, 100u);
  // As the pump asks: output behind the header, size data length + 40.
  std::vector<uint8_t> data(140, 0xEE);
  EXPECT_EQ(HubGetItemBuffer(connection_, kLogHandle, data.data(), 140), Pelarix_Success);
  EXPECT_EQ(std::vector<uint8_t>(data.begin(), data.begin() + 100), item.data);
  EXPECT_EQ(data[100], 0xEE);
  auto requests = Model().RequestsOf(IOCTL_HUB_GET_ITEM_BUFFER);
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_TRUE(requests[0].input.empty());
  EXPECT_EQ(requests[0].outputCapacity, 140u);
  EXPECT_EQ(requests[0].answer.output.size(), 100u);
}

TEST_F(HubRequestsTest, GetItemBufferFailureLine) {
  Connect();
  Model().FailRequest(IOCTL_HUB_GET_ITEM_BUFFER, 0x1F, true);
  uint8_t data[8];
  EXPECT_EQ(HubGetItemBuffer(connection_, kLogHandle, data, 8), Pelarix_HubRequestFailed);
  EXPECT_THAT(Lines(),
              ElementsAre(LogLine{0, "Failed to get item buffer from virtual hub, handle: " +
                                         kLogHandleText + ", error: 0x1f"}));
}

TEST_F(HubRequestsTest, CompleteItemSendsTheRecordAsItStands) {
  Connect();
  SetEvent();
  uint32_t id = Model().QueueItem({});
  uint8_t record[40];
  uint32_t received = 0;
  ASSERT_EQ(HubGetItem(connection_, kLogHandle, record, 40, &received), Pelarix_Success);
  std::vector<uint8_t> completion(14);
  WriteHubCompleteRecord(completion.data(), id, 0, "\x05\x06", 2);
  EXPECT_EQ(HubCompleteItem(connection_, kLogHandle, completion.data(), 14), Pelarix_Success);
  auto completions = Model().Completions();
  ASSERT_EQ(completions.size(), 1u);
  EXPECT_EQ(completions[0].record, completion);
  EXPECT_EQ(completions[0].itemId, id);
  EXPECT_EQ(completions[0].status, 0u);
  EXPECT_EQ(completions[0].data, Bytes({5, 6}));
  EXPECT_TRUE(completions[0].known);
  EXPECT_EQ(Model().ItemReport(), "");
}

TEST_F(HubRequestsTest, CompleteItemFailureLineIsAtLevelThree) {
  Connect();
  Model().FailRequest(IOCTL_HUB_COMPLETE_ITEM, 0x1F, false);
  std::vector<uint8_t> completion(12);
  WriteHubCompleteRecord(completion.data(), 9, kHubCompleteUnserved, nullptr, 0);
  EXPECT_EQ(HubCompleteItem(connection_, kLogHandle, completion.data(), 12),
            Pelarix_HubRequestFailed);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{3, "Failed to complete virtual hub item handle: " +
                                                  kLogHandleText + ", error: 0x1f"}));
}

TEST_F(HubRequestsTest, PluginSendsTheWholeRecordAndTheHubKeepsIt) {
  Connect();
  std::vector<uint8_t> record = PluginRecord(1, Device(), Config());
  EXPECT_EQ(Plugin(record), Pelarix_Success);
  EXPECT_TRUE(Lines().empty());
  auto requests = Model().RequestsOf(IOCTL_HUB_PLUGIN_DEVICE);
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].input, record);
  EXPECT_EQ(requests[0].outputCapacity, 0u);
  EXPECT_EQ(Model().PluginRecords(), std::vector<std::vector<uint8_t>>{record});
  EXPECT_EQ(Model().PluggedDevices(), std::vector<uint32_t>{1});
}

TEST_F(HubRequestsTest, PluginOfAPlugNoAlreadyPluggedIsDeviceExists) {
  Connect();
  ASSERT_EQ(Plugin(PluginRecord(4, Device(), Config())), Pelarix_Success);
  EXPECT_EQ(Plugin(PluginRecord(4, Device(), Config())), Pelarix_DeviceExists);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{0,
                                           "Failed to plugin virtual device, device already "
                                           "exists, handle: " +
                                               kLogHandleText}));
}

// The hub's own check, which it makes after the request went pending.
TEST_F(HubRequestsTest, PendingDeviceDescriptorRefusalLogsTheTableLineFirst) {
  Connect();
  std::vector<uint8_t> device = Device();
  device[1] = 2;  // not a device descriptor
  EXPECT_EQ(Plugin(PluginRecord(1, device, Config())), Pelarix_HubRequestFailed);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{0, "Device descriptor consistency check failed"},
                                   LogLine{0, "Failed to plugin virtual device handle: " +
                                                  kLogHandleText + ", error: 0xe0000002"}));
  EXPECT_TRUE(Model().PluggedDevices().empty());
}

TEST_F(HubRequestsTest, DeviceDescriptorOfWrongLengthIsRefused) {
  Connect();
  std::vector<uint8_t> device = Device();
  device[0] = 17;
  EXPECT_EQ(Plugin(PluginRecord(1, device, Config())), Pelarix_HubRequestFailed);
  EXPECT_EQ(Lines().front(), (LogLine{0, "Device descriptor consistency check failed"}));
}

TEST_F(HubRequestsTest, ImmediateDeviceDescriptorRefusalHasOnlyTheCallersLine) {
  Connect();
  Model().FailRequest(IOCTL_HUB_PLUGIN_DEVICE, 0xE0000002, false);
  EXPECT_EQ(Plugin(PluginRecord(1, Device(), Config())), Pelarix_HubRequestFailed);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{0, "Failed to plugin virtual device handle: " +
                                                  kLogHandleText + ", error: 0xe0000002"}));
}

class HubConfigCheckTest : public HubRequestsTest,
                           public ::testing::WithParamInterface<std::vector<uint8_t>> {};

TEST_P(HubConfigCheckTest, ConfigurationRefusalLogsTheTableLine) {
  Connect();
  EXPECT_EQ(Plugin(PluginRecord(1, Device(), GetParam())), Pelarix_HubRequestFailed);
  EXPECT_THAT(Lines(), ElementsAre(LogLine{0, "Configuration descriptor consistency check failed"},
                                   LogLine{0, "Failed to plugin virtual device handle: " +
                                                  kLogHandleText + ", error: 0xe0000003"}));
}

INSTANTIATE_TEST_SUITE_P(
    BadConfigurations, HubConfigCheckTest,
    ::testing::Values(Bytes({9, 4, 9, 0, 1, 1, 0, 0x80, 50}),   // not a configuration
                      Bytes({9, 2, 10, 0, 1, 1, 0, 0x80, 50}),  // longer than given
                      Bytes({9, 2, 8, 0, 1, 1, 0, 0x80, 50}),   // shorter than its header
                      Bytes({9, 2, 9}),                         // cut short
                      std::vector<uint8_t>{}));                 // missing

TEST_F(HubRequestsTest, ConfigurationShorterThanItsCopyIsAccepted) {
  Connect();
  std::vector<uint8_t> config = Config();
  config.insert(config.end(), {9, 4, 0, 0, 0, 0xFF, 0, 0, 0});  // trailing bytes past wTotalLength
  EXPECT_EQ(Plugin(PluginRecord(1, Device(), config)), Pelarix_Success);
}

}  // namespace
}  // namespace pelarix::testing
