// The three grouping rules and the group questions.
#include <gtest/gtest.h>

#include "descriptor_fixtures.h"
#include "log_recorder.h"
#include "ordo/usb/usb_model.h"

namespace ordo::usb {
namespace {

using namespace testing;
using Numbers = std::vector<uint8_t>;

class InterfaceGroups : public ::testing::Test {
 protected:
  const UsbDeviceConfig::Configuration &Parse(const Bytes &body, uint8_t deviceClass = 0) {
    device_ = DeviceDescriptor(deviceClass, 0, 0);
    set_ = ConfigSet(body);
    config_.SetDeviceDescriptor(device_.data());
    EXPECT_TRUE(config_.AddConfigDescriptor(0, set_.data(), false));
    return *config_.GetConfigurationByIndex(0);
  }
  // Group key -> interface numbers of the member objects.
  static std::map<int32_t, Numbers> Keys(const UsbDeviceConfig::Configuration &c) {
    std::map<int32_t, Numbers> keys;
    for (const auto &[key, members] : c.GetFunctionalGroup().GetGroups()) {
      for (const auto *member : members)
        keys[key].push_back(static_cast<uint8_t>(member->GetNumber()));
    }
    return keys;
  }

  LogRecorder log_;
  Bytes device_;
  Bytes set_;
  UsbDeviceConfig config_;
};

TEST_F(InterfaceGroups, OneInterfaceWithAlternatesIsACountingGroupWithOneNumber) {
  const auto &c = Parse(Cat({Interface(0, 0, 0, 0x0E), Interface(0, 1, 0, 0x0E)}));
  EXPECT_EQ(c.GetGroupCount(), 1);
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{0}));
  EXPECT_EQ(c.GetFunctionalGroup().GetGroupedInterfaces(), (Numbers{0, 0}));
  EXPECT_TRUE(c.GetUngroupedInterfaces().empty());
}

TEST_F(InterfaceGroups, AdjacentAudioInterfacesShareAGroupAcrossAlternates) {
  const auto &c = Parse(Cat({Interface(0, 0, 0, 0x01, 0x01), Interface(1, 0, 0, 0x01, 0x02),
                             Interface(1, 1, 0, 0x01, 0x02), Interface(2, 0, 0, 0x01, 0x02),
                             Interface(2, 1, 0, 0x01, 0x02), Interface(3, 0, 0, 0x03)}));
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{0, {0, 1, 1, 2, 2}}, {1, {3}}}));
  EXPECT_EQ(c.GetGroupCount(), 1);
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{0, 1, 2}));
  EXPECT_EQ(c.GetInterfaceGroup(2), (Numbers{0, 1, 2}));
  EXPECT_EQ(c.GetInterfaceGroup(3), (Numbers{3}));
  EXPECT_EQ(c.GetUngroupedInterfaces(), (Numbers{3}));
}

TEST_F(InterfaceGroups, AudioVideoAudioWithoutAssociationAreThreeGroups) {
  const auto &c =
      Parse(Cat({Interface(0, 0, 0, 0x01), Interface(1, 0, 0, 0x0E), Interface(2, 0, 0, 0x01)}));
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{0, {0}}, {1, {1}}, {2, {2}}}));
  EXPECT_EQ(c.GetGroupCount(), 0);
}

TEST_F(InterfaceGroups, AudioPairBehindALoneInterfaceGivesTheKeyAsOrdinalAnEmptyAnswer) {
  const auto &c =
      Parse(Cat({Interface(0, 0, 0, 0x03), Interface(1, 0, 0, 0x01), Interface(2, 0, 0, 0x01)}));
  EXPECT_EQ(c.GetFunctionalGroup().GetGroupOfInterface(0), -1);
  EXPECT_EQ(c.GetFunctionalGroup().GetGroupOfInterface(1), 1);
  EXPECT_EQ(c.GetGroupCount(), 1);
  EXPECT_EQ(c.GetInterfaceGroup(1), Numbers{});
  EXPECT_EQ(c.GetInterfaceGroup(0), (Numbers{0}));
}

TEST_F(InterfaceGroups, AudioPairInFrontGivesTheRightGroup) {
  const auto &c =
      Parse(Cat({Interface(0, 0, 0, 0x01), Interface(1, 0, 0, 0x01), Interface(2, 0, 0, 0x03)}));
  EXPECT_EQ(c.GetInterfaceGroup(1), (Numbers{0, 1}));
  EXPECT_EQ(c.GetInterfaceGroup(2), (Numbers{2}));
}

