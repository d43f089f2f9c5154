// A virtual hub in a fresh hub directory, the library's log captured at
// level 3, and a connection opened through the real socket transport.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "hub_directory.h"
#include "log_capture.h"
#include "platform/platform.h"
#include "virtual_hub.h"

namespace pelarix::testing {

class HubChannelTest : public ::testing::Test {
 protected:
  HubChannelTest() : log_(3) {}
  ~HubChannelTest() override {
    platform::HubClose(connection_);
    for (auto &hub : hubs_) hub->Stop();
  }

  vhub::VirtualHub &StartHub(const std::string &name = "hub") {
    vhub::VirtualHubOptions options;
    options.directory = directory_.Path();
    options.name = name;
    hubs_.push_back(std::make_unique<vhub::VirtualHub>(options));
    std::string error;
    EXPECT_TRUE(hubs_.back()->Start(&error)) << error;
    return *hubs_.back();
  }

  vhub::HubModel &Model() { return hubs_.front()->Model(); }

  // Starts a hub, opens it without logging, and forgets what was logged.
  platform::HubConnection Connect() {
    if (hubs_.empty()) StartHub();
    platform::HubDeviceSet set = nullptr;
    platform::HubGetDeviceSet(&set);
    uint32_t chars = 0;
    platform::HubGetInterfacePath(set, nullptr, 0, &chars);
    std::u16string path(chars, u'\0');
    platform::HubGetInterfacePath(set, path.data(), chars, &chars);
    platform::HubDestroyDeviceSet(set);
    EXPECT_EQ(platform::HubOpen(path.c_str(), &connection_), 0u);
    return connection_;
  }

  std::vector<LogLine> Lines() const { return log_.Lines(); }
  void ClearLog() { log_.Clear(); }

  vhub::ScopedHubDirectory directory_;
  LogCapture log_;
  std::vector<std::unique_ptr<vhub::VirtualHub>> hubs_;
  platform::HubConnection connection_ = nullptr;
};

inline std::vector<uint8_t> Bytes(std::initializer_list<int> values) {
  std::vector<uint8_t> bytes;
  for (int value : values) bytes.push_back(static_cast<uint8_t>(value));
  return bytes;
}

}  // namespace pelarix::testing
