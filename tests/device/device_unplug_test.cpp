// Unplug and the end of devices: the hub's request, the closing line, the
// state after each, and the rule that a session lingers until its last
// device is gone while the device's handle goes on working.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/device.h"
#include "device_fixture.h"
#include "frame/session.h"
#include "hub/hub_control_codes.h"

namespace pelarix {
namespace {

using testing::DeviceTest;
using testing::kKeyboardConfig;
using testing::kKeyboardDevice;
using testing::LogLines;
using testing::Ptr;
using testing::WithoutStrings;

constexpr uint32_t kWaitMs = 5000;

LogLines UnplugLines(PelarixHandle device, uint32_t plugNo, uint32_t status) {
  const std::string number = std::to_string(plugNo);
  char tail[64];
  std::snprintf(tail, sizeof tail, ", status: 0x%x", status);
  return {{2, "Destroying deferred plugin context, PlugNo: " + number},
          {2, "Destroyed deferred plugin, PlugNo: " + number},
          {2, "Unplug device, handle: " + Ptr(device) + ", PlugNo: " + number +
                  ", Item Count: 0, Item Call Count: 0, Item Max Len: 0" + tail}};
}

class UnplugTest : public DeviceTest {
 protected:
  // A device without strings, plugged in, the log forgotten.
  PelarixHandle Plugged() {
    PelarixHandle device = Stringless();
    EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_Success);
    ClearLog();
    return device;
  }
};

uint32_t StateOf(PelarixHandle device) {
  return static_cast<PelarixDevice *>(device)->state;
}

TEST_F(UnplugTest, UnplugTellsTheHubAndPrintsTheCounters) {
  OpenSession();
  PelarixHandle device = Plugged();
  EXPECT_EQ(Pelarix_UnplugDevice(device), Pelarix_Success);
  EXPECT_EQ(Lines(), UnplugLines(device, 1, 0));
  EXPECT_EQ(Model().Unplugs(), (std::vector<uint32_t>{1}));
  EXPECT_TRUE(Model().PluggedDevices().empty());
  EXPECT_EQ(StateOf(device), kDeviceUnplugged);
  // The handle stays the caller's.
  EXPECT_TRUE(IsValidHandle(device, kDeviceHandle));
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  EXPECT_EQ(Model().Unplugs().size(), 1u);
}

TEST_F(UnplugTest, UnplugOfADeviceNotPluggedInIsInvalidState) {
  OpenSession();
  PelarixHandle created = Keyboard();
  EXPECT_EQ(Pelarix_UnplugDevice(created), Pelarix_InvalidState);
  EXPECT_EQ(Lines(), (LogLines{{0, "Device not plugged in, handle: " + Ptr(created)}}));
  PelarixHandle device = Plugged();
  ASSERT_EQ(Pelarix_UnplugDevice(device), Pelarix_Success);
  ClearLog();
  EXPECT_EQ(Pelarix_UnplugDevice(device), Pelarix_InvalidState);
  EXPECT_EQ(Lines(), (LogLines{{0, "Device not plugged in, handle: " + Ptr(device)}}));
  EXPECT_EQ(Model().Unplugs(), (std::vector<uint32_t>{2}));
  EXPECT_EQ(Pelarix_CloseHandle(created), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

// The internal unplug of a device that is no longer plugged in ends without
// a failure, as a second unplug at the same time does.
TEST_F(UnplugTest, InternalUnplugOfAnUnpluggedDeviceSucceedsQuietly) {
  OpenSession();
  PelarixHandle device = Plugged();
  ASSERT_EQ(Pelarix_UnplugDevice(device), Pelarix_Success);
  ClearLog();
  EXPECT_EQ(UnplugDevice(static_cast<PelarixDevice *>(device)), Pelarix_Success);
  EXPECT_EQ(Lines(), (LogLines{{2, "Unplug device, handle: " + Ptr(device) +
                                       ", PlugNo: 1, Item Count: 0, Item Call Count: 0, Item "
                                       "Max Len: 0, status: 0x0"}}));
  EXPECT_EQ(Model().Unplugs().size(), 1u);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(UnplugTest, UnplugRefusedByTheHubStillLeavesTheDeviceUnplugged) {
  OpenSession();
  PelarixHandle device = Plugged();
  Model().FailRequest(IOCTL_HUB_UNPLUG_DEVICE, 31, false);
  EXPECT_EQ(Pelarix_UnplugDevice(device), Pelarix_HubRequestFailed);
  LogLines expected = UnplugLines(device, 1, 9);
  expected.insert(expected.begin() + 2, {0, "Failed to unplug device, handle: " + Ptr(device) +
                                                ", PlugNo: 1, error: 0x1f"});
  EXPECT_EQ(Lines(), expected);
  EXPECT_EQ(StateOf(device), kDeviceUnplugged);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(UnplugTest, UnplugHandleOfAnotherKindIsInvalidHandle) {
  OpenSession();
  EXPECT_EQ(Pelarix_UnplugDevice(session_), Pelarix_InvalidHandle);
  EXPECT_EQ(Lines(), (LogLines{{0, "Invalid device handle: " + Ptr(session_)}}));
}

// Closing a plugged device unplugs it even though nobody asked.
TEST_F(UnplugTest, ClosingAPluggedDeviceUnplugsIt) {
  OpenSession();
  PelarixHandle device = Plugged();
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  LogLines expected = {{3, "Deref inst: " + Ptr(device) + ", refCount: 1"},
                       {3, "Destroying inst: " + Ptr(device)}};
  for (const auto &line : UnplugLines(device, 1, 0)) expected.push_back(line);
  expected.push_back({3, "Close handle: " + Ptr(device) + ", status: 0x0"});
  EXPECT_EQ(Lines(), expected);
  EXPECT_EQ(Model().Unplugs(), (std::vector<uint32_t>{1}));
  EXPECT_FALSE(IsValidHandle(device, kAnyHandle));
  EXPECT_EQ(static_cast<PelarixSession *>(session_)->devices, nullptr);
}

TEST_F(UnplugTest, ClosedDeviceHandleIsInvalid) {
  OpenSession();
  PelarixHandle device = Plugged();
  ASSERT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  ClearLog();
  uint32_t word = 0;
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_UnplugDevice(device), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_GetDeviceId(device, &word), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_AddDeviceString(device, 0, 0, kKeyboardConfig.data()), Pelarix_InvalidHandle);
  const std::string text = Ptr(device);
  EXPECT_EQ(Lines(),
            (LogLines{{0, "Invalid handle: " + text},
                      {3, "Close handle: " + text + ", status: 0x5"},
                      {0, "Invalid device handle: " + text},
                      {2, "Plugin device, handle: " + text + ", PlugNo: 0, status: 0x5"},
                      {0, "Invalid device handle: " + text},
                      {0, "Invalid item handle: " + text},
                      {0, "Invalid device handle: " + text},
                      {2, "Add device string, Handle: " + text + ", PlugNo: 0, status: 0x5"}}));
}

// The session's handle dies with its last reference, but the record waits
// for its last device; the device's handle goes on working meanwhile.
TEST_F(UnplugTest, DeviceHandleWorksAfterItsSessionIsClosed) {
  OpenSession();
  PelarixHandle device = Keyboard();
  PelarixHandle session = session_;
  ASSERT_EQ(Pelarix_CloseHandle(session), Pelarix_Success);
  EXPECT_FALSE(IsValidHandle(session, kSessionHandle));
  EXPECT_TRUE(Model().SessionOpen());
  ClearLog();
  PelarixHandle other = nullptr;
  EXPECT_EQ(Create(&other, kKeyboardDevice, kKeyboardConfig), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_CloseHandle(session), Pelarix_InvalidHandle);
  PelarixHandle sessionAgain = nullptr;
  EXPECT_EQ(Pelarix_GetDeviceSessionHandle(device, &sessionAgain), Pelarix_InvalidHandle);
  EXPECT_EQ(sessionAgain, nullptr);
  // The device goes on: strings, plug-in, unplug, all through the lingering
  // session's hub connection.
  const std::vector<uint8_t> languages = {4, 3, 0x09, 0x04};
  EXPECT_EQ(Pelarix_AddDeviceString(device, 0, 0, languages.data()), Pelarix_Success);
  EXPECT_EQ(Pelarix_PluginDevice(device), Pelarix_Success);
  EXPECT_EQ(Model().PluginRecords().size(), 1u);
  EXPECT_EQ(Pelarix_UnplugDevice(device), Pelarix_Success);
  EXPECT_EQ(Model().Unplugs(), (std::vector<uint32_t>{1}));
  uint32_t plugNo = 0;
  EXPECT_EQ(Pelarix_GetDeviceId(device, &plugNo), Pelarix_Success);
  EXPECT_EQ(plugNo, 1u);
  // The last device takes the session with it.
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  EXPECT_TRUE(Model().WaitForNoSession(kWaitMs));
  EXPECT_FALSE(IsValidHandle(device, kAnyHandle));
  session_ = nullptr;
}

TEST_F(UnplugTest, SessionIsTornDownOnlyWhenItsLastDeviceGoes) {
  OpenSession();
  PelarixHandle first = Plugged();
  PelarixHandle second = Keyboard();
  auto *session = static_cast<PelarixSession *>(session_);
  ASSERT_EQ(Pelarix_CloseHandle(session_), Pelarix_Success);
  session_ = nullptr;
  ASSERT_EQ(Pelarix_CloseHandle(first), Pelarix_Success);
  EXPECT_EQ(session->header.magic, kHandleMagic);  // lingering, one device left
  EXPECT_EQ(session->devices, second);
  EXPECT_TRUE(Model().SessionOpen());
  EXPECT_EQ(Model().Unplugs(), (std::vector<uint32_t>{1}));
  ClearLog();
  ASSERT_EQ(Pelarix_CloseHandle(second), Pelarix_Success);
  EXPECT_EQ(session->header.magic, 0u);
  EXPECT_TRUE(Model().WaitForNoSession(kWaitMs));
  // The device that was never plugged in is not unplugged.
  EXPECT_EQ(Model().Unplugs(), (std::vector<uint32_t>{1}));
}

}  // namespace
}  // namespace pelarix
