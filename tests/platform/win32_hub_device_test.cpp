// The Windows hub device: the device interface enumeration when no hub
// driver is installed, in-process hubs in the enumeration's order, and
// CreateFileW and DeviceIoControl on a handle that is not a hub.
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "hub/hub_control_codes.h"
#include "platform/platform.h"
#include "platform/win32/in_process_hub.h"
#include "virtual_hub.h"

namespace pelarix::platform {
namespace {

std::u16string Wide(const std::string &text) {
  return std::u16string(text.begin(), text.end());
}

class Win32HubDeviceTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (auto &hub : hubs_) hub->Stop();
    std::error_code ignored;
    if (!file_.empty()) std::filesystem::remove(file_, ignored);
  }

  vhub::VirtualHub &StartHub(const std::string &name) {
    vhub::VirtualHubOptions options;
    options.name = name;
    hubs_.push_back(std::make_unique<vhub::VirtualHub>(options));
    std::string error;
    EXPECT_TRUE(hubs_.back()->Start(&error)) << error;
    return *hubs_.back();
  }

  // A plain file, opened as the hub would be: not a device at all.
  std::u16string PlainFile() {
    file_ = std::filesystem::temp_directory_path() /
            ("pelarix-not-a-hub-" + std::to_string(GetCurrentProcessId()));
    std::ofstream(file_) << "x";
    const std::wstring path = file_.wstring();
    return std::u16string(path.begin(), path.end());
  }

  std::vector<std::unique_ptr<vhub::VirtualHub>> hubs_;
  std::filesystem::path file_;
};

TEST_F(Win32HubDeviceTest, WithoutAHubDriverTheInterfaceClassIsEmpty) {
  HubDeviceSet set = nullptr;
  ASSERT_EQ(HubGetDeviceSet(&set), kErrorSuccess);
  ASSERT_NE(set, nullptr);
  EXPECT_EQ(HubEnumFirstInterface(set), kErrorNoMoreItems);
  uint32_t chars = 7;
  EXPECT_EQ(HubGetInterfacePath(set, nullptr, 0, &chars), kErrorNoMoreItems);
  HubDestroyDeviceSet(set);
  HubDestroyDeviceSet(nullptr);
}

TEST_F(Win32HubDeviceTest, InProcessHubsComeInTheOrderOfTheirNames) {
  StartHub("hub10");
  StartHub("hub9");
  StartHub("Zhub");
  HubDeviceSet set = nullptr;
  ASSERT_EQ(HubGetDeviceSet(&set), kErrorSuccess);
  ASSERT_EQ(HubEnumFirstInterface(set), kErrorSuccess);
  uint32_t chars = 0;
  EXPECT_EQ(HubGetInterfacePath(set, nullptr, 0, &chars), kErrorInsufficientBuffer);
  const std::u16string expected = Wide(hubs_[2]->SocketPath());
  EXPECT_EQ(expected, std::u16string(kInProcessHubPathPrefix) + u"Zhub");
  ASSERT_EQ(chars, expected.size() + 1);
  std::vector<char16_t> path(chars, u'?');
  EXPECT_EQ(HubGetInterfacePath(set, path.data(), chars - 1, &chars), kErrorInsufficientBuffer);
  EXPECT_EQ(path[0], u'?');
  EXPECT_EQ(HubGetInterfacePath(set, path.data(), chars, &chars), kErrorSuccess);
  EXPECT_EQ(std::u16string(path.data()), expected);
  HubDestroyDeviceSet(set);
}

TEST_F(Win32HubDeviceTest, HubTakenAwaySinceItsEnumerationIsFileNotFound) {
  vhub::VirtualHub &hub = StartHub("hub");
  const std::u16string path = Wide(hub.SocketPath());
  hub.Stop();
  HubConnection connection = nullptr;
  EXPECT_EQ(HubOpen(path.c_str(), &connection), kErrorFileNotFound);
  EXPECT_EQ(connection, nullptr);
}

TEST_F(Win32HubDeviceTest, MissingDevicePathIsTheSystemsFileNotFound) {
  HubConnection connection = nullptr;
  EXPECT_EQ(HubOpen(u"\\\\?\\C:\\pelarix-no-such-hub", &connection), kErrorFileNotFound);
  EXPECT_EQ(connection, nullptr);
}

// CreateFileW with sharing 0: a second open of the same path is refused.
TEST_F(Win32HubDeviceTest, CreateFileOpensExclusively) {
  const std::u16string path = PlainFile();
  HubConnection first = nullptr;
  ASSERT_EQ(HubOpen(path.c_str(), &first), kErrorSuccess);
  HubConnection second = nullptr;
  EXPECT_EQ(HubOpen(path.c_str(), &second), kErrorSharingViolation);
  EXPECT_EQ(second, nullptr);
  HubClose(first);
  ASSERT_EQ(HubOpen(path.c_str(), &second), kErrorSuccess);
  HubClose(second);
}

// A handle that is no hub answers the request itself, at once: the error is
// the system's, and nothing went pending.
TEST_F(Win32HubDeviceTest, RequestToAHandleThatIsNoHubFailsAtOnce) {
  const std::u16string path = PlainFile();
  HubConnection connection = nullptr;
  ASSERT_EQ(HubOpen(path.c_str(), &connection), kErrorSuccess);
  uint32_t version = 0;
  uint32_t bytes = 99;
  const HubControlResult result =
      HubControl(connection, IOCTL_HUB_GET_VERSION, &version, 4, &version, 4, &bytes, nullptr);
  EXPECT_NE(result.error, kErrorSuccess);
  EXPECT_NE(result.error, kErrorIoPending);
  EXPECT_FALSE(result.pending);
  EXPECT_EQ(bytes, 0u);
  HubClose(connection);
}

}  // namespace
}  // namespace pelarix::platform