TEST_F(InterfaceGroups, AlternateInFrontOfEverythingStaysUnderKeyZeroByAdjacency) {
  const auto &c =
      Parse(Cat({Interface(0, 1, 0, 0x08), Interface(0, 0, 0, 0x08), Interface(1, 0, 0, 0x08)}));
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{0, {0}}, {1, {0}}, {2, {1}}}));
}

TEST_F(InterfaceGroups, UnionGroupsOnlyWhatItNames) {
  const auto &c = Parse(
      Cat({Interface(0, 0, 1, 0x02, 0x02), Union({0, 1}), Endpoint(0x83, 3),
           Interface(1, 0, 2, 0x0A), Endpoint(0x81), Endpoint(0x02), Interface(2, 0, 0, 0xFF)}),
      0x02);
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{0, {0, 1}}}));
  EXPECT_EQ(c.GetGroupCount(), 1);
  EXPECT_EQ(c.GetInterfaceGroup(2), (Numbers{2}));
  EXPECT_EQ(c.GetInterfaceGroup(1), (Numbers{0, 1}));
  EXPECT_EQ(c.GetUngroupedInterfaces(), (Numbers{2}));
}

TEST_F(InterfaceGroups, UnionTakesNoAlternatesAndRepeatsANumberNamedTwice) {
  const auto &c = Parse(Cat({Interface(0, 0, 0, 0x02), Union({0, 1, 1}), Interface(1, 0, 0, 0x0A),
                             Interface(1, 1, 0, 0x0A)}),
                        0x02);
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{0, {0, 1, 1}}}));
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{0, 1, 1}));
}

TEST_F(InterfaceGroups, InterfaceNamedByTwoUnionsIsInBoth) {
  const auto &c = Parse(Cat({Interface(0, 0, 0, 0x02), Union({0, 1}), Union({2, 1}),
                             Interface(1, 0, 0, 0x0A), Interface(2, 0, 0, 0x02)}),
                        0x02);
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{0, {0, 1}}, {1, {2, 1}}}));
  EXPECT_EQ(c.GetGroupCount(), 2);
  EXPECT_EQ(c.GetFunctionalGroup().GetGroupOfInterface(1), 0);
}

TEST_F(InterfaceGroups, UnionThatFindsNothingLeavesAHoleThatHidesLaterKeys) {
  const auto &c = Parse(
      Cat({Interface(0, 0, 0, 0x02), Union({7}), Union({0, 1}), Interface(1, 0, 0, 0x0A)}), 0x02);
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{1, {0, 1}}}));
  EXPECT_EQ(c.GetGroupCount(), 0);
  EXPECT_EQ(c.GetInterfaceGroup(1), (Numbers{1}));
  EXPECT_EQ(c.GetGroupFamily(1), (DevFamily{kFamilyComm, 1}));
}

TEST_F(InterfaceGroups, UnionSilencesAssociations) {
  const auto &c = Parse(Cat({Association(0, 3, 0x02, 0x02), Interface(0, 0, 0, 0x02), Union({0, 1}),
                             Interface(1, 0, 0, 0x0A), Interface(2, 0, 0, 0x0A)}),
                        0x02);
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{0, {0, 1}}}));
}

TEST_F(InterfaceGroups, VideoAssociationFollowedByTwoUnassociatedInterfaces) {
  const auto &c = Parse(Cat({Association(0, 2, 0x0E, 0x03), Interface(0, 0, 0, 0x0E, 0x01),
                             Interface(1, 0, 0, 0x0E, 0x02), Interface(1, 1, 0, 0x0E, 0x02),
                             Interface(2, 0, 0, 0x03), Interface(3, 0, 0, 0x08)}));
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{0, {0, 1, 1}}, {1, {2}}, {2, {3}}}));
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{0, 1}));
  EXPECT_EQ(c.GetUngroupedInterfaces(), (Numbers{2, 3}));
}

