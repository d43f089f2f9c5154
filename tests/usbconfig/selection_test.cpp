// Select-configuration and select-interface records and the pipe map.
#include <gtest/gtest.h>

#include "descriptor_fixtures.h"
#include "log_recorder.h"
#include "ordo/usb/usb_model.h"

namespace ordo::usb {
namespace {

using namespace testing;

constexpr uint8_t kUntouched = 0xEE;

void Put16(Bytes &b, size_t at, uint16_t v) {
  b[at] = static_cast<uint8_t>(v);
  b[at + 1] = static_cast<uint8_t>(v >> 8);
}
void Put32(Bytes &b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}
void PutHandle(Bytes &b, size_t at, uint32_t v) {
  Put32(b, at, v);
  Put32(b, at + 4, 0);
}
uint32_t Get32(const uint8_t *at) {
  return at[0] | (at[1] << 8) | (at[2] << 16) | (static_cast<uint32_t>(at[3]) << 24);
}

class Selection : public ::testing::Test {
 protected:
  Selection() {
    set_ =
        ConfigSet(Cat({Interface(0, 0, 1, 0x03, 0x01, 0x01), Endpoint(0x81, 0x03, 8, 10),
                       Interface(1, 0, 0, 0x08, 0x06, 0x50), Interface(1, 1, 2, 0x08, 0x06, 0x50),
                       Endpoint(0x82, 0x02, 512, 0), Endpoint(0x02, 0x02, 512, 1),
                       // Claims three endpoints and has none.
                       Interface(2, 0, 3, 0xFF)}));
    config_.SetDeviceDescriptor(device_.data());
    EXPECT_TRUE(config_.AddConfigDescriptor(0, set_.data(), false));
    log_.Clear();
  }
  const UsbDeviceConfig::Configuration &Parsed() const {
    return *config_.GetConfigurationByIndex(0);
  }
  UsbDeviceConfig::Interface *Iface(uint8_t number, uint8_t alternate) const {
    return Parsed().GetInterface(number, alternate);
  }
  // A select-configuration record whose descriptor copy (9 bytes, value
  // `value`, `interfaces` records) sits in the request header.
  static Bytes ConfigRecord(size_t length, uint8_t value, uint8_t interfaces) {
    Bytes record(length, kUntouched);
    const Bytes copy = {9, 0x02, 9, 0, interfaces, value, 0, 0x80, 50};
    std::copy(copy.begin(), copy.end(), record.begin());
    Put32(record, 20, 0);
    return record;
  }
  static void InfoRecord(Bytes &record, size_t at, uint16_t length, uint8_t number,
                         uint8_t alternate) {
    Put16(record, at, length);
    record[at + 2] = number;
    record[at + 3] = alternate;
  }
  // What a filled pipe record holds.
  static void ExpectPipe(Bytes &expected, size_t at, const UsbDeviceConfig::Pipe &pipe) {
    Put16(expected, at, pipe.GetMaxPacketSize());
    expected[at + 2] = pipe.GetEndpointAddress();
    expected[at + 3] = pipe.GetInterval();
    Put32(expected, at + 4, pipe.GetType());
    PutHandle(expected, at + 8, pipe.GetHandle());
  }
  static void ExpectInterface(Bytes &expected, size_t at, const UsbDeviceConfig::Interface &i) {
    expected[at + 4] = i.GetClass();
    expected[at + 5] = i.GetSubClass();
    expected[at + 6] = i.GetProtocol();
    PutHandle(expected, at + 8, i.GetHandle());
    Put32(expected, at + 16, i.GetNumEndpoints());
  }

