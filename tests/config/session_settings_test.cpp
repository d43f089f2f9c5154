// A session's settings from real registry files: which keys are opened and
// how, which values count, and what the session keeps.
#include "config/session_settings.h"

#include <cstring>

#include "registry_fixture.h"

namespace pelarix {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using testing::KeyOpen;
using testing::kGeneral;
using testing::kSessionPolicy;
using testing::kUsbPolicy;
using testing::LogLine;

constexpr const char *kSessionPolicyPath =
    "Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\Agent\\USB";
constexpr const char *kGeneralPath = "Software\\Tessarin, Inc.\\Tessarin Halden\\USB";

class SessionSettingsTest : public testing::RegistryTest {
 protected:
  void TearDown() override {
    FreeSessionSettings(&settings_);
    RegistryTest::TearDown();
  }

  void Read(const std::string &body) {
    WriteRegistry(body);
    ReadSessionSettings(&settings_);
  }

  std::string Text(size_t index) const {
    const char *text = settings_.filterStrings[index].text;
    return text == nullptr ? "<null>" : text;
  }

  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (size_t i = 0; i < kFilterSettingCount; ++i) texts.push_back(Text(i));
    return texts;
  }

  SessionSettings settings_{};
};

std::string Section(const char *path, const std::string &values) {
  return std::string("[") + path + "]\r\n" + values;
}

LogLine ItemLength(const char *value) {
  return {
      1, std::string("Effective configuration setting, name: ExpectedItemLength, value: ") + value};
}

const std::vector<std::string> kAllAbsent(kFilterSettingCount, "<null>");

TEST_F(SessionSettingsTest, NoFileMeansDefaultsAndNoStrings) {
  ReadSessionSettings(&settings_);
  EXPECT_EQ(settings_.expectedItemLength, 552u);
  EXPECT_EQ(Texts(), kAllAbsent);
  EXPECT_EQ(settings_.noncdl, nullptr);
  EXPECT_EQ(settings_.noncdlLength, 0u);
  EXPECT_THAT(TakeLog(), ElementsAre(ItemLength("552")));
}

TEST_F(SessionSettingsTest, KeysAndTheirAccessMasks) {
  ReadSessionSettings(&settings_);
  EXPECT_THAT(testing::RecordedOpens(), ElementsAre(KeyOpen{kSessionPolicyPath, 0x20019, 2},
                                                    KeyOpen{kGeneralPath, 0x20119, 2}));
}

TEST_F(SessionSettingsTest, ExpectedItemLengthClampedBelow) {
  Read(Section(kGeneral, "\"ExpectedItemLength\"=dword:0000000a\r\n"));
  EXPECT_EQ(settings_.expectedItemLength, 40u);
}

TEST_F(SessionSettingsTest, ExpectedItemLengthClampedAbove) {
  Read(Section(kGeneral, "\"ExpectedItemLength\"=dword:000186a0\r\n"));
  EXPECT_EQ(settings_.expectedItemLength, 65576u);
  EXPECT_THAT(TakeLog(), ElementsAre(ItemLength("65576")));
}

TEST_F(SessionSettingsTest, ExpectedItemLengthFromSessionPolicyBeatsGeneral) {
  Read(Section(kSessionPolicy, "\"ExpectedItemLength\"=dword:00000400\r\n") +
       Section(kGeneral, "\"ExpectedItemLength\"=dword:00000800\r\n"));
  EXPECT_EQ(settings_.expectedItemLength, 1024u);
}

TEST_F(SessionSettingsTest, LongTextInSessionPolicyLeavesItToGeneral) {
  Read(Section(kSessionPolicy, "\"ExpectedItemLength\"=\"4096\"\r\n") +
       Section(kGeneral, "\"ExpectedItemLength\"=dword:00000800\r\n"));
  EXPECT_EQ(settings_.expectedItemLength, 2048u);
  EXPECT_THAT(TakeLog(), ElementsAre(ItemLength("2048")));
}

TEST_F(SessionSettingsTest, PolicyUnderUsbHasNoEffectOnExpectedItemLength) {
  Read(Section(kUsbPolicy, "\"ExpectedItemLength\"=dword:00000400\r\n"));
  EXPECT_EQ(settings_.expectedItemLength, 552u);
}

