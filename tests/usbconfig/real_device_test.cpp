// The 32 real devices of tests/data/realdesc: every one parses, groups and
// has families; a representative handful is checked against answers worked
// out by hand from their descriptors.
#include <gtest/gtest.h>

#include <set>

#include "descriptor_fixtures.h"
#include "log_recorder.h"
#include "ordo/usb/usb_model.h"

namespace ordo::usb {
namespace {

using namespace testing;
using Numbers = std::vector<uint8_t>;

class RealDevice : public ::testing::TestWithParam<std::string> {};

TEST_P(RealDevice, ParsesGroupsAndHasFamilies) {
  const DeviceBlob blob = ReadDeviceBlob(RealDevicePath(GetParam()));
  ASSERT_EQ(blob.device.size(), 18u);
  ASSERT_EQ(blob.configurations.size(), blob.device[17]);
  LogRecorder log;
  UsbDeviceConfig config;
  LoadInto(config, blob);
  ASSERT_EQ(config.GetConfigurationCount(), static_cast<int32_t>(blob.configurations.size()));
  for (int32_t ordinal = 0; ordinal < config.GetConfigurationCount(); ++ordinal) {
    const auto *c = config.GetConfigurationByIndex(static_cast<uint32_t>(ordinal));
    ASSERT_NE(c, nullptr);
    std::set<int32_t> numbers;
    for (const auto &interface : c->GetInterfaces()) numbers.insert(interface->GetNumber());
    EXPECT_EQ(static_cast<int32_t>(numbers.size()), c->GetNumInterfaces());
    EXPECT_GE(c->GetInterfaceObjectCount(), c->GetNumInterfaces());
    for (int32_t number : numbers) {
      const DevFamily family = c->GetInterfaceFamily(static_cast<uint8_t>(number));
      EXPECT_NE(family.base, 0u) << number;
      EXPECT_FALSE(FamilyToString(family).empty()) << number;
      EXPECT_FALSE(c->GetInterfaceGroup(static_cast<uint32_t>(number)).empty() &&
                   c->GetFunctionalGroup().GetGroupOfInterface(static_cast<uint32_t>(number)) ==
                       -1);
    }
    for (int32_t group = 0; group < c->GetGroupCount(); ++group) {
      EXPECT_FALSE(c->GetGroupMembers(group).empty());
    }
  }
  EXPECT_FALSE(log.Contains(4, "Out of memory"));
}

std::string TestName(const ::testing::TestParamInfo<std::string> &info) {
  return info.param;
}

INSTANTIATE_TEST_SUITE_P(All, RealDevice, ::testing::ValuesIn(RealDeviceNames()), TestName);

class RealDeviceByHand : public ::testing::Test {
 protected:
  const UsbDeviceConfig::Configuration &Load(const std::string &name, uint32_t ordinal = 0) {
    blob_ = ReadDeviceBlob(RealDevicePath(name));
    LoadInto(config_, blob_);
    return *config_.GetConfigurationByIndex(ordinal);
  }
  LogRecorder log_;
  DeviceBlob blob_;
  UsbDeviceConfig config_;
};

TEST_F(RealDeviceByHand, HoltekKeyboard) {
  const auto &c = Load("keyboard_holtek_04d9_1603");
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(0)), "keyboard");
  EXPECT_EQ(c.GetInterfaceFamily(1), (DevFamily{0x20, 1}));
  EXPECT_EQ(c.GetGroupCount(), 0);
  EXPECT_EQ(c.GetUngroupedInterfaces(), (Numbers{0, 1}));
  EXPECT_TRUE(config_.IsSingleConfigComposite());
  EXPECT_EQ(log_.Count(0, "    HID Descriptor:"), 2u);
}

TEST_F(RealDeviceByHand, LogitechMouse) {
  const auto &c = Load("mouse_logitech_046d_c03e");
  EXPECT_EQ(c.GetInterfaceFamily(0), (DevFamily{0x60, 4}));
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(0)), "mouse");
  EXPECT_FALSE(config_.IsSingleConfigComposite());
}

TEST_F(RealDeviceByHand, RazerHeadsetAudioTravelsTogether) {
  const auto &c = Load("headset_razer_krakenx_1532_0526");
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(0)), "audio");
  EXPECT_EQ(c.GetInterfaceFamily(1), (DevFamily{8, 16}));
  EXPECT_EQ(c.GetInterfaceFamily(2), (DevFamily{8, 8}));
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(3)), "hid");
  EXPECT_EQ(c.GetGroupCount(), 1);
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{0, 1, 2}));
  EXPECT_EQ(c.GetInterfaceGroup(2), (Numbers{0, 1, 2}));
  EXPECT_EQ(c.GetUngroupedInterfaces(), (Numbers{3}));
  EXPECT_EQ(FamilyToString(c.GetGroupFamily(0)), "audio,audio-in,audio-out");
}

