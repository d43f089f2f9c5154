// The wire records, byte by byte.
#include "hub/hub_records.h"

#include <gtest/gtest.h>

#include <vector>

#include "hub/hub_control_codes.h"
#include "hub_fixture.h"

namespace pelarix::testing {
namespace {

const std::vector<uint8_t> kDevice = Bytes({0x12, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x40, 0x34,
                                            0x12, 0x78, 0x56, 0x00, 0x01, 0x01, 0x02, 0x03, 0x01});
const std::vector<uint8_t> kConfig = Bytes({0x09, 0x02, 0x09, 0x00, 0x01, 0x01, 0x00, 0x80, 0x32});
const std::vector<uint8_t> kStore = Bytes({0xAA, 0xBB, 0xCC});

TEST(HubRecordsTest, PluginRecordIsLaidOutByteForByte) {
  uint32_t payload = 0;
  uint32_t size = 0;
  ASSERT_TRUE(HubPluginRecordSizes(9, 3, &payload, &size));
  EXPECT_EQ(payload, 30u);
  EXPECT_EQ(size, 77u);
  HubPluginRecord fields{};
  fields.plugNo = 0x01020304;
  fields.clientVersion = 5;
  fields.partial = 7;
  fields.constant = 9;  // not the caller's to choose
  fields.reserved0 = 0xFFFF;
  fields.deviceFlags = 0xA0B0C0D0;
  fields.reserved1[0] = 0xFFFFFFFF;
  fields.plugParam1 = 0x11;
  fields.plugParam2 = 0x22222222;
  fields.plugParam3 = 0x33;
  fields.reserved2 = 0xFFFFFFFF;
  fields.payloadLength = 0xFFFFFFFF;
  std::vector<uint8_t> record(size, 0xEE);
  WriteHubPluginRecord(record.data(), fields, kDevice.data(), kConfig.data(), 9, kStore.data(), 3);
  std::vector<uint8_t> expected = Bytes({0x04, 0x03, 0x02, 0x01, 0x05, 0x00, 0x00, 0x00,  // 0
                                         0x01, 0x01, 0x00, 0x00, 0xD0, 0xC0, 0xB0, 0xA0,  // 8
                                         0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 16
                                         0x11, 0x00, 0x00, 0x00, 0x22, 0x22, 0x22, 0x22,  // 24
                                         0x33, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 32
                                         0x1E, 0x00, 0x00, 0x00});                        // 40
  expected.insert(expected.end(), kDevice.begin(), kDevice.end());
  expected.insert(expected.end(), kConfig.begin(), kConfig.end());
  expected.insert(expected.end(), kStore.begin(), kStore.end());
  expected.insert(expected.end(), {0x00, 0x00, 0x00});
  EXPECT_EQ(record, expected);
}

TEST(HubRecordsTest, PluginRecordWithoutPartialOrStoreKeepsZeros) {
  uint32_t payload = 0;
  uint32_t size = 0;
  ASSERT_TRUE(HubPluginRecordSizes(9, 0, &payload, &size));
  EXPECT_EQ(size, 74u);
  std::vector<uint8_t> record(size, 0xEE);
  HubPluginRecord fields{};
  WriteHubPluginRecord(record.data(), fields, kDevice.data(), kConfig.data(), 9, nullptr, 0);
  EXPECT_EQ(record[8], 0);
  EXPECT_EQ(record[9], 1);
  EXPECT_EQ(record[40], 27);
  EXPECT_EQ(std::vector<uint8_t>(record.end() - 3, record.end()), Bytes({0, 0, 0}));
}

TEST(HubRecordsTest, PluginRecordSizeBeyond32BitsIsRefused) {
  uint32_t payload = 7;
  uint32_t size = 7;
  EXPECT_FALSE(HubPluginRecordSizes(0xFFFF, 0xFFFFFFFF - 0xFFFF - 18 - 46, &payload, &size));
  EXPECT_EQ(size, 7u);
  EXPECT_TRUE(HubPluginRecordSizes(0xFFFF, 0xFFFFFFFF - 0xFFFF - 18 - 47, &payload, &size));
  EXPECT_EQ(size, 0xFFFFFFFFu);
}

TEST(HubRecordsTest, ItemRecordFieldsComeFromTheirOffsets) {
  std::vector<uint8_t> bytes =
      Bytes({0x02, 0,    0, 0, 0x10, 0x20, 0, 0, 0x07, 0,    0, 0, 0xEE, 0xEE,
             0xEE, 0xEE, 1, 0, 0,    0,    2, 0, 0,    0,    3, 0, 0,    0,
             4,    0,    0, 0, 0x00, 0x02, 0, 0, 0x01, 0x80, 0, 0, 0x55});
  // At an odd offset, as behind a caller's prefix of 1.
  std::vector<uint8_t> buffer(1, 0);
  buffer.insert(buffer.end(), bytes.begin(), bytes.end());
  HubItemRecord record = ReadHubItemRecord(buffer.data() + 1);
  EXPECT_EQ(record.type, 2u);
  EXPECT_EQ(record.itemId, 0x2010u);
  EXPECT_EQ(record.plugNo, 7u);
  EXPECT_EQ(record.params[0], 1u);
  EXPECT_EQ(record.params[1], 2u);
  EXPECT_EQ(record.params[2], 3u);
  EXPECT_EQ(record.params[3], 4u);
  EXPECT_EQ(record.dataLength, 0x200u);
  EXPECT_EQ(record.noCompletion, 0x8001u);
  std::vector<uint8_t> written(40);
  WriteHubItemRecord(written.data(), record);
  EXPECT_EQ(written, std::vector<uint8_t>(bytes.begin(), bytes.begin() + 40));
}

TEST(HubRecordsTest, CompleteRecordIsIdStatusLengthAndData) {
  uint32_t size = 0;
  ASSERT_TRUE(HubCompleteRecordSize(3, &size));
  EXPECT_EQ(size, 15u);
  EXPECT_FALSE(HubCompleteRecordSize(0xFFFFFFF4, &size));
  std::vector<uint8_t> record(size, 0xEE);
  const uint8_t data[3] = {7, 8, 9};
  WriteHubCompleteRecord(record.data(), 0x01020304, kHubCompleteUnserved, data, 3);
  EXPECT_EQ(record, Bytes({0x04, 0x03, 0x02, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 3, 0, 0, 0, 7, 8, 9}));
  HubCompleteRecord read = ReadHubCompleteRecord(record.data());
  EXPECT_EQ(read.itemId, 0x01020304u);
  EXPECT_EQ(read.status, 0xFFFFFFFFu);
  EXPECT_EQ(read.dataLength, 3u);
}

TEST(HubRecordsTest, ControlCodesFollowTheSystemRule) {
  EXPECT_EQ(HubControlCode(0x801, kMethodOutDirect), 0x2A6006u);
  EXPECT_EQ(HubControlCode(0x80A, kMethodInDirect), 0x2A6029u);
  EXPECT_EQ(HubControlCode(0x805, kMethodInDirect), 0x2A6015u);  // the unused function
}

}  // namespace
}  // namespace pelarix::testing
