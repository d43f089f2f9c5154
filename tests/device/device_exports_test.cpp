// The device's getters and setter, its session handle, and the strings a
// client adds, with their settled wording.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/device.h"
#include "device_fixture.h"

namespace pelarix {
namespace {

using testing::DeviceTest;
using testing::LogLines;
using testing::Ptr;
using testing::StringDescriptor;

TEST_F(DeviceTest, GettersReadTheRecord) {
  OpenSession();
  PelarixHandle device = Keyboard(6);
  ASSERT_EQ(Pelarix_SetDeviceFlags(device, 0x80000001), Pelarix_Success);
  uint32_t plugNo = 0;
  uint32_t flags = 0;
  uint32_t version = 0;
  EXPECT_EQ(Pelarix_GetDeviceId(device, &plugNo), Pelarix_Success);
  EXPECT_EQ(Pelarix_GetDeviceFlags(device, &flags), Pelarix_Success);
  EXPECT_EQ(Pelarix_GetDeviceClientVersion(device, &version), Pelarix_Success);
  EXPECT_EQ(plugNo, 1u);
  EXPECT_EQ(flags, 0x80000001u);
  EXPECT_EQ(version, 6u);
  EXPECT_TRUE(Lines().empty());  // no closing lines
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

// Four of them speak of an item handle: settled wording.
TEST_F(DeviceTest, GettersOnAnotherKindOfHandleNameAnItemHandle) {
  OpenSession();
  uint32_t word = 0;
  EXPECT_EQ(Pelarix_GetDeviceId(session_, &word), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_GetDeviceFlags(session_, &word), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_SetDeviceFlags(session_, 1), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_GetDeviceClientVersion(session_, &word), Pelarix_InvalidHandle);
  PelarixHandle out = nullptr;
  EXPECT_EQ(Pelarix_GetDeviceSessionHandle(session_, &out), Pelarix_InvalidHandle);
  const std::string text = Ptr(session_);
  EXPECT_EQ(Lines(), (LogLines{{0, "Invalid item handle: " + text},
                               {0, "Invalid item handle: " + text},
                               {0, "Invalid item handle: " + text},
                               {0, "Invalid item handle: " + text},
                               {0, "Invalid device handle: " + text}}));
  EXPECT_EQ(word, 0u);
}

TEST_F(DeviceTest, GettersWithNullOutPointers) {
  OpenSession();
  PelarixHandle device = Keyboard();
  EXPECT_EQ(Pelarix_GetDeviceId(device, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_GetDeviceFlags(device, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_GetDeviceClientVersion(device, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_GetDeviceSessionHandle(device, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Lines(), (LogLines{{0, "Invalid parameter, deviceId is null"},
                               {0, "Invalid parameter, deviceFlags is null"},
                               {0, "Invalid parameter, version is null"},
                               {0, "Invalid parameter, pelarixHandle is null"}}));
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(DeviceTest, SessionHandleOfADeviceIsANewReference) {
  OpenSession();
  PelarixHandle device = Keyboard();
  PelarixHandle session = nullptr;
  EXPECT_EQ(Pelarix_GetDeviceSessionHandle(device, &session), Pelarix_Success);
  EXPECT_EQ(session, session_);
  EXPECT_EQ(Lines(),
            (LogLines{{3, "Duplicate handle: " + Ptr(session_) + ", Ref: 2, status: 0x0"}}));
  EXPECT_EQ(Pelarix_CloseHandle(session), Pelarix_Success);
  EXPECT_TRUE(IsValidHandle(session_, kSessionHandle));
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

TEST_F(DeviceTest, AddDeviceStringLogsEachCall) {
  OpenSession();
  PelarixHandle device = Keyboard();
  const std::vector<uint8_t> product = StringDescriptor("Keys");
  const std::vector<uint8_t> wrongType = {4, 2, 'a', 0};
  EXPECT_EQ(Pelarix_AddDeviceString(device, 2, 0x0409, product.data()), Pelarix_Success);
  EXPECT_EQ(Pelarix_AddDeviceString(device, 2, 0x0409, wrongType.data()), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_AddDeviceString(device, 2, 0x0409, nullptr), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_AddDeviceString(session_, 2, 0x0409, product.data()), Pelarix_InvalidHandle);
  const std::string line = "Add device string, Handle: " + Ptr(device) + ", PlugNo: 1, status: ";
  EXPECT_EQ(
      Lines(),
      (LogLines{{2, line + "0x0"},
                {2, line + "0x6"},
                {0, "Invalid parameter, string is null"},
                {2, line + "0x6"},
                {0, "Invalid device handle: " + Ptr(session_)},
                {2, "Add device string, Handle: " + Ptr(session_) + ", PlugNo: 0, status: 0x5"}}));
  // Only the good string is in the store.
  auto *record = static_cast<PelarixDevice *>(device);
  EXPECT_EQ(record->stringStore[8], 1);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

// No state is checked: a string added after the plug-in lands in the store,
// and nobody reads it.
TEST_F(DeviceTest, StringAddedAfterThePluginLandsInTheStore) {
  OpenSession();
  PelarixHandle device = Keyboard();
  ASSERT_EQ(Pelarix_PluginDevice(device), Pelarix_Success);
  const std::vector<uint8_t> product = StringDescriptor("Late");
  EXPECT_EQ(Pelarix_AddDeviceString(device, 2, 0x0409, product.data()), Pelarix_Success);
  EXPECT_EQ(static_cast<PelarixDevice *>(device)->stringStore[8], 1);
  EXPECT_EQ(Model().PluginRecords().size(), 1u);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
}

}  // namespace
}  // namespace pelarix
