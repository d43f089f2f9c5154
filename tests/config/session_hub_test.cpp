// Sessions opened on the virtual hub read their settings at creation, make
// their filter manager and hand it the library's log.
#include <algorithm>
#include <memory>

#include "config/filter_feed.h"
#include "frame/log.h"
#include "frame/session.h"
#include "hub_session_fixture.h"
#include "ordo/usb/filter_log.h"

namespace pelarix {
namespace {

using ::testing::Contains;
using testing::LogLine;
using ::testing::Not;

constexpr uint8_t kDeviceDesc[18] = {0x12, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x40, 0x81,
                                     0x07, 0x67, 0x55, 0x00, 0x01, 0x01, 0x02, 0x03, 0x01};

class SessionHubTest : public testing::HubSessionTest {
 protected:
  // A session opened on the hub, or a failed test.
  PelarixSession *Open() {
    PelarixHandle handle = nullptr;
    EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
    return static_cast<PelarixSession *>(handle);
  }
};

constexpr const char *kGeneralSection =
    "[HKEY_LOCAL_MACHINE\\Software\\Tessarin, Inc.\\Tessarin Halden\\USB]\r\n";

TEST_F(SessionHubTest, SessionReadsItsSettingsAtCreation) {
  WriteRegistry(std::string(kGeneralSection) +
                "\"ExpectedItemLength\"=dword:00000400\r\n"
                "\"ExcludeFamily\"=\"m:storage\"\r\n"
                "\"noncdl\"=hex:00,00,00,12,34,56,70,00,00,00,08\r\n");
  PelarixSession *session = Open();
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->settings.expectedItemLength, 1024u);
  EXPECT_STREQ(session->settings.filterStrings[4].text, "exfa:m:storage");
  EXPECT_EQ(session->settings.filterStrings[4].length, 15u);
  EXPECT_EQ(session->settings.noncdlLength, 11u);
  EXPECT_NE(session->filterManager, nullptr);
  // After the hub's lines: the settings, then the manager fed with the
  // blacklist ahead of the filter strings, then the handle.
  const std::vector<LogLine> log = TakeLog();
  const LogLine itemLength{
      1, "Effective configuration setting, name: ExpectedItemLength, value: 1024"};
  const auto first = std::find(log.begin(), log.end(), itemLength);
  ASSERT_NE(first, log.end());
  EXPECT_EQ(std::vector<LogLine>(first, log.end() - 1),
            (std::vector<LogLine>{
                itemLength,
                {1, "Effectice configuration setting, name: ExcludeFamily, value: exfa:m:storage"},
                {2, "DevFltr: Adding FilterRule: exid:m:vid-1234_pid-567*"},
                {1, "Added blacklist entry to exclude vid/pid, value: exid:m:vid-1234_pid-567*"},
                {2, "DevFltr: Adding FilterRule: exfa:m:storage"}}));
  EXPECT_EQ(log.back().text.substr(0, 13), "Open handle: ");
  EXPECT_EQ(Pelarix_CloseHandle(session), Pelarix_Success);
}

TEST_F(SessionHubTest, SessionWithoutSettingsGetsDefaultsAndAManagerThatAllowsAll) {
  PelarixSession *session = Open();
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->settings.expectedItemLength, 552u);
  for (const SettingString &setting : session->settings.filterStrings) {
    EXPECT_EQ(setting.text, nullptr);
  }
  EXPECT_EQ(session->settings.noncdl, nullptr);
  ASSERT_NE(session->filterManager, nullptr);
  EXPECT_EQ(ordo::usb::GetFilterManagerBlob(session->filterManager, nullptr), 0u);
  EXPECT_TRUE(ordo::usb::IsDeviceAllowedByFilter(session->filterManager, kDeviceDesc, nullptr));
  EXPECT_EQ(Pelarix_CloseHandle(session), Pelarix_Success);
}

TEST_F(SessionHubTest, RegistryChangesReachOnlyTheNextSession) {
  WriteRegistry(std::string(kGeneralSection) + "\"ExpectedItemLength\"=dword:00000400\r\n");
  PelarixSession *first = Open();
  ASSERT_NE(first, nullptr);
  WriteRegistry(std::string(kGeneralSection) + "\"ExpectedItemLength\"=dword:00000800\r\n");
  EXPECT_EQ(first->settings.expectedItemLength, 1024u);
  EXPECT_EQ(Pelarix_CloseHandle(first), Pelarix_Success);
  PelarixSession *second = Open();
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->settings.expectedItemLength, 2048u);
  EXPECT_EQ(Pelarix_CloseHandle(second), Pelarix_Success);
}

TEST_F(SessionHubTest, SessionOwnsTheFilterLogAtTheLibrarysLevel) {
  ordo::usb::SetFilterLogHook(nullptr, 7);
  PelarixSession *session = Open();
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(ordo::usb::GetFilterLogHook(), &LogFilterMessage);
  EXPECT_EQ(ordo::usb::GetFilterLogThreshold(), 0u);  // the fixture's level 3
  TakeLog();
  ordo::usb::AddFilterString(session->filterManager, "exid:vid-1234_pid-5678", 0);
  ordo::usb::AddFilterString(session->filterManager, "usehid:o:true", 0);
  EXPECT_EQ(TakeLog(),
            (std::vector<LogLine>{{0,
                                   "DevFltr: Filter string ignored as DMO setting is missing: "
                                   "exid:vid-1234_pid-5678"},
                                  {2, "DevFltr: Adding FilterRule: usehid:o:true"}}));
  EXPECT_EQ(Pelarix_CloseHandle(session), Pelarix_Success);
}

TEST_F(SessionHubTest, SessionCreatedLastOwnsTheHook) {
  PelarixSession *first = Open();
  ASSERT_NE(first, nullptr);
  ordo::usb::SetFilterLogHook(nullptr, 7);  // as another session's engine would
  EXPECT_EQ(Pelarix_CloseHandle(first), Pelarix_Success);
  PelarixSession *second = Open();
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(ordo::usb::GetFilterLogHook(), &LogFilterMessage);
  EXPECT_EQ(ordo::usb::GetFilterLogThreshold(), 0u);
  EXPECT_EQ(Pelarix_CloseHandle(second), Pelarix_Success);
}

TEST_F(SessionHubTest, FailedSessionReadsNoSettings) {
  hub_->Stop();
  PelarixHandle handle = &handle;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_HubOpenFailed);
  EXPECT_EQ(handle, nullptr);
  EXPECT_THAT(TakeLog(), Not(Contains(LogLine{1,
                                              "Effective configuration setting, name: "
                                              "ExpectedItemLength, value: 552"})));
  EXPECT_THAT(testing::RecordedOpens(), ::testing::IsEmpty());
}

TEST(FilterLogThresholdTest, LibraryLevelTurnsIntoEngineThreshold) {
  EXPECT_EQ(FilterLogThreshold(0), 3u);
  EXPECT_EQ(FilterLogThreshold(1), 2u);
  EXPECT_EQ(FilterLogThreshold(2), 1u);
  EXPECT_EQ(FilterLogThreshold(3), 0u);
  EXPECT_EQ(FilterLogThreshold(4), 1u);
  EXPECT_EQ(FilterLogThreshold(-1), 1u);
}

}  // namespace
}  // namespace pelarix
