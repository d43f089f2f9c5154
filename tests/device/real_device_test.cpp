// Every captured real device through create, strings, plug-in and unplug,
// with its plug-in record checked against the bytes of its file. Strings come
// from the capture's lsusb text where there is one (language 0x0409, and the
// table that names it); a capture without strings plugs in with an empty
// store and the library's warnings.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "device_fixture.h"
#include "plugin_record.h"

namespace pelarix {
namespace {

using testing::DeviceTest;
using testing::ExpectedPlugin;
using testing::kGeneralKey;
using testing::PluginRecordBytes;
using testing::StoreBytes;
using testing::StoreEntry;
using testing::StringDescriptor;

const std::filesystem::path kRealDesc = PELARIX_REALDESC_DIR;

std::vector<uint8_t> ReadFile(const std::filesystem::path &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::string> DeviceFiles() {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(kRealDesc)) {
    if (entry.path().extension() == ".bin") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// The device's strings as its lsusb text prints them: (index, text) of
// iManufacturer, iProduct and iSerial, in that order, where both are given.
std::vector<std::pair<uint8_t, std::string>> CapturedStrings(const std::string &name) {
  std::ifstream in(kRealDesc / "sources" / (name + ".lsusb.txt"));
  std::vector<std::pair<uint8_t, std::string>> strings;
  static const std::regex field(R"(^\s*(iManufacturer|iProduct|iSerial)\s+(\d+)\s+(\S.*?)\s*$)");
  std::string line;
  int seen = 0;
  while (seen < 3 && std::getline(in, line)) {
    std::smatch match;
    if (!std::regex_match(line, match, field)) continue;
    ++seen;
    const int index = std::stoi(match[2]);
    if (index != 0) strings.emplace_back(static_cast<uint8_t>(index), match[3]);
  }
  return strings;
}

class RealDeviceTest : public DeviceTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(RealDeviceTest, CreateStringsPluginAndUnplug) {
  const std::vector<uint8_t> bytes = ReadFile(kRealDesc / (GetParam() + ".bin"));
  ASSERT_GE(bytes.size(), 18u + 9);
  const std::vector<uint8_t> device(bytes.begin(), bytes.begin() + 18);
  const size_t totalLength = bytes[18 + 2] | bytes[18 + 3] << 8;
  ASSERT_LE(18 + totalLength, bytes.size());
  const std::vector<uint8_t> config(bytes.begin() + 18, bytes.begin() + 18 + totalLength);

  OpenSession();
  PelarixHandle handle = nullptr;
  // The whole file goes in: the library copies only the first set.
  ASSERT_EQ(Pelarix_CreateDeviceEx(session_, 4, 0, 1, 2, 3, device.data(), bytes.data() + 18,
                                   nullptr, nullptr, &handle),
            Pelarix_Success);
  std::vector<StoreEntry> entries;
  const auto strings = CapturedStrings(GetParam());
  if (!strings.empty()) entries.push_back({0, 0, {4, 3, 0x09, 0x04}});
  for (const auto &[index, text] : strings) {
    entries.push_back({index, 0x0409, StringDescriptor(text)});
  }
  for (const StoreEntry &entry : entries) {
    ASSERT_EQ(Pelarix_AddDeviceString(handle, entry.index, entry.language, entry.descriptor.data()),
              Pelarix_Success);
  }
  EXPECT_EQ(Pelarix_PluginDevice(handle), Pelarix_Success);
  ExpectedPlugin expected;
  expected.plugParams[0] = 1;
  expected.plugParams[1] = 2;
  expected.plugParams[2] = 3;
  expected.device = device;
  expected.config = config;
  expected.store = StoreBytes(entries);
  const auto records = Model().PluginRecords();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0], PluginRecordBytes(expected));
  EXPECT_EQ(Pelarix_UnplugDevice(handle), Pelarix_Success);
  EXPECT_EQ(Model().Unplugs(), (std::vector<uint32_t>{1}));
  EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_Success);
}

INSTANTIATE_TEST_SUITE_P(RealDevices, RealDeviceTest, ::testing::ValuesIn(DeviceFiles()),
                         [](const auto &param) { return param.param; });

TEST(RealDeviceFiles, AllThirtyTwoAreThere) {
  EXPECT_EQ(DeviceFiles().size(), 32u);
  EXPECT_EQ(CapturedStrings("headset_razer_krakenx_1532_0526"),
            (std::vector<std::pair<uint8_t, std::string>>{
                {1, "Razer"}, {2, "Razer Kraken X USB"}, {3, "00000000"}}));
}

// The flags of an audio-out device come from AudioOutDeviceFlags, those of
// any other from DefaultDeviceFlags.
TEST_F(DeviceTest, AudioOutDeviceTakesTheAudioOutFlags) {
  WriteRegistry("[" + kGeneralKey +
                "]\r\n\"AudioOutDeviceFlags\"=dword:00000004\r\n"
                "\"DefaultDeviceFlags\"=dword:00000001\r\n");
  OpenSession();
  const std::vector<uint8_t> headset = ReadFile(kRealDesc / "headset_razer_krakenx_1532_0526.bin");
  PelarixHandle device = nullptr;
  ASSERT_EQ(Pelarix_CreateDevice(session_, 4, 0, headset.data(), headset.data() + 18, nullptr,
                                 nullptr, &device),
            Pelarix_Success);
  EXPECT_THAT(Lines(), ::testing::Contains(testing::LogLines::value_type{
                           2, "Using AudioOutDeviceFlags for device: " + testing::Ptr(device)}));
  uint32_t flags = 0;
  EXPECT_EQ(Pelarix_GetDeviceFlags(device, &flags), Pelarix_Success);
  EXPECT_EQ(flags, 4u);
  PelarixHandle keyboard = Keyboard();
  EXPECT_EQ(Pelarix_GetDeviceFlags(keyboard, &flags), Pelarix_Success);
  EXPECT_EQ(flags, 1u);
  ASSERT_EQ(Pelarix_PluginDevice(device), Pelarix_Success);
  EXPECT_EQ(Model().PluginRecords()[0][12], 4);
  EXPECT_EQ(Pelarix_CloseHandle(device), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(keyboard), Pelarix_Success);
}

}  // namespace
}  // namespace pelarix
