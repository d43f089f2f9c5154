#include "frame/handle.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <vector>

#include "frame/record_pool.h"
#include "log_capture.h"
#include "pelarix.h"

namespace pelarix {
namespace {

using testing::LogCapture;
using testing::LogLine;
using testing::LogLines;
using testing::PointerText;

HandleHeader MakeHeader(uint32_t kind, int32_t refCount) {
  HandleHeader header{};
  header.magic = kHandleMagic;
  header.kind = kind;
  header.refCount = refCount;
  return header;
}

// A record of the pool that holds only a header, as the exports accept a
// handle; given back to the pool at the end of the test.
class PoolRecord {
 public:
  PoolRecord(uint32_t kind, int32_t refCount, size_t size = sizeof(HandleHeader))
      : kind_(static_cast<HandleKind>(kind)), size_(size) {
    header_ = static_cast<HandleHeader *>(AllocateRecord(kind_, size_));
    *header_ = MakeHeader(kind, refCount);
  }
  ~PoolRecord() { FreeRecord(kind_, header_, size_); }
  PoolRecord(const PoolRecord &) = delete;
  PoolRecord &operator=(const PoolRecord &) = delete;

  HandleHeader *get() const { return header_; }
  HandleHeader *operator->() const { return header_; }
  unsigned char *bytes() const { return reinterpret_cast<unsigned char *>(header_); }

