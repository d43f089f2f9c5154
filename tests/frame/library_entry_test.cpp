#include <gtest/gtest.h>

#include <string>

#include "frame/library_state.h"
#include "frame/startup_line.h"
#include "log_capture.h"
#include "pelarix.h"

namespace pelarix {
namespace {

using testing::LogCapture;
using testing::LogLine;
using LogLines = std::vector<LogLine>;

const std::string kStartupLine = "Tessarin Orlan Virtual USB Hub API initialized, version: " +
                                 std::string(PELARIX_PROJECT_VERSION) + ", release: unknown";

class LibraryEntryTest : public ::testing::Test {
 protected:
  void SetUp() override { testing::ResetLibraryState(); }
  void TearDown() override { testing::ResetLibraryState(); }
};

void PELARIX_CALL OtherSink(uint32_t, const PelarixChar *) {}

TEST_F(LibraryEntryTest, GetVersionIsTwoBeforeAndAfterInit) {
  EXPECT_EQ(Pelarix_GetVersion(), 2u);
  ASSERT_EQ(Pelarix_InitEx(2, nullptr, 1, 0), Pelarix_Success);
  EXPECT_EQ(Pelarix_GetVersion(), 2u);
}

TEST_F(LibraryEntryTest, UnsupportedVersionChangesNothing) {
  EXPECT_EQ(Pelarix_InitEx(0, &LogCapture::Sink, 3, 1), Pelarix_UnsupportedVersion);
  EXPECT_EQ(Pelarix_InitEx(3, &LogCapture::Sink, 3, 1), Pelarix_UnsupportedVersion);
  EXPECT_EQ(Pelarix_Init(0xFFFFFFFF, &LogCapture::Sink, 3), Pelarix_UnsupportedVersion);
  EXPECT_EQ(gLibrary.initCount.load(), 0);
  EXPECT_EQ(gLibrary.logCallback, nullptr);
  EXPECT_EQ(gLibrary.logLevel, 1);
  EXPECT_EQ(gLibrary.lateItemAllocation, 0u);
  EXPECT_EQ(Pelarix_InitEx(1, nullptr, 2, 0), Pelarix_Success);
  EXPECT_EQ(gLibrary.initCount.load(), 1);
}

TEST_F(LibraryEntryTest, InitExStoresSinkLevelAndFlag) {
  ASSERT_EQ(Pelarix_InitEx(2, &OtherSink, 3, 7), Pelarix_Success);
  EXPECT_EQ(gLibrary.logCallback, &OtherSink);
  EXPECT_EQ(gLibrary.logLevel, 3);
  EXPECT_EQ(gLibrary.lateItemAllocation, 7u);
}

TEST_F(LibraryEntryTest, InitIsInitExWithoutLateItemAllocation) {
  ASSERT_EQ(Pelarix_Init(1, &OtherSink, 2), Pelarix_Success);
  EXPECT_EQ(gLibrary.logCallback, &OtherSink);
  EXPECT_EQ(gLibrary.logLevel, 2);
  EXPECT_EQ(gLibrary.lateItemAllocation, 0u);
}

TEST_F(LibraryEntryTest, SecondInitIsInvalidStateAndKeepsTheFirst) {
  ASSERT_EQ(Pelarix_InitEx(2, &OtherSink, 2, 1), Pelarix_Success);
  EXPECT_EQ(Pelarix_InitEx(2, &LogCapture::Sink, 3, 0), Pelarix_InvalidState);
  EXPECT_EQ(Pelarix_Init(1, nullptr, 0), Pelarix_InvalidState);
  EXPECT_EQ(gLibrary.initCount.load(), 1);
  EXPECT_EQ(gLibrary.logCallback, &OtherSink);
  EXPECT_EQ(gLibrary.logLevel, 2);
  EXPECT_EQ(gLibrary.lateItemAllocation, 1u);
}

TEST_F(LibraryEntryTest, InitWritesTheStartupLineAtLevelOne) {
  LogCapture capture(1);
  testing::ResetLibraryState();
  ASSERT_EQ(Pelarix_InitEx(2, &LogCapture::Sink, 1, 0), Pelarix_Success);
  EXPECT_EQ(capture.Lines(), (LogLines{{1, kStartupLine}}));
}

TEST_F(LibraryEntryTest, StartupLineIsFilteredAtLevelZero) {
  LogCapture capture(1);
  testing::ResetLibraryState();
  ASSERT_EQ(Pelarix_InitEx(2, &LogCapture::Sink, 0, 0), Pelarix_Success);
  EXPECT_TRUE(capture.Lines().empty());
}

TEST_F(LibraryEntryTest, StartupLineWithoutVersionBlockUsesFixedWords) {
  LogCapture capture(1);
  WriteStartupLineFromBlock(nullptr);
  EXPECT_EQ(capture.Lines(),
            (LogLines{{1,
                       "Tessarin Orlan Virtual USB Hub API initialized, version: unknown, "
                       "release: unknown"}}));
}

TEST_F(LibraryEntryTest, StartupLineFromTheModuleBlock) {
  LogCapture capture(3);
  WriteStartupLine();
  EXPECT_EQ(capture.Lines(), (LogLines{{1, kStartupLine}}));
}

}  // namespace
}  // namespace pelarix
