// The flat functions over the agent's filter manager, and the filter log as a
// hook sees it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "ordo/usb/dev_filter_mgr_agent.h"
#include "ordo/usb/filter_dictionary.h"
#include "ordo/usb/filter_entry_points.h"
#include "ordo/usb/filter_log.h"

namespace ordo::usb {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct HookLine {
  uint32_t level;
  std::string text;
  friend bool operator==(const HookLine &, const HookLine &) = default;
  friend void PrintTo(const HookLine &line, std::ostream *os) {
    *os << "{" << line.level << ", \"" << line.text << "\"}";
  }
};

std::vector<HookLine> &HookLines() {
  static std::vector<HookLine> lines;
  return lines;
}

void CaptureHook(uint32_t level, const char *format, va_list args) {
  char text[1024];
  std::vsnprintf(text, sizeof text, format, args);
  HookLines().push_back({level, text});
}

// A keyboard: 18-byte device descriptor, and one configuration with one HID
// boot interface and its endpoint.
constexpr uint8_t kKeyboardDevice[18] = {0x12, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x08, 0x34,
                                         0x12, 0x78, 0x56, 0x00, 0x01, 0x01, 0x02, 0x00, 0x01};
constexpr uint8_t kKeyboardConfig[34] = {
    0x09, 0x02, 0x22, 0x00, 0x01, 0x01, 0x00, 0xa0, 0x32,  // configuration
    0x09, 0x04, 0x00, 0x00, 0x01, 0x03, 0x01, 0x01, 0x00,  // interface
    0x09, 0x21, 0x11, 0x01, 0x00, 0x01, 0x22, 0x3f, 0x00,  // HID
    0x07, 0x05, 0x81, 0x03, 0x08, 0x00, 0x0a};             // endpoint
constexpr uint8_t kStorageDevice[18] = {0x12, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x40, 0x81,
                                        0x07, 0x67, 0x55, 0x00, 0x01, 0x01, 0x02, 0x03, 0x01};

class EntryPointsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    HookLines().clear();
    SetFilterLogHook(CaptureHook, 0);
    manager_ = CreateFilterManager();
    ASSERT_NE(manager_, nullptr);
  }
  void TearDown() override {
    DestroyFilterManager(manager_);
    SetFilterLogHook(nullptr, 0);
  }

  // Lines of severity 0 only: the gate's refusals and the list's own errors.
  static std::vector<HookLine> Errors() {
    std::vector<HookLine> errors;
    for (const HookLine &line : HookLines()) {
      if (line.level == 4) errors.push_back(line);
    }
    return errors;
  }

  std::vector<uint8_t> Blob(HDevFilterMgrAgent *manager) {
    std::vector<uint8_t> blob(GetFilterManagerBlob(manager, nullptr));
    if (!blob.empty()) {
      EXPECT_EQ(GetFilterManagerBlob(manager, blob.data()), blob.size());
    }
    return blob;
  }

  HDevFilterMgrAgent *manager_ = nullptr;
};

HookLine Dmo(const std::string &text) {
  return {4, "DevFltr: Filter string ignored as DMO setting is missing: " + text};
}

// --- A null manager ---------------------------------------------------------

TEST_F(EntryPointsTest, NullManagerAllowsNoDevice) {
  EXPECT_FALSE(IsDeviceAllowedByFilter(nullptr, kKeyboardDevice, kKeyboardConfig));
}

TEST_F(EntryPointsTest, NullManagerGivesNoFamilyAndLeavesOutValueAlone) {
  DevFamily untouched;
  DevFamily *family = &untouched;
  EXPECT_FALSE(GetDeviceFamilyInfo(nullptr, kKeyboardDevice, kKeyboardConfig, &family));
  EXPECT_EQ(family, &untouched);
}

