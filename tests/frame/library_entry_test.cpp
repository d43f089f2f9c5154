#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "frame/library_state.h"
#include "frame/startup_line.h"
#include "log_capture.h"
#include "pelarix.h"

namespace pelarix {
namespace {

using testing::LogCapture;
using testing::LogLine;
using testing::LogLines;

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

// A version block in the POSIX layout: for each value its key length and value
// length in UTF-16 units, the key, the value; two zero lengths end it.
std::u16string VersionBlock(const std::vector<std::pair<std::u16string, std::u16string>> &values) {
  std::u16string block;
  for (const auto &[key, value] : values) {
    block += static_cast<char16_t>(key.size() + 1);
    block += static_cast<char16_t>(value.size());
    block += key;
    block += u'\0';
    block += value;
  }
  block += u'\0';
  block += u'\0';
  return block;
}

const std::u16string kVersionKey = u"\\StringFileInfo\\040904b0\\FileVersion";
const std::u16string kDescriptionKey = u"\\StringFileInfo\\040904b0\\FileDescription";

TEST_F(LibraryEntryTest, StartupLineWithoutTranslationUsesFixedWords) {
  LogCapture capture(1);
  const std::u16string block = VersionBlock(
      {{kVersionKey, std::u16string(u"9.9", 4)}, {kDescriptionKey, std::u16string(u"Hub", 4)}});
  WriteStartupLineFromBlock(block.data());
  EXPECT_EQ(capture.Lines(),
            (LogLines{{1,
                       "Tessarin Orlan Virtual USB Hub API initialized, version: unknown, "
                       "release: unknown"}}));
}

TEST_F(LibraryEntryTest, StartupLineWithAShortTranslationUsesFixedWords) {
  LogCapture capture(1);
  const std::u16string block = VersionBlock(
      {{u"\\VarFileInfo\\Translation", u"\u0409"}, {kVersionKey, std::u16string(u"9.9", 4)}});
  WriteStartupLineFromBlock(block.data());
  EXPECT_EQ(capture.Lines(),
            (LogLines{{1,
                       "Tessarin Orlan Virtual USB Hub API initialized, version: unknown, "
                       "release: unknown"}}));
}

TEST_F(LibraryEntryTest, StartupLineWithoutDescriptionUsesTheFixedOne) {
  LogCapture capture(1);
  const std::u16string block =
      VersionBlock({{u"\\VarFileInfo\\Translation", u"\u0407\u04e4"},
                    {u"\\StringFileInfo\\040704e4\\FileVersion", std::u16string(u"9.9", 4)}});
  WriteStartupLineFromBlock(block.data());
  EXPECT_EQ(capture.Lines(),
            (LogLines{{1,
                       "Tessarin Orlan Virtual USB Hub API initialized, version: 9.9, "
                       "release: unknown"}}));
}

TEST_F(LibraryEntryTest, StartupLineNamesTheSubBlocksByTheFirstTranslation) {
  LogCapture capture(1);
  const std::u16string block =
      VersionBlock({{u"\\VarFileInfo\\Translation", u"\u0407\u04e4\u0409\u04b0"},
                    {kVersionKey, std::u16string(u"1.0", 4)},
                    {u"\\StringFileInfo\\040704e4\\FileVersion", std::u16string(u"2.0", 4)},
                    {u"\\StringFileInfo\\040704e4\\FileDescription", std::u16string(u"Nabe", 5)}});
  WriteStartupLineFromBlock(block.data());
  EXPECT_EQ(capture.Lines(), (LogLines{{1, "Nabe initialized, version: 2.0, release: unknown"}}));
}

TEST_F(LibraryEntryTest, StartupLineFromTheModuleBlock) {
  LogCapture capture(3);
  WriteStartupLine();
  EXPECT_EQ(capture.Lines(), (LogLines{{1, kStartupLine}}));
}

}  // namespace
}  // namespace pelarix