TEST_F(SessionSettingsTest, PolicyOverGeneralWithoutMerging) {
  Read(Section(kSessionPolicy, "\"ExcludeFamily\"=\"m:storage\"\r\n") +
       Section(kGeneral, "\"ExcludeFamily\"=\"m:printer\"\r\n\"IncludeFamily\"=\"m:mouse\"\r\n"));
  EXPECT_EQ(Text(4), "exfa:m:storage");
  EXPECT_EQ(Text(5), "infa:m:mouse");
}

TEST_F(SessionSettingsTest, PolicyOfWrongTypeLeavesSettingAbsent) {
  Read(Section(kSessionPolicy, "\"ExcludeFamily\"=dword:00000001\r\n") +
       Section(kGeneral, "\"ExcludeFamily\"=\"m:printer\"\r\n"));
  EXPECT_EQ(Text(4), "<null>");
  const std::vector<LogLine> log = TakeLog();
  EXPECT_THAT(log, ::testing::Contains(LogLine{0,
                                               "Failed to read policy configuration setting, "
                                               "value is not a string, name: ExcludeFamily"}));
}

TEST_F(SessionSettingsTest, AllSeventeenInTableOrderWithLengths) {
  Read(Section(kGeneral,
               "\"AllowAutoDeviceSplitting\"=\"o:true\"\r\n"
               "\"DisableDeviceSplitting\"=\"d:false\"\r\n"
               "\"AllowNic\"=\"o:no\"\r\n"
               "\"AllowVideo\"=\"o:yes\"\r\n"
               "\"AllowAudioIn\"=\"o:1\"\r\n"
               "\"AllowAudioOut\"=\"o:0\"\r\n"
               "\"AllowSmartcard\"=\"d:true\"\r\n"
               "\"AllowKeyboardMouse\"=\"o:false\"\r\n"
               "\"AllowHIDBootable\"=\"o:true\"\r\n"
               "\"AllowHID\"=\"o:true\"\r\n"
               "\"ExcludeAllDevices\"=\"false\"\r\n"
               "\"IncludeFamily\"=\"m:audio\"\r\n"
               "\"ExcludeFamily\"=\"m:storage\"\r\n"
               "\"IncludeVidPid\"=\"m:vid-0e0f_pid-0001\"\r\n"
               "\"ExcludeVidPid\"=\"m:vid-1234_pid-5678;vid-0e0f_pid-0002\"\r\n"
               "\"SplitVidPid\"=\"m:vid-1234_pid-0001(exintf:01)\"\r\n"
               "\"SplitExcludeVidPid\"=\"o:vid-1111_pid-2222\"\r\n"
               "\"HardwareIDFilters\"=\"vid_1234&pid_0001\"\r\n"));
  const std::vector<std::string> expected = {
      "spexid:o:vid-1111_pid-2222",
      "spid:m:vid-1234_pid-0001(exintf:01)",
      "exid:m:vid-1234_pid-5678;vid-0e0f_pid-0002",
      "inid:m:vid-0e0f_pid-0001",
      "exfa:m:storage",
      "infa:m:audio",
      "exalldev:false",
      "usehid:o:true",
      "usehidboot:o:true",
      "usekeybmouse:o:false",
      "usesc:d:true",
      "useaout:o:0",
      "useain:o:1",
      "usevideo:o:yes",
      "usenic:o:no",
      "blockdsplit:d:false",
      "allowautodsplit:o:true",
  };
  EXPECT_EQ(Texts(), expected);
  std::vector<LogLine> expectedLog = {ItemLength("552")};
  for (size_t i = 0; i < kFilterSettingCount; ++i) {
    EXPECT_EQ(settings_.filterStrings[i].length, expected[i].size() + 1) << i;
    expectedLog.push_back({1, std::string("Effectice configuration setting, name: ") +
                                  kFilterSettings[i].valueName + ", value: " + expected[i]});
  }
  EXPECT_THAT(TakeLog(), ElementsAreArray(expectedLog));
}

TEST_F(SessionSettingsTest, OnlySessionPolicyKeyStillReadsStrings) {
  Read(Section(kSessionPolicy, "\"AllowHID\"=\"o:false\"\r\n"));
  EXPECT_EQ(Text(7), "usehid:o:false");
  EXPECT_EQ(settings_.noncdl, nullptr);
}

TEST_F(SessionSettingsTest, NoncdlFromGeneralOnly) {
  Read(Section(kSessionPolicy, "\"noncdl\"=hex:ff\r\n") +
       Section(kGeneral,
               "\"noncdl\"=hex:00,05,01,12,34,56,78,00,00,00,0f\r\n\"AllowHID\"=\"o:1\"\r\n"));
  ASSERT_NE(settings_.noncdl, nullptr);
  EXPECT_EQ(settings_.noncdlLength, 11u);
  EXPECT_EQ(std::memcmp(settings_.noncdl, "\x00\x05\x01\x12\x34\x56\x78\x00\x00\x00\x0f", 11), 0);
}