TEST_F(EntryPointsTest, NullManagerIsToleratedEverywhere) {
  AddFilterString(nullptr, "exalldev:true", 14);
  ClearFilterStrings(nullptr);
  EXPECT_EQ(GetFilterManagerBlob(nullptr, nullptr), 0u);
  const uint8_t blob[4] = {};
  EXPECT_FALSE(ReadFilterManagerBlob(nullptr, blob));
  EXPECT_FALSE(ReadFilterManagerBlob(nullptr, blob, 4));
  DestroyFilterManager(nullptr);
  FreeDeviceFamilyInfo(nullptr);
  EXPECT_THAT(HookLines(), IsEmpty());
}

// --- A manager without strings ----------------------------------------------

TEST_F(EntryPointsTest, ManagerWithoutStringsAllowsEveryDevice) {
  EXPECT_TRUE(IsDeviceAllowedByFilter(manager_, kKeyboardDevice, kKeyboardConfig));
  EXPECT_TRUE(IsDeviceAllowedByFilter(manager_, kStorageDevice, nullptr));
  EXPECT_TRUE(IsDeviceAllowedByFilter(manager_, kKeyboardDevice, nullptr));
}

TEST_F(EntryPointsTest, ManagerWithoutStringsHasNoBlob) {
  EXPECT_EQ(GetFilterManagerBlob(manager_, nullptr), 0u);
}

TEST_F(EntryPointsTest, ManagerHoldsTheShortTableOfDefaults) {
  const auto &defaults = manager_->settings().defaults();
  ASSERT_EQ(defaults.size(), 1u);
  EXPECT_EQ(defaults.begin()->first, FilterTypeExalldev);
  EXPECT_EQ(defaults.begin()->second, "false");
}

TEST_F(EntryPointsTest, FamilyInfoIsANewFamilyToBeGivenBack) {
  DevFamily *family = nullptr;
  EXPECT_TRUE(GetDeviceFamilyInfo(manager_, kKeyboardDevice, kKeyboardConfig, &family));
  ASSERT_NE(family, nullptr);
  FreeDeviceFamilyInfo(family);
}

// --- The agent's gate -------------------------------------------------------

TEST_F(EntryPointsTest, StringWithoutLetterIsRefusedAtTheGate) {
  AddFilterString(manager_, "exid:vid-1234_pid-5678", 0);
  AddFilterString(manager_, "blockremoteconfig:o:true", 0);
  EXPECT_THAT(Errors(),
              ElementsAre(Dmo("exid:vid-1234_pid-5678"), Dmo("blockremoteconfig:o:true")));
  EXPECT_EQ(GetFilterManagerBlob(manager_, nullptr), 0u);
  EXPECT_TRUE(IsDeviceAllowedByFilter(manager_, kKeyboardDevice, kKeyboardConfig));
}

TEST_F(EntryPointsTest, ExcludeAllDevicesTakesNoLetter) {
  AddFilterString(manager_, "exalldev:m:true", 0);
  EXPECT_THAT(Errors(), ElementsAre(Dmo("exalldev:m:true")));
  EXPECT_EQ(GetFilterManagerBlob(manager_, nullptr), 0u);
  AddFilterString(manager_, "exalldev:true", 0);
  EXPECT_THAT(Errors(), ElementsAre(Dmo("exalldev:m:true")));
  EXPECT_GT(GetFilterManagerBlob(manager_, nullptr), 0u);
  EXPECT_FALSE(manager_->AreRulesSequenced());
}

TEST_F(EntryPointsTest, BooleanWithoutLetterIsRefused) {
  AddFilterString(manager_, "usehid:true", 0);
  EXPECT_THAT(Errors(), ElementsAre(Dmo("usehid:true")));
}

TEST_F(EntryPointsTest, GateLowerCasesButQuotesTheTextAsGiven) {
  AddFilterString(manager_, "EXID:VID-1234_PID-5678", 0);
  EXPECT_THAT(Errors(), ElementsAre(Dmo("EXID:VID-1234_PID-5678")));
  AddFilterString(manager_, "EXID:M:VID-1234_PID-5678", 0);
  EXPECT_EQ(Errors().size(), 1u);
  EXPECT_THAT(HookLines(), ::testing::Contains(HookLine{
                               1, "DevFltr: Adding FilterRule: exid:m:vid-1234_pid-5678"}));
  EXPECT_TRUE(manager_->AreRulesSequenced());
}

