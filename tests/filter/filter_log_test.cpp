#include "ordo/usb/filter_log.h"

#include <gtest/gtest.h>

#include "log_capture.h"

namespace ordo::usb {
namespace {

using testing::LogCapture;
using testing::LogLine;

TEST(FilterLog, CallLevelsMapToEngineLevels) {
  LogCapture log(0);
  DevFltrLog(0, "error");
  DevFltrLog(1, "warning");
  DevFltrLog(2, "information");
  DevFltrLog(3, "detail");
  DevFltrLog(9, "more detail");
  EXPECT_EQ(log.all(), (std::vector<LogLine>{{4, "DevFltr: error"},
                                             {2, "DevFltr: warning"},
                                             {1, "DevFltr: information"},
                                             {0, "DevFltr: detail"},
                                             {0, "DevFltr: more detail"}}));
}

TEST(FilterLog, ThresholdKeepsLowerEngineLevelsOut) {
  LogCapture log(2);
  DevFltrLog(0, "a");
  DevFltrLog(1, "b");
  DevFltrLog(2, "c");
  DevFltrLog(3, "d");
  EXPECT_EQ(log.all(), (std::vector<LogLine>{{4, "DevFltr: a"}, {2, "DevFltr: b"}}));
}

TEST(FilterLog, WarningPassesAtThresholdTwoOrBelowOnly) {
  LogCapture log(3);
  DevFltrLog(1, "warning");
  EXPECT_TRUE(log.all().empty());
  SetFilterLogHook(GetFilterLogHook(), 2);
  DevFltrLog(1, "warning");
  EXPECT_EQ(log.all(), (std::vector<LogLine>{{2, "DevFltr: warning"}}));
}

TEST(FilterLog, WithoutHookNothingHappens) {
  { LogCapture log(0); }
  EXPECT_EQ(GetFilterLogHook(), nullptr);
  DevFltrLog(0, "nobody hears this");  // must not crash
  LogCapture log(0);
  EXPECT_TRUE(log.all().empty());
}

TEST(FilterLog, LastHookAndThresholdWin) {
  LogCapture log(0);
  SetFilterLogHook(GetFilterLogHook(), 4);
  EXPECT_EQ(GetFilterLogThreshold(), 4u);
  DevFltrLog(1, "dropped");
  DevFltrLog(0, "kept");
  EXPECT_EQ(log.all(), (std::vector<LogLine>{{4, "DevFltr: kept"}}));
}

TEST(FilterLog, PercentInTextPrintsAsItselfAndReadsNoArguments) {
  LogCapture log(0);
  DevFltrLog(0, "Invalid filter. Filter string ignored: exfa:%s%n%d%%x%");
  EXPECT_EQ(log.all(),
            (std::vector<LogLine>{
                {4, "DevFltr: Invalid filter. Filter string ignored: exfa:%s%n%d%%x%"}}));
}

// A hook that does not format sees the format with each "%" doubled.
std::string rawFormat;
void keepFormat(uint32_t, const char *format, va_list) {
  rawFormat = format;
}

TEST(FilterLog, HookReceivesEscapedFormat) {
  SetFilterLogHook(&keepFormat, 0);
  DevFltrLog(2, "100% sure");
  SetFilterLogHook(nullptr, 0);
  EXPECT_EQ(rawFormat, "DevFltr: 100%% sure");
}

}  // namespace
}  // namespace ordo::usb