 private:
  HandleKind kind_;
  size_t size_;
  HandleHeader *header_;
};

TEST(HandleTest, HeaderLayout) {
  EXPECT_EQ(offsetof(HandleHeader, magic), 0u);
  EXPECT_EQ(offsetof(HandleHeader, kind), 4u);
  EXPECT_EQ(offsetof(HandleHeader, refCount), 8u);
  EXPECT_EQ(offsetof(HandleHeader, parent), 16u);
  EXPECT_EQ(std::memcmp(&kHandleMagic, "plrx", 4), 0);
}

TEST(HandleTest, InitHandleHeaderStartsAtOne) {
  HandleHeader parent = MakeHeader(kSessionHandle, 1);
  HandleHeader header{};
  InitHandleHeader(&header, kDeviceHandle, &parent);
  EXPECT_EQ(header.magic, 0x78726C70u);
  EXPECT_EQ(header.kind, 2u);
  EXPECT_EQ(header.refCount, 1);
  EXPECT_EQ(header.parent, &parent);
}

TEST(HandleTest, NullIsInvalid) {
  EXPECT_FALSE(IsValidHandle(nullptr, kAnyHandle));
}

TEST(HandleTest, WrongMagicIsInvalid) {
  PoolRecord header(kSessionHandle, 1);
  header->magic = 0x78726C71;
  EXPECT_FALSE(IsValidHandle(header.get(), kAnyHandle));
  EXPECT_FALSE(IsValidHandle(header.get(), kSessionHandle));
}

TEST(HandleTest, DeviceIsNotASessionButIsAnyKind) {
  PoolRecord device(kDeviceHandle, 1);
  EXPECT_FALSE(IsValidHandle(device.get(), kSessionHandle));
  EXPECT_FALSE(IsValidHandle(device.get(), kItemHandle));
  EXPECT_TRUE(IsValidHandle(device.get(), kDeviceHandle));
  EXPECT_TRUE(IsValidHandle(device.get(), kAnyHandle));
}

TEST(HandleTest, CountBelowOneIsInvalid) {
  PoolRecord zero(kItemHandle, 0);
  PoolRecord negative(kItemHandle, -3);
  PoolRecord many(kItemHandle, INT_MAX);
  EXPECT_FALSE(IsValidHandle(zero.get(), kItemHandle));
  EXPECT_FALSE(IsValidHandle(negative.get(), kAnyHandle));
  EXPECT_TRUE(IsValidHandle(many.get(), kItemHandle));
}

// A header that reads as a live record but lies outside the pool: a caller's
// own memory made to look like a handle.
TEST(HandleTest, HeaderOutsideThePoolIsInvalid) {
  HandleHeader header = MakeHeader(kSessionHandle, 1);
  EXPECT_FALSE(IsValidHandle(&header, kAnyHandle));
  EXPECT_FALSE(IsValidHandle(&header, kSessionHandle));
}

// A live-looking header written inside another record: its address is in the
// pool, but not at the start of a record.
TEST(HandleTest, HeaderInsideARecordIsInvalid) {
  PoolRecord outer(kItemHandle, 1, 8 * sizeof(HandleHeader));
  auto *inner = reinterpret_cast<HandleHeader *>(outer.bytes() + 2 * sizeof(HandleHeader));
  *inner = MakeHeader(kItemHandle, 1);
  EXPECT_TRUE(IsValidHandle(outer.get(), kItemHandle));
  EXPECT_FALSE(IsValidHandle(inner, kItemHandle));
  EXPECT_FALSE(IsValidHandle(inner, kAnyHandle));
}

// A record of the item pool whose header claims to be a session is not a
// session: the kind of the memory decides before the header is read.
TEST(HandleTest, HeaderClaimingAnotherKindThanItsPoolIsInvalid) {
  PoolRecord item(kItemHandle, 1);
  item->kind = kSessionHandle;
  EXPECT_FALSE(IsValidHandle(item.get(), kSessionHandle));
  EXPECT_FALSE(IsValidHandle(item.get(), kItemHandle));
  EXPECT_FALSE(IsValidHandle(item.get(), kAnyHandle));
}

TEST(HandleTest, ReadRefCountLeavesTheCount) {
  HandleHeader header = MakeHeader(kSessionHandle, 5);
  EXPECT_EQ(ReadRefCount(&header), 5);
  EXPECT_EQ(header.refCount, 5);
  header.refCount = 0;
  EXPECT_EQ(ReadRefCount(&header), 0);
}

TEST(HandleTest, AddRefCountWraps) {
  HandleHeader header = MakeHeader(kSessionHandle, INT_MAX);
  EXPECT_EQ(AddRefCount(&header, 1), INT_MIN);
  EXPECT_EQ(AddRefCount(&header, -1), INT_MAX);
}

TEST(HandleTest, ReleaseLogsTheCountBeforeTheChange) {
  LogCapture capture(3);
  HandleHeader header = MakeHeader(kSessionHandle, 2);
  ReleaseHandle(&header);
  EXPECT_EQ(header.refCount, 1);
  EXPECT_EQ(capture.Lines(),
            (LogLines{{3, "Deref inst: " + PointerText(&header) + ", refCount: 2"}}));
}

TEST(HandleTest, ReleaseOfARecordOfAnotherKindLeavesItAlone) {
  LogCapture capture(3);
  HandleHeader header = MakeHeader(7, 1);
  ReleaseHandle(&header);
  EXPECT_EQ(header.magic, kHandleMagic);
  EXPECT_EQ(header.refCount, 0);
  EXPECT_EQ(capture.Lines(), (LogLines{{3, "Deref inst: " + PointerText(&header) + ", refCount: 1"},
                                       {3, "Destroying inst: " + PointerText(&header)}}));
}

TEST(HandleExportsTest, DuplicateAddsAReference) {
  LogCapture capture(3);
  PoolRecord header(kItemHandle, 1);
  EXPECT_EQ(Pelarix_DuplicateHandle(header.get()), Pelarix_Success);
  EXPECT_EQ(header->refCount, 2);
  EXPECT_EQ(
      capture.Lines(),
      (LogLines{{3, "Duplicate handle: " + PointerText(header.get()) + ", Ref: 2, status: 0x0"}}));
}

TEST(HandleExportsTest, DuplicateThatWrapsIsInvalidState) {
  LogCapture capture(3);
  PoolRecord header(kDeviceHandle, INT_MAX);
  EXPECT_EQ(Pelarix_DuplicateHandle(header.get()), Pelarix_InvalidState);
  EXPECT_EQ(header->refCount, INT_MIN);
  EXPECT_FALSE(IsValidHandle(header.get(), kAnyHandle));
  EXPECT_EQ(capture.Lines(), (LogLines{{3, "Duplicate handle: " + PointerText(header.get()) +
                                               ", Ref: -2147483648, status: 0xc"}}));
}

TEST(HandleExportsTest, DuplicateOfAnInvalidHandle) {
  LogCapture capture(3);
  PoolRecord header(kSessionHandle, 0);
  EXPECT_EQ(Pelarix_DuplicateHandle(header.get()), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_DuplicateHandle(nullptr), Pelarix_InvalidHandle);
  EXPECT_EQ(header->refCount, 0);
  const std::string text = PointerText(header.get());
  EXPECT_EQ(capture.Lines(),
            (LogLines{{0, "Invalid handle: " + text},
                      {3, "Duplicate handle: " + text + ", Ref: 0, status: 0x5"},
                      {0, "Invalid handle: 0000000000000000"},
                      {3, "Duplicate handle: 0000000000000000, Ref: 0, status: 0x5"}}));
}

TEST(HandleExportsTest, CloseReleasesOneReference) {
  LogCapture capture(3);
  PoolRecord header(kDeviceHandle, 2);
  EXPECT_EQ(Pelarix_CloseHandle(header.get()), Pelarix_Success);
  EXPECT_EQ(header->refCount, 1);
  const std::string text = PointerText(header.get());
  EXPECT_EQ(capture.Lines(), (LogLines{{3, "Deref inst: " + text + ", refCount: 2"},
                                       {3, "Close handle: " + text + ", status: 0x0"}}));
}

TEST(HandleExportsTest, CloseOfAnInvalidHandle) {
  LogCapture capture(3);
  PoolRecord header(kItemHandle, 1);
  header->magic = 0;
  EXPECT_EQ(Pelarix_CloseHandle(header.get()), Pelarix_InvalidHandle);
  EXPECT_EQ(header->refCount, 1);
  const std::string text = PointerText(header.get());
  EXPECT_EQ(capture.Lines(), (LogLines{{0, "Invalid handle: " + text},
                                       {3, "Close handle: " + text + ", status: 0x5"}}));
}

TEST(HandleExportsTest, CloseLinesAreLevelThree) {
  LogCapture capture(2);
  PoolRecord header(kDeviceHandle, 2);
  EXPECT_EQ(Pelarix_CloseHandle(header.get()), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(nullptr), Pelarix_InvalidHandle);
  EXPECT_EQ(capture.Lines(), (LogLines{{0, "Invalid handle: 0000000000000000"}}));
}

// Close and duplicate refuse every address that is not a live record of the
// pool, before reading through it, with the line and status of any invalid
// handle: the caller's own memory, a made-up number, a misaligned address,
// one inside a record, a header claiming another kind than its record's.
TEST(HandleExportsTest, AddressesThatAreNoRecordAreRefusedUnread) {
  LogCapture capture(3);
  HandleHeader onStack = MakeHeader(kSessionHandle, 1);
  PoolRecord outer(kDeviceHandle, 1, 8 * sizeof(HandleHeader));
  auto *inside = reinterpret_cast<HandleHeader *>(outer.bytes() + 2 * sizeof(HandleHeader));
  *inside = MakeHeader(kDeviceHandle, 1);
  PoolRecord impostor(kItemHandle, 1);
  impostor->kind = kSessionHandle;
  const std::vector<void *> handles = {
      &onStack,       reinterpret_cast<void *>(uintptr_t{0x1234}), outer.bytes() + 1, inside,
      impostor.get(), reinterpret_cast<void *>(~uintptr_t{0} - 7)};
  LogLines expected;
  for (void *handle : handles) {
    const std::string text = PointerText(handle);
    EXPECT_EQ(Pelarix_CloseHandle(handle), Pelarix_InvalidHandle) << text;
    EXPECT_EQ(Pelarix_DuplicateHandle(handle), Pelarix_InvalidHandle) << text;
    expected.insert(expected.end(), {{0, "Invalid handle: " + text},
                                     {3, "Close handle: " + text + ", status: 0x5"},
                                     {0, "Invalid handle: " + text},
                                     {3, "Duplicate handle: " + text + ", Ref: 0, status: 0x5"}});
  }
  EXPECT_EQ(onStack.refCount, 1);
  EXPECT_EQ(inside->refCount, 1);
  EXPECT_EQ(outer->refCount, 1);
  EXPECT_EQ(impostor->refCount, 1);
  EXPECT_EQ(capture.Lines(), expected);
}

// A freed record is refused; once the pool hands its memory to a new record
// of the same kind and size, the old value names that new record (handles are
// the records' addresses), and stays refused for any other kind.
TEST(HandleExportsTest, FreedRecordIsRefusedAndReusedOneNamesTheNewRecord) {
  LogCapture capture(3);
  auto *freed = static_cast<HandleHeader *>(AllocateRecord(kDeviceHandle, sizeof(HandleHeader)));
  InitHandleHeader(freed, kDeviceHandle, nullptr);
  FreeRecord(kDeviceHandle, freed, sizeof(HandleHeader));
  const std::string text = PointerText(freed);
  EXPECT_EQ(Pelarix_CloseHandle(freed), Pelarix_InvalidHandle);
  PoolRecord reused(kDeviceHandle, 1);
  ASSERT_EQ(reused.get(), freed);
  EXPECT_EQ(Pelarix_DuplicateHandle(freed), Pelarix_Success);
  EXPECT_EQ(reused->refCount, 2);
  EXPECT_FALSE(IsValidHandle(freed, kSessionHandle));
  EXPECT_FALSE(IsValidHandle(freed, kItemHandle));
  EXPECT_EQ(capture.Lines(),
            (LogLines{{0, "Invalid handle: " + text},
                      {3, "Close handle: " + text + ", status: 0x5"},
                      {3, "Duplicate handle: " + text + ", Ref: 2, status: 0x0"}}));
}

}  // namespace
}  // namespace pelarix
