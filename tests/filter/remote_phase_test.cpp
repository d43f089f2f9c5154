// The Remote phase on one party's settings, the family-set query it asks,
// and the agent manager's whole answer on real devices.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "device_fixtures.h"
#include "ordo/usb/dev_filter_device.h"
#include "ordo/usb/dev_filter_mgr_agent.h"
#include "ordo/usb/dev_filter_result.h"
#include "ordo/usb/filter_phases.h"
#include "ordo/usb/filter_settings.h"

namespace ordo::usb {
namespace {

using testing::DescriptorFile;
using ::testing::ElementsAre;
using testing::FilterLines;
using ::testing::IsEmpty;
using testing::Line;
using testing::LogCapture;

// Vendor 1234, product 5678, one configuration.
constexpr uint8_t kDevice[18] = {0x12, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x40, 0x34,
                                 0x12, 0x78, 0x56, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01};
// A storage interface and a plain HID interface.
constexpr uint8_t kStorageAndHid[27] = {
    0x09, 0x02, 0x1b, 0x00, 0x02, 0x01, 0x00, 0x80, 0x32,  // configuration
    0x09, 0x04, 0x00, 0x00, 0x00, 0x08, 0x06, 0x50, 0x00,  // interface 0: storage
    0x09, 0x04, 0x01, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00,  // interface 1: hid
};
// A configuration set whose type byte isn't a configuration's: not parsed.
constexpr uint8_t kNotAConfiguration[18] = {
    0x09, 0x03, 0x12, 0x00, 0x01, 0x01, 0x00, 0x80, 0x32,
    0x09, 0x04, 0x00, 0x00, 0x00, 0x08, 0x06, 0x50, 0x00,
};

FilterSettings AgentSettings(const std::vector<std::string> &rules) {
  return testing::SettingsWith(rules, false);
}

// One device and its result, with the log caught from the phase on.
class RemotePhaseTest : public ::testing::Test {
 protected:
  void Load(const uint8_t *device, const uint8_t *config) {
    device_.Load(device, config, 1, nullptr);
    result_.Init(device_, true);
  }
  void LoadFile(const std::string &file) {
    bytes_ = std::make_unique<DescriptorFile>(file);
    Load(bytes_->device(), bytes_->config());
  }
  // Runs the phases as the agent does; only the phase's lines are caught.
  bool Run(const std::vector<std::string> &rules, bool remote = true) {
    const FilterSettings settings = AgentSettings(rules);
    capture_.clear();
    RunFilterPhases(settings, device_, result_, remote);
    return result_.IsDeviceAllowed();
  }

