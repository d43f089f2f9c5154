// The 32 real devices of tests/data/realdesc through the client manager's
// whole decision under four policies. Each expectation was worked out by
// hand from the device's interfaces (family and group of each) and the
// order of the phases; the reason stands next to it.
//
// Policies:
// - Defaults: no filter string on either side. Automatic splitting is off,
//   so AutoFilter judges the whole device in phase 2: a keyboard, mouse,
//   smart-card reader or loudspeaker keeps the device local.
// - AutoSplit: the agent says allowautodsplit:o:true, which overrides the
//   client's default "false". Phase 1(b) then blocks what AutoFilter blocks
//   interface by interface, and phase 2 judges what is left.
// - ClientExcludesStorage: client exfa:m:storage, agent infa:m:storage.
//   Both are merged, and the exclusion of the same level wins.
// - AgentExcludesHid: client infa:m:hid, agent exfa:m:hid. A family set
//   names "hid" only where no interface left is a keyboard or mouse, so a
//   keyboard's extra HID interfaces don't make it "hid".
//
// No policy puts a rule on the agent's list that phase 3 reads for a device
// still allowed, so phase 3 writes only its frame.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "device_fixtures.h"
#include "ordo/usb/dev_filter_mgr_agent.h"
#include "ordo/usb/dev_filter_mgr_client.h"

