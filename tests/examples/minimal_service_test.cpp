// The example service as a user runs it: with the sample settings it plugs
// its flash drive in, answers the one item the hub raises with the item's own
// bytes, unplugs and ends with 0, logging at levels 0 to 2 in UTF-8. With
// settings that exclude the drive it reports the refusal and plugs nothing.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "child_process.h"
#include "hub_directory.h"
#include "virtual_hub.h"

namespace pelarix::testing {
namespace {

class MinimalServiceTest : public ::testing::Test {
 protected:
  MinimalServiceTest() {
    vhub::VirtualHubOptions options;
    options.directory = directory_.Path();
    hub_ = std::make_unique<vhub::VirtualHub>(options);
  }
  ~MinimalServiceTest() override {
    hub_->Stop();
    unsetenv("PELARIX_REGISTRY");
  }
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(hub_->Start(&error)) << error;
  }

  // The service with these settings; its plug numbers once it has plugged
  // its device in, or none when it ends first.
  std::vector<uint32_t> StartService(const std::string &registry) {
    setenv("PELARIX_REGISTRY", registry.c_str(), 1);
    service_ = StartChild(PELARIX_EXAMPLE_SERVICE, {});
    std::vector<uint32_t> plugged;
    for (int waited = 0; waited < 10000; waited += 10) {
      plugged = hub_->Model().PluggedDevices();
      if (!plugged.empty() || HasEnded(service_)) break;
      usleep(10000);
    }
    return plugged;
  }

  vhub::ScopedHubDirectory directory_;
  std::unique_ptr<vhub::VirtualHub> hub_;
  Child service_;
};

TEST_F(MinimalServiceTest, PlugsInAnswersOneItemAndUnplugs) {
  const std::vector<uint32_t> plugged = StartService(PELARIX_EXAMPLE_REGISTRY);
  ASSERT_EQ(plugged, std::vector<uint32_t>{1});
  vhub::ItemSpec raised;
  raised.type = 0;  // a request
  raised.plugNo = 1;
  raised.data = {0x80, 0x06, 0x00, 0x01, 0x00, 0x00, 0x12, 0x00};
  const uint32_t id = hub_->Model().QueueItem(raised);
  std::string log;
  std::string out;
  EXPECT_EQ(Finish(service_, &log, &out), 0) << log;
  EXPECT_EQ(out,
            "device plugged in as 1\nitem " + std::to_string(id) + ": type 0, 8 bytes\ndone\n");
  const auto completions = hub_->Model().Completions();
  ASSERT_EQ(completions.size(), 1u);
  EXPECT_EQ(completions[0].itemId, id);
  EXPECT_EQ(completions[0].status, 0u);
  EXPECT_EQ(completions[0].data, raised.data);
  EXPECT_EQ(hub_->Model().Unplugs(), std::vector<uint32_t>{1});
  EXPECT_TRUE(hub_->Model().ItemProblems().empty());
  // The sample settings were read (level 1), the lifecycle logged (level 2),
  // per-item lines left out (level 3).
  EXPECT_NE(log.find("pelarix[1] Effectice configuration setting, name: ExcludeFamily, value: "
                     "exfa:m:printer\n"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("pelarix[2] Plugin device, handle: "), std::string::npos) << log;
  EXPECT_EQ(log.find("missing from string store"), std::string::npos) << log;
  EXPECT_EQ(log.find("pelarix[3] "), std::string::npos) << log;
}

TEST_F(MinimalServiceTest, RefusedDeviceIsReportedAndNotPlugged) {
  const std::string registry = directory_.Path() + "/refusing.reg";
  std::ofstream(registry) << "Windows Registry Editor Version 5.00\n\n"
                             "[HKEY_LOCAL_MACHINE\\Software\\Tessarin, Inc.\\Tessarin "
                             "Halden\\USB]\n"
                             "\"ExcludeVidPid\"=\"m:vid-0781_pid-5583\"\n";
  EXPECT_TRUE(StartService(registry).empty());
  std::string log;
  std::string out;
  EXPECT_EQ(Finish(service_, &log, &out), 1) << log;
  EXPECT_EQ(out, "the filter refused the device: not plugged in\nstopped\n");
  EXPECT_TRUE(hub_->Model().PluginRecords().empty());
}

}  // namespace
}  // namespace pelarix::testing
