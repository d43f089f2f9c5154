#include "frame/record_pool.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "frame/handle.h"

namespace pelarix {
namespace {

struct TestRecord {
  HandleHeader header;
  unsigned char payload[40];
};

bool IsAllZero(const void *memory, size_t size) {
  const auto *bytes = static_cast<const unsigned char *>(memory);
  for (size_t i = 0; i < size; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

TEST(RecordPoolTest, RecordsStartZeroFilled) {
  void *record = AllocateRecord(kItemHandle, sizeof(TestRecord));
  ASSERT_NE(record, nullptr);
  EXPECT_TRUE(IsAllZero(record, sizeof(TestRecord)));
  FreeRecord(kItemHandle, record, sizeof(TestRecord));
}

TEST(RecordPoolTest, FreedRecordIsWipedAndFailsValidation) {
  auto *record = static_cast<TestRecord *>(AllocateRecord(kDeviceHandle, sizeof(TestRecord)));
  ASSERT_NE(record, nullptr);
  InitHandleHeader(&record->header, kDeviceHandle, nullptr);
  std::memset(record->payload, 0xA5, sizeof record->payload);
  ASSERT_TRUE(IsValidHandle(record, kDeviceHandle));
  FreeRecord(kDeviceHandle, record, sizeof(TestRecord));
  // The memory stays the pool's, so this read is of a wiped record, not of
  // freed memory.
  EXPECT_FALSE(IsValidHandle(record, kAnyHandle));
  EXPECT_EQ(record->header.magic, 0u);
  EXPECT_EQ(record->header.kind, 0u);
  EXPECT_EQ(record->header.refCount, 0);
  EXPECT_TRUE(IsAllZero(record->payload, sizeof record->payload));
}

TEST(RecordPoolTest, FreedMemoryIsReusedOnlyForTheSameKind) {
  void *session = AllocateRecord(kSessionHandle, sizeof(TestRecord));
  ASSERT_NE(session, nullptr);
  FreeRecord(kSessionHandle, session, sizeof(TestRecord));
  void *item = AllocateRecord(kItemHandle, sizeof(TestRecord));
  EXPECT_NE(item, session);
  void *again = AllocateRecord(kSessionHandle, sizeof(TestRecord));
  EXPECT_EQ(again, session);
  EXPECT_TRUE(IsAllZero(again, sizeof(TestRecord)));
  FreeRecord(kItemHandle, item, sizeof(TestRecord));
  FreeRecord(kSessionHandle, again, sizeof(TestRecord));
}

TEST(RecordPoolTest, FreedMemoryIsReusedOnlyForTheSameSize) {
  void *small = AllocateRecord(kItemHandle, sizeof(HandleHeader));
  ASSERT_NE(small, nullptr);
  FreeRecord(kItemHandle, small, sizeof(HandleHeader));
  void *large = AllocateRecord(kItemHandle, sizeof(TestRecord));
  EXPECT_NE(large, small);
  void *again = AllocateRecord(kItemHandle, sizeof(HandleHeader));
  EXPECT_EQ(again, small);
  FreeRecord(kItemHandle, large, sizeof(TestRecord));
  FreeRecord(kItemHandle, again, sizeof(HandleHeader));
}

TEST(RecordPoolTest, FreeOfNullIsIgnored) {
  FreeRecord(kSessionHandle, nullptr, 64);
}

TEST(RecordPoolTest, KnowsTheStartsOfItsRecordsOfEachKind) {
  auto *record = static_cast<unsigned char *>(AllocateRecord(kDeviceHandle, sizeof(TestRecord)));
  ASSERT_NE(record, nullptr);
  EXPECT_TRUE(IsPoolRecord(record, kDeviceHandle));
  EXPECT_TRUE(IsPoolRecord(record, kAnyHandle));
  EXPECT_FALSE(IsPoolRecord(record, kSessionHandle));
  EXPECT_FALSE(IsPoolRecord(record, kItemHandle));
  for (size_t offset : {size_t{1}, size_t{8}, sizeof(HandleHeader), sizeof(TestRecord) - 1}) {
    EXPECT_FALSE(IsPoolRecord(record + offset, kDeviceHandle)) << offset;
    EXPECT_FALSE(IsPoolRecord(record + offset, kAnyHandle)) << offset;
  }
  TestRecord outside{};
  EXPECT_FALSE(IsPoolRecord(&outside, kAnyHandle));
  EXPECT_FALSE(IsPoolRecord(nullptr, kAnyHandle));
  EXPECT_FALSE(IsPoolRecord(reinterpret_cast<void *>(uintptr_t{0x1234}), kAnyHandle));
  FreeRecord(kDeviceHandle, record, sizeof(TestRecord));
  EXPECT_TRUE(IsPoolRecord(record, kDeviceHandle));  // free, but still the pool's
}

TEST(RecordPoolTest, ManyRecordsOfAKindAreAllKnown) {
  std::vector<void *> records;
  for (int i = 0; i < 1000; ++i) {
    records.push_back(AllocateRecord(kItemHandle, sizeof(TestRecord)));
    ASSERT_NE(records.back(), nullptr);
  }
  for (void *record : records) EXPECT_TRUE(IsPoolRecord(record, kItemHandle));
  for (void *record : records) FreeRecord(kItemHandle, record, sizeof(TestRecord));
}

// Memory that is not a record of the kind is never taken into its free list.
TEST(RecordPoolTest, FreeOfForeignMemoryIsIgnored) {
  TestRecord outside{};
  outside.header.magic = kHandleMagic;
  FreeRecord(kSessionHandle, &outside, sizeof(TestRecord));
  EXPECT_EQ(outside.header.magic, kHandleMagic);
  void *record = AllocateRecord(kSessionHandle, sizeof(TestRecord));
  EXPECT_NE(record, &outside);
  FreeRecord(kSessionHandle, record, sizeof(TestRecord));
}

TEST(RecordPoolTest, AKindKeepsFourSizesApartAndRefusesAFifth) {
  std::vector<void *> records;
  for (size_t size : {32, 48, 80, 96}) {
    records.push_back(AllocateRecord(kAnyHandle, size));
    EXPECT_NE(records.back(), nullptr) << size;
  }
  EXPECT_EQ(AllocateRecord(kAnyHandle, 112), nullptr);
  size_t index = 0;
  for (size_t size : {32, 48, 80, 96}) FreeRecord(kAnyHandle, records[index++], size);
}

}  // namespace
}  // namespace pelarix