namespace ordo::usb {
namespace {

using testing::DescriptorFile;
using testing::FilterLines;
using testing::LogCapture;

enum class Policy { Defaults, AutoSplit, ClientExcludesStorage, AgentExcludesHid };

struct PolicyStrings {
  std::vector<std::string> local;
  std::vector<std::string> agent;
};

PolicyStrings StringsOf(Policy policy) {
  switch (policy) {
    case Policy::Defaults:
      return {};
    case Policy::AutoSplit:
      return {{}, {"allowautodsplit:o:true"}};
    case Policy::ClientExcludesStorage:
      return {{"exfa:m:storage"}, {"infa:m:storage"}};
    case Policy::AgentExcludesHid:
      return {{"infa:m:hid"}, {"exfa:m:hid"}};
  }
  return {};
}

// What becomes of the device: forwarded whole, split (interfaces), local.
enum class Outcome { Whole, Split, Local };

struct Case {
  std::string device;
  Policy policy;
  Outcome outcome;
  std::vector<int32_t> interfaces;       // what a split forwards
  std::vector<std::string> splitLines;   // inside 1(b), AutoSplit on composites only
  std::vector<std::string> deviceLines;  // inside phase 2
};

const std::string kNotSplit =
    "audio-out is blocked using AutoFilter setting. The setting is ignored as there are multiple "
    "audio interfaces which shouldnt be split";
std::string AutoFilters(const std::string &names) {
  return "[Combined] Device blocked by AutoFilters. Family(s): " + names;
}
std::string ExcludeFamily(const std::string &names) {
  return "[Combined] Device blocked by 'ExcludeFamily'. Family(s): " + names;
}
std::string BlockedInterface(int interface, const std::string &names) {
  return "[Combined] Blocked by AutoFilter. Interface num: " + std::to_string(interface) +
         ". Family(s): " + names;
}
const std::string kNothingLeft =
    "[Combined] Device blocked. All interfaces are blocked from forwarding";

Case Whole(const std::string &device, Policy policy, std::vector<std::string> deviceLines = {}) {
  return {device, policy, Outcome::Whole, {}, {}, std::move(deviceLines)};
}
Case Local(const std::string &device, Policy policy, std::string line) {
  return {device, policy, Outcome::Local, {}, {}, {std::move(line)}};
}

// The devices that no rule of any policy touches: no family that AutoFilter
// blocks by default (vendor, comm, hub, storage, imaging, bluetooth, video,
// audio-in, plain hid), and no storage or plain-hid name in their family set.
const char *const kUntouched[] = {
    "bt_broadcom_bcm2045b_0a5c_2110",       // bluetooth, vendor, other
    "bt_csr_0a12_0001",                     // bluetooth
    "camera_canon_ptp_04a9_31c0",           // imaging
    "cdcacm_arduino_uno_2341_0043",         // comm, one union group
    "ethernet_rtl8153_2cfg_0bda_8153",      // two configurations: never composite
    "fingerprint_st_0483_2016",             // vendor
    "hub_genesys_mtt_05e3_0614",            // hub
    "hub_kinesis_05f3_0081",                // hub
    "hub_lenovo_mtt_17ef_1005",             // hub
    "hub_nec_0409_0058",                    // hub
    "hub_realtek_0bda_5411",                // hub
    "phone_cdc_nokia_n78_0421_007b",        // fourteen comm interfaces
    "phone_lg_1004_61fe",                   // comm and vendor
    "phone_pixel3a_fastboot_18d1_4ee0",     // vendor
    "phone_sony_xperia_mtp_0fce_0166",      // vendor
    "serial_ftdi_ft2232h_0403_6010",        // two vendor interfaces
    "webcam_logitech_c270_046d_0825",       // video and audio-in: usevideo, useain true
    "webcam_sunplus_integrated_5986_0706",  // video
    "webcam_trust_0c45_6340",               // video and audio-in
};

std::vector<Case> Cases() {
  std::vector<Case> cases;
  for (const char *device : kUntouched) {
    for (Policy policy : {Policy::Defaults, Policy::AutoSplit, Policy::ClientExcludesStorage,
                          Policy::AgentExcludesHid}) {
      cases.push_back(Whole(device, policy));
    }
  }
  const auto add = [&cases](Case one) { cases.push_back(std::move(one)); };

  // Storage devices: AutoFilter has no rule for storage; the merged exfa
  // outweighs the agent's infa of the same level.
  for (const char *device : {"flash_generic_1043_8012", "flash_sandisk_0781_5583"}) {
    add(Whole(device, Policy::Defaults));
    add(Whole(device, Policy::AutoSplit));
    add(Local(device, Policy::ClientExcludesStorage, ExcludeFamily("storage")));
    add(Whole(device, Policy::AgentExcludesHid));
  }

  // FIDO key: one plain HID interface, usehid true. Its set names "hid".
  add(Whole("fido_yubico_1050_0120", Policy::Defaults));
  add(Whole("fido_yubico_1050_0120", Policy::AutoSplit));
  add(Whole("fido_yubico_1050_0120", Policy::ClientExcludesStorage));
  add(Local("fido_yubico_1050_0120", Policy::AgentExcludesHid, ExcludeFamily("hid")));

  // Whiteboard camera: video, two vendor, plain HID; nothing for AutoFilter,
  // but its set (sub-family all unknown) names "hid".
  add(Whole("webcam_logitech_scribe_046d_08e2", Policy::Defaults));
  add(Whole("webcam_logitech_scribe_046d_08e2", Policy::AutoSplit));
  add(Whole("webcam_logitech_scribe_046d_08e2", Policy::ClientExcludesStorage));
  add(Local("webcam_logitech_scribe_046d_08e2", Policy::AgentExcludesHid, ExcludeFamily("hid")));

  // Boot mice, single interface: never composite, so the agent's automatic
  // splitting changes nothing; usekeybmouse false blocks in phase 2.
  for (const char *device : {"mouse_logitech_046d_c03e", "trackball_kensington_047d_2048"}) {
    for (Policy policy : {Policy::Defaults, Policy::AutoSplit, Policy::ClientExcludesStorage,
                          Policy::AgentExcludesHid}) {
      add(Local(device, policy, AutoFilters("mouse")));
    }
  }

  // Keyboards with extra HID interfaces: the boot keyboard interface fires
  // usekeybmouse. Split, the keyboard goes and the plain HID interfaces
  // (usehid true) are forwarded. Their family set names "keyboard", never
  // "hid" (a keyboard sub-family hides it), so exfa:m:hid doesn't hit.
  add(Local("keyboard_holtek_04d9_1603", Policy::Defaults, AutoFilters("keyboard")));
  add({"keyboard_holtek_04d9_1603",
       Policy::AutoSplit,
       Outcome::Split,
       {1},
       {BlockedInterface(0, "keyboard")},
       {}});
  add(Local("keyboard_holtek_04d9_1603", Policy::ClientExcludesStorage, AutoFilters("keyboard")));
  add(Local("keyboard_holtek_04d9_1603", Policy::AgentExcludesHid, AutoFilters("keyboard")));
  add(Local("keyboard_framework16_32ac_0012", Policy::Defaults, AutoFilters("keyboard")));
  add({"keyboard_framework16_32ac_0012",
       Policy::AutoSplit,
       Outcome::Split,
       {1, 2, 3},
       {BlockedInterface(0, "keyboard")},
       {}});
  add(Local("keyboard_framework16_32ac_0012", Policy::ClientExcludesStorage,
            AutoFilters("keyboard")));
  add(Local("keyboard_framework16_32ac_0012", Policy::AgentExcludesHid, AutoFilters("keyboard")));

  // Keyboard and touchpad receiver: keyboard and mouse, one key (13) for
  // both names. Split, both interfaces go and nothing is left.
  add(Local("kbdtouchpad_0513_0318", Policy::Defaults, AutoFilters("keyboard,mouse")));
  add({"kbdtouchpad_0513_0318",
       Policy::AutoSplit,
       Outcome::Local,
       {},
       {BlockedInterface(0, "keyboard"), BlockedInterface(1, "mouse")},
       {kNothingLeft}});
  add(Local("kbdtouchpad_0513_0318", Policy::ClientExcludesStorage, AutoFilters("keyboard,mouse")));
  add(Local("kbdtouchpad_0513_0318", Policy::AgentExcludesHid, AutoFilters("keyboard,mouse")));

  // YubiKey 4: boot keyboard (OTP), plain HID (FIDO), CCID. usekeybmouse and
  // usesc false block interfaces 0 and 2; split, the FIDO interface goes
  // over alone.
  add(Local("ccid_yubikey4_1050_0407", Policy::Defaults, AutoFilters("keyboard,smart-card")));
  add({"ccid_yubikey4_1050_0407",
       Policy::AutoSplit,
       Outcome::Split,
       {1},
       {BlockedInterface(0, "keyboard"), BlockedInterface(2, "smart-card")},
       {}});
  add(Local("ccid_yubikey4_1050_0407", Policy::ClientExcludesStorage,
            AutoFilters("keyboard,smart-card")));
  add(Local("ccid_yubikey4_1050_0407", Policy::AgentExcludesHid,
            AutoFilters("keyboard,smart-card")));

  // Headsets: audio both ways. The audio-out interface fires useaout, but
  // with audio-in allowed the audio isn't parted: one line, no block, in
  // 1(b) and again in phase 2. Their plain HID buttons make the set name
  // "hid".
  add(Whole("headset_razer_krakenx_1532_0526", Policy::Defaults, {kNotSplit}));
  add({"headset_razer_krakenx_1532_0526",
       Policy::AutoSplit,
       Outcome::Whole,
       {},
       {kNotSplit},
       {kNotSplit}});
  add(Whole("headset_razer_krakenx_1532_0526", Policy::ClientExcludesStorage, {kNotSplit}));
  add(Local("headset_razer_krakenx_1532_0526", Policy::AgentExcludesHid, ExcludeFamily("hid")));
  add(Whole("audio_btdongle_ugreen_0a12_4007", Policy::Defaults, {kNotSplit}));
  add({"audio_btdongle_ugreen_0a12_4007",
       Policy::AutoSplit,
       Outcome::Whole,
       {},
       {kNotSplit},
       {kNotSplit}});
  add(Whole("audio_btdongle_ugreen_0a12_4007", Policy::ClientExcludesStorage, {kNotSplit}));
  add(Local("audio_btdongle_ugreen_0a12_4007", Policy::AgentExcludesHid, ExcludeFamily("hid")));

  // Dock audio: two audio-out interfaces (headphones, line out) and a
  // microphone: the line once per audio-out interface, per pass.
  add(Whole("dac_realtek_wd19dock_0bda_402e", Policy::Defaults, {kNotSplit, kNotSplit}));
  add({"dac_realtek_wd19dock_0bda_402e",
       Policy::AutoSplit,
       Outcome::Whole,
       {},
       {kNotSplit, kNotSplit},
       {kNotSplit, kNotSplit}});
  add(Whole("dac_realtek_wd19dock_0bda_402e", Policy::ClientExcludesStorage,
            {kNotSplit, kNotSplit}));
  add(Whole("dac_realtek_wd19dock_0bda_402e", Policy::AgentExcludesHid, {kNotSplit, kNotSplit}));
  return cases;
}

void PrintTo(const Case &c, std::ostream *out) {
  *out << c.device << " under policy " << static_cast<int>(c.policy);
}

std::vector<std::string> ExpectedLines(const Case &c, bool composite) {
  std::vector<std::string> lines;
  if (composite) {
    lines = {"[Combined:Phase] Starting 1(a)", "[Combined:Phase] Finished 1(a)"};
    if (c.policy == Policy::AutoSplit) {
      lines.push_back("[Combined:Phase] Starting 1(b)");
      lines.insert(lines.end(), c.splitLines.begin(), c.splitLines.end());
      lines.push_back("[Combined:Phase] Finished 1(b)");
    } else {
      lines.push_back("[Combined:Phase] AutoDeviceSplitting blocked. Skipping 1(b)");
    }
  } else {
    lines.push_back("[Combined] Device splitting not done. Not a composite device");
  }
  lines.push_back("[Combined:Phase] Starting 2");
  lines.insert(lines.end(), c.deviceLines.begin(), c.deviceLines.end());
  lines.insert(lines.end(), {"[Combined:Phase] Finished 2", "[Remote:Phase] Starting 3",
                             "[Remote:Phase] Finished 3"});
  return lines;
}

// The decision lines: the filter log at information level without the
// device dump.
std::vector<std::string> DecisionTexts(const LogCapture &capture) {
  std::vector<std::string> texts;
  for (const auto &[level, text] : FilterLines(capture)) {
    if (text.rfind("DevFltr: [", 0) == 0 || text.rfind("DevFltr: audio-out", 0) == 0 ||
        text.rfind("DevFltr: All audio", 0) == 0) {
      texts.push_back(text.substr(9));
    }
  }
  return texts;
}

class RealDevicePolicy : public ::testing::TestWithParam<Case> {};

TEST_P(RealDevicePolicy, DecisionAndReasons) {
  const Case &c = GetParam();
  const PolicyStrings strings = StringsOf(c.policy);
  DevFilterMgrClient client;
  for (const std::string &rule : strings.local) client.AddFilterRule(rule, true);
  DevFilterMgrAgent agent;
  for (const std::string &rule : strings.agent) agent.AddFilterRule(rule);
  std::vector<uint8_t> blob(agent.GetFilterBlob(nullptr));
  agent.GetFilterBlob(blob.data());
  ASSERT_TRUE(client.ReadFilterBlob(blob.data(), blob.size(), false));

  const DescriptorFile bytes("realdesc/" + c.device + ".bin");
  DevFilterResult result;
  LogCapture capture;
  ASSERT_TRUE(client.EvaluateDevice(bytes.device(), bytes.config(), -1, nullptr, result));

  const bool composite = bytes.bytes[17] == 1 && result.GetInterfaceCount() > 1;
  EXPECT_EQ(result.IsDeviceAllowed(), c.outcome != Outcome::Local);
  EXPECT_EQ(result.IsSplit(), c.outcome == Outcome::Split);
  if (c.outcome == Outcome::Split) {
    EXPECT_EQ(result.GetAllowedInterfaces(), c.interfaces);
  }
  EXPECT_EQ(DecisionTexts(capture), ExpectedLines(c, composite));
}

std::string CaseName(const ::testing::TestParamInfo<Case> &info) {
  static const char *const kPolicyNames[] = {"Defaults", "AutoSplit", "ClientExcludesStorage",
                                             "AgentExcludesHid"};
  return info.param.device + "_" + kPolicyNames[static_cast<int>(info.param.policy)];
}

INSTANTIATE_TEST_SUITE_P(All, RealDevicePolicy, ::testing::ValuesIn(Cases()), CaseName);

// Every device of the folder has its four policies above.
TEST(RealDevicePolicyCoverage, EveryDeviceUnderEveryPolicy) {
  std::map<std::string, int> counts;
  for (const Case &c : Cases()) ++counts[c.device];
  EXPECT_EQ(counts.size(), 32u);
  for (const auto &[device, count] : counts) EXPECT_EQ(count, 4) << device;
}

}  // namespace
}  // namespace ordo::usb
