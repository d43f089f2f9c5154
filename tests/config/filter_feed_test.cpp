// A session's filter manager fed from its settings: the blacklist first, then
// the filter strings through the agent's gate; and the blob a caller gets.
#include "config/filter_feed.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "config/blacklist.h"
#include "frame/session.h"
#include "hub_session_fixture.h"
#include "ordo/usb/dev_filter_mgr_agent.h"
#include "test_environment.h"

namespace pelarix {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogLine;

// The texts of a key's values in the manager's list, in stored order.
std::vector<std::string> Values(HDevFilterMgrAgent *manager, ordo::usb::FilterType type) {
  std::vector<std::string> texts;
  const auto *values = manager->settings().list().valuesOf(type);
  if (values == nullptr) return texts;
  for (ordo::usb::FltValue value : *values) texts.push_back(value.toString());
  return texts;
}

class FilterFeedTest : public testing::RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    // Windows 7 for the blacklist: the POSIX layer's stand-in for the
    // system version, and what the Windows test run's Wine prefix says.
    testing::SetEnvironment("PELARIX_OS_VERSION", "6.1");
  }
  void TearDown() override {
    ordo::usb::DestroyFilterManager(manager_);
    FreeSessionSettings(&settings_);
    testing::ClearEnvironment("PELARIX_OS_VERSION");
    RegistryTest::TearDown();
  }

  // Blacklist bytes as the session would hold them.
  void SetNoncdl(const std::vector<uint8_t> &bytes) {
    settings_.noncdl = static_cast<uint8_t *>(std::calloc(bytes.size() + 1, 1));
    std::memcpy(settings_.noncdl, bytes.data(), bytes.size());
    settings_.noncdlLength = static_cast<uint32_t>(bytes.size());
  }

  void SetString(size_t index, const std::string &text) {
    settings_.filterStrings[index].text = static_cast<char *>(std::calloc(text.size() + 1, 1));
    std::memcpy(settings_.filterStrings[index].text, text.c_str(), text.size());
    settings_.filterStrings[index].length = static_cast<uint32_t>(text.size() + 1);
  }

  void Feed() {
    manager_ = FeedFilterManager(&settings_, 3);
    ASSERT_NE(manager_, nullptr);
  }

  // Lines of the library's own, without the engine's.
  static std::vector<LogLine> OwnLines(const std::vector<LogLine> &log) {
    std::vector<LogLine> own;
    for (const LogLine &line : log) {
      if (line.text.rfind("DevFltr: ", 0) != 0) own.push_back(line);
    }
    return own;
  }

  SessionSettings settings_{};
  HDevFilterMgrAgent *manager_ = nullptr;
};

LogLine Added(const std::string &text) {
  return {1, "Added blacklist entry to exclude vid/pid, value: " + text};
}

// reserved, osMajor, osMinor, vendor (2, big-endian), product (2), mask (4).
std::vector<uint8_t> Record(uint8_t major, uint8_t minor, uint16_t vendor, uint16_t product,
                            uint32_t mask) {
  return {0,
          major,
          minor,
          static_cast<uint8_t>(vendor >> 8),
          static_cast<uint8_t>(vendor),
          static_cast<uint8_t>(product >> 8),
          static_cast<uint8_t>(product),
          static_cast<uint8_t>(mask >> 24),
          static_cast<uint8_t>(mask >> 16),
          static_cast<uint8_t>(mask >> 8),
          static_cast<uint8_t>(mask)};
}

std::vector<uint8_t> Join(std::initializer_list<std::vector<uint8_t>> records) {
  std::vector<uint8_t> bytes;
  for (const auto &record : records) bytes.insert(bytes.end(), record.begin(), record.end());
  return bytes;
}

