// A device's settings from real registry files: its keys and their access
// masks, the delay chain and the flags chain.
#include "config/device_settings.h"

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "registry_fixture.h"

namespace pelarix {
namespace {

using ::testing::ElementsAre;
using testing::KeyOpen;
using testing::kGeneral;
using testing::kUsbPolicy;
using testing::LogLine;

// Vendor 0x0E0F, product 0xABCD.
constexpr uint8_t kDeviceDesc[18] = {0x12, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x40, 0x0f,
                                     0x0e, 0xcd, 0xab, 0x00, 0x01, 0x01, 0x02, 0x03, 0x01};
const void *const kDevice = reinterpret_cast<const void *>(0x12345678);

constexpr const char *kDevicePolicy =
    "HKEY_LOCAL_MACHINE\\Software\\Policies\\Tessarin, Inc.\\Tessarin "
    "Halden\\USB\\Vid_0e0f&Pid_abcd";
constexpr const char *kDeviceKey =
    "HKEY_LOCAL_MACHINE\\Software\\Tessarin, Inc.\\Tessarin Halden\\USB\\Vid_0e0f&Pid_abcd";

std::string Section(const char *path, const std::string &values) {
  return std::string("[") + path + "]\r\n" + values;
}

LogLine Effective(const char *name, const char *value) {
  return {1, std::string("Effective configuration setting, name: ") + name + ", value: " + value};
}

class DeviceSettingsTest : public testing::RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    manager_ = ordo::usb::CreateFilterManager();
  }
  void TearDown() override {
    ordo::usb::DestroyFilterManager(manager_);
    RegistryTest::TearDown();
  }
  DeviceSettings Read(const std::string &body) {
    WriteRegistry(body);
    return ReadDeviceSettings(manager_, kDeviceDesc, nullptr, kDevice);
  }

  HDevFilterMgrAgent *manager_ = nullptr;
};

TEST_F(DeviceSettingsTest, KeysAndTheirAccessMasks) {
  Read(Section(kDeviceKey, "") + Section(kGeneral, ""));
  EXPECT_THAT(
      testing::RecordedOpens(),
      ElementsAre(
          KeyOpen{"Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\USB\\Vid_0e0f&Pid_abcd",
                  0x20019, 2},
          KeyOpen{"Software\\Tessarin, Inc.\\Tessarin Halden\\USB\\Vid_0e0f&Pid_abcd", 0x20119, 0},
          KeyOpen{"Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\USB\\", 0x20119, 2},
          KeyOpen{"Software\\Tessarin, Inc.\\Tessarin Halden\\USB", 0x20119, 0}));
}

TEST_F(DeviceSettingsTest, NothingSetGivesZerosWithEveryLine) {
  const DeviceSettings settings = Read("");
  EXPECT_EQ(settings.pluginDelayMs, 0u);
  EXPECT_EQ(settings.deviceFlags, 0u);
  EXPECT_THAT(TakeLog(),
              ElementsAre(Effective("PluginDelay", "0"), Effective("DefaultPluginDelay", "0"),
                          Effective("DeviceFlags", "0"), Effective("DefaultDeviceFlags", "0")));
}

TEST_F(DeviceSettingsTest, DeviceDelayOfZeroFallsToTheDefault) {
  const DeviceSettings settings = Read(Section(kDeviceKey, "\"PluginDelay\"=dword:0\r\n") +
                                       Section(kGeneral, "\"DefaultPluginDelay\"=dword:5\r\n"));
  EXPECT_EQ(settings.pluginDelayMs, 5000u);
}

TEST_F(DeviceSettingsTest, DeviceDelayBeatsTheDefault) {
  const DeviceSettings settings = Read(Section(kDeviceKey, "\"PluginDelay\"=dword:3\r\n") +
                                       Section(kGeneral, "\"DefaultPluginDelay\"=dword:5\r\n"));
  EXPECT_EQ(settings.pluginDelayMs, 3000u);
  const std::vector<LogLine> log = TakeLog();
  EXPECT_EQ(log.front(), Effective("PluginDelay", "3"));
  EXPECT_THAT(log, ::testing::Not(::testing::Contains(Effective("DefaultPluginDelay", "5"))));
}

