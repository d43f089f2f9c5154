// Family values, names both ways, classification and the family cache.
#include "ordo/usb/dev_family.h"

#include <gtest/gtest.h>

#include "descriptor_fixtures.h"
#include "log_recorder.h"

namespace ordo::usb {
namespace {

using testing::LogLine;
using testing::LogRecorder;
using Names = std::vector<std::string>;

struct ClassRow {
  uint8_t cls, subcls, proto;
  uint32_t base;
};

TEST(ClassifyInterface, WholeTable) {
  const ClassRow rows[] = {
      {0x01, 0x02, 0x20, 0x00008}, {0x02, 0x02, 0x01, 0x00010}, {0x0A, 0x00, 0x00, 0x00010},
      {0x03, 0x01, 0x01, 0x00060}, {0x03, 0x01, 0x00, 0x00060}, {0x03, 0x00, 0x01, 0x00020},
      {0x03, 0x02, 0x02, 0x00020}, {0x05, 0x00, 0x00, 0x00080}, {0x06, 0x01, 0x01, 0x00100},
      {0x07, 0x01, 0x02, 0x00200}, {0x08, 0x06, 0x50, 0x00400}, {0x09, 0x00, 0x02, 0x00800},
      {0x0B, 0x00, 0x00, 0x01000}, {0x0D, 0x00, 0x00, 0x02000}, {0x0E, 0x02, 0x00, 0x04000},
      {0xE0, 0x01, 0x01, 0x18000}, {0xE0, 0x01, 0x03, 0x08000}, {0xE0, 0x02, 0x07, 0x28000},
      {0xE0, 0x02, 0x01, 0x28000}, {0xE0, 0x03, 0x01, 0x08000}, {0xEF, 0x01, 0x00, 0x40000},
      {0xEF, 0x02, 0x01, 0x00004}, {0xFF, 0xFF, 0xFF, 0x00001}, {0x00, 0x00, 0x00, 0x00004},
      {0x04, 0x00, 0x00, 0x00004}, {0x0F, 0x00, 0x00, 0x00004}, {0x10, 0x01, 0x00, 0x00004},
      {0xDC, 0x01, 0x01, 0x00004}, {0xFE, 0x01, 0x01, 0x00004},
  };
  for (const ClassRow &row : rows) {
    EXPECT_EQ(ClassifyInterface(row.cls, row.subcls, row.proto), row.base)
        << std::hex << int(row.cls) << "/" << int(row.subcls) << "/" << int(row.proto);
  }
}

TEST(FamilyNames, EveryBaseBitHasItsName) {
  const Names expected = {"vendor",   "unknown",      "other",      "audio",    "comm",
                          "hid",      "hid-bootable", "physical",   "imaging",  "printer",
                          "storage",  "hub",          "smart-card", "security", "video",
                          "wireless", "bluetooth",    "wusb",       "pda",      "nic"};
  for (uint32_t i = 0; i < expected.size(); ++i) EXPECT_EQ(FamilyNameOf(1u << i), expected[i]);
  EXPECT_EQ(FamilyNameOf(0), "");
  EXPECT_EQ(FamilyNameOf(0x60), "");
  EXPECT_EQ(FamilyNameOf(0x100000), "");
}

TEST(FamilyNames, SubFamilyBits) {
  EXPECT_EQ(SubFamilyNameOf(1), "unknown");
  EXPECT_EQ(SubFamilyNameOf(2), "keyboard");
  EXPECT_EQ(SubFamilyNameOf(4), "mouse");
  EXPECT_EQ(SubFamilyNameOf(8), "audio-out");
  EXPECT_EQ(SubFamilyNameOf(16), "audio-in");
  EXPECT_EQ(SubFamilyNameOf(0), "");
  EXPECT_EQ(SubFamilyNameOf(32), "");
}

TEST(NamesToFamily, OrsBaseAndSubOfKnownNames) {
  EXPECT_EQ(NamesToFamily({"storage", "keyboard"}), (DevFamily{0x420, 3}));
  EXPECT_EQ(NamesToFamily({"audio-in", "audio-out"}), (DevFamily{0x8, 24}));
  EXPECT_EQ(NamesToFamily({"mouse"}), (DevFamily{0x20, 4}));
  EXPECT_EQ(NamesToFamily({"nic", "no-such-name"}), (DevFamily{0x80000, 1}));
  EXPECT_EQ(NamesToFamily({"Storage"}), (DevFamily{2, 1}));
  EXPECT_EQ(NamesToFamily({}), (DevFamily{2, 1}));
}

TEST(NamesToFamily, EveryNameRoundTrips) {
  for (uint32_t bit = 1; bit <= 0x80000; bit <<= 1) {
    EXPECT_EQ(NamesToFamily({FamilyNameOf(bit)}), (DevFamily{bit, 1}));
  }
}

TEST(FamilyToNames, FixedOrder) {
  EXPECT_EQ(FamilyToNames({0xFFFFF & ~0x60u, 1}, true),
            (Names{"vendor", "unknown", "other", "audio", "comm", "physical", "imaging", "printer",
                   "storage", "hub", "smart-card", "security", "video", "wireless", "bluetooth",
                   "wusb", "pda", "nic"}));
}

TEST(FamilyToNames, AudioWithAndWithoutParent) {
  EXPECT_EQ(FamilyToNames({8, 24}, true), (Names{"audio", "audio-in", "audio-out"}));
  EXPECT_EQ(FamilyToNames({8, 24}, false), (Names{"audio-in", "audio-out"}));
  EXPECT_EQ(FamilyToNames({8, 1}, false), (Names{"audio"}));
}

TEST(FamilyToNames, HidSubFamiliesHideHidAndBootable) {
  EXPECT_EQ(FamilyToNames({0x60, 2}, true), (Names{"keyboard"}));
  EXPECT_EQ(FamilyToNames({0x60, 6}, true), (Names{"keyboard", "mouse"}));
  EXPECT_EQ(FamilyToNames({0x60, 1}, true), (Names{"hid", "hid-bootable"}));
  EXPECT_EQ(FamilyToNames({0x20, 1}, true), (Names{"hid"}));
  EXPECT_EQ(FamilyToNames({0x40, 4}, true), (Names{"mouse"}));
  EXPECT_EQ(FamilyToNames({0x40, 1}, true), (Names{"hid-bootable"}));
}

TEST(FamilyToString, JoinsWithComma) {
  EXPECT_EQ(FamilyToString({8, 16}), "audio,audio-in");
  EXPECT_EQ(FamilyToString({0x420, 3}), "keyboard,storage");
  EXPECT_EQ(FamilyToString({2, 1}), "unknown");
  EXPECT_EQ(FamilyToString({1, 1}), "vendor");
}

TEST(FamilyToString, HoleValuePrintsNothing) {
  EXPECT_EQ(FamilyToString({0, 2}), "");
}

TEST(FamilyToString, SubBitsWithoutTheirBasePrintNothing) {
  EXPECT_EQ(FamilyToString({0, 8}), "");
  EXPECT_EQ(FamilyToString({0, 16}), "");
  EXPECT_EQ(FamilyToString({0x400, 2}), "storage");
}

class FamilyCache : public ::testing::Test {
 protected:
  LogRecorder log_;
  testing::Bytes device_ = testing::DeviceDescriptor(0xFF, 0, 0, 0x0403, 0x6010);
};

TEST_F(FamilyCache, NullDeviceDescriptorIsBadArguments) {
  uint32_t family = 1;
  LookupDeducedFamily(nullptr, family);
  DeduceDeviceFamily(nullptr);
  EXPECT_EQ(family, 1u);
  EXPECT_EQ(log_.Lines(), (std::vector<LogLine>{{4, "LookupDeducedFamily(): Bad arguments"},
                                                {4, "DeduceDeviceFamily(): Bad arguments"}}));
}

TEST_F(FamilyCache, OnlyVendorFamiliesAreLookedUp) {
  // A product that no other case puts into the process-wide cache.
  device_ = testing::DeviceDescriptor(0xFF, 0, 0, 0x0403, 0x6099);
  uint32_t family = 0x400;
  LookupDeducedFamily(device_.data(), family);
  uint32_t vendor = 1;
  LookupDeducedFamily(device_.data(), vendor);
  EXPECT_EQ(family, 0x400u);
  EXPECT_EQ(vendor, 1u);
  EXPECT_EQ(log_.Lines(),
            (std::vector<LogLine>{{1, "LookupDeducedFamily(): Called for non vendor specific"},
                                  {1, "LookupDeducedFamily(): Not found in cache"}}));
}

TEST_F(FamilyCache, DeducedUnknownLeavesVendor) {
  DeduceDeviceFamily(device_.data());
  uint32_t family = 1;
  LookupDeducedFamily(device_.data(), family);
  EXPECT_EQ(family, 1u);
  EXPECT_EQ(log_.Lines(),
            (std::vector<LogLine>{{1, "IdentifyDeviceFamily(): Not implemented on Windows"},
                                  {1, "LookupDeducedFamily(): found 2"}}));
  // Another product of the same vendor isn't in the cache.
  const testing::Bytes other = testing::DeviceDescriptor(0xFF, 0, 0, 0x0403, 0x6011);
  log_.Clear();
  LookupDeducedFamily(other.data(), family);
  EXPECT_EQ(log_.Lines(), (std::vector<LogLine>{{1, "LookupDeducedFamily(): Not found in cache"}}));
}

TEST_F(FamilyCache, IdentifyAnswersUnknown) {
  EXPECT_EQ(IdentifyDeviceFamily(device_.data()), 2u);
}

}  // namespace
}  // namespace ordo::usb
