// Plugging devices in: the record the hub receives byte by byte, the
// warnings of missing strings, the callback, the hub's refusals, the
// deferred case and the state after each.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "device/device.h"
#include "device_fixture.h"
#include "frame/session.h"
#include "hub/hub_control_codes.h"
#include "plugin_record.h"

namespace pelarix {
namespace {

using testing::DeviceTest;
using testing::ExpectedPlugin;
using testing::kKeyboardConfig;
using testing::kKeyboardDevice;
using testing::LogLines;
using testing::PluginRecordBytes;
using testing::Ptr;
using testing::StoreBytes;
using testing::StringDescriptor;
using testing::WithoutStrings;

const std::vector<uint8_t> kLanguages = {4, 3, 0x09, 0x04};

std::string PluginLine(const void *device, uint32_t plugNo, uint32_t status) {
  char text[128];
  std::snprintf(text, sizeof text, ", PlugNo: %u, status: 0x%x", plugNo, status);
  return "Plugin device, handle: " + Ptr(device) + text;
}

std::string InternalLine(PelarixHandle session, uint32_t flags, uint32_t plugNo, uint32_t status) {
  char text[128];
  std::snprintf(text, sizeof text, ", Device Flags: 0x%x, PlugNo: %u, status: 0x%x", flags, plugNo,
                status);
  return "Internal plugin device, handle: " + Ptr(session) + text;
}

uint32_t StateOf(PelarixHandle device) {
  return static_cast<PelarixDevice *>(device)->state;
}

struct CallbackSeen {
  int calls = 0;
  PelarixHandle device = nullptr;
  uint32_t status = 0xDEAD;
  uint32_t stateDuringCall = 0xDEAD;
  std::thread::id thread;
};

void PELARIX_CALL RecordCallback(PelarixHandle device, uint32_t status, void *context) {
  auto *seen = static_cast<CallbackSeen *>(context);
  ++seen->calls;
  seen->device = device;
  seen->status = status;
  seen->stateDuringCall = StateOf(device);
  seen->thread = std::this_thread::get_id();
}

TEST_F(DeviceTest, PluginRecordIsExactByteByByte) {
  OpenSession();
  PelarixHandle device = nullptr;
  ASSERT_EQ(Pelarix_CreateDeviceEx(session_, 5, 7, 0x11223344, 0x55667788, 0x99AABBCC,
                                   kKeyboardDevice.data(), kKeyboardConfig.data(), nullptr, nullptr,
                                   &device),
            Pelarix_Success);
  const std::vector<uint8_t> product = StringDescriptor("Keys");
  const std::vector<uint8_t> serial = StringDescriptor("0042");
  ASSERT_EQ(Pelarix_AddDeviceString(device, 0, 0, kLanguages.data()), Pelarix_Success);
  ASSERT_EQ(Pelarix_AddDeviceString(device, 2, 0x0409, product.data()), Pelarix_Success);
  ASSERT_EQ(Pelarix_AddDeviceString(device, 3, 0x0409, serial.data()), Pelarix_Success);
  ASSERT_EQ(Pelarix_SetDeviceFlags(device, 0xA5), Pelarix_Success);
  ClearLog();
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_Success);
  ExpectedPlugin expected;
  expected.clientVersion = 5;
  expected.partial = 1;
  expected.deviceFlags = 0xA5;
  expected.plugParams[0] = 0x11223344;
  expected.plugParams[1] = 0x55667788;
  expected.plugParams[2] = 0x99AABBCC;
  expected.device = kKeyboardDevice;
  expected.config = kKeyboardConfig;
  expected.store = StoreBytes({{0, 0, kLanguages}, {2, 0x0409, product}, {3, 0x0409, serial}});
  const auto records = Model().PluginRecords();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0], PluginRecordBytes(expected));
  EXPECT_EQ(records[0].size(), 47u + 18 + 34 + expected.store.size());
  EXPECT_EQ(DeviceLines(),
            (LogLines{{2, InternalLine(session_, 0xA5, 1, 0)}, {2, PluginLine(device, 1, 0)}}));
  EXPECT_EQ(StateOf(device), kDevicePlugged);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

// Any non-zero partial reaches the hub as 1; the short form's plug
// parameters are 0xFFFFFFFF, 0 and 0.
TEST_F(DeviceTest, PartialIsZeroOrOneOnTheWire) {
  OpenSession();
  const std::vector<uint8_t> device = WithoutStrings(kKeyboardDevice);
  for (uint8_t partial : {0, 1, 2, 255}) {
    PelarixHandle handle = nullptr;
    ASSERT_EQ(Pelarix_CreateDevice(session_, 4, partial, device.data(), kKeyboardConfig.data(),
                                   nullptr, nullptr, &handle),
              Pelarix_Success);
    ASSERT_EQ(Pelarix_PluginDevice(handle), Pelarix_Success);
    EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
  }
  const auto records = Model().PluginRecords();
  ASSERT_EQ(records.size(), 4u);
  for (size_t i = 0; i < records.size(); ++i) {
    ExpectedPlugin expected;
    expected.plugNo = static_cast<uint32_t>(i + 1);
    expected.partial = i == 0 ? 0 : 1;
    expected.device = device;
    expected.config = kKeyboardConfig;
    expected.store = StoreBytes({});
    EXPECT_EQ(records[i], PluginRecordBytes(expected)) << "device " << i;
  }
}

