// The result of one filtering: device flags, interface decisions with their
// conflict and group rules, split, and the family left allowed.
#include "ordo/usb/dev_filter_result.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "device_fixtures.h"
#include "ordo/usb/dev_filter_device.h"

namespace ordo::usb {
namespace {

using testing::DescriptorFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::Line;
using testing::LogCapture;

constexpr uint32_t kCode = 4;

// A device loaded from a descriptor file, and a result initialised on it.
class DevFilterResultTest : public ::testing::Test {
 protected:
  void Use(const std::string &file) {
    bytes_ = std::make_unique<DescriptorFile>(file);
    device_.Load(bytes_->device(), bytes_->config(), 1, nullptr);
    result_.Init(device_, true);
    capture_.clear();
  }
  bool Block(int32_t interface, bool withGroup, uint32_t code = kCode) {
    return result_.BlockInterface(device_, interface, code, "Block", withGroup);
  }
  bool Allow(int32_t interface, bool withGroup, uint32_t code = kCode) {
    return result_.AllowInterface(device_, interface, code, "Allow", withGroup);
  }

  LogCapture capture_;
  std::unique_ptr<DescriptorFile> bytes_;
  DevFilterDevice device_;
  DevFilterResult result_;
};

TEST(DevFilterResultFresh, ResultWithoutInitHasNoInterfaces) {
  LogCapture capture;
  DevFilterDevice device;
  DevFilterResult result;
  EXPECT_EQ(result.GetInterfaceCount(), 0);
  EXPECT_TRUE(result.IsDeviceAllowed());
  EXPECT_FALSE(result.HasSplitSettingDecision());
  EXPECT_FALSE(result.IsAllBlocked());
  EXPECT_FALSE(result.BlockInterface(device, 0, kSplitSettingCode, "r", false));
  EXPECT_FALSE(result.AllowInterface(device, 0, 4, "r", true));
  EXPECT_FALSE(result.HasSplitSettingDecision());
  EXPECT_FALSE(result.DecideByFamily(false, 4, "r", DevFamily{kFamilyAudio, 0}));
  EXPECT_FALSE(result.IsSplit());
  EXPECT_THAT(result.GetAllowedInterfaces(), IsEmpty());
  EXPECT_EQ(result.GetAllowedInterfacesString(), "None Available");
  EXPECT_EQ(result.GetAllowedFamily(), kUnknownFamily);
  EXPECT_FALSE(result.HasAudioOutAllowed());
  EXPECT_THAT(capture.all(), IsEmpty());
}

TEST_F(DevFilterResultTest, InitRecordsEachInterfaceFamily) {
  Use("realdesc/headset_razer_krakenx_1532_0526.bin");
  EXPECT_EQ(result_.GetInterfaceCount(), 4);
  EXPECT_THAT(result_.families(),
              ElementsAre(std::pair{0, DevFamily{kFamilyAudio, kSubFamilyUnknown}},
                          std::pair{1, DevFamily{kFamilyAudio, kSubFamilyAudioIn}},
                          std::pair{2, DevFamily{kFamilyAudio, kSubFamilyAudioOut}},
                          std::pair{3, DevFamily{kFamilyHid, kSubFamilyUnknown}}));
  EXPECT_THAT(result_.decisions(), IsEmpty());
}

TEST_F(DevFilterResultTest, InitKeepsDecisionsAndSetsTheFlagsAnew) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Block(0, false, kSplitSettingCode));
  result_.BlockDevice();
  result_.Init(device_, false);
  EXPECT_FALSE(result_.IsDeviceAllowed());
  EXPECT_FALSE(result_.DisableSplitting());
  EXPECT_FALSE(result_.HasSplitSettingDecision());
  EXPECT_FALSE(result_.IsInterfaceAllowed(0));
  result_.Init(device_, true);
  EXPECT_TRUE(result_.IsDeviceAllowed());
}

