#include "ordo/usb/usb_config_log.h"

#include <gtest/gtest.h>

#include "log_recorder.h"

namespace ordo::usb {
namespace {

using testing::LogLine;
using testing::LogRecorder;

TEST(UsbConfigLog, DeliversAtAndAboveThreshold) {
  LogRecorder log(1);
  UsbConfigLog(0, "detail %d", 1);
  UsbConfigLog(1, "information %d", 2);
  UsbConfigLog(4, "error %s", "x");
  EXPECT_EQ(log.Lines(), (std::vector<LogLine>{{1, "information 2"}, {4, "error x"}}));
}

TEST(UsbConfigLog, NothingWithoutHook) {
  UsbConfigSetLogHook(nullptr, 0);
  EXPECT_FALSE(UsbConfigLogWanted(4));
  UsbConfigLog(4, "goes nowhere");
  const uint8_t bytes[] = {1, 2, 3};
  UsbConfigLogHex(4, bytes, 3, "  ");
}

TEST(UsbConfigLogHex, RendersBehindPrefixOrAlone) {
  LogRecorder log;
  const uint8_t bytes[] = {0x09, 0x02, 0x41};
  UsbConfigLogHex(0, bytes, 3, "    ");
  UsbConfigLogHex(4, bytes, 2, nullptr);
  EXPECT_EQ(log.Lines(),
            (std::vector<LogLine>{{0, "    0000  09 02 41 " + std::string(39, ' ') + " ..A"},
                                  {4, "0000  09 02 " + std::string(42, ' ') + " .."}}));
}

TEST(UsbConfigLogHex, NullBytesOrZeroLengthLogNothing) {
  LogRecorder log;
  const uint8_t bytes[] = {1};
  UsbConfigLogHex(0, nullptr, 3, "  ");
  UsbConfigLogHex(0, bytes, 0, "  ");
  EXPECT_TRUE(log.Lines().empty());
}

TEST(UsbConfigLogHex, BelowThresholdLogsNothing) {
  LogRecorder log(2);
  const uint8_t bytes[] = {1};
  UsbConfigLogHex(1, bytes, 1, nullptr);
  EXPECT_TRUE(log.Lines().empty());
}

TEST(UsbConfigLogHex, WholeTextIsCutAtFourKilobytes) {
  LogRecorder log;
  std::vector<uint8_t> bytes(4096, 0x41);
  UsbConfigLogHex(1, bytes.data(), static_cast<uint32_t>(bytes.size()), nullptr);
  ASSERT_EQ(log.Lines().size(), 1u);
  // 56 whole lines of 72 characters, then the offset and pieces of the next.
  EXPECT_LT(log.Lines()[0].text.size(), 4096u);
  EXPECT_EQ(log.Lines()[0].text.substr(0, 6), "0000  ");
  EXPECT_EQ(log.Lines()[0].text.substr(56 * 72, 6), "0380  ");
}

}  // namespace
}  // namespace ordo::usb
