// The whole log of parsing each fixture of tests/data/descriptors, compared
// with its golden text (tests/data/descriptors/golden/NAME.txt), which was
// checked by hand. Set PELARIX_UPDATE_GOLDEN=1 to rewrite the goldens after
// a deliberate change, and check the difference by hand again.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "descriptor_fixtures.h"
#include "log_recorder.h"
#include "ordo/usb/usb_model.h"

namespace ordo::usb {
namespace {

using namespace testing;

std::string GoldenPath(const std::string &name) {
  return std::string(PELARIX_TEST_DATA_DIR) + "/descriptors/golden/" + name + ".txt";
}

std::string ReadText(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

class GoldenDump : public ::testing::TestWithParam<std::string> {};

TEST_P(GoldenDump, LogOfTheFixtureIsItsGoldenText) {
  const DeviceBlob blob = ReadDeviceBlob(FixturePath(GetParam()));
  ASSERT_FALSE(blob.configurations.empty());
  LogRecorder log;
  UsbDeviceConfig config;
  LoadInto(config, blob);
  const std::string transcript = log.Transcript();
  if (std::getenv("PELARIX_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(GoldenPath(GetParam()), std::ios::binary) << transcript;
  }
  EXPECT_EQ(transcript, ReadText(GoldenPath(GetParam())));
}

std::string TestName(const ::testing::TestParamInfo<std::string> &info) {
  return info.param;
}

INSTANTIATE_TEST_SUITE_P(Fixtures, GoldenDump, ::testing::ValuesIn(FixtureNames()), TestName);

}  // namespace
}  // namespace ordo::usb