TEST_F(DevFilterResultTest, BlockDeviceAndDisableSplittingAnswerOnlyOnce) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(result_.BlockDevice());
  EXPECT_FALSE(result_.BlockDevice());
  EXPECT_FALSE(result_.IsDeviceAllowed());
  EXPECT_TRUE(result_.DisableSplitting());
  EXPECT_FALSE(result_.DisableSplitting());
}

TEST_F(DevFilterResultTest, IndexAtOrAboveTheCountIsRefusedSilently) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_FALSE(Block(2, false, kSplitSettingCode));
  EXPECT_FALSE(result_.HasSplitSettingDecision());
  EXPECT_FALSE(result_.IsDecided(2));
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(DevFilterResultTest, OneInterfaceIsNeverSplit) {
  Use("descriptors/boot_keyboard.bin");
  EXPECT_TRUE(Block(0, false));
  EXPECT_FALSE(result_.IsSplit());
  EXPECT_FALSE(result_.IsAllBlocked());
  EXPECT_THAT(result_.GetAllowedInterfaces(), ElementsAre(0));
}

TEST_F(DevFilterResultTest, BlockingTwiceWithoutGroupLogsAlreadySet) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Block(0, false));
  EXPECT_THAT(capture_.all(), IsEmpty());
  EXPECT_TRUE(Block(0, false));
  EXPECT_THAT(capture_.all(), ElementsAre(Line(0, "Interface[allowed")));
  EXPECT_EQ(result_.decisions().at(0).reason, "Block");
}

// Interface 1 drops one character of "Interface[".
TEST_F(DevFilterResultTest, AllowingABlockedInterfaceWithoutGroupIsAConflict) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Block(1, false));
  EXPECT_FALSE(Allow(1, false));
  EXPECT_FALSE(result_.IsInterfaceAllowed(1));
  EXPECT_THAT(capture_.all(), ElementsAre(Line(0, "nterface[allowed allowed")));
}

TEST_F(DevFilterResultTest, AllowingABlockedInterfaceWithGroupIsAGroupConflict) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Block(1, true));
  EXPECT_FALSE(Allow(1, true));
  EXPECT_FALSE(result_.IsInterfaceAllowed(1));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(0,
                               "nterface[allowed. t belongs to a group off which Inteface "
                               "[allowed")));
}

TEST_F(DevFilterResultTest, BlockingTwiceWithGroupOutsideAnyGroupIsSilent) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Block(1, true));
  EXPECT_TRUE(result_.IsDecided(1));
  EXPECT_TRUE(Block(1, true));
  EXPECT_THAT(capture_.all(), IsEmpty());
}

// The CDC modem's interfaces 0 and 1 are one group with key 0.
TEST_F(DevFilterResultTest, BlockingAMemberOfAGroupWhoseOtherMemberWasAllowedFails) {
  Use("descriptors/cdc_acm_modem.bin");
  ASSERT_THAT(device_.GetInterfaceGroup(1), ElementsAre(0, 1));
  EXPECT_TRUE(Allow(0, false));
  EXPECT_FALSE(Block(1, true));
  EXPECT_FALSE(result_.IsDecided(1));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(0,
                               "Interface[allowed. It belongs to a group off which Inteface "
                               "[allowed")));
}

