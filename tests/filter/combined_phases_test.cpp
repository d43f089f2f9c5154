// The combined phases on a client's merged settings: user split rules (1(a)),
// split preferences (1(b)), the device as a whole (2), with every decision
// line and its order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "../usbconfig/descriptor_fixtures.h"
#include "device_fixtures.h"
#include "ordo/usb/dev_filter_device.h"
#include "ordo/usb/dev_filter_result.h"
#include "ordo/usb/filter_phases.h"
#include "ordo/usb/filter_settings.h"

namespace ordo::usb {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::Line;
using testing::LogCapture;
using testing::LogLine;
namespace fx = testing;

// Vendor 1234, product 5678 throughout.
fx::Bytes Device(uint8_t configurations = 1) {
  return fx::DeviceDescriptor(0, 0, 0, 0x1234, 0x5678, configurations);
}
fx::Bytes BootKeyboard(uint8_t number) {
  return fx::Interface(number, 0, 1, 0x03, 0x01, 0x01);
}
fx::Bytes Storage(uint8_t number) {
  return fx::Interface(number, 0, 2, 0x08, 0x06, 0x50);
}
fx::Bytes Vendor(uint8_t number) {
  return fx::Interface(number, 0, 2, 0xFF, 0x00, 0x00);
}
// Audio streaming interfaces take their direction from the endpoint that a
// class-specific endpoint descriptor follows.
fx::Bytes AudioOut(uint8_t number) {
  return fx::Cat({fx::Interface(number, 0, 1, 0x01, 0x02, 0x00), fx::Endpoint(0x01, 0x09),
                  fx::AudioEndpoint()});
}
fx::Bytes AudioIn(uint8_t number) {
  return fx::Cat({fx::Interface(number, 0, 1, 0x01, 0x02, 0x00), fx::Endpoint(0x81, 0x09),
                  fx::AudioEndpoint()});
}
// Audio control without its class header. Adjacent audio interfaces form a
// group, so the tests of the audio preference keep them apart.
fx::Bytes AudioControl(uint8_t number) {
  return fx::Interface(number, 0, 0, 0x01, 0x01, 0x00);
}

FilterSettings Merged(const std::vector<std::string> &rules) {
  return testing::SettingsWith(rules, true);
}

const LogLine kStart1a = Line(2, "[Combined:Phase] Starting 1(a)");
const LogLine kFinish1a = Line(2, "[Combined:Phase] Finished 1(a)");
const LogLine kStart1b = Line(2, "[Combined:Phase] Starting 1(b)");
const LogLine kFinish1b = Line(2, "[Combined:Phase] Finished 1(b)");
const LogLine kUserRule = Line(2, "[Combined:Phase] SplitRule(User) found. Skipping 1(b)");
const LogLine kAutoBlocked = Line(2, "[Combined:Phase] AutoDeviceSplitting blocked. Skipping 1(b)");
const LogLine kStart2 = Line(2, "[Combined:Phase] Starting 2");
const LogLine kFinish2 = Line(2, "[Combined:Phase] Finished 2");
const LogLine kNotComposite =
    Line(2, "[Combined] Device splitting not done. Not a composite device");
const LogLine kAllBlocked =
    Line(2, "[Combined] Device blocked. All interfaces are blocked from forwarding");
const LogLine kFamilyWarning =
    Line(2,
         "[Combined] Warning: Possible conflict(s) between Fitler settings and User defined Split "
         "settings");
const LogLine kAutoFilterWarning =
    Line(2,
         "[Combined] Warning: Possible conflict(s) between Fitler settings and User defined Split "
         "Settings");

class CombinedPhases : public ::testing::Test {
 protected:
  void Load(const fx::Bytes &device, const fx::Bytes &config, const uint32_t *path = nullptr) {
    device_bytes_ = device;
    config_bytes_ = config;
    device_.Load(device_bytes_.data(), config_bytes_.empty() ? nullptr : config_bytes_.data(), -1,
                 path);
    result_.Init(device_, true);
  }
  void LoadFixture(const std::string &name) {
    const fx::Bytes all = fx::ReadFile(fx::FixturePath(name));
    Load(fx::Bytes(all.begin(), all.begin() + 18), fx::Bytes(all.begin() + 18, all.end()));
  }
  bool Run(const std::vector<std::string> &rules) {
    const FilterSettings settings = Merged(rules);
    capture_.clear();
    RunFilterPhases(settings, device_, result_, false);
    return result_.IsDeviceAllowed();
  }
  std::vector<LogLine> Phase2(std::vector<LogLine> lines) {
    lines.insert(lines.begin(), kStart2);
    lines.push_back(kFinish2);
    return lines;
  }
  const DevFilterDecision &Decision(int32_t interface) { return result_.decisions().at(interface); }