TEST_F(DeviceTest, MissingStringsAreOnlyReported) {
  OpenSession();
  PelarixHandle device = Keyboard();
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_Success);
  const std::string tail = ", handle: " + Ptr(device) + ", PlugNo: 1";
  EXPECT_EQ(
      DeviceLines(),
      (LogLines{{2, "Ignoring language ID missing from string store" + tail},
                {2,
                 "Ignoring serial number missing from string store, language: 0x409, "
                 "index: 3" +
                     tail},
                {2, "Ignoring product missing from string store, language: 0x409, index: 2" + tail},
                {2, InternalLine(session_, 0, 1, 0)},
                {2, PluginLine(device, 1, 0)}}));
  EXPECT_EQ(Model().PluginRecords().size(), 1u);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

// A string of another language, and a table without languages, count as
// missing.
TEST_F(DeviceTest, StringsOfAnotherLanguageAndAnEmptyTableAreMissing) {
  OpenSession();
  PelarixHandle device = Keyboard();
  const std::vector<uint8_t> emptyTable = {2, 3};
  const std::vector<uint8_t> german = StringDescriptor("Tasten");
  ASSERT_EQ(Pelarix_AddDeviceString(device, 0, 0, emptyTable.data()), Pelarix_Success);
  ASSERT_EQ(Pelarix_AddDeviceString(device, 2, 0x0407, german.data()), Pelarix_Success);
  ASSERT_EQ(Pelarix_AddDeviceString(device, 3, 0x0409, german.data()), Pelarix_Success);
  ClearLog();
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_Success);
  const std::string tail = ", handle: " + Ptr(device) + ", PlugNo: 1";
  EXPECT_EQ(
      DeviceLines(),
      (LogLines{{2, "Ignoring language ID missing from string store" + tail},
                {2, "Ignoring product missing from string store, language: 0x409, index: 2" + tail},
                {2, InternalLine(session_, 0, 1, 0)},
                {2, PluginLine(device, 1, 0)}}));
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(DeviceTest, DeviceWithoutStringsLooksForNone) {
  OpenSession();
  PelarixHandle device = Stringless(3);
  // Client version 3, but nothing to fetch and no delay: plugged in at once.
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_Success);
  EXPECT_EQ(DeviceLines(),
            (LogLines{{2, InternalLine(session_, 0, 1, 0)}, {2, PluginLine(device, 1, 0)}}));
  EXPECT_EQ(static_cast<PelarixDevice *>(device)->deferredThread, nullptr);
  EXPECT_EQ(static_cast<PelarixDevice *>(device)->deferredEvent, nullptr);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(DeviceTest, CallbackRunsBeforeTheExportReturnsWithTheDeviceStillCreated) {
  OpenSession();
  CallbackSeen seen;
  PelarixHandle device = Stringless(4, RecordCallback, &seen);
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_Success);
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.device, device);
  EXPECT_EQ(seen.status, Pelarix_Success);
  EXPECT_EQ(seen.stateDuringCall, kDeviceCreated);
  EXPECT_EQ(seen.thread, std::this_thread::get_id());
  EXPECT_EQ(StateOf(device), kDevicePlugged);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

// The hub checks the descriptors after the request went pending: its error
// is named, the caller's line follows, and the device counts as plugged in,
// so its unplug still goes to the hub.
TEST_F(DeviceTest, DeviceDescriptorRefusedByTheHub) {
  OpenSession();
  CallbackSeen seen;
  std::vector<uint8_t> wrongType = WithoutStrings(kKeyboardDevice);
  wrongType[1] = 2;
  PelarixHandle device = nullptr;
  ASSERT_EQ(Create(&device, wrongType, kKeyboardConfig, 4, RecordCallback, &seen), Pelarix_Success);
  ClearLog();
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_HubRequestFailed);
  EXPECT_EQ(DeviceLines(), (LogLines{{0, "Device descriptor consistency check failed"},
                                     {0, "Failed to plugin virtual device handle: " + Ptr(device) +
                                             ", error: 0xe0000002"},
                                     {2, InternalLine(session_, 0, 1, 9)},
                                     {2, PluginLine(device, 1, 9)}}));
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.status, Pelarix_HubRequestFailed);
  EXPECT_EQ(StateOf(device), kDevicePlugged);
  EXPECT_TRUE(Model().PluggedDevices().empty());
  EXPECT_EQ(Pelarix_UnplugDevice(device), Pelarix_Success);
  EXPECT_EQ(Model().Unplugs(), (std::vector<uint32_t>{1}));
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(DeviceTest, ConfigurationRefusedByTheHub) {
  OpenSession();
  std::vector<uint8_t> shortSet = kKeyboardConfig;
  shortSet[2] = 5;  // wTotalLength 5: the hub wants 9 at least
  PelarixHandle device = nullptr;
  ASSERT_EQ(Create(&device, WithoutStrings(kKeyboardDevice), shortSet), Pelarix_Success);
  ClearLog();
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_HubRequestFailed);
  EXPECT_EQ(DeviceLines()[0],
            (LogLines::value_type{0, "Configuration descriptor consistency check failed"}));
  EXPECT_EQ(static_cast<PelarixDevice *>(device)->configLength, 5u);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

