#include "demo_run.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>

namespace pelarix::demo {
namespace {

DemoOptions Options(const std::vector<std::string> &arguments) {
  DemoOptions defaults;
  defaults.dataDir = std::string(PELARIX_TEST_DATA_DIR) + "/realdesc";
  defaults.registry = PELARIX_DEMO_REGISTRY;
  std::string error;
  auto options = ParseDemoOptions(arguments, defaults, &error);
  EXPECT_TRUE(options) << error;
  return options ? *options : defaults;
}

// The table with its rates (the only figures that vary) as "#", and each
// run of blanks as one.
std::string Steady(const std::string &table) {
  const std::string masked = std::regex_replace(table, std::regex("[0-9]+\\.[0-9]"), "#");
  return std::regex_replace(masked, std::regex(" +"), " ");
}

struct DemoResult {
  int status;
  std::string out;
  std::string err;
};

DemoResult RunWith(std::vector<std::string> arguments) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = RunDemo(Options(std::move(arguments)), out, err);
  return {status, out.str(), err.str()};
}

TEST(DemoRun, DevicesAreDecidedEnumeratedAndDriven) {
  const DemoResult run = RunWith(
      {"--duration", "0", "--devices", "bt_broadcom,ccid_yubikey4,flash_generic,keyboard_holtek"});
  EXPECT_EQ(run.status, kExitPassed) << run.out << run.err;
  EXPECT_EQ(
      Steady(run.out),
      "Device Id Client Decision PlugNo Items Bytes MB/s Items/s Check\n"
      "bt_broadcom_bcm2045b_0a5c_2110 0a5c:2110 4 kept by client - - - - - -\n"
      "ccid_yubikey4_1050_0407 1050:0407 4 split 0,1 1 51 8141 - - typed \"Hello from Pelarix "
      "14\"\n"
      "flash_generic_1043_8012 1043:8012 4 whole 2 20 134485 # # disk verified\n"
      "keyboard_holtek_04d9_1603 04d9:1603 4 whole 3 51 8091 - - typed \"Hello from Pelarix "
      "14\"\n"
      "4 devices, 3 plugged in; every check passed\n");
  EXPECT_EQ(run.err, "");  // no library log unless asked
}

TEST(DemoRun, WithoutTheClientsFilterTheAgentRefusesItsDevice) {
  const DemoResult run = RunWith({"--duration", "0", "--devices", "bt_broadcom,hub_nec",
                                  "--no-client-filter", "--older-client", ""});
  EXPECT_EQ(run.status, kExitPassed) << run.out << run.err;
  EXPECT_EQ(Steady(run.out),
            "Device Id Client Decision PlugNo Items Bytes MB/s Items/s Check\n"
            "bt_broadcom_bcm2045b_0a5c_2110 0a5c:2110 4 blocked by agent - - - - - -\n"
            "hub_nec_0409_0058 0409:0058 4 whole 1 8 1399 - - ok\n"
            "2 devices, 1 plugged in; every check passed\n");
}

TEST(DemoRun, AnOlderClientsDeviceIsOfferedWholeWithoutItsOwnFilter) {
  // The Lenovo hub names no string: its plug-in needs no fetch.
  const DemoResult run = RunWith({"--duration", "0", "--devices", "bt_broadcom,hub_lenovo",
                                  "--older-client", "bt_broadcom,hub_lenovo"});
  EXPECT_EQ(run.status, kExitPassed) << run.out << run.err;
  EXPECT_EQ(Steady(run.out),
            "Device Id Client Decision PlugNo Items Bytes MB/s Items/s Check\n"
            "bt_broadcom_bcm2045b_0a5c_2110 0a5c:2110 3 blocked by agent - - - - - -\n"
            "hub_lenovo_mtt_17ef_1005 17ef:1005 3 whole 1 5 871 - - ok\n"
            "2 devices, 1 plugged in; every check passed\n");
}

TEST(DemoRun, ByDefaultAHubComesFromAnOlderClientAndTheLibraryFetchesItsStrings) {
  // Its language table and its product string (index 2): two items more
  // than a newer client's hub, which brings its strings along.
  const DemoResult run = RunWith({"--duration", "0", "--devices", "hub_nec", "--log-level", "2"});
  EXPECT_EQ(run.status, kExitPassed) << run.out << run.err;
  EXPECT_EQ(Steady(run.out),
            "Device Id Client Decision PlugNo Items Bytes MB/s Items/s Check\n"
            "hub_nec_0409_0058 0409:0058 3 whole 1 10 1759 - - ok\n"
            "1 devices, 1 plugged in; every check passed\n");
  for (const char *line :
       {"pelarix[2]: Complete get string descriptor item, Item Id: 1, index: 0, language: 0x0, "
        "status: 0x0\n",
        "pelarix[2]: Complete get string descriptor item, Item Id: 2, index: 2, language: 0x409, "
        "status: 0x0\n"}) {
    EXPECT_NE(run.err.find(line), std::string::npos) << line << run.err;
  }
}

TEST(DemoRun, AReadBackMismatchFailsTheRun) {
  const DemoResult run =
      RunWith({"--duration", "0", "--devices", "flash_generic", "--corrupt-disks"});
  EXPECT_EQ(run.status, kExitCheckFailed);
  EXPECT_NE(run.out.find("FAILED: read-back mismatch at block 0\n"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("a check failed\n"), std::string::npos);
}

TEST(DemoRun, TheLibrarysLogComesAtTheChosenLevel) {
  const DemoResult run = RunWith({"--duration", "0", "--devices", "hub_nec", "--log-level", "2"});
  EXPECT_EQ(run.status, kExitPassed);
  EXPECT_NE(run.err.find("pelarix[2]: Plugin device, handle: "), std::string::npos) << run.err;
  EXPECT_EQ(run.err.find("pelarix[3]:"), std::string::npos);
}

TEST(DemoRun, NoMatchingDeviceIsABadArgument) {
  const DemoResult run = RunWith({"--devices", "no_such_device"});
  EXPECT_EQ(run.status, kExitBadArguments);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err.find("matches"), std::string::npos);
}

TEST(DemoOptions, ValuesAreCheckedAndNamedInTheError) {
  std::string error;
  EXPECT_FALSE(ParseDemoOptions({"--duration", "-1"}, {}, &error));
  EXPECT_EQ(error, "--duration takes seconds from 0 to 3600");
  EXPECT_FALSE(ParseDemoOptions({"--log-level", "4"}, {}, &error));
  EXPECT_EQ(error, "--log-level takes 0 to 3");
  EXPECT_FALSE(ParseDemoOptions({"--pumps", "0"}, {}, &error));
  EXPECT_EQ(error, "--pumps takes 1 to 16");
  EXPECT_FALSE(ParseDemoOptions({"--devices"}, {}, &error));
  EXPECT_EQ(error, "--devices needs a value");
  EXPECT_FALSE(ParseDemoOptions({"--frobnicate"}, {}, &error));
  EXPECT_EQ(error, "unknown argument --frobnicate");
  auto options = ParseDemoOptions(
      {"--duration", "0.5", "--devices", "a,,b", "--log-level", "0", "--older-client", "c"}, {},
      &error);
  ASSERT_TRUE(options);
  EXPECT_EQ(options->durationSeconds, 0.5);
  EXPECT_EQ(options->devices, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(options->logLevel, 0u);
  EXPECT_EQ(options->olderClient, std::vector<std::string>{"c"});
}

}  // namespace
}  // namespace pelarix::demo