TEST_F(EntryPointsTest, OnlyTheFirstEntryPassesThroughTheGate) {
  AddFilterString(manager_, "exid:m:vid-1234_pid-5678 exfa:m:storage", 0);
  EXPECT_THAT(Errors(), IsEmpty());
  const FilterList &list = manager_->settings().list();
  EXPECT_TRUE(list.hasValues(FilterTypeExid));
  EXPECT_TRUE(list.hasValues(FilterTypeExfa));
  HookLines().clear();
  // A good entry behind a refused first one does not count.
  AddFilterString(manager_, "exid:vid-1111_pid-2222 infa:m:hid", 0);
  EXPECT_THAT(Errors(), ElementsAre(Dmo("exid:vid-1111_pid-2222 infa:m:hid")));
  EXPECT_FALSE(list.hasValues(FilterTypeInfa));
}

TEST_F(EntryPointsTest, NullTextChangesNothing) {
  AddFilterString(manager_, nullptr, 12);
  EXPECT_EQ(GetFilterManagerBlob(manager_, nullptr), 0u);
  EXPECT_THAT(HookLines(), IsEmpty());
}

TEST_F(EntryPointsTest, LengthIsNotLookedAt) {
  AddFilterString(manager_, "usehid:o:true", 3);
  EXPECT_EQ(GetFilterManagerBlob(manager_, nullptr), 35u);
}

TEST_F(EntryPointsTest, ClearEmptiesTheListAndKeepsDefaults) {
  AddFilterString(manager_, "usehid:o:true", 0);
  ClearFilterStrings(manager_);
  EXPECT_EQ(GetFilterManagerBlob(manager_, nullptr), 0u);
  EXPECT_EQ(manager_->settings().defaults().size(), 1u);
  EXPECT_TRUE(IsDeviceAllowedByFilter(manager_, kKeyboardDevice, kKeyboardConfig));
}

// --- Blobs --------------------------------------------------------------------

TEST_F(EntryPointsTest, BlobOfOneBooleanIs35Bytes) {
  AddFilterString(manager_, "usehid:o:true", 0);
  const std::vector<uint8_t> blob = Blob(manager_);
  ASSERT_EQ(blob.size(), 35u);
  EXPECT_THAT(std::vector<uint8_t>(blob.begin(), blob.begin() + 12),
              ElementsAre(1, 0, 0, 0, 11, 0, 0, 0, 1, 0, 0, 0));
}

TEST_F(EntryPointsTest, BlobReadIntoAnotherManagerGivesEqualBytes) {
  AddFilterString(manager_, "exid:m:vid-1234_pid-5678;vid-0e0f_pid-0001", 0);
  AddFilterString(manager_, "usehid:o:false", 0);
  const std::vector<uint8_t> blob = Blob(manager_);
  HDevFilterMgrAgent *other = CreateFilterManager();
  EXPECT_TRUE(ReadFilterManagerBlob(other, blob.data()));
  EXPECT_EQ(Blob(other), blob);
  DestroyFilterManager(other);
  other = CreateFilterManager();
  EXPECT_TRUE(ReadFilterManagerBlob(other, blob.data(), static_cast<uint32_t>(blob.size())));
  EXPECT_EQ(Blob(other), blob);
  DestroyFilterManager(other);
}

TEST_F(EntryPointsTest, BoundedBlobReadStopsAtItsEnd) {
  AddFilterString(manager_, "usehid:o:true", 0);
  const std::vector<uint8_t> blob = Blob(manager_);
  HDevFilterMgrAgent *other = CreateFilterManager();
  EXPECT_FALSE(ReadFilterManagerBlob(other, blob.data(), 20));
  DestroyFilterManager(other);
}

// --- Family ---------------------------------------------------------------------

