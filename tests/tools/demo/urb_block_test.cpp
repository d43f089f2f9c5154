#include "urb_block.h"

#include <gtest/gtest.h>

namespace pelarix::demo {
namespace {

// The descriptor request the host side builds is the block the library
// builds for its own string fetch: 80 bytes, the data right behind them.
TEST(UrbBlock, DescriptorRequestIsTheThirtyTwoBitLayout) {
  const std::vector<uint8_t> block = urb::DescriptorRequest(3, 2, 0x0409, 255);
  std::vector<uint8_t> expected(80, 0);
  expected[0] = 80;
  expected[2] = 0x0B;
  expected[24] = 255;
  expected[28] = 80;
  expected[74] = 2;
  expected[75] = 3;
  expected[76] = 0x09;
  expected[77] = 0x04;
  EXPECT_EQ(block, expected);
  EXPECT_TRUE(urb::IsRead(block));
}

TEST(UrbBlock, BulkWriteCarriesItsDataBehindTheBlock) {
  const std::vector<uint8_t> block = urb::BulkWrite(0x1234, {0xAA, 0xBB});
  ASSERT_EQ(block.size(), 74u);
  EXPECT_EQ(urb::Read16(block, 0), 72);
  EXPECT_EQ(urb::Read16(block, 2), 0x0009);
  EXPECT_EQ(urb::Read32(block, 16), 0x1234u);
  EXPECT_EQ(urb::Read32(block, 20), 0u);
  EXPECT_EQ(urb::Read32(block, 24), 2u);
  EXPECT_EQ(urb::Read32(block, 28), 72u);
  EXPECT_EQ(block[72], 0xAA);
  EXPECT_EQ(block[73], 0xBB);
  EXPECT_FALSE(urb::IsRead(block));
  EXPECT_TRUE(urb::IsRead(urb::BulkRead(0x1234, 8)));
  EXPECT_EQ(urb::Read32(urb::BulkRead(0x1234, 8), 20), 3u);
}

TEST(UrbBlock, AnswerDataIsReadAtTheOffsetAndNoFurtherThanTheLength) {
  std::vector<uint8_t> answer = urb::BulkRead(7, 8);
  answer.insert(answer.end(), {1, 2, 3, 4});
  urb::Write32(answer, urb::kTransferLength, 3);
  auto read = urb::ReadAnswer(answer);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->status, 0u);
  EXPECT_EQ(read->length, 3u);
  EXPECT_EQ(read->data, (std::vector<uint8_t>{1, 2, 3}));
}

TEST(UrbBlock, AnAnswerWhoseOffsetPointsIntoTheBlockOrPastItsEndIsRefused) {
  std::vector<uint8_t> answer = urb::BulkRead(7, 8);
  urb::Write32(answer, urb::kTransferOffset, 20);
  EXPECT_FALSE(urb::ReadAnswer(answer));
  urb::Write32(answer, urb::kTransferOffset, 0xFFFFFFF0);
  EXPECT_FALSE(urb::ReadAnswer(answer));
  urb::Write16(answer, urb::kLength, 200);  // longer than the answer
  EXPECT_FALSE(urb::ReadAnswer(answer));
  EXPECT_FALSE(urb::ReadAnswer({1, 2, 3}));
}

}  // namespace
}  // namespace pelarix::demo
