#include "frame/record_pool.h"

#include <gtest/gtest.h>

#include <cstring>

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

}  // namespace
}  // namespace pelarix
