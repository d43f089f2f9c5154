// The example file of docs/settings.md reads as the document says: every
// setting the library reads is set, and each one counts.
#include <fstream>
#include <sstream>

#include "config/device_settings.h"
#include "config/session_settings.h"
#include "registry_fixture.h"
#ifndef _WIN32
#include "platform/posix/registry_file_parser.h"
#endif

namespace pelarix {
namespace {

std::string ExampleFile() {
  std::ifstream in(PELARIX_TEST_DATA_DIR "/../../docs/settings.md");
  std::stringstream document;
  document << in.rdbuf();
  const std::string text = document.str();
  const size_t start = text.find("```reg\n");
  const size_t end = text.find("```\n", start + 7);
  if (start == std::string::npos || end == std::string::npos) return {};
  return text.substr(start + 7, end - start - 7);
}

class SettingsExampleTest : public testing::RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    example_ = ExampleFile();
    WriteRegistryFile(example_);
  }
  std::string example_;
};

#ifndef _WIN32
// The file-backed registry's own reader (Windows has the registry editor).
TEST_F(SettingsExampleTest, EveryLineOfTheExampleIsRead) {
  ASSERT_FALSE(example_.empty());
  const platform::RegistryFile file = platform::RegistryFile::Parse(example_);
  EXPECT_TRUE(file.HasHeader());
  EXPECT_EQ(file.MalformedLines(), 0u);
}
#endif

TEST_F(SettingsExampleTest, SessionReadsEverySetting) {
  SessionSettings settings{};
  ReadSessionSettings(&settings);
  EXPECT_EQ(settings.expectedItemLength, 1024u);
  for (size_t i = 0; i < kFilterSettingCount; ++i) {
    EXPECT_NE(settings.filterStrings[i].text, nullptr) << kFilterSettings[i].valueName;
  }
  EXPECT_STREQ(settings.filterStrings[4].text, "exfa:m:storage");
  EXPECT_STREQ(settings.filterStrings[2].text, "exid:m:vid-1234_pid-5678;vid-0e0f_pid-0001");
  EXPECT_EQ(settings.noncdlLength, 11u);
  FreeSessionSettings(&settings);
}

TEST_F(SettingsExampleTest, DevicesReadTheirOwnValuesAndTheDefaults) {
  HDevFilterMgrAgent *manager = ordo::usb::CreateFilterManager();
  const uint8_t known[18] = {0x12, 0x01, 0x00, 0x02, 0, 0, 0, 0x40, 0x0f, 0x0e, 0x03, 0x00};
  const uint8_t other[18] = {0x12, 0x01, 0x00, 0x02, 0, 0, 0, 0x40, 0x81, 0x07, 0x67, 0x55};
  DeviceSettings settings = ReadDeviceSettings(manager, known, nullptr, known);
  EXPECT_EQ(settings.pluginDelayMs, 5000u);
  EXPECT_EQ(settings.deviceFlags, 0x10u);
  settings = ReadDeviceSettings(manager, other, nullptr, other);
  EXPECT_EQ(settings.pluginDelayMs, 3000u);
  EXPECT_EQ(settings.deviceFlags, 1u);
  ordo::usb::DestroyFilterManager(manager);
}

}  // namespace
}  // namespace pelarix