TEST_F(DevFilterResultTest, AgreeingWithADecidedMemberLeavesTheOthersUndecided) {
  Use("descriptors/cdc_acm_modem.bin");
  EXPECT_TRUE(Block(0, false));
  EXPECT_TRUE(Block(1, true));
  EXPECT_FALSE(result_.IsDecided(1));
  EXPECT_TRUE(result_.IsInterfaceAllowed(1));
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(DevFilterResultTest, UndecidedGroupIsDecidedWhole) {
  Use("descriptors/uvc_webcam.bin");
  EXPECT_TRUE(Block(3, true));
  EXPECT_FALSE(result_.IsInterfaceAllowed(2));
  EXPECT_FALSE(result_.IsInterfaceAllowed(3));
  EXPECT_TRUE(result_.IsInterfaceAllowed(0));
  EXPECT_TRUE(result_.IsSplit());
  EXPECT_EQ(result_.GetAllowedInterfacesString(), "0,1");
  EXPECT_EQ(result_.GetAllowedFamily(), (DevFamily{kFamilyVideo, kSubFamilyUnknown}));
}

// "Interface[" has 10 characters: from interface 10 on, the piece is empty.
TEST_F(DevFilterResultTest, InterfaceTenOrAboveLeavesOnlyTheWordAllowed) {
  DescriptorFile file("descriptors/keyboard_mouse.bin");
  std::vector<uint8_t> config(file.config(), file.config() + 59);
  config[4] = 12;  // bNumInterfaces: twelve declared
  device_.Load(file.device(), config.data(), 1, nullptr);
  result_.Init(device_, true);
  capture_.clear();
  EXPECT_TRUE(Block(10, false));
  EXPECT_TRUE(Block(10, false));
  EXPECT_TRUE(Block(9, false));
  EXPECT_FALSE(Allow(9, false));
  EXPECT_THAT(capture_.all(), ElementsAre(Line(0, "allowed"), Line(0, "[allowed allowed")));
}

TEST_F(DevFilterResultTest, SplitSettingCodeRaisesTheFlagEvenWhenRefused) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Block(0, false));
  EXPECT_FALSE(Allow(0, false, kSplitSettingCode));
  EXPECT_TRUE(result_.HasSplitSettingDecision());
  EXPECT_TRUE(Allow(1, false, kCode));
  EXPECT_TRUE(result_.HasSplitSettingDecision());
}

TEST_F(DevFilterResultTest, AllInterfacesBlockedIsNotASplit) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Block(0, false));
  EXPECT_TRUE(Block(1, false));
  EXPECT_FALSE(result_.IsAllBlocked());
  EXPECT_FALSE(result_.IsSplit());
  EXPECT_TRUE(result_.IsAllBlocked());
  EXPECT_TRUE(result_.IsDeviceAllowed());
  EXPECT_THAT(result_.GetAllowedInterfaces(), ElementsAre(0, 1));
  EXPECT_EQ(result_.GetAllowedInterfacesString(), "None Available");
  EXPECT_EQ(result_.GetAllowedFamily(), kUnknownFamily);
}

TEST_F(DevFilterResultTest, SplitReportsTheAllowedInterfaces) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Block(0, false));
  EXPECT_TRUE(result_.IsSplit());
  EXPECT_FALSE(result_.IsAllBlocked());
  EXPECT_THAT(result_.GetAllowedInterfaces(), ElementsAre(1));
  EXPECT_EQ(result_.GetAllowedInterfacesString(), "1");
  EXPECT_EQ(result_.GetAllowedFamily(),
            (DevFamily{kFamilyHid | kFamilyHidBootable, kSubFamilyMouse}));
}

TEST_F(DevFilterResultTest, AllowedDecisionsAloneAreNoSplit) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Allow(0, false));
  EXPECT_FALSE(result_.IsSplit());
  EXPECT_FALSE(result_.IsAllBlocked());
}

TEST_F(DevFilterResultTest, DisablingSplittingAfterDecisionsReportsEveryInterface) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Block(0, false));
  EXPECT_TRUE(result_.DisableSplitting());
  EXPECT_FALSE(result_.IsSplit());
  EXPECT_THAT(result_.GetAllowedInterfaces(), ElementsAre(0, 1));
}

TEST_F(DevFilterResultTest, BlockedDeviceIsNoSplit) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Block(0, false));
  result_.BlockDevice();
  EXPECT_FALSE(result_.IsSplit());
}