  LogCapture capture_;
  fx::Bytes device_bytes_;
  fx::Bytes config_bytes_;
  DevFilterDevice device_;
  DevFilterResult result_;
};

TEST_F(CombinedPhases, SingleInterfaceDeviceIsNotSplitAndPasses) {
  LoadFixture("mass_storage");
  EXPECT_TRUE(Run({}));
  EXPECT_THAT(capture_.all(), ElementsAre(kNotComposite, kStart2, kFinish2));
  EXPECT_THAT(result_.decisions(), IsEmpty());
}

TEST_F(CombinedPhases, TwoConfigurationsAreNotCompositeWhateverTheirInterfaces) {
  LoadFixture("two_configurations");
  ASSERT_EQ(device_.GetInterfaceCount(), 3);
  Run({"allowautodsplit:true", "usekeybmouse:true"});
  EXPECT_THAT(capture_.all(), ElementsAre(kNotComposite, kStart2, kFinish2));
}

TEST_F(CombinedPhases, DisableDeviceSplittingOnASingleInterfaceGivesBothLinesInOrder) {
  LoadFixture("mass_storage");
  EXPECT_TRUE(Run({"blockdsplit:true"}));
  EXPECT_THAT(capture_.all(), ElementsAre(Line(2,
                                               "[Combined] Device splitting blocked by setting: "
                                               "DisableDeviceSplitting"),
                                          kNotComposite, kStart2, kFinish2));
  EXPECT_FALSE(result_.DisableSplitting());  // already off
}

TEST_F(CombinedPhases, MissingConfigurationIsBlockedAfterTheSplitLines) {
  Load(Device(), {});
  EXPECT_FALSE(Run({}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(kNotComposite,
                  Line(2, "[Combined] Device splitting not done. Missing Config descriptor"),
                  kStart2,
                  Line(2,
                       "[Combined] Config Desc missing. Device blocked. Device not "
                       "filtered in and rest of the settings cannot be processed"),
                  kFinish2));
}

TEST_F(CombinedPhases, MissingConfigurationPassesOnlyByAnIdInclusion) {
  Load(Device(), {});
  EXPECT_TRUE(Run({"inid:m:vid-1234_pid-5678"}));
  EXPECT_EQ(capture_.all()[3],
            Line(2, "[Combined] Device allowed by 'IncludeVidPid'. Id: vid-1234_pid-5678"));
}

TEST_F(CombinedPhases, SplitExcludedDeviceSkipsBothSplitPhases) {
  Load(Device(), fx::ConfigSet(fx::Cat({BootKeyboard(0), Storage(1)})));
  EXPECT_FALSE(Run({"spexid:m:vid-1234_pid-5678", "allowautodsplit:true"}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(kStart1a, Line(2, "[Combined] Device splitting blocked by 'SplitExcludeVidPid'"),
                  kFinish1a, kUserRule, kStart2,
                  Line(2, "[Combined] Device blocked by AutoFilters. Family(s): keyboard"),
                  kFinish2));
  EXPECT_THAT(result_.decisions(), IsEmpty());
}

TEST_F(CombinedPhases, SplitExcludedDeviceWithSplittingOffAlreadyWritesNoBlockedLine) {
  Load(Device(), fx::ConfigSet(fx::Cat({Storage(0), Vendor(1)})));
  result_.DisableSplitting();
  EXPECT_TRUE(Run({"spexid:m:vid-1234_pid-5678"}));
  EXPECT_THAT(capture_.all(), ElementsAre(kStart1a, kFinish1a, kUserRule, kStart2, kFinish2));
}

TEST_F(CombinedPhases, SplitRuleOfAnotherDeviceLeavesPreferencesToBeConsidered) {
  Load(Device(), fx::ConfigSet(fx::Cat({Storage(0), Vendor(1)})));
  EXPECT_TRUE(Run({"spid:m:vid-1111_pid-2222(exintf:01)"}));
  EXPECT_THAT(capture_.all(), ElementsAre(kStart1a, kFinish1a, kAutoBlocked, kStart2, kFinish2));
}

TEST_F(CombinedPhases, SplitRuleBeyondTheInterfacesBlocksNothingButSkipsPreferences) {
  Load(Device(), fx::ConfigSet(fx::Cat({Vendor(0), Vendor(1), Vendor(2)})));
  EXPECT_TRUE(Run({"spid:m:vid-1234_pid-5678(exintf:07)", "allowautodsplit:true"}));
  EXPECT_THAT(capture_.all(), ElementsAre(kStart1a, kFinish1a, kUserRule, kStart2, kFinish2));
  EXPECT_THAT(result_.decisions(), IsEmpty());
  EXPECT_FALSE(result_.HasSplitSettingDecision());
}

TEST_F(CombinedPhases, SplitRuleWithoutDigitsNamesInterfaceZero) {
  Load(Device(), fx::ConfigSet(fx::Cat({Vendor(0), Vendor(1), Vendor(2)})));
  EXPECT_TRUE(Run({"spid:m:vid-1234_pid-5678(exintf:xx)"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(kStart1a,
                          Line(2,
                               "[Combined] Blocked by SplitSetting: SplitVidPid(exintf) setting. "
                               "Interface num: 0"),
                          kFinish1a, kUserRule, kStart2, kFinish2));
  EXPECT_EQ(Decision(0).allowed, false);
  EXPECT_EQ(Decision(0).reason, "SplitSetting: SplitVidPid(ExIntf)");
  EXPECT_TRUE(result_.IsSplit());
  EXPECT_THAT(result_.GetAllowedInterfaces(), ElementsAre(1, 2));
}

TEST_F(CombinedPhases, SplitRuleWithWildcardsAndLeadingZeros) {
  Load(Device(), fx::ConfigSet(fx::Cat({Vendor(0), Vendor(1), Vendor(2)})));
  EXPECT_TRUE(Run({"spid:m:vid-12**_pid-56*8(exintf:01;exintf:002)"}));
  EXPECT_THAT(result_.GetAllowedInterfaces(), ElementsAre(0));
  EXPECT_TRUE(result_.HasSplitSettingDecision());
}

TEST_F(CombinedPhases, SplitRuleBlocksOnlyTheNamedMemberOfAGroup) {
  Load(Device(),
       fx::ConfigSet(fx::Cat({fx::Association(0, 2, 0xFF), Vendor(0), Vendor(1), Vendor(2)})));
  ASSERT_THAT(device_.GetInterfaceGroup(1), ElementsAre(0, 1));
  EXPECT_TRUE(Run({"spid:m:vid-1234_pid-5678(exintf:01)"}));
  EXPECT_EQ(result_.decisions().size(), 1u);
  EXPECT_FALSE(result_.IsInterfaceAllowed(1));
  EXPECT_THAT(result_.GetAllowedInterfaces(), ElementsAre(0, 2));
}

TEST_F(CombinedPhases, ExcludedAudioFamilyBlocksControlAndStreamingWithTheirGroup) {
  LoadFixture("microphone");
  EXPECT_FALSE(Run({"exfa:m:audio", "allowautodsplit:true"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(kStart1a, kFinish1a, kStart1b,
                          Line(2,
                               "[Combined] Blocked by ExcludeFamily setting. Interface num: 0. "
                               "Family(s): audio"),
                          Line(2,
                               "[Combined] Blocked by ExcludeFamily setting. Interface num: 1. "
                               "Family(s): audio"),
                          kFinish1b, kStart2, kAllBlocked, kFinish2));
  EXPECT_EQ(Decision(0).reason, "SplitPref: ExcludeFamily");
  EXPECT_EQ(Decision(1).reason, "SplitPref: ExcludeFamily");
}

TEST_F(CombinedPhases, KeyboardSplitOffByAutoFilter) {
  Load(Device(), fx::ConfigSet(fx::Cat({BootKeyboard(0), Storage(1)})));
  EXPECT_TRUE(Run({"allowautodsplit:true"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(kStart1a, kFinish1a, kStart1b,
                          Line(2,
                               "[Combined] Blocked by AutoFilter. Interface num: 0. Family(s): "
                               "keyboard"),
                          kFinish1b, kStart2, kFinish2));
  EXPECT_EQ(Decision(0).reason, "SplitPref: AutoFilter");
  EXPECT_TRUE(result_.IsSplit());
  EXPECT_THAT(result_.GetAllowedInterfaces(), ElementsAre(1));
}

TEST_F(CombinedPhases, KeyboardWithoutAutomaticSplittingBlocksTheDevice) {
  Load(Device(), fx::ConfigSet(fx::Cat({BootKeyboard(0), Storage(1)})));
  EXPECT_FALSE(Run({}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(kStart1a, kFinish1a, kAutoBlocked, kStart2,
                          Line(2, "[Combined] Device blocked by AutoFilters. Family(s): keyboard"),
                          kFinish2));
}

TEST_F(CombinedPhases, IncludedKeyboardWithstandsAutoFilterWithAGroupConflict) {
  Load(Device(), fx::ConfigSet(fx::Cat({BootKeyboard(0), Storage(1)})));
  EXPECT_TRUE(Run({"infa:m:keyboard", "allowautodsplit:true"}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(kStart1a, kFinish1a, kStart1b,
                  Line(2,
                       "[Combined] Allowed by IncludeFamily setting. Interface num: 0. "
                       "Family(s): keyboard"),
                  Line(0, "Interface[allowed. It belongs to a group off which Inteface [allowed"),
                  kFinish1b, kStart2,
                  Line(2, "[Combined] Device allowed by 'IncludeFamily'. Family(s): keyboard"),
                  kFinish2));
  EXPECT_TRUE(Decision(0).allowed);
  EXPECT_FALSE(result_.IsSplit());
}

TEST_F(CombinedPhases, UserSplitThenIncludedFamilyBlocksWithTheWarning) {
  Load(Device(), fx::ConfigSet(fx::Cat({BootKeyboard(0), Storage(1)})));
  EXPECT_FALSE(Run({"spid:m:vid-1234_pid-5678(exintf:00)", "infa:m:storage"}));
  EXPECT_THAT(capture_.all(),
              ElementsAre(kStart1a,
                          Line(2,
                               "[Combined] Blocked by SplitSetting: SplitVidPid(exintf) setting. "
                               "Interface num: 0"),
                          kFinish1a, kUserRule, kStart2,
                          Line(2,
                               "[Combined] Device found in 'IncludeFamily' setting but is being "
                               "blocked. Family(s): storage"),
                          kFamilyWarning, kFinish2));
}

TEST_F(CombinedPhases, UserSplitThenExcludedFamilyWarns) {
  Load(Device(), fx::ConfigSet(fx::Cat({BootKeyboard(0), Storage(1)})));
  EXPECT_FALSE(Run({"spid:m:vid-1234_pid-5678(exintf:00)", "exfa:m:storage"}));
  EXPECT_THAT(
      std::vector<LogLine>(capture_.all().begin() + 5, capture_.all().end()),
      ElementsAre(Line(2, "[Combined] Device blocked by 'ExcludeFamily'. Family(s): storage"),
                  kFamilyWarning, kFinish2));
}

TEST_F(CombinedPhases, UserSplitThenAutoFilterBlockWarnsWithCapitalSettings) {
  Load(Device(), fx::ConfigSet(fx::Cat({BootKeyboard(0), BootKeyboard(1), Storage(2)})));
  EXPECT_FALSE(Run({"spid:m:vid-1234_pid-5678(exintf:00)"}));
  EXPECT_THAT(std::vector<LogLine>(capture_.all().begin() + 5, capture_.all().end()),
              ElementsAre(Line(2, "[Combined] Device blocked by AutoFilters. Family(s): keyboard"),
                          kAutoFilterWarning, kFinish2));
}

TEST_F(CombinedPhases, IdExclusionWinsOverWhatSplittingLeft) {
  Load(Device(), fx::ConfigSet(fx::Cat({BootKeyboard(0), Storage(1)})));
  EXPECT_FALSE(Run({"allowautodsplit:true", "exid:m:vid-1234_pid-5678"}));
  EXPECT_EQ(capture_.all()[6],
            Line(2, "[Combined] Device blocked by 'ExcludeVidPid'. Id: vid-1234_pid-5678"));
  EXPECT_FALSE(result_.IsSplit());
}

TEST_F(CombinedPhases, PathRulesComeFirstAndTheIncludeEndsThePhase) {
  const uint32_t path = 0x00000212;
  Load(Device(), fx::ConfigSet(Storage(0)), &path);
  EXPECT_TRUE(Run({"inpt:bus-1_port-2", "exid:m:vid-1234_pid-5678"}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(kNotComposite, kStart2,
                  Line(2, "[Combined] Device allowed by 'IncludePath'. Path: bus-1_port-02"),
                  kFinish2));
}

TEST_F(CombinedPhases, ExcludedPathBlocks) {
  const uint32_t path = 0x00000212;
  Load(Device(), fx::ConfigSet(Storage(0)), &path);
  EXPECT_FALSE(Run({"expt:bus-1_port-2", "inpt:bus-1_port-2", "inid:m:vid-1234_pid-5678"}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(kNotComposite, kStart2,
                  Line(2, "[Combined] Device blocked by 'ExcludePath'. Path: bus-1_port-02"),
                  kFinish2));
}

TEST_F(CombinedPhases, DeviceWithoutPathIsMatchedAsTheTextError) {
  Load(Device(), fx::ConfigSet(Storage(0)));
  ASSERT_EQ(device_.GetPathString(), "Error");
  EXPECT_TRUE(Run({"expt:bus-1_port-2"}));
  EXPECT_THAT(capture_.all(), ElementsAre(kNotComposite, kStart2, kFinish2));
}

TEST_F(CombinedPhases, ConfigurationWithoutInterfacesHasNothingLeft) {
  Load(Device(), fx::ConfigSet({}, 0));
  EXPECT_FALSE(Run({}));
  EXPECT_THAT(capture_.all(), ElementsAre(kNotComposite, kStart2, kAllBlocked, kFinish2));
}

TEST_F(CombinedPhases, ConfigurationWithoutInterfacesPassesByItsId) {
  Load(Device(), fx::ConfigSet({}, 0));
  EXPECT_TRUE(Run({"inid:m:vid-1234_pid-5678"}));
}

TEST_F(CombinedPhases, ExcludeAllDevicesSpeaksWithTheRemoteWord) {
  LoadFixture("mass_storage");
  EXPECT_FALSE(Run({"exalldev:true"}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(kNotComposite, kStart2,
                  Line(2, "[Remote] Device blocked by ExcludeAllDevices setting"), kFinish2));
}

TEST_F(CombinedPhases, IncludedFamilyBeatsExcludeAllDevices) {
  LoadFixture("mass_storage");
  EXPECT_TRUE(Run({"infa:m:storage", "exalldev:true"}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(kNotComposite, kStart2,
                  Line(2, "[Combined] Device allowed by 'IncludeFamily'. Family(s): storage"),
                  kFinish2));
}

TEST_F(CombinedPhases, LoudspeakerBlockedWithAnEmptyFamilyList) {
  Load(Device(), fx::ConfigSet(fx::Cat({AudioOut(0), AudioControl(1)})));
  EXPECT_FALSE(Run({}));
  EXPECT_EQ(capture_.all()[4], Line(2, "[Combined] Device blocked by AutoFilters. Family(s): "));
}

// Pass two blocks the streaming interface without a name (key 23); the audio
// preference then records the control interface as allowed.
TEST_F(CombinedPhases, AutoFilterAudioPreferenceAllowsTheUndecidedAudio) {
  Load(Device(), fx::ConfigSet(fx::Cat({AudioOut(0), Storage(1), AudioControl(2)})));
  EXPECT_TRUE(Run({"allowautodsplit:true"}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(kStart1a, kFinish1a, kStart1b,
                  Line(2, "[Combined] Blocked by AutoFilter. Interface num: 0. Family(s): "),
                  kFinish1b, kStart2, kFinish2));
  EXPECT_FALSE(Decision(0).allowed);
  EXPECT_TRUE(Decision(2).allowed);
  EXPECT_EQ(Decision(2).reason, "SplitPref: AutoFilter");
  EXPECT_EQ(result_.decisions().count(1), 0u);
  EXPECT_THAT(result_.GetAllowedInterfaces(), ElementsAre(1, 2));
}

TEST_F(CombinedPhases, ExcludedAudioTakesTheOtherAudioInterfacesAlong) {
  Load(Device(), fx::ConfigSet(fx::Cat({AudioOut(0), Storage(1), AudioControl(2)})));
  EXPECT_TRUE(Run({"exfa:m:audio-out", "allowautodsplit:true"}));
  EXPECT_FALSE(Decision(2).allowed);
  EXPECT_EQ(Decision(2).reason, "SplitPref: ExcludeFamily");
  EXPECT_THAT(result_.GetAllowedInterfaces(), ElementsAre(1));
}

TEST_F(CombinedPhases, IncludedAudioTakesTheOtherAudioInterfacesAlong) {
  Load(Device(), fx::ConfigSet(fx::Cat({AudioIn(0), Storage(1), AudioControl(2)})));
  EXPECT_TRUE(Run({"infa:m:audio-in", "allowautodsplit:true"}));
  EXPECT_TRUE(Decision(2).allowed);
  EXPECT_EQ(Decision(2).reason, "SplitPref: IncludeFamily");
}

// The exclusion decides the direction; the reason is the one set last.
TEST_F(CombinedPhases, AudioExclusionOutweighsInclusionWithTheLastReason) {
  Load(Device(),
       fx::ConfigSet(fx::Cat({AudioOut(0), Storage(1), AudioIn(2), Vendor(3), AudioControl(4)})));
  Run({"exfa:m:audio-out", "infa:m:audio-in", "allowautodsplit:true"});
  EXPECT_FALSE(Decision(0).allowed);
  EXPECT_TRUE(Decision(2).allowed);
  EXPECT_FALSE(Decision(4).allowed);
  EXPECT_EQ(Decision(4).reason, "SplitPref: IncludeFamily");
}

TEST_F(CombinedPhases, InterfaceBlockedTwiceIsLoggedByBothPasses) {
  Load(Device(), fx::ConfigSet(fx::Cat({BootKeyboard(0), Storage(1)})));
  EXPECT_TRUE(Run({"exfa:m:keyboard", "allowautodsplit:true"}));
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(
          kStart1a, kFinish1a, kStart1b,
          Line(2,
               "[Combined] Blocked by ExcludeFamily setting. Interface num: 0. "
               "Family(s): keyboard"),
          Line(2, "[Combined] Blocked by AutoFilter. Interface num: 0. Family(s): keyboard"),
          kFinish1b, kStart2, kFinish2));
}

TEST_F(CombinedPhases, SplitRulesWithAnotherCodeSayUnknown) {
  Load(Device(), fx::ConfigSet(fx::Cat({Vendor(0), Vendor(1)})));
  FltSplitRule rule;
  rule.id = "vid-1234_pid-5678";
  rule.interfaces = {"1", "-1", "99999999999"};
  capture_.clear();
  ApplySplitRules(device_, {rule}, result_, 4);
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2,
                               "[Combined] Blocked by SplitSetting: Unknown(exintf) setting. "
                               "Interface num: 1"),
                          Line(2,
                               "[Combined] Blocked by SplitSetting: Unknown(exintf) setting. "
                               "Interface num: -1")));
  EXPECT_EQ(Decision(1).reason, "SplitSetting: Unknown(ExIntf)");
  EXPECT_FALSE(result_.HasSplitSettingDecision());
  EXPECT_THAT(result_.GetAllowedInterfaces(), ElementsAre(0));
}

}  // namespace
}  // namespace ordo::usb