TEST_F(EntryPointsTest, AudioFamilyByDirection) {
  const DevFamily out{kFamilyAudio, kSubFamilyAudioOut};
  const DevFamily in{kFamilyAudio, kSubFamilyAudioIn};
  const DevFamily both{kFamilyAudio | kFamilyHid, kSubFamilyAudioOut | kSubFamilyAudioIn};
  const DevFamily subOnly{kFamilyHid, kSubFamilyAudioOut};
  EXPECT_TRUE(IsAudioFamily(&out, 0));
  EXPECT_FALSE(IsAudioFamily(&out, 1));
  EXPECT_TRUE(IsAudioFamily(&in, 1));
  EXPECT_FALSE(IsAudioFamily(&in, 0));
  EXPECT_TRUE(IsAudioFamily(&both, 0));
  EXPECT_TRUE(IsAudioFamily(&both, 1));
  EXPECT_FALSE(IsAudioFamily(&both, 2));
  EXPECT_FALSE(IsAudioFamily(&subOnly, 0));
  EXPECT_FALSE(IsAudioFamily(&kUnknownFamily, 0));
  EXPECT_FALSE(IsAudioFamily(nullptr, 0));
}

// --- The filter log -------------------------------------------------------------

TEST_F(EntryPointsTest, SetFilterManagerLogReplacesHookForEveryone) {
  SetFilterManagerLog(nullptr, CaptureHook, 2);
  EXPECT_EQ(GetFilterLogHook(), &CaptureHook);
  EXPECT_EQ(GetFilterLogThreshold(), 2u);
  DevFltrLog(1, "a warning");
  DevFltrLog(2, "information");
  EXPECT_THAT(HookLines(), ElementsAre(HookLine{2, "DevFltr: a warning"}));
  SetFilterManagerLog(manager_, CaptureHook, 3);
  DevFltrLog(1, "another warning");
  EXPECT_EQ(HookLines().size(), 1u);
  SetFilterManagerLog(manager_, nullptr, 0);
  DevFltrLog(0, "an error");
  EXPECT_EQ(HookLines().size(), 1u);
}

// --- Lifetime -------------------------------------------------------------------

TEST_F(EntryPointsTest, DestroyingAManagerReleasesTheDictionary) {
  HDevFilterMgrAgent *other = CreateFilterManager();
  AddFilterString(other, "usehid:o:true", 0);
  EXPECT_TRUE(FilterDictionary::hasInstance());
  DestroyFilterManager(other);
  EXPECT_FALSE(FilterDictionary::hasInstance());
  AddFilterString(manager_, "usehid:o:true", 0);
  EXPECT_EQ(GetFilterManagerBlob(manager_, nullptr), 35u);
  EXPECT_TRUE(FilterDictionary::hasInstance());
}

// The manager's answer is its Remote phase: an include saves the device, an
// exclude refuses it; the family is that of its interfaces either way.
TEST_F(EntryPointsTest, ManagerAnswersByItsRules) {
  const DevFamily keyboard{kFamilyHid | kFamilyHidBootable, kSubFamilyKeyboard};
  AddFilterString(manager_, "inid:m:vid-1234_pid-5678", 0);
  AddFilterString(manager_, "exalldev:true", 0);
  EXPECT_TRUE(IsDeviceAllowedByFilter(manager_, kKeyboardDevice, kKeyboardConfig));
  EXPECT_FALSE(IsDeviceAllowedByFilter(manager_, kStorageDevice, nullptr));
  ClearFilterStrings(manager_);
  AddFilterString(manager_, "exid:m:vid-1234_pid-5678", 0);
  DevFamily *family = nullptr;
  EXPECT_FALSE(GetDeviceFamilyInfo(manager_, kKeyboardDevice, kKeyboardConfig, &family));
  ASSERT_NE(family, nullptr);
  EXPECT_EQ(*family, keyboard);
  FreeDeviceFamilyInfo(family);
  EXPECT_TRUE(IsDeviceAllowedByFilter(manager_, kStorageDevice, nullptr));
}

}  // namespace
}  // namespace ordo::usb
