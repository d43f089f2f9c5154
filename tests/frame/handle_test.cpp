#include "frame/handle.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

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
  HandleHeader header = MakeHeader(kSessionHandle, 1);
  header.magic = 0x78726C71;
  EXPECT_FALSE(IsValidHandle(&header, kAnyHandle));
  EXPECT_FALSE(IsValidHandle(&header, kSessionHandle));
}

TEST(HandleTest, DeviceIsNotASessionButIsAnyKind) {
  HandleHeader device = MakeHeader(kDeviceHandle, 1);
  EXPECT_FALSE(IsValidHandle(&device, kSessionHandle));
  EXPECT_FALSE(IsValidHandle(&device, kItemHandle));
  EXPECT_TRUE(IsValidHandle(&device, kDeviceHandle));
  EXPECT_TRUE(IsValidHandle(&device, kAnyHandle));
}

TEST(HandleTest, CountBelowOneIsInvalid) {
  HandleHeader zero = MakeHeader(kItemHandle, 0);
  HandleHeader negative = MakeHeader(kItemHandle, -3);
  HandleHeader many = MakeHeader(kItemHandle, INT_MAX);
  EXPECT_FALSE(IsValidHandle(&zero, kItemHandle));
  EXPECT_FALSE(IsValidHandle(&negative, kAnyHandle));
  EXPECT_TRUE(IsValidHandle(&many, kItemHandle));
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
  HandleHeader header = MakeHeader(kItemHandle, 1);
  EXPECT_EQ(Pelarix_DuplicateHandle(&header), Pelarix_Success);
  EXPECT_EQ(header.refCount, 2);
  EXPECT_EQ(capture.Lines(),
            (LogLines{{3, "Duplicate handle: " + PointerText(&header) + ", Ref: 2, status: 0x0"}}));
}

TEST(HandleExportsTest, DuplicateThatWrapsIsInvalidState) {
  LogCapture capture(3);
  HandleHeader header = MakeHeader(kDeviceHandle, INT_MAX);
  EXPECT_EQ(Pelarix_DuplicateHandle(&header), Pelarix_InvalidState);
  EXPECT_EQ(header.refCount, INT_MIN);
  EXPECT_FALSE(IsValidHandle(&header, kAnyHandle));
  EXPECT_EQ(capture.Lines(), (LogLines{{3, "Duplicate handle: " + PointerText(&header) +
                                               ", Ref: -2147483648, status: 0xc"}}));
}

TEST(HandleExportsTest, DuplicateOfAnInvalidHandle) {
  LogCapture capture(3);
  HandleHeader header = MakeHeader(kSessionHandle, 0);
  EXPECT_EQ(Pelarix_DuplicateHandle(&header), Pelarix_InvalidHandle);
  EXPECT_EQ(Pelarix_DuplicateHandle(nullptr), Pelarix_InvalidHandle);
  EXPECT_EQ(header.refCount, 0);
  const std::string text = PointerText(&header);
  EXPECT_EQ(capture.Lines(),
            (LogLines{{0, "Invalid handle: " + text},
                      {3, "Duplicate handle: " + text + ", Ref: 0, status: 0x5"},
                      {0, "Invalid handle: 0000000000000000"},
                      {3, "Duplicate handle: 0000000000000000, Ref: 0, status: 0x5"}}));
}

TEST(HandleExportsTest, CloseReleasesOneReference) {
  LogCapture capture(3);
  HandleHeader header = MakeHeader(kDeviceHandle, 2);
  EXPECT_EQ(Pelarix_CloseHandle(&header), Pelarix_Success);
  EXPECT_EQ(header.refCount, 1);
  const std::string text = PointerText(&header);
  EXPECT_EQ(capture.Lines(), (LogLines{{3, "Deref inst: " + text + ", refCount: 2"},
                                       {3, "Close handle: " + text + ", status: 0x0"}}));
}

TEST(HandleExportsTest, CloseOfAnInvalidHandle) {
  LogCapture capture(3);
  HandleHeader header = MakeHeader(kItemHandle, 1);
  header.magic = 0;
  EXPECT_EQ(Pelarix_CloseHandle(&header), Pelarix_InvalidHandle);
  EXPECT_EQ(header.refCount, 1);
  const std::string text = PointerText(&header);
  EXPECT_EQ(capture.Lines(), (LogLines{{0, "Invalid handle: " + text},
                                       {3, "Close handle: " + text + ", status: 0x5"}}));
}

TEST(HandleExportsTest, CloseLinesAreLevelThree) {
  LogCapture capture(2);
  HandleHeader header = MakeHeader(kDeviceHandle, 2);
  EXPECT_EQ(Pelarix_CloseHandle(&header), Pelarix_Success);
  EXPECT_EQ(Pelarix_CloseHandle(nullptr), Pelarix_InvalidHandle);
  EXPECT_EQ(capture.Lines(), (LogLines{{0, "Invalid handle: 0000000000000000"}}));
}

}  // namespace
}  // namespace pelarix