TEST_F(DeviceSettingsTest, DelayMultiplicationWrapsIn32Bits) {
  const DeviceSettings settings = Read(Section(kDeviceKey, "\"PluginDelay\"=dword:004c4b40\r\n"));
  EXPECT_EQ(settings.pluginDelayMs, 705032704u);  // 5000000000 mod 2^32
}

TEST_F(DeviceSettingsTest, DevicePolicyBeatsDeviceKey) {
  const DeviceSettings settings =
      Read(Section(kDevicePolicy, "\"PluginDelay\"=dword:2\r\n\"DeviceFlags\"=dword:10\r\n") +
           Section(kDeviceKey, "\"PluginDelay\"=dword:3\r\n\"DeviceFlags\"=dword:20\r\n"));
  EXPECT_EQ(settings.pluginDelayMs, 2000u);
  EXPECT_EQ(settings.deviceFlags, 0x10u);
}

TEST_F(DeviceSettingsTest, DefaultPolicyBeatsGeneral) {
  const DeviceSettings settings = Read(
      Section(kUsbPolicy, "\"DefaultPluginDelay\"=dword:7\r\n\"DefaultDeviceFlags\"=dword:1\r\n") +
      Section(kGeneral, "\"DefaultPluginDelay\"=dword:5\r\n\"DefaultDeviceFlags\"=dword:2\r\n"));
  EXPECT_EQ(settings.pluginDelayMs, 7000u);
  EXPECT_EQ(settings.deviceFlags, 1u);
}

TEST_F(DeviceSettingsTest, SessionPolicyBranchDoesNotReachDevices) {
  const DeviceSettings settings = Read(
      Section(testing::kSessionPolicy, "\"DefaultPluginDelay\"=dword:7\r\n") +
      Section("HKEY_LOCAL_MACHINE\\Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\Agent\\USB"
              "\\Vid_0e0f&Pid_abcd",
              "\"PluginDelay\"=dword:9\r\n"));
  EXPECT_EQ(settings.pluginDelayMs, 0u);
}

TEST_F(DeviceSettingsTest, DeviceFlagsZeroIsTheDevicesOwnValue) {
  const DeviceSettings settings = Read(Section(kDeviceKey, "\"DeviceFlags\"=dword:0\r\n") +
                                       Section(kGeneral, "\"DefaultDeviceFlags\"=dword:4\r\n"));
  EXPECT_EQ(settings.deviceFlags, 0u);
  EXPECT_THAT(TakeLog(),
              ElementsAre(Effective("PluginDelay", "0"), Effective("DefaultPluginDelay", "0"),
                          Effective("DeviceFlags", "0")));
}

TEST_F(DeviceSettingsTest, DeviceWithoutFlagsTakesTheGeneralDefault) {
  const DeviceSettings settings = Read(
      Section(kGeneral, "\"DefaultDeviceFlags\"=dword:4\r\n\"AudioOutDeviceFlags\"=dword:8\r\n"));
  EXPECT_EQ(settings.deviceFlags, 4u);
  EXPECT_THAT(TakeLog(),
              ElementsAre(Effective("PluginDelay", "0"), Effective("DefaultPluginDelay", "0"),
                          Effective("DeviceFlags", "0"), Effective("DefaultDeviceFlags", "4")));
}

TEST_F(DeviceSettingsTest, WithoutFilterManagerNoFamilyAndTheGeneralDefault) {
  WriteRegistry(Section(kGeneral, "\"DefaultDeviceFlags\"=dword:4\r\n"));
  const DeviceSettings settings = ReadDeviceSettings(nullptr, kDeviceDesc, nullptr, kDevice);
  EXPECT_EQ(settings.deviceFlags, 4u);
  EXPECT_THAT(TakeLog(),
              ElementsAre(Effective("PluginDelay", "0"), Effective("DefaultPluginDelay", "0"),
                          Effective("DeviceFlags", "0"),
                          LogLine{0, "Failed to get family info, device: 0000000012345678"},
                          Effective("DefaultDeviceFlags", "4")));
}

