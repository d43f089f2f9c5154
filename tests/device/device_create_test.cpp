// Creating devices: the filter's answer first, the PlugNo, the copies, the
// settings, the list, and the line that closes every call.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/device.h"
#include "device_fixture.h"
#include "frame/session.h"
#include "hub/hub_control_codes.h"

namespace pelarix {
namespace {

using testing::DeviceTest;
using testing::kGeneralKey;
using testing::kKeyboardConfig;
using testing::kKeyboardDevice;
using testing::LogLines;
using testing::Ptr;

const std::string kNull = "0000000000000000";

std::string CreateLine(PelarixHandle session, const void *device, uint32_t plugNo,
                       const std::string &partial, uint32_t clientVersion, uint32_t delayMs,
                       uint32_t status) {
  char tail[96];
  std::snprintf(tail, sizeof tail, ", Client Version: %u, Plugin Delay (ms), %u, status: 0x%x",
                clientVersion, delayMs, status);
  return "Create device, Handle: " + Ptr(session) + ", Device Handle: " + Ptr(device) +
         " PlugNo: " + std::to_string(plugNo) + ", Partial: " + partial + tail;
}

PelarixSession *SessionRecord(PelarixHandle session) {
  return static_cast<PelarixSession *>(session);
}

TEST_F(DeviceTest, CreateTakesThePlugNoFromTheHubAndReadsTheSettings) {
  OpenSession();
  PelarixHandle device = nullptr;
  ASSERT_EQ(Create(&device, kKeyboardDevice, kKeyboardConfig), Pelarix_Success);
  EXPECT_TRUE(IsValidHandle(device, kDeviceHandle));
  EXPECT_EQ(Lines(),
            (LogLines{{1, "Effective configuration setting, name: PluginDelay, value: 0"},
                      {1, "Effective configuration setting, name: DefaultPluginDelay, value: 0"},
                      {1, "Effective configuration setting, name: DeviceFlags, value: 0"},
                      {1, "Effective configuration setting, name: DefaultDeviceFlags, value: 0"},
                      {2, CreateLine(session_, device, 1, "false", 4, 0, 0)}}));
  EXPECT_EQ(Model().RequestsOf(IOCTL_HUB_GET_NEXT_PLUG_NUMBER).size(), 1u);
  auto *record = static_cast<PelarixDevice *>(device);
  EXPECT_EQ(record->state, kDeviceCreated);
  EXPECT_EQ(record->header.parent, &SessionRecord(session_)->header);
  EXPECT_EQ(record->configLength, 34u);
  EXPECT_EQ(std::vector<uint8_t>(record->configDescriptor, record->configDescriptor + 34),
            kKeyboardConfig);
  EXPECT_EQ(std::vector<uint8_t>(record->deviceDescriptor, record->deviceDescriptor + 18),
            kKeyboardDevice);
  uint32_t plugNo = 0;
  EXPECT_EQ(Pelarix_GetDeviceId(device, &plugNo), Pelarix_Success);
  EXPECT_EQ(plugNo, 1u);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

// The filter's device dump comes before the settings, when the session's
// filter log is at level 2 or above.
TEST_F(DeviceTest, FilterDumpsTheDeviceAtCreation) {
  OpenSession(nullptr, nullptr, 2);
  PelarixHandle device = nullptr;
  ASSERT_EQ(Create(&device, kKeyboardDevice, kKeyboardConfig), Pelarix_Success);
  const LogLines lines = Lines();
  EXPECT_THAT(
      lines, ::testing::Contains(LogLines::value_type{2, "DevFltr: Device id: Vid-0e0f_Pid-0001"}));
  EXPECT_EQ(lines.back(),
            (LogLines::value_type{2, CreateLine(session_, device, 1, "false", 4, 0, 0)}));
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(DeviceTest, RefusedDeviceCostsNoPlugNumberAndNoRecord) {
  WriteRegistry("[" + kGeneralKey + "]\r\n\"ExcludeVidPid\"=\"m:vid-0e0f_pid-0001\"\r\n");
  OpenSession();
  PelarixHandle device = &device;
  EXPECT_EQ(Create(&device, kKeyboardDevice, kKeyboardConfig), Pelarix_DeviceBlocked);
  EXPECT_EQ(device, &device);  // not written
  EXPECT_EQ(DeviceLines(), (LogLines{{0, "Device blocked"},
                                     {2, CreateLine(session_, nullptr, 0, "false", 4, 0, 13)}}));
  EXPECT_TRUE(Model().RequestsOf(IOCTL_HUB_GET_NEXT_PLUG_NUMBER).empty());
  EXPECT_EQ(SessionRecord(session_)->devices, nullptr);
}

TEST_F(DeviceTest, SessionWithoutFilterManagerRefusesEveryDevice) {
  OpenSession();
  ordo::usb::DestroyFilterManager(SessionRecord(session_)->filterManager);
  SessionRecord(session_)->filterManager = nullptr;
  PelarixHandle device = nullptr;
  EXPECT_EQ(Create(&device, kKeyboardDevice, kKeyboardConfig), Pelarix_DeviceBlocked);
  EXPECT_EQ(DeviceLines(), (LogLines{{0, "Device blocked"},
                                     {2, CreateLine(session_, nullptr, 0, "false", 4, 0, 13)}}));
  EXPECT_TRUE(Model().RequestsOf(IOCTL_HUB_GET_NEXT_PLUG_NUMBER).empty());
}

TEST_F(DeviceTest, NullDescriptorsAreInvalidParameters) {
  OpenSession();
  PelarixHandle device = nullptr;
  EXPECT_EQ(Pelarix_CreateDeviceEx(session_, 4, 0, 0, 0, 0, nullptr, kKeyboardConfig.data(),
                                   nullptr, nullptr, &device),
            Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_CreateDevice(session_, 4, 1, kKeyboardDevice.data(), nullptr, nullptr, nullptr,
                                 &device),
            Pelarix_InvalidParameter);
  EXPECT_EQ(DeviceLines(), (LogLines{{0, "Invalid parameter, deviceDesc or configDesc is null"},
                                     {2, CreateLine(session_, nullptr, 0, "false", 4, 0, 6)},
                                     {0, "Invalid parameter, deviceDesc or configDesc is null"},
                                     {2, CreateLine(session_, nullptr, 0, "true", 4, 0, 6)}}));
  EXPECT_EQ(device, nullptr);
  EXPECT_TRUE(Model().RequestsOf(IOCTL_HUB_GET_NEXT_PLUG_NUMBER).empty());
}

// The out pointer is not checked by the documented steps, which would write
// the new handle through null.
TEST_F(DeviceTest, NullOutPointerIsAnInvalidParameterBeforeTheHub) {
  OpenSession();
  EXPECT_EQ(Create(nullptr, kKeyboardDevice, kKeyboardConfig), Pelarix_InvalidParameter);
  EXPECT_EQ(DeviceLines(), (LogLines{{0, "Invalid parameter, deviceHandle is null"},
                                     {2, CreateLine(session_, nullptr, 0, "false", 4, 0, 6)}}));
  EXPECT_TRUE(Model().RequestsOf(IOCTL_HUB_GET_NEXT_PLUG_NUMBER).empty());
  EXPECT_EQ(SessionRecord(session_)->devices, nullptr);
}

TEST_F(DeviceTest, HandleOfAnotherKindOrClosedIsNoSession) {
  OpenSession();
  PelarixHandle device = Keyboard();
  PelarixHandle other = nullptr;
  EXPECT_EQ(Pelarix_CreateDeviceEx(device, 4, 0, 0, 0, 0, kKeyboardDevice.data(),
                                   kKeyboardConfig.data(), nullptr, nullptr, &other),
            Pelarix_InvalidHandle);
  EXPECT_EQ(DeviceLines(), (LogLines{{0, "Invalid session handle: " + Ptr(device)},
                                     {2, CreateLine(device, nullptr, 0, "false", 4, 0, 5)}}));
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  PelarixHandle closed = session_;
  EXPECT_EQ(Pelarix_CloseHandle(session_), Pelarix_Success);
  ClearLog();
  EXPECT_EQ(Pelarix_CreateDeviceEx(closed, 4, 0, 0, 0, 0, kKeyboardDevice.data(),
                                   kKeyboardConfig.data(), nullptr, nullptr, &other),
            Pelarix_InvalidHandle);
  EXPECT_EQ(DeviceLines()[0], (LogLines::value_type{0, "Invalid session handle: " + Ptr(closed)}));
  EXPECT_EQ(other, nullptr);
}

TEST_F(DeviceTest, PlugNumberRefusedLeavesNoDevice) {
  OpenSession();
  Model().FailRequest(IOCTL_HUB_GET_NEXT_PLUG_NUMBER, 31, false);
  PelarixHandle device = &device;
  EXPECT_EQ(Create(&device, kKeyboardDevice, kKeyboardConfig), Pelarix_HubRequestFailed);
  EXPECT_EQ(device, &device);
  const LogLines lines = DeviceLines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], (LogLines::value_type{
                          0, "Failed to retrieve next plug number fromvirtual hub handle: " +
                                 Ptr(SessionRecord(session_)->hubHandle) + ", error: 0x1f"}));
  // The record existed when the line was written; it is gone now.
  EXPECT_THAT(lines[1].second, ::testing::EndsWith(" PlugNo: 0, Partial: false, Client Version: "
                                                   "4, Plugin Delay (ms), 0, status: 0x9"));
  EXPECT_EQ(SessionRecord(session_)->devices, nullptr);
  // The refused request drew no number, so the next device gets the first.
  PelarixHandle next = Keyboard();
  uint32_t plugNo = 0;
  EXPECT_EQ(Pelarix_GetDeviceId(next, &plugNo), Pelarix_Success);
  EXPECT_EQ(plugNo, 1u);
  EXPECT_EQ(Pelarix_CloseHandle(next), Pelarix_Success);
}

TEST_F(DeviceTest, PartialVersionAndDelayAppearInTheLine) {
  WriteRegistry("[" + kGeneralKey + "]\r\n\"DefaultPluginDelay\"=dword:00000002\r\n");
  OpenSession();
  PelarixHandle device = nullptr;
  ASSERT_EQ(Pelarix_CreateDevice(session_, 7, 0x80, kKeyboardDevice.data(), kKeyboardConfig.data(),
                                 nullptr, nullptr, &device),
            Pelarix_Success);
  EXPECT_EQ(DeviceLines(), (LogLines{{2, CreateLine(session_, device, 1, "true", 7, 2000, 0)}}));
  auto *record = static_cast<PelarixDevice *>(device);
  EXPECT_EQ(record->pluginDelayMs, 2000u);
  EXPECT_EQ(record->partial, 0x80);
  EXPECT_EQ(record->plugParam1, 0xFFFFFFFFu);
  EXPECT_EQ(record->plugParam2, 0u);
  EXPECT_EQ(record->plugParam3, 0u);
  uint32_t version = 0;
  EXPECT_EQ(Pelarix_GetDeviceClientVersion(device, &version), Pelarix_Success);
  EXPECT_EQ(version, 7u);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(DeviceTest, DeviceFlagsComeFromTheSettings) {
  WriteRegistry("[" + kGeneralKey + "]\r\n\"DefaultDeviceFlags\"=dword:00000021\r\n");
  OpenSession();
  PelarixHandle device = Keyboard();
  uint32_t flags = 0;
  EXPECT_EQ(Pelarix_GetDeviceFlags(device, &flags), Pelarix_Success);
  EXPECT_EQ(flags, 0x21u);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(DeviceTest, DevicesAreListedNewestFirst) {
  OpenSession();
  PelarixHandle first = Keyboard();
  PelarixHandle second = Keyboard();
  PelarixSession *session = SessionRecord(session_);
  EXPECT_EQ(session->devices, second);
  EXPECT_EQ(session->devices->next, first);
  EXPECT_EQ(session->devices->next->next, nullptr);
  EXPECT_EQ(FindDeviceByPlugNo(session, 1), first);
  EXPECT_EQ(static_cast<PelarixDevice *>(first)->header.refCount, 2);
  ReleaseHandle(static_cast<HandleHeader *>(first));
  EXPECT_EQ(FindDeviceByPlugNo(session, 3), nullptr);
  EXPECT_EQ(Pelarix_CloseHandle(first), Pelarix_Success);
  EXPECT_EQ(session->devices, second);
  EXPECT_EQ(session->devices->next, nullptr);
  EXPECT_EQ(Pelarix_CloseHandle(second), Pelarix_Success);
  EXPECT_EQ(session->devices, nullptr);
}

}  // namespace
}  // namespace pelarix