TEST_F(SessionSettingsTest, NoncdlOnlyInPolicyIsAbsent) {
  Read(Section(kSessionPolicy, "\"noncdl\"=hex:00,05,01,12,34,56,78,00,00,00,0f\r\n") +
       Section(kGeneral, ""));
  EXPECT_EQ(settings_.noncdl, nullptr);
}

TEST_F(SessionSettingsTest, NoncdlOfNoBytesIsAbsent) {
  Read(Section(kGeneral, "\"noncdl\"=hex:\r\n"));
  EXPECT_EQ(settings_.noncdl, nullptr);
  EXPECT_EQ(settings_.noncdlLength, 0u);
}

TEST_F(SessionSettingsTest, LegacyValueTakesThePlaceOfExcludeVidPid) {
  Read(Section(kGeneral,
               "\"HardwareIDFilters\"=hex(7):56,00,69,00,64,00,5f,00,30,00,37,00,38,00,31,00,26,00,"
               "50,00,69,00,64,00,5f,00,35,00,35,00,36,00,37,00,00,00,55,00,53,00,42,00,5c,00,"
               "56,00,69,00,64,00,5f,00,31,00,32,00,33,00,34,00,26,00,50,00,69,00,64,00,5f,00,"
               "30,00,30,00,30,00,31,00,00,00,00,00\r\n"));
  std::vector<std::string> expected = kAllAbsent;
  expected[kExcludeVidPidSetting] = "exid:m:vid-0781_pid-5567;";
  EXPECT_EQ(Texts(), expected);
  EXPECT_EQ(settings_.filterStrings[kExcludeVidPidSetting].length, 26u);
  EXPECT_THAT(TakeLog(), ElementsAre(ItemLength("552"),
                                     LogLine{1,
                                             "Effectice configuration setting (from legacy), name: "
                                             "ExcludeVidPid, value: exid:m:vid-0781_pid-5567;"}));
}

TEST_F(SessionSettingsTest, LegacyValueNotReadWhenAModernSettingExists) {
  Read(Section(kSessionPolicy, "\"AllowHID\"=\"o:true\"\r\n") +
       Section(kGeneral, "\"HardwareIDFilters\"=\"vid_1234&pid_0001\"\r\n"));
  EXPECT_EQ(Text(kExcludeVidPidSetting), "<null>");
  EXPECT_EQ(Text(7), "usehid:o:true");
}

TEST_F(SessionSettingsTest, LegacyValueReadBesideNoncdl) {
  Read(Section(kGeneral,
               "\"noncdl\"=hex:00,05,01,12,34,56,78,00,00,00,0f\r\n"
               "\"HardwareIDFilters\"=\"VID_1234&PID_0001\"\r\n"));
  EXPECT_EQ(Text(kExcludeVidPidSetting), "exid:m:vid-1234_pid-0001;");
  EXPECT_EQ(settings_.noncdlLength, 11u);
}

TEST_F(SessionSettingsTest, LegacyValueNeedsTheGeneralKey) {
  Read(Section(kSessionPolicy, "\"HardwareIDFilters\"=\"vid_1234&pid_0001\"\r\n"));
  EXPECT_EQ(Texts(), kAllAbsent);
}

TEST_F(SessionSettingsTest, FreeLeavesTheRecordEmpty) {
  Read(Section(kGeneral, "\"noncdl\"=hex:01\r\n\"AllowHID\"=\"o:1\"\r\n"));
  FreeSessionSettings(&settings_);
  EXPECT_EQ(Texts(), kAllAbsent);
  EXPECT_EQ(settings_.noncdl, nullptr);
  EXPECT_EQ(settings_.expectedItemLength, 0u);
}

TEST_F(SessionSettingsTest, ReadsTheFileAsItIsAtEachCreation) {
  Read(Section(kGeneral, "\"ExpectedItemLength\"=dword:00000100\r\n"));
  EXPECT_EQ(settings_.expectedItemLength, 256u);
  FreeSessionSettings(&settings_);
  Read(Section(kGeneral, "\"ExpectedItemLength\"=dword:00000200\r\n"));
  EXPECT_EQ(settings_.expectedItemLength, 512u);
}

}  // namespace
}  // namespace pelarix
