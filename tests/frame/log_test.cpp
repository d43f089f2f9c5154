#include "frame/log.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <string>

#include "log_capture.h"

namespace pelarix {
namespace {

using testing::LogCapture;
using testing::LogLine;
using testing::LogLines;

// Hands a narrow message to LogFilterMessage as the filter engine does.
void FilterLog(uint32_t level, const char *format, ...) {
  va_list args;
  va_start(args, format);
  LogFilterMessage(level, format, args);
  va_end(args);
}

// An address that faults when read: formatting a message that uses it would
// crash the test.
const char16_t *const kUnreadableWide = reinterpret_cast<const char16_t *>(8);
const char *const kUnreadableNarrow = reinterpret_cast<const char *>(8);

TEST(LogTest, NullSinkFormatsNothing) {
  LogCapture capture(3);
  gLibrary.logCallback = nullptr;
  LogMessage(kLogFailure, u"%s", kUnreadableWide);
  FilterLog(3, "%s", kUnreadableNarrow);
  EXPECT_TRUE(capture.Lines().empty());
}

TEST(LogTest, LevelZeroOnlyAtLevelZero) {
  LogCapture capture(0);
  for (uint32_t level = 0; level <= 3; ++level) LogMessage(level, u"line %u", level);
  EXPECT_EQ(capture.Lines(), (LogLines{{0, "line 0"}}));
}

TEST(LogTest, LevelThreeDeliversEveryLevel) {
  LogCapture capture(3);
  for (uint32_t level = 0; level <= 4; ++level) LogMessage(level, u"line %u", level);
  EXPECT_EQ(capture.Lines(),
            (LogLines{{0, "line 0"}, {1, "line 1"}, {2, "line 2"}, {3, "line 3"}}));
}

TEST(LogTest, LevelOneIsTheDefault) {
  LogCapture capture(1);
  gLibrary.logLevel = LibraryState{}.logLevel;
  LogMessage(2, u"lifecycle");
  LogMessage(1, u"settings");
  EXPECT_EQ(capture.Lines(), (LogLines{{1, "settings"}}));
}

TEST(LogTest, MessagesAboveTheLevelAreNotFormatted) {
  LogCapture capture(1);
  LogMessage(2, u"%s", kUnreadableWide);
  LogMessage(3, u"%s", kUnreadableWide);
  EXPECT_TRUE(capture.Lines().empty());
}

TEST(LogTest, LevelIsComparedAsSigned) {
  LogCapture capture(0);
  LogMessage(0xFFFFFFFFu, u"minus one");
  EXPECT_EQ(capture.Lines(), (LogLines{{0xFFFFFFFFu, "minus one"}}));
}

TEST(LogTest, NegativeLogLevelStillDeliversLevelZero) {
  LogCapture capture(-1);
  LogMessage(1, u"settings");
  LogMessage(0, u"failure");
  EXPECT_EQ(capture.Lines(), (LogLines{{0, "failure"}}));
}

TEST(LogTest, LongMessageArrivesCutAt251Characters) {
  LogCapture capture(3);
  const std::u16string longText(300, u'a');
  LogMessage(2, u"%s!", longText.c_str());
  ASSERT_EQ(capture.RawTexts().size(), 1u);
  EXPECT_EQ(capture.RawTexts()[0], std::u16string(251, u'a'));
}

TEST(LogTest, MessageOf251CharactersArrivesWhole) {
  LogCapture capture(3);
  const std::u16string text(250, u'b');
  LogMessage(2, u"%s!", text.c_str());
  ASSERT_EQ(capture.RawTexts().size(), 1u);
  EXPECT_EQ(capture.RawTexts()[0], text + u"!");
}

TEST(LogTest, NoPrefixTimeStampOrLineEnd) {
  LogCapture capture(3);
  LogMessage(3, u"Close handle: %p, status: 0x%x", reinterpret_cast<void *>(0x1000), 5u);
  EXPECT_EQ(capture.Lines(), (LogLines{{3, "Close handle: 0000000000001000, status: 0x5"}}));
}

TEST(LogFilterMessageTest, EngineLevelsAreTranslated) {
  LogCapture capture(3);
  for (uint32_t level = 0; level <= 7; ++level) FilterLog(level, "engine %u", level);
  EXPECT_EQ(capture.Lines(), (LogLines{{3, "engine 0"},
                                       {2, "engine 1"},
                                       {1, "engine 2"},
                                       {0, "engine 3"},
                                       {0, "engine 4"},
                                       {0, "engine 5"},
                                       {3, "engine 6"},
                                       {3, "engine 7"}}));
}

TEST(LogFilterMessageTest, TranslatedLevelIsFiltered) {
  LogCapture capture(1);
  FilterLog(1, "%s", kUnreadableNarrow);  // library level 2: not formatted
  FilterLog(0, "%s", kUnreadableNarrow);  // library level 3
  FilterLog(2, "DevFltr: information");
  FilterLog(4, "DevFltr: error");
  EXPECT_EQ(capture.Lines(), (LogLines{{1, "DevFltr: information"}, {0, "DevFltr: error"}}));
}

TEST(LogFilterMessageTest, NarrowTextIsConvertedFromTheCodePage) {
  LogCapture capture(3);
  FilterLog(2, "DevFltr: %s \xE2\x86\x92 %d", "caf\xC3\xA9", 7);
#ifdef _WIN32
  // Windows-1252, the test run's ANSI code page: each UTF-8 byte is a letter.
  EXPECT_EQ(capture.Lines(), (LogLines{{1, "DevFltr: caf\\u00c3\\u00a9 \\u00e2\\u2020\\u2019 7"}}));
#else
  EXPECT_EQ(capture.Lines(), (LogLines{{1, "DevFltr: caf\\u00e9 \\u2192 7"}}));
#endif
}

TEST(LogFilterMessageTest, NarrowTextIsCutAt251Bytes) {
  LogCapture capture(3);
  const std::string longText(400, 'x');
  FilterLog(4, "%s", longText.c_str());
  ASSERT_EQ(capture.RawTexts().size(), 1u);
  EXPECT_EQ(capture.RawTexts()[0], std::u16string(251, u'x'));
}

TEST(LogFilterMessageTest, EmptyMessageArrivesEmpty) {
  LogCapture capture(3);
  FilterLog(4, "");
  EXPECT_EQ(capture.Lines(), (LogLines{{0, ""}}));
}

}  // namespace
}  // namespace pelarix