// Every audio interface matches an audio family, control included, and
// decisions already taken stay.
TEST_F(DevFilterResultTest, DecideByFamilyTakesEveryUndecidedAudioInterface) {
  Use("realdesc/headset_razer_krakenx_1532_0526.bin");
  EXPECT_TRUE(Allow(1, false));
  EXPECT_TRUE(
      result_.DecideByFamily(false, 99, "SplitPref: AutoFilter", DevFamily{kFamilyAudio, 0}));
  EXPECT_TRUE(result_.IsInterfaceAllowed(1));
  EXPECT_FALSE(result_.IsInterfaceAllowed(0));
  EXPECT_FALSE(result_.IsInterfaceAllowed(2));
  EXPECT_FALSE(result_.IsDecided(3));
  EXPECT_EQ(result_.decisions().at(2).reason, "SplitPref: AutoFilter");
  EXPECT_FALSE(result_.DecideByFamily(true, 99, "again", DevFamily{kFamilyAudio, 0}));
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(DevFilterResultTest, DecideByFamilyNeedsBothHalvesOutsideAudio) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_FALSE(result_.DecideByFamily(false, 4, "r", DevFamily{kFamilyHid, kSubFamilyUnknown}));
  EXPECT_TRUE(result_.DecideByFamily(false, 4, "r", DevFamily{kFamilyHid, kSubFamilyMouse}));
  EXPECT_TRUE(result_.IsInterfaceAllowed(0));
  EXPECT_FALSE(result_.IsInterfaceAllowed(1));
}

TEST_F(DevFilterResultTest, AudioOutAllowedUntilItsInterfaceIsBlocked) {
  Use("descriptors/headset.bin");
  EXPECT_TRUE(result_.HasAudioOutAllowed());
  EXPECT_TRUE(Block(1, false));
  EXPECT_FALSE(result_.HasAudioOutAllowed());
  EXPECT_EQ(result_.GetAllowedFamily(), (DevFamily{kFamilyAudio, kSubFamilyAudioIn}));
}

// Sub 1 is left out of the allowed family, unlike the device's.
TEST_F(DevFilterResultTest, AllowedFamilyLeavesOutUnknownSubFamilies) {
  Use("realdesc/headset_razer_krakenx_1532_0526.bin");
  EXPECT_EQ(result_.GetAllowedFamily(),
            (DevFamily{kFamilyAudio | kFamilyHid, kSubFamilyAudioIn | kSubFamilyAudioOut}));
  EXPECT_EQ(device_.GetDeviceFamily(),
            (DevFamily{kFamilyAudio | kFamilyHid,
                       kSubFamilyUnknown | kSubFamilyAudioIn | kSubFamilyAudioOut}));
}

TEST_F(DevFilterResultTest, DumpWritesItsTwoLinesAtDetailLevel) {
  Use("descriptors/keyboard_mouse.bin");
  result_.Dump();
  EXPECT_THAT(capture_.all(), ElementsAre(Line(3, "   << DevFilterResult >>"),
                                          Line(3, "   >> DevFilterResult <<")));
}

// A negative index would drop characters in front of the literal; the
// piece is empty instead.
TEST_F(DevFilterResultTest, NegativeInterfaceIndexGivesAnEmptyPiece) {
  Use("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Block(-1, false));
  EXPECT_TRUE(Block(-1, false));
  EXPECT_FALSE(Allow(-1, false));
  EXPECT_THAT(capture_.all(), ElementsAre(Line(0, "allowed"), Line(0, "allowed allowed")));
}

// In the second configuration of this adapter, number 1 answers an empty
// group: the decision is taken as done, and nothing is recorded.
TEST_F(DevFilterResultTest, DecisionOnAnInterfaceWithAnEmptyGroupHasNoEffect) {
  bytes_ = std::make_unique<DescriptorFile>("realdesc/ethernet_rtl8153_2cfg_0bda_8153.bin");
  device_.Load(bytes_->device(), bytes_->config(), -1, nullptr);
  result_.Init(device_, true);
  ASSERT_THAT(device_.GetInterfaceGroup(1), IsEmpty());
  EXPECT_TRUE(Block(1, true));
  EXPECT_FALSE(result_.IsDecided(1));
  EXPECT_THAT(result_.decisions(), IsEmpty());
}

}  // namespace
}  // namespace ordo::usb
