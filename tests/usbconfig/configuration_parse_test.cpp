// Parsing of configuration descriptor sets into configurations, interfaces,
// pipes, associations and union descriptors.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "descriptor_fixtures.h"
#include "log_recorder.h"
#include "ordo/usb/usb_model.h"

namespace ordo::usb {
namespace {

using namespace testing;

class ConfigurationParse : public ::testing::Test {
 protected:
  // Parses one set for a device of the given class triple.
  bool Add(const Bytes &set, uint8_t cls = 0, uint8_t subcls = 0, uint8_t proto = 0) {
    device_ = DeviceDescriptor(cls, subcls, proto);
    config_.SetDeviceDescriptor(device_.data());
    sets_.push_back(set);
    return config_.AddConfigDescriptor(static_cast<uint32_t>(config_.GetConfigurationCount()),
                                       sets_.back().data(), false);
  }
  const UsbDeviceConfig::Configuration &First() const {
    return *config_.GetConfigurationByIndex(0);
  }

  LogRecorder log_;
  Bytes device_;
  std::vector<Bytes> sets_;
  UsbDeviceConfig config_;
};

TEST_F(ConfigurationParse, RefusesASetThatIsNoConfigurationDescriptor) {
  Bytes set = ConfigSet(Interface(0, 0, 0, 0xFF));
  set[1] = 0x04;
  EXPECT_FALSE(Add(set));
  EXPECT_EQ(config_.GetConfigurationCount(), 0);
  EXPECT_EQ(
      log_.Lines(),
      (std::vector<LogLine>{{4, "Failed to add config descriptor, invalid descriptor type"}}));
}

TEST_F(ConfigurationParse, FailedSetLeavesEarlierOnesAndTheNextReusesItsIndex) {
  ASSERT_TRUE(Add(ConfigSet(Interface(0, 0, 0, 0xFF))));
  Bytes bad = ConfigSet(Interface(0, 0, 0, 0x08));
  bad[1] = 0x01;
  EXPECT_FALSE(Add(bad));
  Bytes third = ConfigSet(Interface(0, 0, 0, 0x08));
  third[5] = 3;  // bConfigurationValue
  ASSERT_TRUE(Add(third));
  ASSERT_EQ(config_.GetConfigurationCount(), 2);
  EXPECT_EQ(config_.GetConfigurationByIndex(1)->GetConfigurationValue(), 3);
  EXPECT_EQ(config_.GetConfigurationByIndex(2), nullptr);
}

TEST_F(ConfigurationParse, ConfigurationDescriptorAloneGivesNoInterfacesAndNoGroups) {
  ASSERT_TRUE(Add(ConfigSet({}, 0)));
  EXPECT_EQ(First().GetInterfaceObjectCount(), 0);
  EXPECT_TRUE(First().GetFunctionalGroup().GetGroups().empty());
  EXPECT_EQ(First().GetGroupCount(), 0);
  EXPECT_EQ(First().GetInterfaceGroup(5), (std::vector<uint8_t>{5}));
}

TEST_F(ConfigurationParse, OneInterfaceObjectPerAlternateSettingWithItsPipes) {
  ASSERT_TRUE(
      Add(ConfigSet(Cat({Interface(0, 0, 1, 0x08), Endpoint(0x81), Interface(0, 1, 2, 0x08),
                         Endpoint(0x82, 0x03), Endpoint(0x02, 0x01), Interface(1, 0, 0, 0xFF)}))));
  const auto &c = First();
  EXPECT_EQ(c.GetNumInterfaces(), 2);
  ASSERT_EQ(c.GetInterfaceObjectCount(), 3);
  const auto *alternate = c.GetInterface(0, 1);
  ASSERT_NE(alternate, nullptr);
  EXPECT_EQ(alternate->GetOrdinal(), 1u);
  EXPECT_EQ(c.GetInterfaceByOrdinal(1), alternate);
  ASSERT_EQ(alternate->GetPipeCount(), 2);
  EXPECT_TRUE(alternate->GetPipeByOrdinal(0)->IsIn());
  EXPECT_EQ(alternate->GetPipeByOrdinal(0)->GetType(), 3u);
  EXPECT_FALSE(alternate->GetPipeByOrdinal(1)->IsIn());
  EXPECT_EQ(alternate->GetPipeByOrdinal(1)->GetType(), 1u);
  EXPECT_EQ(alternate->GetPipeByOrdinal(2), nullptr);
  EXPECT_EQ(c.GetInterfacesByNumber(0), (std::vector<UsbDeviceConfig::Interface *>{
                                            c.GetInterface(0, 0), c.GetInterface(0, 1)}));
  EXPECT_EQ(c.GetInterface(1, 1), nullptr);
}

TEST_F(ConfigurationParse, HandlesRunThroughConfigurationInterfacesAndPipes) {
  ASSERT_TRUE(Add(ConfigSet(
      Cat({Interface(0, 0, 2, 0x08), Endpoint(0x81), Endpoint(0x02), Interface(1, 0, 0, 0xFF)}))));
  const auto &c = First();
  const uint32_t h = c.GetHandle();
  EXPECT_EQ(c.GetInterface(0, 0)->GetHandle(), h + 1);
  EXPECT_EQ(c.GetInterface(0, 0)->GetPipeByOrdinal(0)->GetHandle(), h + 2);
  EXPECT_EQ(c.GetInterface(0, 0)->GetPipeByOrdinal(1)->GetHandle(), h + 3);
  EXPECT_EQ(c.GetInterface(1, 0)->GetHandle(), h + 4);
  EXPECT_EQ(c.GetPipeByHandle(h + 3), c.GetInterface(0, 0)->GetPipeByOrdinal(1));
  EXPECT_EQ(c.GetInterface(0, 0)->GetPipeByHandle(h + 2)->GetOrdinal(), 0u);
  EXPECT_EQ(c.GetPipeByHandle(h + 4), nullptr);
}

TEST_F(ConfigurationParse, LookupsByStoredIndexAndByValue) {
  Bytes second = ConfigSet(Interface(0, 0, 0, 0xFF));
  second[5] = 7;
  device_ = DeviceDescriptor(0, 0, 0);
  config_.SetDeviceDescriptor(device_.data());
  ASSERT_TRUE(config_.AddConfigDescriptor(5, second.data(), false));
  EXPECT_EQ(config_.GetConfigurationByIndex(0), nullptr);
  ASSERT_NE(config_.GetConfigurationByIndex(5), nullptr);
  EXPECT_EQ(config_.GetConfigurationByIndex(5)->GetIndex(), 5);
  EXPECT_EQ(config_.GetConfigurationByValue(7), config_.GetConfigurationByIndex(5));
  EXPECT_EQ(config_.GetConfigurationByValue(1), nullptr);
}

TEST_F(ConfigurationParse, SingleConfigCompositeCountsInterfaceObjects) {
  ASSERT_TRUE(Add(ConfigSet(Cat({Interface(0, 0, 0, 0x09), Interface(0, 1, 0, 0x09)}))));
  EXPECT_TRUE(config_.IsSingleConfigComposite());
  ASSERT_TRUE(Add(ConfigSet(Interface(0, 0, 0, 0x09))));
  EXPECT_FALSE(config_.IsSingleConfigComposite());
}

TEST_F(ConfigurationParse, SingleConfigCompositeNeedsOrdinalZero) {
  Bytes set = ConfigSet(Cat({Interface(0, 0, 0, 0x03), Interface(1, 0, 0, 0x03)}));
  device_ = DeviceDescriptor(0, 0, 0);
  config_.SetDeviceDescriptor(device_.data());
  ASSERT_TRUE(config_.AddConfigDescriptor(1, set.data(), false));
  EXPECT_FALSE(config_.IsSingleConfigComposite());
}

TEST_F(ConfigurationParse, ResetDeletesConfigurationsAndKeepsTheDeviceDescriptor) {
  ASSERT_TRUE(Add(ConfigSet(Interface(0, 0, 0, 0x09))));
  config_.Reset();
  EXPECT_EQ(config_.GetConfigurationCount(), 0);
  EXPECT_EQ(config_.GetActiveConfiguration(), nullptr);
  EXPECT_EQ(config_.GetDeviceDescriptor(), device_.data());
}

TEST_F(ConfigurationParse, SetIsCopiedUnlessTheBufferIsHandedOver) {
  const Bytes set = ConfigSet(Interface(0, 0, 0, 0xFF));
  ASSERT_TRUE(Add(set));
  EXPECT_NE(First().GetDescriptor(), sets_.back().data());
  EXPECT_EQ(std::memcmp(First().GetDescriptor(), set.data(), set.size()), 0);

  auto *adopted = static_cast<uint8_t *>(std::malloc(set.size()));
  std::memcpy(adopted, set.data(), set.size());
  ASSERT_TRUE(config_.AddConfigDescriptor(1, adopted, true));
  EXPECT_EQ(config_.GetConfigurationByIndex(1)->GetDescriptor(), adopted);
}

TEST_F(ConfigurationParse, WholeSetIsDumpedAtInformationLevel) {
  LogRecorder quiet(1);
  const Bytes set = ConfigSet(Interface(0, 0, 0, 0xFF));
  ASSERT_TRUE(Add(set));
  // Field lines are detail; the set's hex text and the family lookups are not.
  EXPECT_EQ(quiet.Lines(),
            (std::vector<LogLine>{
                {1, "Descriptor Dump:"},
                {1,
                 "0000  09 02 12 00 01 01 00 80 32 09 04 00 00 00 ff 00  ........2.......\n"
                 "0010  00 00 " +
                     std::string(42, ' ') + " .."},
                {1, "LookupDeducedFamily(): Not found in cache"},
            }));
}

TEST_F(ConfigurationParse, FinalTwoByteDescriptorIsNotVisited) {
  ASSERT_TRUE(Add(ConfigSet(Cat({Interface(0, 0, 0, 0xFF), Bytes{2, 0x31}}))));
  EXPECT_FALSE(log_.Contains(1, "Unknown descriptor (1)"));
}

TEST_F(ConfigurationParse, FinalThreeByteDescriptorIsVisited) {
  ASSERT_TRUE(Add(ConfigSet(Cat({Interface(0, 0, 0, 0xFF), Bytes{3, 0x31, 0x5A}}))));
  EXPECT_TRUE(log_.Contains(1, "Unknown descriptor (1)"));
  EXPECT_TRUE(log_.Contains(1, "0000  03 31 5a " + std::string(39, ' ') + " .1Z"));
}

TEST_F(ConfigurationParse, DescriptorClaimingMoreThanIsLeftEndsTheWalk) {
  Bytes body = Cat({Interface(0, 0, 2, 0xFF), Endpoint(0x81), Endpoint(0x01)});
  body[body.size() - 7] = 64;
  ASSERT_TRUE(Add(ConfigSet(body)));
  ASSERT_EQ(First().GetInterfaceObjectCount(), 1);
  EXPECT_EQ(First().GetInterface(0, 0)->GetPipeCount(), 2);
}

TEST_F(ConfigurationParse, CommDeviceKeepsOnlyTheUnionAndLogsTheOtherFunctionalDescriptors) {
  const Bytes header = {5, 0x24, 0x00, 0x20, 0x01};
  const Bytes callManagement = {5, 0x24, 0x01, 0x03, 0x01};
  const Bytes acm = {4, 0x24, 0x02, 0x02};
  ASSERT_TRUE(Add(ConfigSet(Cat({Interface(0, 0, 1, 0x02, 0x02, 0x01), header, callManagement, acm,
                                 Union({0, 1}), Endpoint(0x83, 0x03), Interface(1, 0, 0, 0x0A)})),
                  0x02, 0x00, 0x00));
  const auto pad = [](size_t bytes) { return std::string(3 * (16 - bytes) + 1, ' '); };
  EXPECT_EQ(log_.TextsAt(4), (std::vector<std::string>{
                                 "Functional Interface Descriptor - Parse failed (1)",
                                 "0000  05 24 00 20 01 " + pad(5) + ".$. .",
                                 "Functional Interface Descriptor - Parse failed (1)",
                                 "0000  05 24 01 03 01 " + pad(5) + ".$...",
                                 "Functional Interface Descriptor - Parse failed (1)",
                                 "0000  04 24 02 02 " + pad(4) + ".$..",
                             }));
  const auto &unions = First().GetUnionDescriptors();
  ASSERT_EQ(unions.size(), 1u);
  EXPECT_EQ(unions[0]->GetOrdinal(), 0u);
  EXPECT_EQ(unions[0]->GetInterfaceNumbers(), (std::vector<uint8_t>{0, 1}));
  EXPECT_FALSE(unions[0]->IsEmpty());
  EXPECT_EQ(First().GetGroupMembers(0), (std::vector<uint8_t>{0, 1}));
}

TEST_F(ConfigurationParse, FunctionalDescriptorAtTopLevelOfACommDevice) {
  ASSERT_TRUE(
      Add(ConfigSet(Cat({Bytes{4, 0x24, 0x02, 0x02}, Union({0}), Interface(0, 0, 0, 0x02)})), 0x02,
          0x00, 0x00));
  EXPECT_EQ(log_.Count(4, "Functional Interface Descriptor - Parse failed (2)"), 1u);
  EXPECT_EQ(First().GetUnionDescriptors().size(), 1u);
}

TEST_F(ConfigurationParse, UnionOnADeviceThatIsNoCommDeviceIsUnknown) {
  ASSERT_TRUE(
      Add(ConfigSet(Cat({Interface(0, 0, 0, 0x02), Union({0, 1}), Interface(1, 0, 0, 0x0A)})), 0xEF,
          0x02, 0x01));
  EXPECT_TRUE(First().GetUnionDescriptors().empty());
  EXPECT_EQ(log_.Count(1, "Unknown descriptor of type USB_CS_INTERFACE (1)"), 1u);
}

TEST_F(ConfigurationParse, ClassSpecificBehindVideoAssociationIsVideoBehindOthersUnknown) {
  const Bytes classSpecific = {5, 0x24, 0x01, 0x10, 0x01};
  ASSERT_TRUE(Add(ConfigSet(
      Cat({Association(0, 1, 0x0E, 0x03), Interface(0, 0, 0, 0x0E, 0x01), classSpecific,
           Association(1, 2, 0x02, 0x02), Interface(1, 0, 0, 0x02, 0x02), classSpecific}))));
  const std::string hex = "0000  05 24 01 10 01 " + std::string(34, ' ') + ".$...";
  EXPECT_TRUE(log_.Contains(0, "  Video Interface Descriptor:"));
  EXPECT_TRUE(log_.Contains(0, "  " + hex));
  EXPECT_EQ(log_.Count(1, "Unknown descriptor of type USB_CS_INTERFACE (1)"), 1u);
  EXPECT_EQ(log_.Count(1, hex), 1u);
}

TEST_F(ConfigurationParse, VideoFlagAppliesToClassSpecificRightBehindTheAssociation) {
  const Bytes classSpecific = {3, 0x24, 0x01};
  ASSERT_TRUE(Add(
      ConfigSet(Cat({Association(0, 1, 0x0E, 0x03), classSpecific, Association(1, 1, 0x01, 0x00),
                     classSpecific, Interface(0, 0, 0, 0x0E, 0x01)}))));
  EXPECT_TRUE(log_.Contains(0, "  Video Interface Descriptor:"));
  EXPECT_EQ(log_.Count(1, "Unknown descriptor of type USB_CS_INTERFACE (2)"), 1u);
}

TEST_F(ConfigurationParse, UnknownTypeAtTopLevelHasNoHexDump) {
  ASSERT_TRUE(Add(ConfigSet(Cat({Bytes{4, 0x0F, 0x01, 0x02}, Interface(0, 0, 0, 0xFF)}))));
  const std::vector<LogLine> &lines = log_.Lines();
  const auto at = std::find(lines.begin(), lines.end(), LogLine{1, "Unknown Descriptor (2)"});
  ASSERT_NE(at, lines.end());
  EXPECT_EQ((at + 1)->text, "  Interface Descriptor:");
}

TEST_F(ConfigurationParse, HidDescriptorOnAnAudioInterfaceEndsAsUnknown) {
  const Bytes hid = {9, 0x21, 0x11, 0x01, 0x00, 0x01, 0x22, 0x3F, 0x00};
  ASSERT_TRUE(Add(ConfigSet(Cat({Interface(0, 0, 0, 0x01, 0x01), hid}))));
  EXPECT_EQ(log_.Count(1, "Unknown descriptor (1)"), 1u);
  EXPECT_FALSE(log_.Contains(0, "    HID Descriptor:"));
}

TEST_F(ConfigurationParse, HidDescriptorOnAHidInterfaceIsDumped) {
  const Bytes hid = {9, 0x21, 0x11, 0x01, 0x00, 0x01, 0x22, 0x3F, 0x00};
  ASSERT_TRUE(Add(ConfigSet(Cat({Interface(0, 0, 1, 0x03, 0x01, 0x01), hid, Endpoint(0x81, 3)}))));
  EXPECT_TRUE(log_.Contains(0, "    HID Descriptor:"));
  EXPECT_TRUE(log_.Contains(0, "      bLength               0x9  (9)"));
  EXPECT_TRUE(log_.Contains(0, "      bDescriptorType       0x21"));
  EXPECT_FALSE(log_.Contains(1, "Unknown descriptor (1)"));
}

TEST_F(ConfigurationParse, UnknownTypeBehindAnInterfaceIsTheCatchAll) {
  ASSERT_TRUE(Add(
      ConfigSet(Cat({Interface(0, 0, 0, 0x08), Bytes{4, 0x30, 0, 0}, Interface(1, 0, 0, 0x08)}))));
  EXPECT_EQ(log_.Count(1, "Unknown descriptor (1)"), 1u);
  EXPECT_EQ(First().GetInterfaceObjectCount(), 2);
}

TEST_F(ConfigurationParse, AudioStageFollowsTheLastAudioDescriptor) {
  const Bytes asGeneral = {7, 0x24, 0x01, 0x01, 0x01, 0x01, 0x00};
  const Bytes acHeader = {9, 0x24, 0x01, 0x00, 0x01, 0x09, 0x00, 0x01, 0x01};
  ASSERT_TRUE(Add(ConfigSet(
      Cat({Interface(0, 0, 0, 0x01, 0x01), acHeader, Interface(1, 0, 0, 0x01, 0x02),
           Interface(1, 1, 1, 0x01, 0x02), asGeneral, Endpoint(0x01, 0x09), AudioEndpoint(),
           Interface(1, 2, 1, 0x01, 0x02), AudioEndpoint(), asGeneral, Endpoint(0x01, 0x09)}))));
  const auto &c = First();
  EXPECT_EQ(c.GetInterface(0, 0)->GetAudioStage(), 0u);
  EXPECT_EQ(c.GetInterface(1, 0)->GetAudioStage(), 5u);
  EXPECT_EQ(c.GetInterface(1, 1)->GetAudioStage(), 2u);
  EXPECT_EQ(c.GetInterface(1, 2)->GetAudioStage(), 1u);  // back from 2 to 1
}

TEST_F(ConfigurationParse, AudioWalkRefusesClassSpecificOfOtherSubclasses) {
  ASSERT_TRUE(Add(ConfigSet(Cat({Interface(0, 0, 0, 0x01, 0x03), Bytes{3, 0x24, 0x01}}))));
  EXPECT_EQ(First().GetInterface(0, 0)->GetAudioStage(), 5u);
  EXPECT_EQ(log_.Count(1, "Unknown descriptor (1)"), 1u);
}

TEST_F(ConfigurationParse, EveryInterfaceAsksTheFamilyCache) {
  ASSERT_TRUE(Add(ConfigSet(Cat({Interface(0, 0, 0, 0x08), Interface(1, 0, 0, 0xFF)}))));
  EXPECT_EQ(log_.TextsAt(1),
            (std::vector<std::string>{"Descriptor Dump:", log_.TextsAt(1)[1],
                                      "LookupDeducedFamily(): Called for non vendor specific",
                                      "LookupDeducedFamily(): Not found in cache"}));
}

TEST_F(ConfigurationParse, AssociationKeepsNoOrdinal) {
  ASSERT_TRUE(Add(ConfigSet(Cat({Association(0, 1, 0x0E, 0x03), Interface(0, 0, 0, 0x0E),
                                 Association(1, 2, 0x01), Interface(1, 0, 0, 0x01)}))));
  ASSERT_EQ(First().GetAssociations().size(), 2u);
  EXPECT_EQ(First().GetAssociations()[1]->GetOrdinal(), 0u);
  EXPECT_EQ(First().GetAssociations()[1]->GetFunctionClass(), 0x01);
}

}  // namespace
}  // namespace ordo::usb

namespace ordo::usb {
namespace {

TEST(ModelObjects, StartEmpty) {
  const UsbDeviceConfig::Interface interface;
  EXPECT_EQ(interface.GetNumber(), -1);
  EXPECT_EQ(interface.GetDescriptor(), nullptr);
  EXPECT_EQ(interface.GetAudioStage(), 5u);
  EXPECT_EQ(interface.GetFamily(), (DevFamily{2, 1}));
  EXPECT_FALSE(interface.IsSelected());
  EXPECT_EQ(interface.GetPipeCount(), 0);
  const UsbDeviceConfig::Configuration configuration;
  EXPECT_EQ(configuration.GetNumInterfaces(), 0);
  EXPECT_EQ(configuration.GetDescriptor(), nullptr);
  EXPECT_EQ(configuration.GetGroupCount(), 0);
  const UsbDeviceConfig config;
  EXPECT_EQ(config.GetConfigurationCount(), 0);
  EXPECT_EQ(config.GetDeviceDescriptor(), nullptr);
  EXPECT_EQ(config.GetActiveConfiguration(), nullptr);
  EXPECT_FALSE(config.IsSingleConfigComposite());
}

}  // namespace
}  // namespace ordo::usb