  LogCapture capture_;
  std::unique_ptr<DescriptorFile> bytes_;
  DevFilterDevice device_;
  DevFilterResult result_;
};

TEST_F(RemotePhaseTest, EmptyListAllowsWithoutAWord) {
  LoadFile("descriptors/mass_storage.bin");
  EXPECT_TRUE(Run({}));
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(RemotePhaseTest, ExcludeIdIsAskedBeforeIncludeId) {
  Load(kDevice, kStorageAndHid);
  EXPECT_FALSE(Run({"exid:m:vid-1234_pid-5678", "inid:m:vid-1234_pid-5678"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2, "[Remote] Device blocked by 'ExcludeVidPid' rule")));
}

TEST_F(RemotePhaseTest, IncludeIdBeatsExcludeAllDevices) {
  Load(kDevice, kStorageAndHid);
  EXPECT_TRUE(Run({"inid:m:vid-1234_pid-5678", "exalldev:true"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2, "[Remote] Device allowed by 'IncludeVidPid' rule")));
}

TEST_F(RemotePhaseTest, IncludeIdSavesFromExcludeFamily) {
  Load(kDevice, kStorageAndHid);
  EXPECT_TRUE(Run({"inid:m:vid-1234_pid-5678", "exfa:m:storage"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2, "[Remote] Device allowed by 'IncludeVidPid' rule")));
}

TEST_F(RemotePhaseTest, IncludeFamilyDoesNotSaveFromExcludeId) {
  Load(kDevice, kStorageAndHid);
  EXPECT_FALSE(Run({"infa:m:storage", "exid:m:vid-1234_pid-5678"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2, "[Remote] Device blocked by 'ExcludeVidPid' rule")));
}

TEST_F(RemotePhaseTest, ExcludeFamilyOutweighsIncludeFamilyAndNamesOnlyTheHit) {
  Load(kDevice, kStorageAndHid);
  EXPECT_FALSE(Run({"exfa:m:storage", "infa:m:hid"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2, "[Remote] Device blocked by ExcludeFamily. Family(s): storage")));
}

TEST_F(RemotePhaseTest, IncludeFamilyBeatsExcludeAllDevices) {
  LoadFile("descriptors/hid_sensor.bin");
  EXPECT_TRUE(Run({"infa:m:hid", "exalldev:true"}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(Line(2, "[Remote] Device allowed by IncludeFamily setting. Family(s): hid")));
}

TEST_F(RemotePhaseTest, ExcludeAllDevicesRefusesWhatNoRuleNames) {
  LoadFile("descriptors/hid_sensor.bin");
  EXPECT_FALSE(Run({"exfa:m:storage", "infa:m:audio", "exalldev:true"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2, "[Remote] Device filtered out by 'ExcludeAllDevices'")));
}

TEST_F(RemotePhaseTest, ExcludeAllDevicesFalseLeavesTheDeviceWithoutALine) {
  LoadFile("descriptors/hid_sensor.bin");
  EXPECT_TRUE(Run({"exfa:m:storage", "exalldev:false"}));
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(RemotePhaseTest, FamilyRulesPassedOverWithoutParsedConfiguration) {
  Load(kDevice, kNotAConfiguration);
  ASSERT_EQ(device_.GetParsedConfigCount(), 0);
  EXPECT_TRUE(Run({"exfa:m:storage"}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(Line(2, "[Remote] Family filters cannot be enforced. Config Desc missing")));
}

TEST_F(RemotePhaseTest, WithoutParsedConfigurationExcludeAllDevicesStillRefuses) {
  Load(kDevice, nullptr);
  EXPECT_FALSE(Run({"exfa:m:unknown", "exalldev:true"}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(Line(2, "[Remote] Family filters cannot be enforced. Config Desc missing"),
                  Line(2, "[Remote] Device filtered out by 'ExcludeAllDevices'")));
}

TEST_F(RemotePhaseTest, EveryInterfaceBlockedLeavesTheUnknownFamily) {
  LoadFile("descriptors/keyboard_mouse.bin");
  result_.BlockInterface(device_, 0, 4, "r", false);
  result_.BlockInterface(device_, 1, 4, "r", false);
  EXPECT_FALSE(Run({"exfa:m:unknown"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2, "[Remote] Device blocked by ExcludeFamily. Family(s): unknown")));
}

TEST_F(RemotePhaseTest, BlockedInterfacesDoNotCountInTheFamily) {
  LoadFile("descriptors/keyboard_mouse.bin");
  result_.BlockInterface(device_, 0, 4, "r", false);
  EXPECT_TRUE(Run({"exfa:m:keyboard"}));
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(RemotePhaseTest, ExcludeFamilyAfterAUserSplitWarns) {
  LoadFile("descriptors/keyboard_mouse.bin");
  result_.BlockInterface(device_, 0, kSplitSettingCode, "SplitSetting: SplitVidPid(ExIntf)", false);
  EXPECT_FALSE(Run({"exfa:m:mouse"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2, "[Remote] Device blocked by ExcludeFamily. Family(s): mouse"),
                          Line(2,
                               "[Remote] Warning: Possible conflict(s) between Fitler settings and "
                               "User defined Split settings")));
}

TEST_F(RemotePhaseTest, IncludeFamilyAfterAUserSplitBlocks) {
  LoadFile("descriptors/keyboard_mouse.bin");
  result_.BlockInterface(device_, 0, kSplitSettingCode, "SplitSetting: SplitVidPid(ExIntf)", false);
  EXPECT_FALSE(Run({"infa:m:mouse"}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(Line(2,
                       "[Remote] Device found in IncludeFamily setting but is being blocked. "
                       "Family(s): mouse"),
                  Line(2,
                       "[Remote] Warning: Possible conflict(s) between Fitler settings and "
                       "User defined Split settings")));
}

TEST_F(RemotePhaseTest, IncludeFamilyNamesEveryIncludedNameJoinedWithoutBlank) {
  LoadFile("descriptors/keyboard_mouse.bin");
  EXPECT_TRUE(Run({"infa:m:mouse;keyboard"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2,
                               "[Remote] Device allowed by IncludeFamily setting. Family(s): "
                               "keyboard,mouse")));
}

TEST_F(RemotePhaseTest, BlockedDeviceGetsNoPhase) {
  LoadFile("descriptors/mass_storage.bin");
  result_.BlockDevice();
  EXPECT_FALSE(Run({"inid:m:vid-1d50_pid-6005"}));
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(RemotePhaseTest, DirectCallOnABlockedDeviceSaysSo) {
  LoadFile("descriptors/mass_storage.bin");
  result_.BlockDevice();
  capture_.clear();
  RunRemotePhase(AgentSettings({}), device_, result_);
  EXPECT_FALSE(result_.IsDeviceAllowed());
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2, "[Remote] Device already blocked. Nothing to do")));
}

// Without remote the combined phases run instead, with their own words. The
// agent's short table has no blockdsplit, and a key absent from both list
// and table reads true: splitting is off.
TEST_F(RemotePhaseTest, WithoutRemoteTheCombinedPhasesRun) {
  LoadFile("descriptors/mass_storage.bin");
  EXPECT_FALSE(Run({"exid:m:vid-1d50_pid-6005", "exalldev:true"}, false));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(Line(2, "[Combined] Device splitting blocked by setting: DisableDeviceSplitting"),
                  Line(2, "[Combined] Device splitting not done. Not a composite device"),
                  Line(2, "[Combined:Phase] Starting 2"),
                  Line(2, "[Combined] Device blocked by 'ExcludeVidPid'. Id: vid-1d50_pid-6005"),
                  Line(2, "[Combined:Phase] Finished 2")));
  EXPECT_THAT(result_.decisions(), IsEmpty());
}

TEST_F(RemotePhaseTest, PathRulesAreNotTheRemotePhasesConcern) {
  const uint32_t pathInfo = 0x00000212;
  device_.Load(kDevice, kStorageAndHid, 1, &pathInfo);
  result_.Init(device_, true);
  ASSERT_EQ(device_.GetPathString(), "bus-1_port-02");
  const FilterSettings settings = AgentSettings({"expt:bus-1_port-2"});
  EXPECT_EQ(settings.evaluatePath(device_.GetPathString()), FilterEvalExcluded);
  EXPECT_EQ(settings.evaluatePath("Error"), FilterEvalNoHit);
  capture_.clear();
  RunFilterPhases(settings, device_, result_, true);
  EXPECT_TRUE(result_.IsDeviceAllowed());
  EXPECT_THAT(capture_.all(), IsEmpty());
}

// --- evaluateFamilySet ------------------------------------------------------

TEST(EvaluateFamilySet, OneExcludedNameOutweighsIncludedOnesWhereverItStands) {
  const FilterSettings settings = AgentSettings({"infa:m:audio;audio-in", "exfa:m:hid"});
  std::vector<std::string> names{"left over"};
  const DevFamily headset{kFamilyAudio | kFamilyHid, kSubFamilyAudioIn | kSubFamilyAudioOut};
  EXPECT_EQ(settings.evaluateFamilySet(headset, &names), FilterEvalExcluded);
  EXPECT_THAT(names, ElementsAre("hid"));
}

TEST(EvaluateFamilySet, IncludedNamesInTheirOrder) {
  const FilterSettings settings = AgentSettings({"infa:m:audio-out;audio"});
  std::vector<std::string> names;
  const DevFamily headset{kFamilyAudio, kSubFamilyAudioIn | kSubFamilyAudioOut};
  EXPECT_EQ(settings.evaluateFamilySet(headset, &names), FilterEvalIncluded);
  EXPECT_THAT(names, ElementsAre("audio", "audio-out"));
}

TEST(EvaluateFamilySet, NoHitLeavesTheNamesAlone) {
  const FilterSettings settings = AgentSettings({"exfa:m:storage"});
  std::vector<std::string> names{"untouched"};
  EXPECT_EQ(settings.evaluateFamilySet(DevFamily{kFamilyHid, kSubFamilyMouse}, &names),
            FilterEvalNoHit);
  EXPECT_THAT(names, ElementsAre("untouched"));
}

TEST(EvaluateFamilySet, NamesMayBeNull) {
  const FilterSettings settings = AgentSettings({"exfa:m:storage"});
  EXPECT_EQ(settings.evaluateFamilySet(DevFamily{kFamilyStorage, 1}, nullptr), FilterEvalExcluded);
}

// --- The agent manager's answer ---------------------------------------------

class AgentDecisionTest : public ::testing::Test {
 protected:
  bool Allowed(const std::string &file, DevFamily *family = nullptr) {
    const DescriptorFile bytes(file);
    DevFamily found;
    const bool allowed = manager_.GetDeviceFamily(bytes.device(), bytes.config(), found);
    EXPECT_EQ(manager_.IsDeviceAllowed(bytes.device(), bytes.config()), allowed);
    if (family != nullptr) {
      *family = found;
    }
    return allowed;
  }

  LogCapture capture_;
  DevFilterMgrAgent manager_;
};

TEST_F(AgentDecisionTest, KeyboardExcludedByFamily) {
  manager_.AddFilterRule("exfa:m:keyboard");
  DevFamily family;
  EXPECT_FALSE(Allowed("realdesc/keyboard_holtek_04d9_1603.bin", &family));
  EXPECT_EQ(family, (DevFamily{kFamilyHid | kFamilyHidBootable, kSubFamilyKeyboard}));
  EXPECT_TRUE(Allowed("realdesc/mouse_logitech_046d_c03e.bin"));
}

TEST_F(AgentDecisionTest, WholeCallLogsTheDeviceThenTheDecision) {
  manager_.AddFilterRule("exfa:m:keyboard");
  capture_.clear();
  const DescriptorFile bytes("realdesc/keyboard_holtek_04d9_1603.bin");
  EXPECT_FALSE(manager_.IsDeviceAllowed(bytes.device(), bytes.config()));
  EXPECT_THAT(
      FilterLines(capture_),
      ElementsAre(Line(2, "Device Filter got device:"), Line(2, "Device id: Vid-04d9_Pid-1603"),
                  Line(2, "Path: Error"), Line(2, "Config count: 1"), Line(2, "Config num: 0"),
                  Line(2, "Interface count: 2"), Line(2, "Interface [0] - Family(s): keyboard"),
                  Line(2, "Interface [1] - Family(s): hid"),
                  Line(2, "[Remote] Device blocked by ExcludeFamily. Family(s): keyboard")));
}

TEST_F(AgentDecisionTest, ManagerWithoutStringsWritesNothingAfterTheDump) {
  const DescriptorFile bytes("descriptors/mass_storage.bin");
  EXPECT_TRUE(manager_.IsDeviceAllowed(bytes.device(), bytes.config()));
  EXPECT_THAT(
      FilterLines(capture_),
      ElementsAre(Line(2, "Device Filter got device:"), Line(2, "Device id: Vid-1d50_Pid-6005"),
                  Line(2, "Path: Error"), Line(2, "Config count: 1"), Line(2, "Config num: 0"),
                  Line(2, "Interface count: 1"), Line(2, "Interface [0] - Family(s): storage")));
}

TEST_F(AgentDecisionTest, WebcamExcludedByVidPid) {
  manager_.AddFilterRule("exid:m:vid-046d_pid-0825");
  EXPECT_FALSE(Allowed("realdesc/webcam_logitech_c270_046d_0825.bin"));
  EXPECT_TRUE(Allowed("realdesc/webcam_logitech_scribe_046d_08e2.bin"));
  EXPECT_THAT(FilterLines(capture_),
              ::testing::Contains(Line(2, "[Remote] Device blocked by 'ExcludeVidPid' rule")));
}

TEST_F(AgentDecisionTest, HeadsetAllowedByIncludeFamilyAmongAllExcluded) {
  manager_.AddFilterRule("infa:m:audio-out");
  manager_.AddFilterRule("exalldev:true");
  DevFamily family;
  EXPECT_TRUE(Allowed("realdesc/headset_razer_krakenx_1532_0526.bin", &family));
  EXPECT_EQ(family, (DevFamily{kFamilyAudio | kFamilyHid, kSubFamilyAudioIn | kSubFamilyAudioOut}));
  EXPECT_THAT(FilterLines(capture_),
              ::testing::Contains(Line(
                  2, "[Remote] Device allowed by IncludeFamily setting. Family(s): audio-out")));
  EXPECT_FALSE(Allowed("realdesc/flash_sandisk_0781_5583.bin"));
  EXPECT_FALSE(Allowed("realdesc/webcam_logitech_scribe_046d_08e2.bin"));
}

TEST_F(AgentDecisionTest, ManagerWithoutStringsAllowsEveryRealDevice) {
  for (const char *file :
       {"realdesc/keyboard_holtek_04d9_1603.bin", "realdesc/hub_nec_0409_0058.bin",
        "realdesc/ethernet_rtl8153_2cfg_0bda_8153.bin", "descriptors/malformed_overrun.bin",
        "descriptors/malformed_blength_zero.bin"}) {
    EXPECT_TRUE(Allowed(file)) << file;
  }
}

TEST_F(AgentDecisionTest, WithoutConfigurationTheFamilyIsUnknown) {
  const DescriptorFile bytes("descriptors/mass_storage.bin");
  manager_.AddFilterRule("exfa:m:storage");
  DevFamily family{0, 0};
  capture_.clear();
  EXPECT_TRUE(manager_.GetDeviceFamily(bytes.device(), nullptr, family));
  EXPECT_EQ(family, kUnknownFamily);
  EXPECT_THAT(FilterLines(capture_).back(),
              Line(2, "[Remote] Family filters cannot be enforced. Config Desc missing"));
}

// The agent parses one configuration: the second one's interfaces aren't seen.
TEST_F(AgentDecisionTest, OnlyTheFirstConfigurationCounts) {
  manager_.AddFilterRule("exfa:m:storage");
  DevFamily family;
  EXPECT_TRUE(Allowed("descriptors/two_configurations.bin", &family));
  EXPECT_EQ(family, (DevFamily{kFamilyVendor, kSubFamilyUnknown}));
}

TEST_F(AgentDecisionTest, FamilyIsGivenAlsoForARefusedDevice) {
  manager_.AddFilterRule("exalldev:true");
  DevFamily family;
  EXPECT_FALSE(Allowed("descriptors/headset.bin", &family));
  EXPECT_EQ(family, (DevFamily{kFamilyAudio, kSubFamilyAudioIn | kSubFamilyAudioOut}));
}

}  // namespace
}  // namespace ordo::usb