TEST_F(DeviceSettingsTest, ReadAfreshForEachDevice) {
  EXPECT_EQ(Read(Section(kDeviceKey, "\"DeviceFlags\"=dword:1\r\n")).deviceFlags, 1u);
  EXPECT_EQ(Read(Section(kDeviceKey, "\"DeviceFlags\"=dword:2\r\n")).deviceFlags, 2u);
}

// --- Flags by the family the filter leaves allowed -------------------------------

// A descriptor file of the test data: device descriptor, then the
// configuration set.
std::vector<uint8_t> DescriptorFile(const char *name) {
  std::ifstream in(std::string(PELARIX_TEST_DATA_DIR) + "/" + name, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

class AudioOutFlagsTest : public DeviceSettingsTest {
 protected:
  DeviceSettings ReadFor(const char *file, const std::string &body) {
    WriteRegistry(body);
    const std::vector<uint8_t> bytes = DescriptorFile(file);
    return ReadDeviceSettings(manager_, bytes.data(), bytes.data() + 18, kDevice);
  }
};

const std::string kAudioOutDefaults =
    Section(kGeneral, "\"DefaultDeviceFlags\"=dword:4\r\n\"AudioOutDeviceFlags\"=dword:8\r\n");

TEST_F(AudioOutFlagsTest, LoudspeakerTakesTheAudioOutDefault) {
  EXPECT_EQ(ReadFor("descriptors/loudspeaker.bin", kAudioOutDefaults).deviceFlags, 8u);
  EXPECT_THAT(TakeLog(),
              ElementsAre(Effective("PluginDelay", "0"), Effective("DefaultPluginDelay", "0"),
                          Effective("DeviceFlags", "0"), Effective("AudioOutDeviceFlags", "8"),
                          LogLine{2, "Using AudioOutDeviceFlags for device: 0000000012345678"}));
}

TEST_F(AudioOutFlagsTest, AudioOutDeviceWithoutAudioOutDeviceFlagsTakesTheGeneralDefault) {
  const DeviceSettings settings = ReadFor("descriptors/loudspeaker.bin",
                                          Section(kGeneral, "\"DefaultDeviceFlags\"=dword:4\r\n"));
  EXPECT_EQ(settings.deviceFlags, 4u);
  EXPECT_THAT(TakeLog(),
              ElementsAre(Effective("PluginDelay", "0"), Effective("DefaultPluginDelay", "0"),
                          Effective("DeviceFlags", "0"), Effective("AudioOutDeviceFlags", "0"),
                          Effective("DefaultDeviceFlags", "4")));
}

// A headset with audio-in, audio-out and a HID interface.
TEST_F(AudioOutFlagsTest, AudioOutAmongOtherInterfacesCountsAsAudioOut) {
  EXPECT_EQ(ReadFor("realdesc/headset_razer_krakenx_1532_0526.bin", kAudioOutDefaults).deviceFlags,
            8u);
}

TEST_F(AudioOutFlagsTest, AudioInOnlyIsNoAudioOutDevice) {
  EXPECT_EQ(ReadFor("descriptors/microphone.bin", kAudioOutDefaults).deviceFlags, 4u);
  EXPECT_THAT(TakeLog(),
              ElementsAre(Effective("PluginDelay", "0"), Effective("DefaultPluginDelay", "0"),
                          Effective("DeviceFlags", "0"), Effective("DefaultDeviceFlags", "4")));
}

TEST_F(AudioOutFlagsTest, DeviceTheFilterRefusesHasNoFamily) {
  ordo::usb::AddFilterString(manager_, "exalldev:true", 0);
  EXPECT_EQ(ReadFor("descriptors/loudspeaker.bin", kAudioOutDefaults).deviceFlags, 4u);
  EXPECT_THAT(TakeLog(),
              ElementsAre(Effective("PluginDelay", "0"), Effective("DefaultPluginDelay", "0"),
                          Effective("DeviceFlags", "0"),
                          LogLine{0, "Failed to get family info, device: 0000000012345678"},
                          Effective("DefaultDeviceFlags", "4")));
}

}  // namespace
}  // namespace pelarix
