#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "child_process.h"
#include "exported_device.h"
#include "usbip_test_path.h"

namespace pelarix::usbip::testing {
namespace {

// Debian's `usbip`, where a fresh machine's .ci/setup put it.
std::string UsbipTool() {
  for (const char *path : {"/usr/sbin/usbip", "/usr/bin/usbip"}) {
    if (access(path, X_OK) == 0) {
      return path;
    }
  }
  return "";
}

// The tool's listing with the names it takes from its usb.ids (they vary
// with that file's version) replaced by "*": what stays is ours, the bus
// ids, the path, the ids and the class triples.
std::string WithoutNames(const std::string &listing) {
  std::istringstream lines(listing);
  std::string masked;
  std::string line;
  const std::regex named("^(\\s*(?:[0-9]+-[0-9]+|)\\s*:\\s*(?:[0-9]+ - )?).* (\\([^()]*\\))$");
  while (std::getline(lines, line)) {
    masked += std::regex_replace(line, named, "$1* $2") + "\n";
  }
  return masked;
}

TEST(UsbipList, DebiansToolListsThePluggedDevicesWithTheirIdsAndInterfaces) {
  const std::string tool = UsbipTool();
  if (tool.empty()) {
    GTEST_SKIP() << "Debian's usbip tool is not installed (.ci/setup installs the package usbip)";
  }
  UsbipPath path;
  std::string error;
  ASSERT_TRUE(Start(path, {"flash_generic_1043_8012", "ccid_yubikey4_1050_0407"}, &error)) << error;
  const pelarix::testing::Child child = pelarix::testing::StartChild(
      tool, {"--tcp-port", std::to_string(path.Port()), "list", "-r", "127.0.0.1"});
  std::string log;
  std::string out;
  ASSERT_EQ(pelarix::testing::Finish(child, &log, &out), 0) << log;
  EXPECT_EQ(WithoutNames(out),
            "Exportable USB devices\n"
            "======================\n"
            " - 127.0.0.1\n"
            "        1-1: * (1043:8012)\n"
            "           : /sys/devices/platform/pelarix-vhub/usb1/1-1\n"
            "           : * (00/00/00)\n"
            "           :  0 - * (08/06/50)\n"
            "\n"
            "        1-2: * (1050:0407)\n"
            "           : /sys/devices/platform/pelarix-vhub/usb1/1-2\n"
            "           : * (00/00/00)\n"
            "           :  0 - * (03/01/01)\n"
            "           :  1 - * (03/00/00)\n"
            "           :  2 - * (0b/00/00)\n"
            "\n")
      << out;
  EXPECT_TRUE(path.WaitForLog("closed: listed 2 devices"));
}

TEST(UsbipList, TheListReplyIsTheRecordsOfThePluggedDevices) {
  UsbipPath path;
  std::string error;
  ASSERT_TRUE(Start(path, {"keyboard_holtek_04d9_1603"}, &error)) << error;
  UsbipClient host;
  ASSERT_TRUE(host.Connect(path.Port()));
  const std::vector<uint8_t> reply = host.List();
  ASSERT_EQ(reply.size(), 8u + 4 + 312 + 4 * 2);
  EXPECT_EQ(std::vector<uint8_t>(reply.begin(), reply.begin() + 12),
            (std::vector<uint8_t>{0x01, 0x11, 0x00, 0x05, 0, 0, 0, 0, 0, 0, 0, 1}));
  const uint8_t *record = &reply[12];
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(record)),
            "/sys/devices/platform/pelarix-vhub/usb1/1-1");
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(record + 256)), "1-1");
  // busnum 1, devnum 1 (the PlugNo), speed, then the descriptor's fields.
  const std::vector<uint8_t> tail(record + 288, record + 312 + 8);
  const std::vector<uint8_t> device = path.Set(0).device;
  const uint8_t speed = device[3] >= 2 ? 3 : 2;
  EXPECT_EQ(tail, (std::vector<uint8_t>{0,          0,
                                        0,          1,
                                        0,          0,
                                        0,          1,
                                        0,          0,
                                        0,          speed,
                                        device[9],  device[8],
                                        device[11], device[10],
                                        device[13], device[12],
                                        device[4],  device[5],
                                        device[6],  path.Set(0).configs[0][5],
                                        device[17], 2,
                                        3,          1,
                                        1,          0,
                                        3,          0,
                                        0,          0}));
}

TEST(UsbipList, AnUnpluggedDeviceLeavesTheList) {
  UsbipPath path;
  std::string error;
  ASSERT_TRUE(Start(path, {"keyboard_holtek_04d9_1603", "flash_generic_1043_8012"}, &error))
      << error;
  ASSERT_EQ(path.Service().Unplug(path.Device(0)), Pelarix_Success);
  UsbipClient host;
  ASSERT_TRUE(host.Connect(path.Port()));
  const std::vector<uint8_t> reply = host.List();
  ASSERT_EQ(reply.size(), 8u + 4 + 312 + 4);
  EXPECT_EQ(GetBe32(&reply[8]), 1u);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(&reply[12 + 256])), "1-2");
}

}  // namespace
}  // namespace pelarix::usbip::testing
