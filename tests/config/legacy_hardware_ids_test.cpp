// The legacy HardwareIDFilters value rewritten as an exid filter string.
#include "config/legacy_hardware_ids.h"

#include <cstdlib>

#include "registry_fixture.h"

namespace pelarix {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogLine;

// UTF-16LE hex bytes of a multi-string, as the registry editor writes them.
std::string MultiString(const std::vector<std::string> &entries) {
  std::string hex;
  auto unit = [&hex](unsigned char c) {
    char byte[8];
    std::snprintf(byte, sizeof byte, "%02x,00,", c);
    hex += byte;
  };
  for (const std::string &entry : entries) {
    for (unsigned char c : entry) unit(c);
    unit(0);
  }
  unit(0);
  hex.pop_back();
  return "hex(7):" + hex;
}

class LegacyHardwareIdsTest : public testing::RegistryTest {
 protected:
  std::string Legacy(const std::string &data, uint32_t *length) {
    WriteRegistry("[HKLM\\General]\r\n\"HardwareIDFilters\"=" + data + "\r\n");
    platform::RegistryKey key = Open("General");
    TakeLog();
    char *text = ReadLegacyHardwareIds(key, "exid:m:", "ExcludeVidPid", length);
    platform::RegistryCloseKey(key);
    std::string result = text == nullptr ? "<null>" : text;
    std::free(text);
    return result;
  }
  LogLine Effective(const std::string &value) {
    return {1,
            "Effectice configuration setting (from legacy), name: ExcludeVidPid, value: " + value};
  }
};

TEST_F(LegacyHardwareIdsTest, AbsentValueGivesNullWithoutLine) {
  WriteRegistry("[HKLM\\General]\r\n");
  platform::RegistryKey key = Open("General");
  uint32_t length = 0;
  EXPECT_EQ(ReadLegacyHardwareIds(key, "exid:m:", "ExcludeVidPid", &length), nullptr);
  platform::RegistryCloseKey(key);
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(LegacyHardwareIdsTest, WrongTypeIsLoggedWithTheModernName) {
  uint32_t length = 0;
  EXPECT_EQ(Legacy("dword:1", &length), "<null>");
  EXPECT_THAT(TakeLog(), ElementsAre(LogLine{0,
                                             "Failed to read configuration setting, value is "
                                             "not a string/multiple string, name: ExcludeVidPid"}));
}

TEST_F(LegacyHardwareIdsTest, SingleStringInAnyCase) {
  uint32_t length = 0;
  EXPECT_EQ(Legacy("\"VID_0781&Pid_5567\"", &length), "exid:m:vid-0781_pid-5567;");
  EXPECT_EQ(length, 26u);
  EXPECT_THAT(TakeLog(), ElementsAre(Effective("exid:m:vid-0781_pid-5567;")));
}

TEST_F(LegacyHardwareIdsTest, SingleStringNumbersAreWidenedToFourDigits) {
  uint32_t length = 0;
  EXPECT_EQ(Legacy("\"vid_781&pid_12345\"", &length), "exid:m:vid-0781_pid-12345;");
}

TEST_F(LegacyHardwareIdsTest, SingleStringMustStartWithTheWords) {
  uint32_t length = 0;
  EXPECT_EQ(Legacy("\"USB\\\\Vid_1234&Pid_0001\"", &length), "<null>");
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(LegacyHardwareIdsTest, SingleStringWithVendorOrProductZeroIsDropped) {
  uint32_t length = 0;
  EXPECT_EQ(Legacy("\"vid_0000&pid_0001\"", &length), "<null>");
  EXPECT_EQ(Legacy("\"vid_1234&pid_0\"", &length), "<null>");
  EXPECT_EQ(Legacy("\"vid_1234\"", &length), "<null>");
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(LegacyHardwareIdsTest, MultiStringKeepsTheEntriesThatScan) {
  uint32_t length = 0;
  EXPECT_EQ(Legacy(MultiString({"Vid_0781&Pid_5567", "USB\\Vid_1234&Pid_0001", "vid_0&pid_1",
                                "vid_0e0f&pid_0003"}),
                   &length),
            "exid:m:vid-0781_pid-5567;vid-0e0f_pid-0003;");
  EXPECT_EQ(length, 44u);
}

TEST_F(LegacyHardwareIdsTest, MultiStringStopsAtTheEmptyEntry) {
  uint32_t length = 0;
  // Behind the list's closing empty entry nothing counts.
  EXPECT_EQ(Legacy("hex(7):76,00,69,00,64,00,5f,00,31,00,26,00,70,00,69,00,64,00,5f,00,32,00,"
                   "00,00,00,00,76,00,69,00,64,00,5f,00,33,00,26,00,70,00,69,00,64,00,5f,00,"
                   "34,00,00,00",
                   &length),
            "exid:m:vid-0001_pid-0002;");
}

TEST_F(LegacyHardwareIdsTest, MultiStringWithoutClosingNulsEndsWithTheValue) {
  uint32_t length = 0;
  // "vid_1&pid_2" with neither its own NUL nor the list's closing one.
  EXPECT_EQ(
      Legacy("hex(7):76,00,69,00,64,00,5f,00,31,00,26,00,70,00,69,00,64,00,5f,00,32,00", &length),
      "exid:m:vid-0001_pid-0002;");
}

TEST_F(LegacyHardwareIdsTest, MultiStringWithoutUsableEntryGivesTheBarePrefix) {
  uint32_t length = 0;
  EXPECT_EQ(Legacy(MultiString({"USB\\Vid_1234&Pid_0001"}), &length), "exid:m:");
  EXPECT_EQ(length, 8u);
  EXPECT_THAT(TakeLog(), ElementsAre(Effective("exid:m:")));
}

TEST_F(LegacyHardwareIdsTest, MultiStringBeyondTheBufferDropsWholeEntries) {
  std::vector<std::string> entries;
  for (int i = 1; i <= 150; ++i) {
    char entry[32];
    std::snprintf(entry, sizeof entry, "vid_%04x&pid_0001", i);
    entries.push_back(entry);
  }
  uint32_t length = 0;
  const std::string text = Legacy(MultiString(entries), &length);
  // "exid:m:" and 113 entries of 18 characters fill 2041 of the 2047 bytes.
  EXPECT_EQ(text.size(), 7u + 113u * 18u);
  EXPECT_EQ(length, text.size() + 1);
  EXPECT_EQ(text.substr(text.size() - 18), "vid-0071_pid-0001;");
}

}  // namespace
}  // namespace pelarix