TEST_F(RealDeviceByHand, LogitechWebcamAudioAssociationCoversNothing) {
  const auto &c = Load("webcam_logitech_c270_046d_0825");
  // The audio association has bFirstInterface 2 and bInterfaceCount 2.
  EXPECT_EQ(c.GetGroupCount(), 2);
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{0, 1}));
  EXPECT_EQ(c.GetGroupMembers(1), (Numbers{2, 3}));
  EXPECT_EQ(c.GetInterfaceGroup(3), (Numbers{2, 3}));
  EXPECT_TRUE(c.GetUngroupedInterfaces().empty());
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(1)), "video");
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(3)), "audio,audio-in");
  EXPECT_EQ(c.GetInterfaceObjectCount(), 4 + 11 + 4);
  // The video control interrupt endpoint's class-specific descriptor.
  EXPECT_EQ(log_.Count(1, "Unknown descriptor (1)"), 1u);
  EXPECT_FALSE(log_.Contains(1, "Unknown descriptor of type USB_CS_INTERFACE (1)"));
}

TEST_F(RealDeviceByHand, ArduinoAcmKeepsItsUnion) {
  const auto &c = Load("cdcacm_arduino_uno_2341_0043");
  EXPECT_EQ(log_.Count(4, "Functional Interface Descriptor - Parse failed (1)"), 2u);
  ASSERT_EQ(c.GetUnionDescriptors().size(), 1u);
  EXPECT_EQ(c.GetUnionDescriptors()[0]->GetInterfaceNumbers(), (Numbers{0, 1}));
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{0, 1}));
  EXPECT_EQ(c.GetGroupFamily(0), (DevFamily{0x10, 1}));
}

TEST_F(RealDeviceByHand, RealtekEthernetSecondConfigurationKeyIsNoOrdinal) {
  const auto &first = Load("ethernet_rtl8153_2cfg_0bda_8153");
  EXPECT_EQ(FamilyToString(first.GetInterfaceFamily(0)), "vendor");
  const auto &c = *config_.GetConfigurationByIndex(1);
  EXPECT_EQ(c.GetConfigurationValue(), 2);
  EXPECT_EQ(log_.Count(1, "Unknown descriptor of type USB_CS_INTERFACE (1)"), 3u);
  EXPECT_EQ(c.GetGroupCount(), 1);
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{1}));
  EXPECT_EQ(c.GetFunctionalGroup().GetGroupOfInterface(1), 1);
  EXPECT_EQ(c.GetInterfaceGroup(1), Numbers{});
  EXPECT_EQ(c.GetInterfaceGroup(0), (Numbers{0}));
  EXPECT_EQ(c.GetUngroupedInterfaces(), (Numbers{0}));
  EXPECT_FALSE(config_.IsSingleConfigComposite());
}

TEST_F(RealDeviceByHand, LenovoMultiTtHubIsASingleConfigComposite) {
  const auto &c = Load("hub_lenovo_mtt_17ef_1005");
  EXPECT_EQ(c.GetGroupCount(), 1);
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{0}));
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(0)), "hub");
  EXPECT_TRUE(config_.IsSingleConfigComposite());
}

TEST_F(RealDeviceByHand, YubikeyCcidDescriptorIsDumpedAsHid) {
  const auto &c = Load("ccid_yubikey4_1050_0407");
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(0)), "keyboard");
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(1)), "hid");
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(2)), "smart-card");
  EXPECT_EQ(c.GetGroupCount(), 0);
  EXPECT_EQ(log_.Count(0, "    HID Descriptor:"), 3u);
}

TEST_F(RealDeviceByHand, LgPhoneSecondAssociationCoversNothing) {
  const auto &c = Load("phone_lg_1004_61fe");
  EXPECT_TRUE(c.GetUnionDescriptors().empty());
  EXPECT_EQ(log_.Count(1, "Unknown descriptor of type USB_CS_INTERFACE (1)"), 7u);
  EXPECT_EQ(c.GetGroupCount(), 2);
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{0, 1}));
  EXPECT_EQ(c.GetGroupMembers(1), (Numbers{4}));
  EXPECT_EQ(c.GetInterfaceGroup(1), (Numbers{0, 1}));
  EXPECT_EQ(c.GetInterfaceGroup(4), Numbers{});
  EXPECT_EQ(c.GetUngroupedInterfaces(), (Numbers{2, 3}));
}

TEST_F(RealDeviceByHand, BroadcomBluetooth) {
  const auto &c = Load("bt_broadcom_bcm2045b_0a5c_2110");
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(0)), "wireless,bluetooth");
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(3)), "other");
  EXPECT_EQ(c.GetGroupCount(), 1);
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{1}));
  EXPECT_EQ(c.GetInterfaceGroup(1), Numbers{});
  EXPECT_EQ(log_.Count(0, "    HID Descriptor:"), 1u);
}

TEST_F(RealDeviceByHand, UgreenDongleEndpointBeforeItsClassSpecificPartner) {
  const auto &c = Load("audio_btdongle_ugreen_0a12_4007");
  EXPECT_EQ(c.GetInterfaceFamily(3), (DevFamily{8, 16}));
  EXPECT_EQ(c.GetInterfaceFamily(4), (DevFamily{8, 8}));
  EXPECT_EQ(c.GetGroupCount(), 1);
  EXPECT_EQ(c.GetGroupMembers(0), (Numbers{2, 3, 4}));
  EXPECT_EQ(c.GetInterfaceGroup(3), Numbers{});
  EXPECT_EQ(c.GetUngroupedInterfaces(), (Numbers{0, 1}));
}

}  // namespace
}  // namespace ordo::usb
