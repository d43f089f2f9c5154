#include "storage_function.h"

#include <gtest/gtest.h>

#include "keyboard_function.h"
#include "urb_block.h"

namespace pelarix::demo {
namespace {

constexpr uint8_t kIn = 0x81;
constexpr uint8_t kOut = 0x02;

std::vector<uint8_t> Wrapper(uint32_t tag, uint32_t length, bool toHost,
                             std::vector<uint8_t> command) {
  std::vector<uint8_t> wrapper(kCommandWrapperBytes, 0);
  urb::Write32(wrapper, 0, kCommandSignature);
  urb::Write32(wrapper, 4, tag);
  urb::Write32(wrapper, 8, length);
  wrapper[12] = toHost ? 0x80 : 0;
  wrapper[14] = static_cast<uint8_t>(command.size());
  std::copy(command.begin(), command.end(), wrapper.begin() + 15);
  return wrapper;
}

class StorageTest : public ::testing::Test {
 protected:
  std::vector<uint8_t> In(uint32_t room) {
    std::vector<uint8_t> in;
    EXPECT_EQ(disk_.Transfer(kIn, {}, room, &in), urb::kSuccess);
    return in;
  }
  // The status wrapper's residue and status byte.
  std::pair<uint32_t, uint8_t> Status(uint32_t tag) {
    std::vector<uint8_t> status = In(kStatusWrapperBytes);
    EXPECT_EQ(status.size(), kStatusWrapperBytes);
    EXPECT_EQ(urb::Read32(status, 0), kStatusSignature);
    EXPECT_EQ(urb::Read32(status, 4), tag);
    return {urb::Read32(status, 8), status[12]};
  }
  uint32_t Out(const std::vector<uint8_t> &data) { return disk_.Transfer(kOut, data, 0, nullptr); }

  StorageFunction disk_{kIn, kOut, 16};
};

TEST_F(StorageTest, InquiryNamesTheDisk) {
  ASSERT_EQ(Out(Wrapper(1, 36, true, {kScsiInquiry, 0, 0, 0, 36, 0})), urb::kSuccess);
  const std::vector<uint8_t> data = In(36);
  ASSERT_EQ(data.size(), 36u);
  EXPECT_EQ(std::string(data.begin() + 8, data.begin() + 16), kInquiryVendor);
  EXPECT_EQ(Status(1), std::make_pair(0u, uint8_t{0}));
}

TEST_F(StorageTest, CapacityThenWriteAndReadBack) {
  ASSERT_EQ(Out(Wrapper(2, 8, true, {kScsiReadCapacity10, 0, 0, 0, 0, 0, 0, 0, 0, 0})),
            urb::kSuccess);
  EXPECT_EQ(In(8), (std::vector<uint8_t>{0, 0, 0, 15, 0, 0, 2, 0}));
  EXPECT_EQ(Status(2), std::make_pair(0u, uint8_t{0}));

  std::vector<uint8_t> data(1024);
  for (size_t i = 0; i < data.size(); ++i) {
    data[i] = static_cast<uint8_t>(i * 13);
  }
  ASSERT_EQ(Out(Wrapper(3, 1024, false, {kScsiWrite10, 0, 0, 0, 0, 14, 0, 0, 2, 0})),
            urb::kSuccess);
  ASSERT_EQ(Out(data), urb::kSuccess);
  EXPECT_EQ(Status(3), std::make_pair(0u, uint8_t{0}));
  ASSERT_EQ(Out(Wrapper(4, 1024, true, {kScsiRead10, 0, 0, 0, 0, 14, 0, 0, 2, 0})), urb::kSuccess);
  EXPECT_EQ(In(1024), data);
  EXPECT_EQ(Status(4), std::make_pair(0u, uint8_t{0}));
}

TEST_F(StorageTest, AReadPastTheEndFailsWithItsResidueAndSense) {
  ASSERT_EQ(Out(Wrapper(5, 1024, true, {kScsiRead10, 0, 0, 0, 0, 15, 0, 0, 2, 0})), urb::kSuccess);
  EXPECT_TRUE(In(1024).empty());
  EXPECT_EQ(Status(5), std::make_pair(1024u, uint8_t{1}));
  ASSERT_EQ(Out(Wrapper(6, 18, true, {kScsiRequestSense, 0, 0, 0, 18, 0})), urb::kSuccess);
  const std::vector<uint8_t> sense = In(18);
  ASSERT_EQ(sense.size(), 18u);
  EXPECT_EQ(sense[2], 0x05);  // illegal request
  EXPECT_EQ(Status(6), std::make_pair(0u, uint8_t{0}));
}

TEST_F(StorageTest, WhatIsNotACommandWrapperStalls) {
  std::vector<uint8_t> wrapper = Wrapper(7, 0, false, {kScsiTestUnitReady});
  wrapper[0] ^= 1;
  EXPECT_EQ(Out(wrapper), urb::kStallPid);
  EXPECT_EQ(Out({1, 2, 3}), urb::kStallPid);
  std::vector<uint8_t> in;
  EXPECT_EQ(disk_.Transfer(kIn, {}, 13, &in), urb::kStallPid);  // no status before a command
}

TEST(KeyboardFunction, ReportsTypeTheTextThenIdle) {
  KeyboardFunction keyboard(0x81, "Hi 1");
  std::string typed;
  std::vector<uint8_t> report;
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(keyboard.Transfer(0x81, {}, 8, &report), urb::kSuccess);
    ASSERT_EQ(report.size(), 8u);
    if (report[2] != 0) {
      typed += KeyChar(report[2], (report[0] & kLeftShift) != 0);
    }
  }
  EXPECT_EQ(typed, "Hi 1\n");
  ASSERT_EQ(keyboard.Transfer(0x81, {}, 8, &report), urb::kSuccess);
  EXPECT_EQ(report, std::vector<uint8_t>(8, 0));
  EXPECT_EQ(keyboard.Transfer(0x82, {}, 8, &report), urb::kStallPid);
}

}  // namespace
}  // namespace pelarix::demo