TEST_F(FilterFeedTest, NoSettingGivesAnEmptyList) {
  Feed();
  EXPECT_EQ(ordo::usb::GetFilterManagerBlob(manager_, nullptr), 0u);
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(FilterFeedTest, TwoRecordsGiveTwoEntries) {
  SetNoncdl(Join({Record(0, 0, 0x1234, 0x5678, 0), Record(6, 1, 0x0e0f, 0x0001, 0)}));
  Feed();
  EXPECT_THAT(OwnLines(TakeLog()),
              ElementsAre(Added("exid:m:vid-1234_pid-5678"), Added("exid:m:vid-0e0f_pid-0001")));
  EXPECT_THAT(Values(manager_, ordo::usb::FilterTypeExid),
              ElementsAre("vid-1234_pid-5678", "vid-0e0f_pid-0001"));
}

TEST_F(FilterFeedTest, LengthNotAMultipleOfElevenUsesNoRecord) {
  std::vector<uint8_t> bytes = Join({Record(0, 0, 0x1234, 0x5678, 0), Record(0, 0, 1, 2, 0)});
  bytes.push_back(0);
  SetNoncdl(bytes);
  Feed();
  EXPECT_THAT(TakeLog(), ElementsAre(LogLine{0, "Failed to set blacklist, length mismatch"}));
  EXPECT_EQ(ordo::usb::GetFilterManagerBlob(manager_, nullptr), 0u);
  EXPECT_EQ(std::vector<uint8_t>(settings_.noncdl, settings_.noncdl + 23), bytes);
}

TEST_F(FilterFeedTest, RecordOfAnotherSystemIsSkippedButSwapped) {
  SetNoncdl(Record(5, 1, 0x1234, 0x5678, 0x0000000f));
  Feed();
  EXPECT_THAT(TakeLog(), IsEmpty());
  EXPECT_EQ(ordo::usb::GetFilterManagerBlob(manager_, nullptr), 0u);
  uint16_t vendor = 0;
  uint16_t product = 0;
  uint32_t mask = 0;
  std::memcpy(&vendor, settings_.noncdl + 3, 2);
  std::memcpy(&product, settings_.noncdl + 5, 2);
  std::memcpy(&mask, settings_.noncdl + 7, 4);
  EXPECT_EQ(vendor, 0x1234);
  EXPECT_EQ(product, 0x5678);
  EXPECT_EQ(mask, 0xfu);
}

TEST_F(FilterFeedTest, OneVersionNumberNotZeroNamesOneSystem) {
  SetNoncdl(Record(0, 1, 0x1234, 0x5678, 0));
  Feed();
  EXPECT_THAT(OwnLines(TakeLog()), IsEmpty());
#ifndef _WIN32
  // Windows's own version is the test prefix's for the whole process.
  ordo::usb::DestroyFilterManager(manager_);
  FreeSessionSettings(&settings_);
  testing::SetEnvironment("PELARIX_OS_VERSION", "0.1");
  SetNoncdl(Record(0, 1, 0x1234, 0x5678, 0));
  Feed();
  EXPECT_THAT(OwnLines(TakeLog()), ElementsAre(Added("exid:m:vid-1234_pid-5678")));
#endif
}

TEST_F(FilterFeedTest, WildcardMaskMarksProductDigits) {
  SetNoncdl(Join({Record(0, 0, 0x1234, 0x5678, 0xf), Record(0, 0, 0x1234, 0x5678, 8),
                  Record(0, 0, 0x1234, 0x5678, 1), Record(0, 0, 0x1234, 0x5678, 0xfffffff0)}));
  Feed();
  EXPECT_THAT(OwnLines(TakeLog()),
              ElementsAre(Added("exid:m:vid-1234_pid-****"), Added("exid:m:vid-1234_pid-567*"),
                          Added("exid:m:vid-1234_pid-*678"), Added("exid:m:vid-1234_pid-5678")));
}

TEST_F(FilterFeedTest, BlacklistStandsAheadOfExcludeVidPidWhoseLetterWins) {
  SetNoncdl(Record(0, 0, 0x1234, 0x5678, 0));
  SetString(kExcludeVidPidSetting, "exid:o:vid-1111_pid-2222");
  Feed();
  EXPECT_THAT(Values(manager_, ordo::usb::FilterTypeExid),
              ElementsAre("vid-1234_pid-5678", "vid-1111_pid-2222"));
  EXPECT_EQ(manager_->settings().list().sequencingOf(ordo::usb::FilterTypeExid),
            ordo::usb::FilterSeqOverride);
}

TEST_F(FilterFeedTest, StringsGoThroughTheGateInTableOrder) {
  SetString(6, "exalldev:m:true");  // ExcludeAllDevices must carry no letter
  SetString(7, "usehid:true");      // AllowHID must carry one
  SetString(2, "exid:m:vid-1234_pid-5678 exfa:m:storage");
  SetString(16, "allowautodsplit:o:true");
  Feed();
  EXPECT_EQ(TakeLog(),
            (std::vector<LogLine>{
                {2, "DevFltr: Adding FilterRule: exid:m:vid-1234_pid-5678 exfa:m:storage"},
                {0, "DevFltr: Filter string ignored as DMO setting is missing: exalldev:m:true"},
                {0, "DevFltr: Filter string ignored as DMO setting is missing: usehid:true"},
                {2, "DevFltr: Adding FilterRule: allowautodsplit:o:true"}}));
  EXPECT_THAT(Values(manager_, ordo::usb::FilterTypeExfa), ElementsAre("storage"));
  EXPECT_FALSE(manager_->settings().list().hasValues(ordo::usb::FilterTypeExalldev));
  EXPECT_FALSE(manager_->settings().list().hasValues(ordo::usb::FilterTypeUsehid));
}

TEST_F(FilterFeedTest, ExcludeAllDevicesWithoutLetterIsTaken) {
  SetString(6, "exalldev:true");
  Feed();
  EXPECT_TRUE(manager_->settings().list().hasValues(ordo::usb::FilterTypeExalldev));
}

TEST_F(FilterFeedTest, OnlyNoncdlLetsTheLegacyValueFeedExidToo) {
  WriteRegistry(std::string("[") + testing::kGeneral +
                "]\r\n\"noncdl\"=hex:00,00,00,12,34,56,78,00,00,00,00\r\n"
                "\"HardwareIDFilters\"=\"vid_0781&pid_5567\"\r\n");
  ReadSessionSettings(&settings_);
  Feed();
  EXPECT_THAT(Values(manager_, ordo::usb::FilterTypeExid),
              ElementsAre("vid-1234_pid-5678", "vid-0781_pid-5567"));
}

TEST_F(FilterFeedTest, BlobOfExcludeAllDevicesIsTakenWithoutSequencing) {
  SetString(6, "exalldev:true");
  Feed();
  std::vector<uint8_t> blob(ordo::usb::GetFilterManagerBlob(manager_, nullptr));
  ASSERT_FALSE(blob.empty());
  ordo::usb::GetFilterManagerBlob(manager_, blob.data());
  HDevFilterMgrAgent *other = ordo::usb::CreateFilterManager();
  EXPECT_TRUE(ordo::usb::ReadFilterManagerBlob(other, blob.data()));
  EXPECT_TRUE(other->settings().list().hasValues(ordo::usb::FilterTypeExalldev));
  ordo::usb::DestroyFilterManager(other);
}

// --- Pelarix_GetFilterBlob on sessions of the virtual hub ----------------

class FilterBlobExportTest : public testing::HubSessionTest {
 protected:
  PelarixHandle Open(const std::string &generalValues) {
    WriteRegistry(std::string("[") + testing::kGeneral + "]\r\n" + generalValues);
    PelarixHandle handle = nullptr;
    EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_Success);
    TakeLog();
    return handle;
  }
  static LogLine BlobLine(PelarixHandle handle, uint32_t status) {
    return {3, "Get filter blob, handle: " +
                   std::to_string(static_cast<int32_t>(reinterpret_cast<uintptr_t>(handle))) +
                   ", status: 0x" + std::to_string(status)};
  }
};

