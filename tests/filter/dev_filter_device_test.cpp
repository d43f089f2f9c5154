// The filter's record of one device: identity, path text, counts, families
// and groups by flat index, and the dump that loading writes.
#include "ordo/usb/dev_filter_device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "device_fixtures.h"
#include "ordo/usb/filter_log.h"
#include "ordo/usb/usb_config_log.h"

namespace ordo::usb {
namespace {

using testing::DescriptorFile;
using ::testing::ElementsAre;
using testing::FilterLines;
using ::testing::IsEmpty;
using testing::Line;
using testing::LogCapture;

std::string PathOf(uint32_t pathInfo) {
  DevFilterDevice device;
  device.Load(nullptr, nullptr, 0, &pathInfo);
  return device.GetPathString();
}

// A device descriptor of vendor 1d50, product 6099, one configuration.
constexpr uint8_t kDevice[18] = {0x12, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x40, 0x50,
                                 0x1d, 0x99, 0x60, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01};
// Two interfaces declared, numbered 0 and 2: number 1 is a hole.
constexpr uint8_t kConfigWithHole[27] = {
    0x09, 0x02, 0x1b, 0x00, 0x02, 0x01, 0x00, 0x80, 0x32,  // configuration
    0x09, 0x04, 0x00, 0x00, 0x00, 0x08, 0x06, 0x50, 0x00,  // interface 0: storage
    0x09, 0x04, 0x02, 0x00, 0x00, 0xff, 0xff, 0xff, 0x00,  // interface 2: vendor
};

TEST(DevFilterDevice, EmptyRecordKnowsNothing) {
  DevFilterDevice device;
  EXPECT_EQ(device.GetDeviceDescriptor(), nullptr);
  EXPECT_EQ(device.GetPathInfo(), 0u);
  EXPECT_EQ(device.GetNumConfigurations(), 0);
  EXPECT_EQ(device.GetParsedConfigCount(), 0);
  EXPECT_EQ(device.GetIdString(), "");
  EXPECT_EQ(device.GetPathString(), "Error");
  EXPECT_FALSE(device.IsComposite());
  EXPECT_EQ(device.GetInterfaceCount(), 0);
  EXPECT_EQ(device.GetGroupCount(), 0);
  EXPECT_EQ(device.GetInterfaceFamily(0), kUnknownFamily);
  EXPECT_EQ(device.GetGroupFamily(0), kUnknownFamily);
  EXPECT_EQ(device.GetDeviceFamily(), kUnknownFamily);
  EXPECT_THAT(device.GetInterfaceGroup(0), IsEmpty());
  EXPECT_THAT(device.GetGroupMembers(0), IsEmpty());
  EXPECT_EQ(device.GetGroupMembersString(0), "");
  EXPECT_THAT(device.GetUngroupedInterfaces(), IsEmpty());
  EXPECT_EQ(device.GetUngroupedInterfacesString(), "");
}

TEST(DevFilterDevice, ConstructorHandsTheFilterLogHookToTheDescriptorModel) {
  LogCapture capture(4);
  UsbConfigSetLogHook(nullptr, 0);
  DevFilterDevice device;
  EXPECT_TRUE(UsbConfigLogWanted(kUsbLogError));
  EXPECT_FALSE(UsbConfigLogWanted(kUsbLogInformation));
  SetFilterLogHook(nullptr, 0);
  DevFilterDevice silent;
  EXPECT_FALSE(UsbConfigLogWanted(kUsbLogError));
}

TEST(DevFilterDevice, DeviceWithoutConfigurationBufferIsIdentifiedOnly) {
  LogCapture capture;
  const DescriptorFile file("descriptors/boot_keyboard.bin");
  DevFilterDevice device;
  device.Load(file.device(), nullptr, 1, nullptr);
  EXPECT_EQ(device.GetIdString(), "vid-1d50_pid-6001");
  EXPECT_EQ(device.GetNumConfigurations(), 1);
  EXPECT_EQ(device.GetParsedConfigCount(), 0);
  EXPECT_EQ(device.GetInterfaceCount(), 0);
  EXPECT_EQ(device.GetDeviceFamily(), kUnknownFamily);
  EXPECT_THAT(device.GetDeviceFamilyNames(), ElementsAre("unknown"));
  EXPECT_THAT(capture.all(), ElementsAre(Line(2, "Device Filter got device:"),
                                         Line(2, "Device id: Vid-1d50_Pid-6001"),
                                         Line(2, "Path: Error"), Line(2, "Config count: 0")));
}

TEST(DevFilterDevice, LoadedKeyboardDumpsItsInterfaces) {
  LogCapture capture;
  const DescriptorFile file("realdesc/keyboard_holtek_04d9_1603.bin");
  DevFilterDevice device;
  device.Load(file.device(), file.config(), 1, nullptr);
  EXPECT_EQ(device.GetIdString(), "vid-04d9_pid-1603");
  EXPECT_EQ(device.GetParsedConfigCount(), 1);
  EXPECT_EQ(device.GetInterfaceCount(), 2);
  EXPECT_TRUE(device.IsComposite());
  EXPECT_EQ(device.GetInterfaceFamily(0),
            (DevFamily{kFamilyHid | kFamilyHidBootable, kSubFamilyKeyboard}));
  EXPECT_EQ(device.GetInterfaceFamily(1), (DevFamily{kFamilyHid, kSubFamilyUnknown}));
  EXPECT_EQ(device.GetInterfaceFamily(2), kUnknownFamily);
  EXPECT_EQ(device.GetUngroupedInterfacesString(), "0,1");
  EXPECT_THAT(
      FilterLines(capture),
      ElementsAre(Line(2, "Device Filter got device:"), Line(2, "Device id: Vid-04d9_Pid-1603"),
                  Line(2, "Path: Error"), Line(2, "Config count: 1"), Line(2, "Config num: 0"),
                  Line(2, "Interface count: 2"), Line(2, "Interface [0] - Family(s): keyboard"),
                  Line(2, "Interface [1] - Family(s): hid")));
}

TEST(DevFilterDevice, NothingIsLoggedWithoutAHook) {
  SetFilterLogHook(nullptr, 0);
  const DescriptorFile file("descriptors/boot_keyboard.bin");
  DevFilterDevice device;
  device.Load(file.device(), file.config(), 1, nullptr);
  EXPECT_EQ(device.GetParsedConfigCount(), 1);
}

TEST(DevFilterDevice, ConfigurationCountZeroParsesNothing) {
  const DescriptorFile file("descriptors/two_configurations.bin");
  DevFilterDevice device;
  device.Load(file.device(), file.config(), 0, nullptr);
  EXPECT_EQ(device.GetParsedConfigCount(), 0);
  EXPECT_EQ(device.GetNumConfigurations(), 2);
}

TEST(DevFilterDevice, NegativeCountTakesTheDescriptorsNumberOfConfigurations) {
  const DescriptorFile file("descriptors/two_configurations.bin");
  DevFilterDevice all;
  all.Load(file.device(), file.config(), -1, nullptr);
  EXPECT_EQ(all.GetParsedConfigCount(), 2);
  EXPECT_EQ(all.GetInterfaceCount(), 3);
  DevFilterDevice first;
  first.Load(file.device(), file.config(), 1, nullptr);
  EXPECT_EQ(first.GetParsedConfigCount(), 1);
  EXPECT_EQ(first.GetInterfaceCount(), 1);
}

// The interface lines restart at 0 per configuration, while the family is
// asked by flat index: the second configuration's lines show the device's
// first interfaces (vendor, then storage), not its own (storage, keyboard).
TEST(DevFilterDevice, DumpOfTwoConfigurationsShowsFlatIndexFamilies) {
  LogCapture capture;
  const DescriptorFile file("descriptors/two_configurations.bin");
  DevFilterDevice device;
  device.Load(file.device(), file.config(), -1, nullptr);
  EXPECT_THAT(
      FilterLines(capture),
      ElementsAre(Line(2, "Device Filter got device:"), Line(2, "Device id: Vid-1d50_Pid-6070"),
                  Line(2, "Path: Error"), Line(2, "Config count: 2"), Line(2, "Config num: 0"),
                  Line(2, "Interface count: 1"), Line(2, "Interface [0] - Family(s): vendor"),
                  Line(2, "Config num: 1"), Line(2, "Interface count: 2"),
                  Line(2, "Interface [0] - Family(s): vendor"),
                  Line(2, "Interface [1] - Family(s): storage")));
}

TEST(DevFilterDevice, FlatIndexRunsOnThroughConfigurations) {
  const DescriptorFile file("descriptors/two_configurations.bin");
  DevFilterDevice device;
  device.Load(file.device(), file.config(), -1, nullptr);
  EXPECT_EQ(device.GetInterfaceFamily(0), (DevFamily{kFamilyVendor, kSubFamilyUnknown}));
  EXPECT_EQ(device.GetInterfaceFamily(1), (DevFamily{kFamilyStorage, kSubFamilyUnknown}));
  EXPECT_EQ(device.GetInterfaceFamily(2),
            (DevFamily{kFamilyHid | kFamilyHidBootable, kSubFamilyKeyboard}));
  EXPECT_EQ(device.GetInterfaceFamily(3), kUnknownFamily);
}

// The plain OR keeps sub 1 beside keyboard: sub 3.
TEST(DevFilterDevice, DeviceFamilyIsAPlainOrOfBothHalves) {
  const DescriptorFile file("descriptors/two_configurations.bin");
  DevFilterDevice device;
  device.Load(file.device(), file.config(), -1, nullptr);
  EXPECT_EQ(device.GetDeviceFamily(),
            (DevFamily{kFamilyVendor | kFamilyStorage | kFamilyHid | kFamilyHidBootable, 3}));
  EXPECT_THAT(device.GetDeviceFamilyNames(), ElementsAre("vendor", "keyboard", "storage"));
}

// An index isn't made relative: index 0 counts in both configurations,
// index 1 only in the second (its keyboard).
TEST(DevFilterDevice, FamilyOfInterfacesAsksEveryConfigurationWithTheSameIndex) {
  const DescriptorFile file("descriptors/two_configurations.bin");
  DevFilterDevice device;
  device.Load(file.device(), file.config(), -1, nullptr);
  EXPECT_EQ(device.GetFamilyOfInterfaces({0}),
            (DevFamily{kFamilyVendor | kFamilyStorage, kSubFamilyUnknown}));
  EXPECT_EQ(device.GetFamilyOfInterfaces({1}),
            (DevFamily{kFamilyHid | kFamilyHidBootable, kSubFamilyKeyboard}));
  EXPECT_EQ(device.GetFamilyOfInterfaces({}), kUnknownFamily);
  EXPECT_EQ(device.GetFamilyOfInterfaces({7}), kUnknownFamily);
}

TEST(DevFilterDevice, FamilyOfInterfacesOrsBothHalves) {
  const DescriptorFile file("descriptors/uvc_webcam.bin");
  DevFilterDevice device;
  device.Load(file.device(), file.config(), 1, nullptr);
  EXPECT_EQ(device.GetFamilyOfInterfaces({0, 3}),
            (DevFamily{kFamilyVideo | kFamilyAudio, kSubFamilyUnknown | kSubFamilyAudioIn}));
}

// Interface group by a total that isn't subtracted: index 2 is handed to
// the second configuration unchanged, where number 2 has no group.
TEST(DevFilterDevice, InterfaceGroupKeepsTheIndexUnchanged) {
  const DescriptorFile file("descriptors/two_configurations.bin");
  DevFilterDevice device;
  device.Load(file.device(), file.config(), -1, nullptr);
  EXPECT_THAT(device.GetInterfaceGroup(0), ElementsAre(0));
  EXPECT_THAT(device.GetInterfaceGroup(2), ElementsAre(2));
  EXPECT_THAT(device.GetInterfaceGroup(3), IsEmpty());
  EXPECT_EQ(device.GetUngroupedInterfacesString(), "0");
}

TEST(DevFilterDevice, GroupsOfAWebcam) {
  const DescriptorFile file("realdesc/webcam_logitech_c270_046d_0825.bin");
  DevFilterDevice device;
  device.Load(file.device(), file.config(), 1, nullptr);
  EXPECT_EQ(device.GetIdString(), "vid-046d_pid-0825");
  EXPECT_EQ(device.GetInterfaceCount(), 4);
  EXPECT_EQ(device.GetGroupCount(), 2);
  EXPECT_EQ(device.GetGroupFamily(0), (DevFamily{kFamilyVideo, kSubFamilyUnknown}));
  EXPECT_EQ(device.GetGroupFamily(1), (DevFamily{kFamilyAudio, kSubFamilyAudioIn}));
  EXPECT_EQ(device.GetGroupFamily(2), kUnknownFamily);
  EXPECT_THAT(device.GetGroupMembers(1), ElementsAre(2, 3));
  EXPECT_EQ(device.GetGroupMembersString(0), "0,1");
  EXPECT_EQ(device.GetGroupMembersString(2), "");
  EXPECT_THAT(device.GetInterfaceGroup(3), ElementsAre(2, 3));
  EXPECT_EQ(device.GetUngroupedInterfacesString(), "");
}

TEST(DevFilterDevice, HoleInInterfaceNumbersHasNoInterfaceFamily) {
  DevFilterDevice device;
  device.Load(kDevice, kConfigWithHole, 1, nullptr);
  EXPECT_EQ(device.GetInterfaceCount(), 2);
  EXPECT_EQ(device.GetInterfaceFamily(0), (DevFamily{kFamilyStorage, kSubFamilyUnknown}));
  EXPECT_EQ(device.GetInterfaceFamily(1), (DevFamily{0, 2}));
}

TEST(DevFilterDevice, CompositeOnlyWithOneConfiguration) {
  const DescriptorFile two("descriptors/two_configurations.bin");
  DevFilterDevice twoConfigurations;
  twoConfigurations.Load(two.device(), two.config(), -1, nullptr);
  EXPECT_EQ(twoConfigurations.GetInterfaceCount(), 3);
  EXPECT_FALSE(twoConfigurations.IsComposite());
  const DescriptorFile pair("descriptors/keyboard_mouse.bin");
  DevFilterDevice keyboardMouse;
  keyboardMouse.Load(pair.device(), pair.config(), 1, nullptr);
  EXPECT_TRUE(keyboardMouse.IsComposite());
  const DescriptorFile single("descriptors/mass_storage.bin");
  DevFilterDevice storage;
  storage.Load(single.device(), single.config(), 1, nullptr);
  EXPECT_FALSE(storage.IsComposite());
}

TEST(DevFilterDevice, CallersBuffersMayGoAwayAfterLoad) {
  DevFilterDevice device;
  {
    const DescriptorFile file("descriptors/mass_storage.bin");
    device.Load(file.device(), file.config(), 1, nullptr);
  }
  EXPECT_EQ(device.GetIdString(), "vid-1d50_pid-6005");
  EXPECT_EQ(device.GetDeviceFamily(), (DevFamily{kFamilyStorage, kSubFamilyUnknown}));
  EXPECT_EQ(device.GetDeviceDescriptor()[0], 18);
}

TEST(DevFilterDevice, DescriptorOfLengthZeroIsNotCopiedAndNothingIsParsed) {
  uint8_t device[18];
  std::copy(std::begin(kDevice), std::end(kDevice), device);
  device[0] = 0;
  DevFilterDevice record;
  record.Load(device, kConfigWithHole, 1, nullptr);
  EXPECT_EQ(record.GetDeviceDescriptor(), nullptr);
  EXPECT_EQ(record.GetIdString(), "");
  EXPECT_EQ(record.GetParsedConfigCount(), 0);
}

// A second load frees the first copy; the model is not left pointing at it.
TEST(DevFilterDevice, SecondLoadReplacesTheDescriptorCopy) {
  const DescriptorFile file("descriptors/mass_storage.bin");
  DevFilterDevice device;
  device.Load(file.device(), file.config(), 1, nullptr);
  EXPECT_EQ(device.GetConfig().GetDeviceDescriptor(), device.GetDeviceDescriptor());
  device.Load(nullptr, nullptr, 0, nullptr);
  EXPECT_EQ(device.GetDeviceDescriptor(), nullptr);
  EXPECT_EQ(device.GetConfig().GetDeviceDescriptor(), nullptr);
  EXPECT_EQ(device.GetIdString(), "");
}

// --- Path text --------------------------------------------------------------

TEST(DevFilterDevicePath, ThreeLevelsGiveBusPartAndHexPort) {
  EXPECT_EQ(PathOf(0x0000B413), "bus-1/4_port-0b");
}

TEST(DevFilterDevicePath, NoPathWordsAreErrors) {
  EXPECT_EQ(PathOf(0), "Error");
  EXPECT_EQ(PathOf(15), "Error");
}

TEST(DevFilterDevicePath, OneLevelIsAnError) {
  EXPECT_EQ(PathOf(0x00000011), "Error");
  EXPECT_EQ(PathOf(0x00000021), "Error");
}

TEST(DevFilterDevicePath, TwoLevelsWithPortZero) {
  EXPECT_EQ(PathOf(0x00000012), "bus-1_port-00");
}

TEST(DevFilterDevicePath, DepthSevenFillsTheWord) {
  EXPECT_EQ(PathOf(0xF6543217), "bus-1/2/3/4/5/6_port-0f");
}

TEST(DevFilterDevicePath, DepthEightOrMoreIsMalformedAndSoAnError) {
  EXPECT_EQ(PathOf(0x87654328), "Error");
  EXPECT_EQ(PathOf(0x0000001E), "Error");
}

TEST(DevFilterDevicePath, DepthZeroIsAnEmptyPathAndSoAnError) {
  EXPECT_EQ(PathOf(0x00000010), "Error");
}

TEST(DevFilterDevicePath, PathIsLoggedAndKeptAlongsideTheDevice) {
  LogCapture capture;
  const uint32_t pathInfo = 0x0000B413;
  DevFilterDevice device;
  device.Load(kDevice, nullptr, 1, &pathInfo);
  EXPECT_EQ(device.GetPathInfo(), 0x0000B413u);
  EXPECT_THAT(
      capture.all(),
      ElementsAre(Line(2, "Device Filter got device:"), Line(2, "Device id: Vid-1d50_Pid-6099"),
                  Line(2, "Path: bus-1/4_port-0b"), Line(2, "Config count: 0")));
}

// --- Guards -----------------------------------------------------------------

// Only bLength bytes are copied; identity fields beyond them read as 0.
TEST(DevFilterDeviceGuard, ShortDeviceDescriptorReadsFieldsBeyondItsLengthAsZero) {
  uint8_t shortDevice[18];
  std::copy(std::begin(kDevice), std::end(kDevice), shortDevice);
  shortDevice[0] = 10;  // vendor inside, product and bNumConfigurations beyond
  LogCapture capture;
  DevFilterDevice device;
  device.Load(shortDevice, nullptr, 1, nullptr);
  EXPECT_EQ(device.GetIdString(), "vid-1d50_pid-0000");
  EXPECT_EQ(device.GetNumConfigurations(), 0);
  EXPECT_THAT(capture.all()[1], Line(2, "Device id: Vid-1d50_Pid-0000"));
}

// The dump with a hook in place and no descriptor reads its identity as 0
// instead of through null.
TEST(DevFilterDeviceGuard, DumpWithoutDescriptorReadsIdentityAsZero) {
  LogCapture capture;
  DevFilterDevice device;
  device.Load(nullptr, kConfigWithHole, 1, nullptr);
  EXPECT_EQ(device.GetParsedConfigCount(), 0);
  EXPECT_THAT(capture.all(), ElementsAre(Line(2, "Device Filter got device:"),
                                         Line(2, "Device id: Vid-0000_Pid-0000"),
                                         Line(2, "Path: Error"), Line(2, "Config count: 0")));
}

// The set behind the last one is never measured: a single set shorter than
// the four bytes that hold wTotalLength is read no further than its type.
TEST(DevFilterDeviceGuard, LastSetIsNotMeasuredForANextOne) {
  const auto shortSet = std::make_unique<uint8_t[]>(2);
  shortSet[0] = 0x09;
  shortSet[1] = 0x03;
  DevFilterDevice device;
  device.Load(kDevice, shortSet.get(), 1, nullptr);
  EXPECT_EQ(device.GetParsedConfigCount(), 0);
  EXPECT_EQ(device.GetInterfaceCount(), 0);
}

}  // namespace
}  // namespace ordo::usb
