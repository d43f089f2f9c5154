// The single-value readers, on keys of real registry files: policy over
// local, value by value, with every line at its level.
#include "config/settings_reader.h"

#include <cstdlib>
#include <cstring>

#include "registry_fixture.h"

namespace pelarix {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogLine;

class SettingsReaderTest : public testing::RegistryTest {
 protected:
  // Writes a policy and a local key with the given values and opens both
  // (a key whose body is null is left out of the file, and stays null).
  void Keys(const char *policyValues, const char *localValues) {
    CloseKeys();
    std::string body;
    if (policyValues != nullptr) body += std::string("[HKLM\\Test\\Policy]\r\n") + policyValues;
    if (localValues != nullptr) body += std::string("[HKLM\\Test\\Local]\r\n") + localValues;
    WriteRegistry(body);
    policy_ = Open("Test\\Policy");
    local_ = Open("Test\\Local");
    TakeLog();
  }
  void TearDown() override {
    CloseKeys();
    RegistryTest::TearDown();
  }
  void CloseKeys() {
    platform::RegistryCloseKey(policy_);
    platform::RegistryCloseKey(local_);
    policy_ = nullptr;
    local_ = nullptr;
  }

  uint32_t Dword(uint32_t defaultValue, uint32_t minimum, uint32_t maximum, uint32_t *found,
                 const char *name = "Number") {
    return ReadDwordSetting(policy_, local_, defaultValue, minimum, maximum, found, name);
  }

  std::string String(const char *prefix, const char *name, uint32_t *length) {
    char *text = ReadStringSetting(policy_, local_, prefix, name, length);
    std::string result = text == nullptr ? "<null>" : text;
    std::free(text);
    return result;
  }

  std::vector<uint8_t> Binary(const char *name, uint32_t *length) {
    uint8_t *data = ReadBinarySetting(policy_, local_, name, length);
    std::vector<uint8_t> result;
    if (data != nullptr) result.assign(data, data + *length);
    std::free(data);
    return result;
  }