// A set of length 0 is copied as nothing (into a zero-filled block of four
// bytes, which the settings' family lookup reads as a set of length 0); the
// hub refuses it.
TEST_F(DeviceTest, ConfigurationOfLengthZeroIsCopiedAsNothing) {
  OpenSession();
  std::vector<uint8_t> emptySet = kKeyboardConfig;
  emptySet[2] = 0;
  PelarixHandle device = nullptr;
  ASSERT_EQ(Create(&device, WithoutStrings(kKeyboardDevice), emptySet), Pelarix_Success);
  EXPECT_EQ(static_cast<PelarixDevice *>(device)->configLength, 0u);
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_HubRequestFailed);
  const auto requests = Model().RequestsOf(IOCTL_HUB_PLUGIN_DEVICE);
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].input.size(), 47u + 18 + 12);
  EXPECT_EQ(requests[0].input[40], 18 + 12);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

// The same error reported at once, not after the request went pending, is
// not the hub's check: only the caller's line.
TEST_F(DeviceTest, ImmediateHubErrorGivesOnlyTheCallersLine) {
  OpenSession();
  PelarixHandle device = Stringless();
  Model().FailRequest(IOCTL_HUB_PLUGIN_DEVICE, 0xE0000002, false);
  ClearLog();
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_HubRequestFailed);
  EXPECT_EQ(DeviceLines(), (LogLines{{0, "Failed to plugin virtual device handle: " + Ptr(device) +
                                             ", error: 0xe0000002"},
                                     {2, InternalLine(session_, 0, 1, 9)},
                                     {2, PluginLine(device, 1, 9)}}));
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(DeviceTest, DeviceTheHubAlreadyHasIsDeviceExists) {
  OpenSession();
  CallbackSeen seen;
  PelarixHandle device = Stringless(4, RecordCallback, &seen);
  Model().FailRequest(IOCTL_HUB_PLUGIN_DEVICE, 183, true);
  ClearLog();
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_DeviceExists);
  EXPECT_EQ(DeviceLines(),
            (LogLines{{0, "Failed to plugin virtual device, device already exists, handle: " +
                              Ptr(device)},
                      {2, InternalLine(session_, 0, 1, 11)},
                      {2, PluginLine(device, 1, 11)}}));
  EXPECT_EQ(seen.status, Pelarix_DeviceExists);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(DeviceTest, SecondPluginIsInvalidState) {
  OpenSession();
  PelarixHandle device = Stringless();
  ASSERT_EQ(Pelarix_PluginDevice(device), Pelarix_Success);
  ClearLog();
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_InvalidState);
  EXPECT_EQ(DeviceLines(), (LogLines{{0, "Device already plugged in, handle: " + Ptr(device)},
                                     {2, PluginLine(device, 1, 12)}}));
  ASSERT_EQ(Pelarix_UnplugDevice(device), Pelarix_Success);
  ClearLog();
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_InvalidState);
  EXPECT_EQ(DeviceLines(), (LogLines{{0, "Device already plugged in, handle: " + Ptr(device)},
                                     {2, PluginLine(device, 1, 12)}}));
  EXPECT_EQ(Model().PluginRecords().size(), 1u);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(DeviceTest, PluginOfAnotherKindOfHandleIsInvalidHandle) {
  OpenSession();
  EXPECT_EQ(Pelarix_PluginDevice(session_), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_PluginDevice(nullptr), Pelarix_InvalidHandle);
  EXPECT_EQ(Lines(), (LogLines{{0, "Invalid device handle: " + Ptr(session_)},
                               {2, PluginLine(session_, 0, 5)},
                               {0, "Invalid device handle: " + Ptr(nullptr)},
                               {2, PluginLine(nullptr, 0, 5)}}));
}

TEST_F(DeviceTest, FlagsSetAfterThePluginChangeOnlyTheGetter) {
  OpenSession();
  PelarixHandle device = Stringless();
  ASSERT_EQ(Pelarix_SetDeviceFlags(device, 3), Pelarix_Success);
  ASSERT_EQ(Pelarix_PluginDevice(device), Pelarix_Success);
  ASSERT_EQ(Pelarix_SetDeviceFlags(device, 9), Pelarix_Success);
  uint32_t flags = 0;
  EXPECT_EQ(Pelarix_GetDeviceFlags(device, &flags), Pelarix_Success);
  EXPECT_EQ(flags, 9u);
  EXPECT_EQ(Model().PluginRecords()[0][12], 3);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

}  // namespace
}  // namespace pelarix
