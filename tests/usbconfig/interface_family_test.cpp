// Families of interfaces and of interface numbers across alternates.
#include <gtest/gtest.h>

#include "descriptor_fixtures.h"
#include "log_recorder.h"
#include "ordo/usb/usb_model.h"

namespace ordo::usb {
namespace {

using namespace testing;

class InterfaceFamily : public ::testing::Test {
 protected:
  const UsbDeviceConfig::Configuration &Parse(const Bytes &body, uint8_t deviceClass = 0) {
    device_ = DeviceDescriptor(deviceClass, 0, 0);
    set_ = ConfigSet(body);
    config_.SetDeviceDescriptor(device_.data());
    EXPECT_TRUE(config_.AddConfigDescriptor(0, set_.data(), false));
    return *config_.GetConfigurationByIndex(0);
  }
  const Bytes asGeneral_ = {7, 0x24, 0x01, 0x01, 0x01, 0x01, 0x00};

  LogRecorder log_;
  Bytes device_;
  Bytes set_;
  UsbDeviceConfig config_;
};

TEST_F(InterfaceFamily, ClassZeroIsOtherWhateverTheDeviceSays) {
  const auto &c = Parse(Interface(0, 0, 0, 0x00), 0x08);
  EXPECT_EQ(c.GetInterface(0, 0)->GetFamily(), (DevFamily{kFamilyOther, 1}));
}

TEST_F(InterfaceFamily, StreamingAlternatesGiveAudioInByNumber) {
  const auto &c = Parse(Cat({Interface(1, 0, 0, 0x01, 0x02), Interface(1, 1, 1, 0x01, 0x02),
                             asGeneral_, Endpoint(0x81, 0x05), AudioEndpoint()}));
  EXPECT_EQ(c.GetInterface(1, 0)->GetFamily(), (DevFamily{8, 1}));
  EXPECT_EQ(c.GetInterface(1, 1)->GetFamily(), (DevFamily{8, 16}));
  EXPECT_EQ(c.GetInterfaceFamily(1), (DevFamily{8, 16}));
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(1)), "audio,audio-in");
}

TEST_F(InterfaceFamily, InAndOutPipesGiveBothAudioSubFamilies) {
  const auto &c = Parse(Cat({Interface(1, 0, 2, 0x01, 0x02), asGeneral_, Endpoint(0x01, 0x05),
                             AudioEndpoint(), Endpoint(0x81, 0x11)}));
  EXPECT_EQ(c.GetInterface(1, 0)->GetFamily(), (DevFamily{8, 24}));
}

TEST_F(InterfaceFamily, AudioEndpointStageWithoutPipesStaysUnknownSub) {
  const auto &c = Parse(Cat({Interface(1, 0, 0, 0x01, 0x02), asGeneral_, AudioEndpoint()}));
  EXPECT_EQ(c.GetInterface(1, 0)->GetAudioStage(), 2u);
  EXPECT_EQ(c.GetInterface(1, 0)->GetFamily(), (DevFamily{8, 1}));
}

TEST_F(InterfaceFamily, PipesWithoutAudioEndpointStageStayPlainAudio) {
  const auto &c = Parse(Cat({Interface(1, 0, 1, 0x01, 0x02), asGeneral_, Endpoint(0x81, 0x05)}));
  EXPECT_EQ(c.GetInterface(1, 0)->GetFamily(), (DevFamily{8, 1}));
}

TEST_F(InterfaceFamily, HidSubFamilyComesFromTheProtocolAlone) {
  const auto &c =
      Parse(Cat({Interface(0, 0, 0, 0x03, 0x01, 0x01), Interface(1, 0, 0, 0x03, 0x01, 0x02),
                 Interface(2, 0, 0, 0x03, 0x00, 0x01), Interface(3, 0, 0, 0x03, 0x00, 0x00)}));
  EXPECT_EQ(c.GetInterfaceFamily(0), (DevFamily{0x60, 2}));
  EXPECT_EQ(c.GetInterfaceFamily(1), (DevFamily{0x60, 4}));
  EXPECT_EQ(c.GetInterfaceFamily(2), (DevFamily{0x20, 2}));
  EXPECT_EQ(c.GetInterfaceFamily(3), (DevFamily{0x20, 1}));
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(2)), "keyboard");
}

TEST_F(InterfaceFamily, VendorInterfaceWithoutCacheEntryStaysVendor) {
  const auto &c = Parse(Interface(0, 0, 0, 0xFF, 0xFF, 0xFF));
  EXPECT_EQ(c.GetInterfaceFamily(0), (DevFamily{1, 1}));
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(0)), "vendor");
}

TEST_F(InterfaceFamily, NumberThatNoInterfaceHasIsBaseZeroSubTwo) {
  const auto &c = Parse(Cat({Interface(0, 0, 0, 0x08), Interface(2, 0, 0, 0x08)}));
  EXPECT_EQ(c.GetInterfaceFamily(1), (DevFamily{0, 2}));
  EXPECT_EQ(FamilyToString(c.GetInterfaceFamily(1)), "");
}

TEST_F(InterfaceFamily, AlternatesOfDifferentClassesAreOred) {
  const auto &c = Parse(Cat({Interface(0, 0, 0, 0x08), Interface(0, 1, 0, 0x03, 0x01, 0x02)}));
  EXPECT_EQ(c.GetInterfaceFamily(0), (DevFamily{0x460, 4}));
}

}  // namespace
}  // namespace ordo::usb