  platform::RegistryKey policy_ = nullptr;
  platform::RegistryKey local_ = nullptr;
};

LogLine Effective(const char *name, const char *value) {
  return {1, std::string("Effective configuration setting, name: ") + name + ", value: " + value};
}

// --- ReadDwordSetting -------------------------------------------------------

TEST_F(SettingsReaderTest, DwordAbsentEverywhereGivesDefaultAndStillLogs) {
  Keys("", "");
  uint32_t found = 7;
  EXPECT_EQ(Dword(552, 40, 65576, &found), 552u);
  EXPECT_EQ(found, 0u);
  EXPECT_THAT(TakeLog(), ElementsAre(Effective("Number", "552")));
}

TEST_F(SettingsReaderTest, DwordWithoutKeysGivesDefault) {
  Keys(nullptr, nullptr);
  ASSERT_EQ(policy_, nullptr);
  ASSERT_EQ(local_, nullptr);
  uint32_t found = 7;
  EXPECT_EQ(Dword(5, 0, 10, &found), 5u);
  EXPECT_EQ(found, 0u);
  EXPECT_THAT(TakeLog(), ElementsAre(Effective("Number", "5")));
}

TEST_F(SettingsReaderTest, DwordPolicyBeatsLocal) {
  Keys("\"Number\"=dword:00000100\r\n", "\"Number\"=dword:00000200\r\n");
  uint32_t found = 0;
  EXPECT_EQ(Dword(552, 40, 65576, &found), 256u);
  EXPECT_EQ(found, 1u);
  EXPECT_THAT(TakeLog(), ElementsAre(Effective("Number", "256")));
}

TEST_F(SettingsReaderTest, DwordLocalWhenPolicyLacksIt) {
  Keys("\"Other\"=dword:1\r\n", "\"number\"=dword:00000200\r\n");
  uint32_t found = 0;
  EXPECT_EQ(Dword(552, 40, 65576, &found), 512u);
  EXPECT_EQ(found, 1u);
}

TEST_F(SettingsReaderTest, DwordZeroIsFound) {
  Keys(nullptr, "\"Number\"=dword:0\r\n");
  uint32_t found = 0;
  EXPECT_EQ(Dword(9, 0, 0xFFFFFFFF, &found), 0u);
  EXPECT_EQ(found, 1u);
}

TEST_F(SettingsReaderTest, DwordFoundMayBeNull) {
  Keys(nullptr, "\"Number\"=dword:3\r\n");
  EXPECT_EQ(Dword(9, 0, 10, nullptr), 3u);
}

TEST_F(SettingsReaderTest, DwordClampedToItsBounds) {
  Keys(nullptr, "\"Low\"=dword:a\r\n\"High\"=dword:000186a0\r\n");
  EXPECT_EQ(Dword(552, 40, 65576, nullptr, "Low"), 40u);
  EXPECT_EQ(Dword(552, 40, 65576, nullptr, "High"), 65576u);
  EXPECT_THAT(TakeLog(), ElementsAre(Effective("Low", "40"), Effective("High", "65576")));
}

TEST_F(SettingsReaderTest, DwordBoundsCompareUnsigned) {
  Keys(nullptr, "\"Big\"=dword:ffffffff\r\n");
  EXPECT_EQ(Dword(0, 0, 0xFFFFFFFF, nullptr, "Big"), 0xFFFFFFFFu);
  EXPECT_EQ(Dword(0, 0, 0x7FFFFFFF, nullptr, "Big"), 0x7FFFFFFFu);
  EXPECT_THAT(TakeLog(), ElementsAre(Effective("Big", "-1"), Effective("Big", "2147483647")));
}

TEST_F(SettingsReaderTest, DwordPolicyOfWrongTypeStopsLocalLookupAndKeepsRawBytes) {
  // "ab" and its NUL fit the 4 bytes offered: they overwrite the low three
  // bytes of the default 552 (28 02 00 00), leaving 61 62 00 00.
  Keys("\"Number\"=\"ab\"\r\n", "\"Number\"=dword:00000200\r\n");
  uint32_t found = 9;
  EXPECT_EQ(Dword(552, 40, 65576, &found), 0x6261u);
  EXPECT_EQ(found, 0u);
  EXPECT_THAT(
      TakeLog(),
      ElementsAre(
          LogLine{
              0,
              "Failed to read policy configuration setting, value is not a string, name: Number"},
          Effective("Number", "25185")));
}

TEST_F(SettingsReaderTest, DwordRawBytesOfWrongTypeKeepTheRestOfTheDefault) {
  Keys(nullptr, "\"Number\"=hex:05\r\n");
  uint32_t found = 9;
  EXPECT_EQ(Dword(0x228, 0, 0xFFFFFFFF, &found), 0x205u);
  EXPECT_EQ(found, 0u);
  EXPECT_THAT(
      TakeLog(),
      ElementsAre(
          LogLine{0, "Failed to read configuration setting, value is not a string, name: Number"},
          Effective("Number", "517")));
}

TEST_F(SettingsReaderTest, DwordLongerThanFourBytesInPolicyCountsAsAbsent) {
  Keys("\"Number\"=\"abcd\"\r\n", "\"Number\"=dword:00000064\r\n");
  uint32_t found = 0;
  EXPECT_EQ(Dword(552, 40, 65576, &found), 100u);
  EXPECT_EQ(found, 1u);
  EXPECT_THAT(TakeLog(), ElementsAre(Effective("Number", "100")));
}

TEST_F(SettingsReaderTest, DwordLongerThanFourBytesInLocalGivesDefault) {
  Keys(nullptr, "\"Number\"=hex:01,02,03,04,05\r\n");
  uint32_t found = 0;
  EXPECT_EQ(Dword(552, 40, 65576, &found), 552u);
  EXPECT_EQ(found, 0u);
  EXPECT_THAT(TakeLog(), ElementsAre(Effective("Number", "552")));
}

TEST_F(SettingsReaderTest, DwordOfWrongTypeInLocalAsWholeFourBytes) {
  Keys(nullptr, "\"Number\"=hex(b):10,00,00,00\r\n");
  uint32_t found = 0;
  EXPECT_EQ(Dword(552, 0, 65576, &found), 16u);
  EXPECT_EQ(found, 0u);
}

// --- ReadStringSetting ------------------------------------------------------

TEST_F(SettingsReaderTest, StringFromPolicyWithPrefix) {
  Keys("\"ExcludeFamily\"=\"m:storage\"\r\n", "\"ExcludeFamily\"=\"m:printer\"\r\n");
  uint32_t length = 0;
  EXPECT_EQ(String("exfa:", "ExcludeFamily", &length), "exfa:m:storage");
  EXPECT_EQ(length, 15u);
  EXPECT_THAT(TakeLog(), ElementsAre(LogLine{1,
                                             "Effectice configuration setting, name: "
                                             "ExcludeFamily, value: exfa:m:storage"}));
}

TEST_F(SettingsReaderTest, StringFromLocalWhenPolicyLacksIt) {
  Keys("", "\"ExcludeFamily\"=\"m:printer\"\r\n");
  uint32_t length = 0;
  EXPECT_EQ(String("exfa:", "ExcludeFamily", &length), "exfa:m:printer");
  EXPECT_EQ(length, 15u);
}

TEST_F(SettingsReaderTest, StringPolicyOfWrongTypeStopsLocalLookup) {
  Keys("\"ExcludeFamily\"=dword:1\r\n", "\"ExcludeFamily\"=\"m:printer\"\r\n");
  uint32_t length = 0;
  EXPECT_EQ(String("exfa:", "ExcludeFamily", &length), "<null>");
  EXPECT_THAT(TakeLog(), ElementsAre(LogLine{0,
                                             "Failed to read policy configuration setting, "
                                             "value is not a string, name: ExcludeFamily"}));
}

TEST_F(SettingsReaderTest, StringLocalOfWrongType) {
  Keys(nullptr, "\"ExcludeFamily\"=hex(2):41,00,00,00\r\n");
  uint32_t length = 0;
  EXPECT_EQ(String("exfa:", "ExcludeFamily", &length), "<null>");
  EXPECT_THAT(TakeLog(), ElementsAre(LogLine{0,
                                             "Failed to read configuration setting, value is "
                                             "not a string, name: ExcludeFamily"}));
}

TEST_F(SettingsReaderTest, StringEmptyValueGivesPrefixAlone) {
  Keys(nullptr, "\"AllowHID\"=\"\"\r\n");
  uint32_t length = 0;
  EXPECT_EQ(String("usehid:", "AllowHID", &length), "usehid:");
  EXPECT_EQ(length, 8u);
  EXPECT_THAT(TakeLog(), ElementsAre(LogLine{1,
                                             "Effectice configuration setting, name: "
                                             "AllowHID, value: usehid:"}));
}

TEST_F(SettingsReaderTest, StringAbsentGivesNullWithoutLine) {
  Keys("", "");
  uint32_t length = 5;
  EXPECT_EQ(String("exfa:", "ExcludeFamily", &length), "<null>");
  EXPECT_THAT(TakeLog(), IsEmpty());
  Keys(nullptr, nullptr);
  EXPECT_EQ(String("exfa:", "ExcludeFamily", &length), "<null>");
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(SettingsReaderTest, StringWithoutItsOwnNulIsStillTerminated) {
  // A REG_SZ written as raw UTF-16 without its NUL: the length counts what is
  // there, and the text still ends.
  Keys(nullptr, "\"AllowHID\"=hex(1):6f,00,3a,00,31,00\r\n");
  uint32_t length = 0;
  EXPECT_EQ(String("usehid:", "AllowHID", &length), "usehid:o:1");
  EXPECT_EQ(length, 10u);
}

TEST_F(SettingsReaderTest, ValueReadThatFailsIsLoggedAndFreed) {
  // The second read of a value can only fail if the value grew between the
  // two reads; offering too little room is the same failure.
  Keys(nullptr, "\"ExcludeFamily\"=\"m:storage\"\r\n");
  EXPECT_EQ(ReadValueBehindPrefix(local_, "ExcludeFamily", "exfa:", 3,
                                  u"Failed to read configuration setting, name: %S"),
            nullptr);
  EXPECT_EQ(ReadValueBehindPrefix(local_, "ExcludeFamily", "exfa:", 3,
                                  u"Failed to read policy configuration setting, name: %S"),
            nullptr);
  EXPECT_THAT(TakeLog(),
              ElementsAre(LogLine{0, "Failed to read configuration setting, name: ExcludeFamily"},
                          LogLine{0,
                                  "Failed to read policy configuration setting, name: "
                                  "ExcludeFamily"}));
}

TEST_F(SettingsReaderTest, ValueReadBehindPrefixHasAnExtraNul) {
  Keys(nullptr, "\"Blob\"=hex:41,42\r\n");
  uint8_t *block = ReadValueBehindPrefix(local_, "Blob", "p:", 2, u"unused");
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(std::memcmp(block, "p:AB\0", 5), 0);
  std::free(block);
}

// --- ReadBinarySetting ------------------------------------------------------

TEST_F(SettingsReaderTest, BinaryFromLocalWithoutEffectiveLine) {
  Keys(nullptr, "\"noncdl\"=hex:00,05,01\r\n");
  uint32_t length = 0;
  EXPECT_THAT(Binary("noncdl", &length), ElementsAre(0, 5, 1));
  EXPECT_EQ(length, 3u);
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(SettingsReaderTest, BinaryPolicyBeatsLocal) {
  Keys("\"noncdl\"=hex:aa\r\n", "\"noncdl\"=hex:00,05,01\r\n");
  uint32_t length = 0;
  EXPECT_THAT(Binary("noncdl", &length), ElementsAre(0xaa));
  EXPECT_EQ(length, 1u);
}

TEST_F(SettingsReaderTest, BinaryEmptyPolicyLeavesLocalToBeAsked) {
  Keys("\"noncdl\"=hex:\r\n", "\"noncdl\"=hex:00,05,01\r\n");
  uint32_t length = 0;
  EXPECT_THAT(Binary("noncdl", &length), ElementsAre(0, 5, 1));
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(SettingsReaderTest, BinaryEmptyEverywhereIsAbsent) {
  Keys("\"noncdl\"=hex:\r\n", "\"noncdl\"=hex:\r\n");
  uint32_t length = 0;
  EXPECT_THAT(Binary("noncdl", &length), IsEmpty());
  EXPECT_EQ(length, 0u);
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(SettingsReaderTest, BinaryPolicyOfWrongTypeStopsLocalLookup) {
  Keys("\"noncdl\"=\"x\"\r\n", "\"noncdl\"=hex:00,05,01\r\n");
  uint32_t length = 0;
  EXPECT_THAT(Binary("noncdl", &length), IsEmpty());
  EXPECT_THAT(TakeLog(), ElementsAre(LogLine{0,
                                             "Failed to read policy configuration setting, "
                                             "value is not binary, name: noncdl"}));
}

TEST_F(SettingsReaderTest, BinaryLocalOfWrongTypeKeepsItsMisspelling) {
  Keys(nullptr, "\"noncdl\"=dword:1\r\n");
  uint32_t length = 0;
  EXPECT_THAT(Binary("noncdl", &length), IsEmpty());
  EXPECT_THAT(TakeLog(), ElementsAre(LogLine{0,
                                             "Failed to read configuration setting, value is "
                                             "not bibary, name: noncdl"}));
}

}  // namespace
}  // namespace pelarix
