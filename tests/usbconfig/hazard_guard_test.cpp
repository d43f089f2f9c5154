// Descriptor bytes from remote machines that would hang the walk, exhaust
// memory, read outside the set or divide by zero take the smallest safe exit.
#include <gtest/gtest.h>

#include "descriptor_fixtures.h"
#include "log_recorder.h"
#include "ordo/usb/usb_model.h"

namespace ordo::usb {
namespace {

using namespace testing;

std::string Hex(const Bytes &bytes) {
  char text[4096];
  HexText(bytes.data(), static_cast<uint32_t>(bytes.size()), text, sizeof text);
  return text;
}

class HazardGuard : public ::testing::Test {
 protected:
  bool Add(const Bytes &set, const uint8_t *device) {
    set_ = set;
    config_.SetDeviceDescriptor(device);
    return config_.AddConfigDescriptor(0, set_.data(), false);
  }
  bool Add(const Bytes &set) { return Add(set, device_.data()); }
  const UsbDeviceConfig::Configuration &First() const {
    return *config_.GetConfigurationByIndex(0);
  }

  LogRecorder log_;
  Bytes device_ = DeviceDescriptor(0, 0, 0);
  Bytes set_;
  UsbDeviceConfig config_;
};

TEST_F(HazardGuard, UnknownDescriptorOfLengthZeroAtTopLevelEndsTheWalk) {
  ASSERT_TRUE(Add(ConfigSet(Cat({Bytes{0, 0x30, 0, 0}, Interface(0, 0, 0, 0x08)}))));
  EXPECT_EQ(First().GetInterfaceObjectCount(), 0);
  EXPECT_FALSE(log_.Contains(1, "Unknown Descriptor (2)"));
}

TEST_F(HazardGuard, InterfaceDescriptorOfLengthZeroAtTopLevelEndsTheWalk) {
  Bytes zero = Interface(0, 0, 0, 0x08);
  zero[0] = 0;
  ASSERT_TRUE(Add(ConfigSet(Cat({zero, Interface(1, 0, 0, 0x08)}))));
  EXPECT_EQ(First().GetInterfaceObjectCount(), 0);
  EXPECT_FALSE(log_.Contains(4, "Out of memory"));
}

TEST_F(HazardGuard, LengthZeroBehindAnInterfaceEndsTheWalk) {
  const DeviceBlob blob = ReadDeviceBlob(FixturePath("malformed_blength_zero"));
  LoadInto(config_, blob);
  ASSERT_EQ(config_.GetConfigurationCount(), 1);
  ASSERT_EQ(First().GetInterfaceObjectCount(), 1);
  EXPECT_EQ(First().GetInterface(0, 0)->GetPipeCount(), 2);
  EXPECT_FALSE(log_.Contains(1, "Unknown descriptor (1)"));
  EXPECT_EQ(First().GetInterfaceGroup(1), (std::vector<uint8_t>{1}));
}

TEST_F(HazardGuard, LengthZeroInTheAudioWalkEndsTheWalk) {
  const Bytes header = {9, 0x24, 0x01, 0x00, 0x01, 0x09, 0x00, 0x01, 0x01};
  ASSERT_TRUE(Add(ConfigSet(Cat({Interface(0, 0, 0, 0x01, 0x01), header, Bytes{0, 0x24, 0x02, 0x01},
                                 Interface(1, 0, 0, 0x01, 0x02)}))));
  EXPECT_EQ(First().GetInterfaceObjectCount(), 1);
  EXPECT_EQ(log_.Count(0, "    Audio Control Interface Header Descriptor:"), 1u);
  EXPECT_FALSE(log_.Contains(0, "    Audio Control Input Terminal Descriptor:"));
}

TEST_F(HazardGuard, LengthOneEndsTheWalk) {
  ASSERT_TRUE(Add(ConfigSet(
      Cat({Interface(0, 0, 0, 0x08), Bytes{1, 0x30, 0x02, 0x24}, Interface(1, 0, 0, 0x08)}))));
  EXPECT_EQ(First().GetInterfaceObjectCount(), 1);
  EXPECT_FALSE(log_.Contains(1, "Unknown descriptor (1)"));
}

TEST_F(HazardGuard, FieldsBeyondTheSetReadAsZero) {
  const DeviceBlob blob = ReadDeviceBlob(FixturePath("malformed_truncated_interface"));
  LoadInto(config_, blob);
  ASSERT_EQ(First().GetInterfaceObjectCount(), 2);
  const auto *cut = First().GetInterface(1, 0);
  ASSERT_NE(cut, nullptr);
  EXPECT_EQ(cut->GetNumEndpoints(), 0);
  EXPECT_EQ(cut->GetClass(), 0);
  EXPECT_EQ(cut->GetFamily(), (DevFamily{kFamilyOther, 1}));
  // Its hex text shows the four bytes that are there.
  EXPECT_TRUE(log_.Contains(0, "  " + Hex({9, 0x04, 0x01, 0x00})));
  EXPECT_EQ(log_.Count(0, "    bInterfaceClass:      0x0"), 1u);
}

TEST_F(HazardGuard, HexTextOfAnOverrunningDescriptorStopsAtTheSetEnd) {
  const DeviceBlob blob = ReadDeviceBlob(FixturePath("malformed_overrun"));
  LoadInto(config_, blob);
  const Bytes &set = blob.configurations[0];
  EXPECT_TRUE(log_.Contains(0, "    " + Hex(Bytes(set.end() - 7, set.end()))));
  EXPECT_TRUE(log_.Contains(0, "      bLength:             0x40  (64)"));
}

TEST_F(HazardGuard, FeatureUnitControlSizeZeroIsALengthMismatch) {
  const DeviceBlob blob = ReadDeviceBlob(FixturePath("malformed_feature_size_zero"));
  LoadInto(config_, blob);
  EXPECT_EQ(
      log_.Count(4,
                 "    Audio Control Feature Unit Descriptor: ERROR - featureDesc length mismatch"),
      2u);
  EXPECT_TRUE(log_.Contains(4, "    " + Hex({9, 0x24, 0x06, 0x02, 0x01, 0x00, 0x01, 0x02, 0x00})));
}

TEST_F(HazardGuard, SetShorterThanItsConfigurationDescriptor) {
  Bytes set = ConfigSet(Interface(0, 0, 0, 0x08), -1, 4);
  ASSERT_TRUE(Add(set));
  EXPECT_EQ(First().GetNumInterfaces(), 0);
  EXPECT_EQ(First().GetConfigurationValue(), 0);
  EXPECT_EQ(First().GetInterfaceObjectCount(), 0);
  EXPECT_TRUE(log_.Contains(0, "  bNumInterfaces:      0x0"));
  EXPECT_TRUE(log_.Contains(1, Hex({9, 0x02, 0x04, 0x00})));
}

TEST_F(HazardGuard, SetOfLengthZeroParsesToNothing) {
  Bytes set = ConfigSet({}, 0, 0);
  ASSERT_TRUE(Add(set));
  EXPECT_EQ(First().GetInterfaceObjectCount(), 0);
  EXPECT_EQ(log_.TextsAt(1), (std::vector<std::string>{"Descriptor Dump:"}));
}

TEST_F(HazardGuard, AudioUnitFieldsBeyondTheSetReadAsZero) {
  // A mixer unit whose bLength is shorter than its own fields, at the set's end.
  ASSERT_TRUE(
      Add(ConfigSet(Cat({Interface(0, 0, 0, 0x01, 0x01), Bytes{5, 0x24, 0x04, 0x02, 0x03}}))));
  EXPECT_TRUE(log_.Contains(0, "      baSourceID[3]:        0x0"));
  EXPECT_TRUE(log_.Contains(0, "      bmControls:           "));
  EXPECT_TRUE(log_.Contains(0, "      iMixer:               0x0"));
}

TEST_F(HazardGuard, NullDeviceDescriptorReadsAsZero) {
  ASSERT_TRUE(Add(ConfigSet(Cat({Interface(0, 0, 0, 0x02), Union({0})})), nullptr));
  EXPECT_TRUE(First().GetUnionDescriptors().empty());
  EXPECT_EQ(log_.Count(4, "LookupDeducedFamily(): Bad arguments"), 1u);
}

TEST_F(HazardGuard, ShortDeviceDescriptorIsReadWithinItsLength) {
  Bytes device = DeviceDescriptor(0x02, 0x00, 0x00, 0x0403, 0x6010);
  device[0] = 6;  // idVendor and idProduct lie beyond it
  DeduceDeviceFamily(device.data());
  uint32_t family = 1;
  LookupDeducedFamily(DeviceDescriptor(0, 0, 0, 0, 0).data(), family);
  EXPECT_TRUE(log_.Contains(1, "LookupDeducedFamily(): found 2"));
}

TEST_F(HazardGuard, NullConfigurationDescriptorIsRefused) {
  config_.SetDeviceDescriptor(device_.data());
  EXPECT_FALSE(config_.AddConfigDescriptor(0, nullptr, false));
  EXPECT_EQ(
      log_.Lines(),
      (std::vector<LogLine>{{4, "Failed to add config descriptor, invalid descriptor type"}}));
}

class SelectionGuard : public HazardGuard {
 protected:
  SelectionGuard() {
    EXPECT_TRUE(Add(ConfigSet(Cat({Interface(0, 0, 1, 0x03), Endpoint(0x81, 3)}))));
    log_.Clear();
  }
};

TEST_F(SelectionGuard, SelectInterfaceWithoutActiveConfigurationFails) {
  Bytes record(28 + 44, 0);
  record[28] = 44;
  const Bytes before = record;
  EXPECT_FALSE(config_.SelectInterface(record.data(), static_cast<uint32_t>(record.size())));
  EXPECT_EQ(record, before);
  EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(SelectionGuard, RecordTooShortForTheOffsetOfItsDescriptor) {
  Bytes record(10, 0);
  EXPECT_FALSE(config_.SelectConfiguration(record.data(), 10));
  EXPECT_EQ(log_.Lines(), (std::vector<LogLine>{{4, "Select configuration buffer is too small."}}));
}

TEST_F(SelectionGuard, RecordWithoutRoomForTheConfigurationHandle) {
  Bytes record(30, 0xEE);
  const Bytes copy = {9, 0x02, 9, 0, 0, 1, 0, 0x80, 50};
  std::copy(copy.begin(), copy.end(), record.begin());
  record[20] = record[21] = record[22] = record[23] = 0;
  EXPECT_FALSE(config_.SelectConfiguration(record.data(), 30));
  EXPECT_EQ(record[28], 0xEE);
  EXPECT_NE(config_.GetActiveConfiguration(), nullptr);
  EXPECT_EQ(log_.Lines(), (std::vector<LogLine>{{4, "Select configuration buffer is too small."}}));
}

TEST_F(SelectionGuard, InterfaceRecordWithoutRoomForItsPipeCount) {
  Bytes record(36 + 18, 0xEE);
  const Bytes copy = {9, 0x02, 9, 0, 1, 1, 0, 0x80, 50};
  std::copy(copy.begin(), copy.end(), record.begin());
  record[20] = record[21] = record[22] = record[23] = 0;
  record[36] = 20;
  record[37] = 0;
  record[38] = 0;  // interface 0
  record[39] = 0;  // alternate 0
  EXPECT_FALSE(config_.SelectConfiguration(record.data(), static_cast<uint32_t>(record.size())));
  EXPECT_EQ(record[40], 0x03);  // class written
  EXPECT_EQ(record[52], 0xEE);  // the pipe count is not
  EXPECT_EQ(log_.Lines(),
            (std::vector<LogLine>{{4, "Select configuration/interface buffer is too small"}}));
}

}  // namespace
}  // namespace ordo::usb