  LogRecorder log_;
  Bytes device_ = DeviceDescriptor(0, 0, 0);
  Bytes set_;
  UsbDeviceConfig config_;
};

TEST_F(Selection, SelectConfigurationFillsTheRecordByteByByte) {
  Bytes record = ConfigRecord(36 + 44 + 68, 1, 2);
  InfoRecord(record, 36, 44, 0, 0);
  InfoRecord(record, 80, 68, 1, 1);
  Bytes expected = record;
  ASSERT_TRUE(config_.SelectConfiguration(record.data(), static_cast<uint32_t>(record.size())));
  PutHandle(expected, 28, Parsed().GetHandle());
  ExpectInterface(expected, 36, *Iface(0, 0));
  ExpectPipe(expected, 56, *Iface(0, 0)->GetPipeByOrdinal(0));
  ExpectInterface(expected, 80, *Iface(1, 1));
  ExpectPipe(expected, 100, *Iface(1, 1)->GetPipeByOrdinal(0));
  ExpectPipe(expected, 124, *Iface(1, 1)->GetPipeByOrdinal(1));
  EXPECT_EQ(record, expected);
  // Spot checks of the layout itself.
  EXPECT_EQ(record[56], 8);     // wMaxPacketSize
  EXPECT_EQ(record[58], 0x81);  // bEndpointAddress
  EXPECT_EQ(record[59], 10);    // bInterval
  EXPECT_EQ(record[60], 3);     // interrupt
  EXPECT_EQ(record[124 + 3], 1);
  EXPECT_EQ(config_.GetActiveConfiguration(), &Parsed());
  EXPECT_TRUE(Iface(0, 0)->IsSelected());
  EXPECT_TRUE(Iface(1, 1)->IsSelected());
  EXPECT_FALSE(Iface(1, 0)->IsSelected());
  EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(Selection, UnknownValueSucceedsWithoutActiveConfiguration) {
  Bytes record = ConfigRecord(36, 9, 0);
  const Bytes before = record;
  EXPECT_TRUE(config_.SelectConfiguration(record.data(), 36));
  EXPECT_EQ(config_.GetActiveConfiguration(), nullptr);
  EXPECT_EQ(record, before);
  EXPECT_EQ(config_.GetPipeMap(), nullptr);
}

TEST_F(Selection, DescriptorCopyReachingBeyondTheRecordFails) {
  Bytes record = ConfigRecord(36, 1, 0);
  Put32(record, 20, 30);  // 30 + wTotalLength 9 > 36
  EXPECT_FALSE(config_.SelectConfiguration(record.data(), 36));
  EXPECT_EQ(config_.GetActiveConfiguration(), nullptr);
  EXPECT_EQ(log_.Lines(), (std::vector<LogLine>{{4, "Select configuration buffer is too small."}}));
}

TEST_F(Selection, InterfaceRecordBeyondTheBufferFailsAndStillActivates) {
  Bytes record = ConfigRecord(36 + 44 + 10, 1, 2);
  InfoRecord(record, 36, 44, 0, 0);
  EXPECT_FALSE(config_.SelectConfiguration(record.data(), static_cast<uint32_t>(record.size())));
  EXPECT_EQ(config_.GetActiveConfiguration(), &Parsed());
  EXPECT_EQ(record[28], kUntouched);  // no handle on failure
  EXPECT_TRUE(Iface(0, 0)->IsSelected());
  EXPECT_EQ(log_.Lines(),
            (std::vector<LogLine>{{4, "Select configuration/interface buffer is too small"}}));
}

TEST_F(Selection, PipeOverrunFailsAtTheEndAndLaterRecordsAreStillWorkedOn) {
  Bytes record = ConfigRecord(100, 1, 2);
  InfoRecord(record, 36, 20, 2, 0);  // three pipe records would need 36 + 20 + 72 bytes
  InfoRecord(record, 56, 44, 0, 0);
  Bytes expected = record;
  EXPECT_FALSE(config_.SelectConfiguration(record.data(), 100));
  ExpectInterface(expected, 36, *Iface(2, 0));
  ExpectInterface(expected, 56, *Iface(0, 0));
  ExpectPipe(expected, 76, *Iface(0, 0)->GetPipeByOrdinal(0));
  EXPECT_EQ(record, expected);
  EXPECT_EQ(log_.Lines(),
            (std::vector<LogLine>{{4, "Select configuration/interface buffer is too small"}}));
}

TEST_F(Selection, SelectInterfaceSwitchesAlternates) {
  Bytes config = ConfigRecord(36 + 20, 1, 1);
  InfoRecord(config, 36, 20, 1, 0);
  ASSERT_TRUE(config_.SelectConfiguration(config.data(), static_cast<uint32_t>(config.size())));
  EXPECT_TRUE(Iface(1, 0)->IsSelected());

  Bytes record(28 + 68, kUntouched);
  InfoRecord(record, 28, 68, 1, 1);
  Bytes expected = record;
  ASSERT_TRUE(config_.SelectInterface(record.data(), static_cast<uint32_t>(record.size())));
  ExpectInterface(expected, 28, *Iface(1, 1));
  ExpectPipe(expected, 48, *Iface(1, 1)->GetPipeByOrdinal(0));
  ExpectPipe(expected, 72, *Iface(1, 1)->GetPipeByOrdinal(1));
  EXPECT_EQ(record, expected);
  EXPECT_FALSE(Iface(1, 0)->IsSelected());
  EXPECT_TRUE(Iface(1, 1)->IsSelected());
}

TEST_F(Selection, SelectInterfaceOfUnknownAlternateLeavesTheRecordButDeselects) {
  Bytes config = ConfigRecord(36 + 20, 1, 1);
  InfoRecord(config, 36, 20, 1, 0);
  ASSERT_TRUE(config_.SelectConfiguration(config.data(), static_cast<uint32_t>(config.size())));
  Bytes record(28 + 20, kUntouched);
  InfoRecord(record, 28, 20, 1, 7);
  const Bytes before = record;
  EXPECT_TRUE(config_.SelectInterface(record.data(), static_cast<uint32_t>(record.size())));
  EXPECT_EQ(record, before);
  EXPECT_FALSE(Iface(1, 0)->IsSelected());
}

TEST_F(Selection, PipeMapListsEveryPipeOfTheActiveConfiguration) {
  EXPECT_EQ(config_.GetPipeMap(), nullptr);
  Bytes config = ConfigRecord(36, 1, 0);
  ASSERT_TRUE(config_.SelectConfiguration(config.data(), 36));
  const uint8_t *map = config_.GetPipeMap();
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(config_.GetPipeMap(), map);
  EXPECT_EQ(Get32(map), 3u);
  const UsbDeviceConfig::Pipe *pipes[] = {Iface(0, 0)->GetPipeByOrdinal(0),
                                          Iface(1, 1)->GetPipeByOrdinal(0),
                                          Iface(1, 1)->GetPipeByOrdinal(1)};
  for (uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(Get32(map + 4 + 8 * i), pipes[i]->GetHandle());
    EXPECT_EQ(map[8 + 8 * i], pipes[i]->GetEndpointAddress());
  }
  EXPECT_EQ(config_.GetPipeByHandle(pipes[2]->GetHandle()), pipes[2]);
  EXPECT_EQ(config_.GetPipeByHandle(Parsed().GetHandle()), nullptr);
}

TEST_F(Selection, FillPipeMapCountsWithoutBufferAndWritesTheRunningCount) {
  EXPECT_EQ(Iface(1, 1)->FillPipeMap(5, nullptr), 7u);
  Bytes map(8 * 7 + 12, 0);
  EXPECT_EQ(Iface(1, 1)->FillPipeMap(5, map.data()), 7u);
  EXPECT_EQ(Get32(map.data()), 7u);
  EXPECT_EQ(Get32(map.data() + 4 + 8 * 5), Iface(1, 1)->GetPipeByOrdinal(0)->GetHandle());
  EXPECT_EQ(map[8 + 8 * 6], 0x02);
  EXPECT_EQ(Get32(map.data() + 4), 0u);
}

TEST_F(Selection, NewSelectionReleasesTheMap) {
  Bytes config = ConfigRecord(36, 1, 0);
  ASSERT_TRUE(config_.SelectConfiguration(config.data(), 36));
  ASSERT_NE(config_.GetPipeMap(), nullptr);
  Bytes none = ConfigRecord(36, 9, 0);
  ASSERT_TRUE(config_.SelectConfiguration(none.data(), 36));
  EXPECT_EQ(config_.GetPipeMap(), nullptr);
  EXPECT_EQ(config_.GetPipeByHandle(Iface(0, 0)->GetPipeByOrdinal(0)->GetHandle()), nullptr);
}

TEST_F(Selection, DeselectAlternatesClearsEveryObjectOfTheNumber) {
  Iface(1, 0)->SetSelected(true);
  Iface(1, 1)->SetSelected(true);
  Iface(0, 0)->SetSelected(true);
  config_.GetConfigurationByIndex(0)->DeselectAlternates(1);
  EXPECT_FALSE(Iface(1, 0)->IsSelected());
  EXPECT_FALSE(Iface(1, 1)->IsSelected());
  EXPECT_TRUE(Iface(0, 0)->IsSelected());
}

}  // namespace
}  // namespace ordo::usb