TEST_F(FilterBlobExportTest, NoFilterGivesNoBuffer) {
  PelarixHandle session = Open("");
  uint32_t length = 7;
  void *buffer = &length;
  EXPECT_EQ(Pelarix_GetFilterBlob(session, &length, &buffer), Pelarix_Success);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(buffer, nullptr);
  EXPECT_THAT(TakeLog(), ElementsAre(BlobLine(session, 0)));
  Pelarix_CloseHandle(session);
}

TEST_F(FilterBlobExportTest, BlobIsTheManagersListInAFreshBufferEachTime) {
  PelarixHandle session = Open("\"AllowHID\"=\"o:true\"\r\n");
  uint32_t length = 0;
  void *first = nullptr;
  void *second = nullptr;
  EXPECT_EQ(Pelarix_GetFilterBlob(session, &length, &first), Pelarix_Success);
  ASSERT_EQ(length, 35u);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(Pelarix_GetFilterBlob(session, &length, &second), Pelarix_Success);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first, second);
  EXPECT_EQ(std::memcmp(first, second, 35), 0);
  std::vector<uint8_t> expected(35);
  ordo::usb::GetFilterManagerBlob(static_cast<PelarixSession *>(session)->filterManager,
                                  expected.data());
  EXPECT_EQ(std::memcmp(first, expected.data(), 35), 0);
  std::free(first);
  std::free(second);
  EXPECT_THAT(TakeLog(), ElementsAre(BlobLine(session, 0), BlobLine(session, 0)));
  Pelarix_CloseHandle(session);
}

TEST_F(FilterBlobExportTest, InvalidSessionHandle) {
  uint32_t length = 7;
  void *buffer = &length;
  int notASession = 0;
  EXPECT_EQ(Pelarix_GetFilterBlob(&notASession, &length, &buffer), Pelarix_InvalidHandle);
  EXPECT_EQ(length, 7u);
  char pointer[32];
  std::snprintf(pointer, sizeof pointer, "%016llX",
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(&notASession)));
  EXPECT_THAT(TakeLog(), ElementsAre(LogLine{0, std::string("Invalid session handle: ") + pointer},
                                     BlobLine(&notASession, 5)));
}

TEST_F(FilterBlobExportTest, NullOutputsAreInvalidParameters) {
  PelarixHandle session = Open("");
  uint32_t length = 0;
  void *buffer = nullptr;
  EXPECT_EQ(Pelarix_GetFilterBlob(session, nullptr, &buffer), Pelarix_InvalidParameter);
  EXPECT_EQ(Pelarix_GetFilterBlob(session, &length, nullptr), Pelarix_InvalidParameter);
  const LogLine invalid{0, "Invalid parameter, bufferLength or buffer"};
  EXPECT_THAT(TakeLog(), ElementsAre(invalid, BlobLine(session, 6), invalid, BlobLine(session, 6)));
  Pelarix_CloseHandle(session);
}

}  // namespace
}  // namespace pelarix