TEST_F(InterfaceGroups, AssociationBoundIsTheCountFieldItself) {
  // First 1, count 3 covers 1 and 2; first 3, count 2 covers nothing.
  const auto &c =
      Parse(Cat({Interface(0, 0, 0, 0x03), Association(1, 3, 0x0E, 0x03), Interface(1, 0, 0, 0x0E),
                 Interface(2, 0, 0, 0x0E), Association(3, 2, 0x02), Interface(3, 0, 0, 0x02),
                 Interface(4, 0, 0, 0x0A)}));
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{0, {0}}, {1, {1, 2}}, {2, {3}}, {3, {4}}}));
}

TEST_F(InterfaceGroups, AssociationWithFirstAtOrAboveCountHasNoEffect) {
  const auto &c = Parse(Cat({Association(2, 2, 0x01), Interface(2, 0, 0, 0x01),
                             Interface(3, 0, 0, 0x01), Interface(4, 0, 0, 0x08)}));
  // Unassociated: the two audio interfaces run together as before.
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{0, {2, 3}}, {1, {4}}}));
}

TEST_F(InterfaceGroups, LaterAssociationOverwritesAnEarlierOne) {
  const auto &c =
      Parse(Cat({Association(0, 3, 0x0E, 0x03), Association(1, 2, 0x01), Interface(0, 0, 0, 0x0E),
                 Interface(1, 0, 0, 0x01), Interface(2, 0, 0, 0x0E)}));
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{0, {0, 2}}, {1, {1}}}));
}

TEST_F(InterfaceGroups, AlternateAheadOfEveryInterfaceLandsUnderKeyMinusOne) {
  const auto &c =
      Parse(Cat({Association(0, 1, 0x0E, 0x03), Interface(0, 1, 0, 0x0E), Interface(0, 0, 0, 0x0E),
                 Interface(1, 0, 0, 0x01), Interface(1, 1, 0, 0x01), Interface(2, 0, 0, 0x01)}));
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{-1, {0}}, {0, {0}}, {1, {1, 1, 2}}}));
  // Key -1 is never seen by the group questions.
  EXPECT_EQ(c.GetGroupCount(), 1);
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{1, 2}));
  EXPECT_EQ(c.GetFunctionalGroup().GetGroupOfInterface(0), -1);
}

TEST_F(InterfaceGroups, AudioRunIsBrokenByAnAssociatedInterface) {
  const auto &c =
      Parse(Cat({Interface(0, 0, 0, 0x01), Association(1, 2, 0x0E, 0x03), Interface(1, 0, 0, 0x0E),
                 Interface(2, 0, 0, 0x01), Interface(3, 0, 0, 0x01)}));
  EXPECT_EQ(Keys(c), (std::map<int32_t, Numbers>{{0, {0}}, {1, {1}}, {2, {2, 3}}}));
}

TEST_F(InterfaceGroups, GroupMembersOutsideTheCountAreEmpty) {
  const auto &c = Parse(Cat({Interface(0, 0, 0, 0x01), Interface(1, 0, 0, 0x01)}));
  EXPECT_EQ(c.GetGroupMembers(-1), Numbers{});
  EXPECT_EQ(c.GetGroupMembers(1), Numbers{});
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{0, 1}));
}

TEST_F(InterfaceGroups, GroupFamilyTakesAKeyWhateverTheMemberCount) {
  const auto &c = Parse(Cat({Interface(0, 0, 0, 0x03, 0x01, 0x01), Interface(1, 0, 0, 0x08),
                             Interface(2, 0, 0, 0x01), Interface(3, 0, 0, 0x01)}));
  EXPECT_EQ(c.GetGroupFamily(0), (DevFamily{kFamilyHid | kFamilyHidBootable, kSubFamilyKeyboard}));
  EXPECT_EQ(c.GetGroupFamily(1), (DevFamily{kFamilyStorage, 1}));
  EXPECT_EQ(c.GetGroupFamily(2), (DevFamily{kFamilyAudio, 1}));
  EXPECT_EQ(c.GetGroupFamily(9), kUnknownFamily);
}

TEST_F(InterfaceGroups, UngroupedTreatsNumbersAsRunningFromZero) {
  const auto &c = Parse(Cat({Interface(3, 0, 0, 0x01), Interface(4, 0, 0, 0x01)}));
  // bNumInterfaces 2: numbers 0 and 1 are reported, 3 and 4 are grouped.
  EXPECT_EQ(c.GetUngroupedInterfaces(), (Numbers{0, 1}));
}

}  // namespace
}  // namespace ordo::usb
