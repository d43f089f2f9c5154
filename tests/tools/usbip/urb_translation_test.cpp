#include "urb_translation.h"

#include <gtest/gtest.h>

#include "urb_block.h"

namespace pelarix::usbip {
namespace {

namespace urb = pelarix::demo::urb;

UrbCommand Command(uint32_t direction, uint32_t ep, uint32_t length, uint32_t flags = 0) {
  UrbCommand command;
  command.command = kCmdSubmit;
  command.seqnum = 7;
  command.direction = direction;
  command.ep = ep;
  command.length = length;
  command.flags = flags;
  return command;
}

TEST(UrbTranslation, AControlWriteCarriesItsSetupAndDataBehindTheBlock) {
  UrbCommand command = Command(kDirectionOut, 0, 3, kUrbShortNotOk);
  command.setup = {0x21, 0x09, 0x00, 0x02, 0x00, 0x00, 0x03, 0x00};
  const std::vector<uint8_t> block = ControlBlock(command, {0xAA, 0xBB, 0xCC});
  std::vector<uint8_t> expected(80, 0);
  expected[0] = 80;
  expected[2] = 0x08;
  expected[20] = 0x08;  // write, short transfers not fine, default pipe
  expected[24] = 3;
  expected[28] = 80;
  std::copy(command.setup.begin(), command.setup.end(), expected.begin() + 72);
  expected.insert(expected.end(), {0xAA, 0xBB, 0xCC});
  EXPECT_EQ(block, expected);
  EXPECT_FALSE(urb::IsRead(block));
}

TEST(UrbTranslation, ABulkReadNamesItsPipe) {
  const std::vector<uint8_t> block =
      BulkOrInterruptBlock(Command(kDirectionIn, 1, 512), 0x1234, {});
  std::vector<uint8_t> expected(72, 0);
  expected[0] = 72;
  expected[2] = 0x09;
  expected[16] = 0x34;
  expected[17] = 0x12;
  expected[20] = 0x03;
  expected[25] = 0x02;  // 512
  expected[28] = 72;
  EXPECT_EQ(block, expected);
}

TEST(UrbTranslation, AnIsochronousReadLaysOutItsPacketsAndCompactsTheAnswer) {
  UrbCommand command = Command(kDirectionIn, 2, 300, kUrbIsoAsap);
  command.startFrame = 5;
  const std::vector<IsoPacket> packets{{0, 100, 0, 0}, {100, 100, 0, 0}, {200, 100, 0, 0}};
  const std::vector<uint8_t> block = IsochronousBlock(command, 9, packets, {});
  ASSERT_EQ(block.size(), 84u + 36);
  EXPECT_EQ(urb::Read16(block, 0), 120);
  EXPECT_EQ(urb::Read16(block, 2), 0x000A);
  EXPECT_EQ(urb::Read32(block, 16), 9u);
  EXPECT_EQ(urb::Read32(block, 20), 0x5u);  // read, as soon as possible
  EXPECT_EQ(urb::Read32(block, 24), 300u);
  EXPECT_EQ(urb::Read32(block, 28), 120u);
  EXPECT_EQ(urb::Read32(block, 72), 5u);
  EXPECT_EQ(urb::Read32(block, 76), 3u);
  EXPECT_EQ(urb::Read32(block, 84 + 12), 100u);
  EXPECT_EQ(urb::Read32(block, 84 + 24), 200u);

  // The answer: packet 0 moved 4 bytes, packet 1 failed, packet 2 moved 2.
  std::vector<uint8_t> answer = block;
  urb::Write32(answer, 72, 77);
  urb::Write32(answer, 80, 1);
  urb::Write32(answer, 84 + 4, 4);
  urb::Write32(answer, 84 + 12 + 8, urb::kIsoNotAccessed);
  urb::Write32(answer, 84 + 24 + 4, 2);
  urb::Write32(answer, 24, 300);
  answer.resize(120 + 300, 0);
  for (size_t i = 0; i < 4; ++i) {
    answer[120 + i] = static_cast<uint8_t>(0x10 + i);
  }
  answer[120 + 200] = 0x20;
  answer[120 + 201] = 0x21;
  SubmittedRequest request;
  request.seqnum = 7;
  request.in = true;
  request.type = TransferType::kIsochronous;
  request.length = 300;
  request.packets = 3;
  request.iso = packets;
  const UrbReturn reply = ReturnOfAnswer(request, 0, answer);
  EXPECT_EQ(reply.status, 0);
  EXPECT_EQ(reply.actualLength, 6u);
  EXPECT_EQ(reply.startFrame, 77);
  EXPECT_EQ(reply.errorCount, 1);
  EXPECT_EQ(reply.data, (std::vector<uint8_t>{0x10, 0x11, 0x12, 0x13, 0x20, 0x21}));
  ASSERT_EQ(reply.iso.size(), 3u);
  EXPECT_EQ(reply.iso[0].actualLength, 4u);
  EXPECT_EQ(reply.iso[1].status, -18);
  EXPECT_EQ(reply.iso[2].offset, 200u);
  EXPECT_EQ(reply.iso[2].actualLength, 2u);
  // On the wire: header, the six bytes, three 16-byte descriptors.
  const std::vector<uint8_t> bytes = RetSubmitBytes(reply);
  ASSERT_EQ(bytes.size(), 48u + 6 + 48);
  EXPECT_EQ(GetBe32(&bytes[48 + 6 + 16 + 12]), static_cast<uint32_t>(-18));
}

TEST(UrbTranslation, AnIsochronousAnswerThatPointsOutsideItselfMovesNothing) {
  SubmittedRequest request;
  request.in = true;
  request.type = TransferType::kIsochronous;
  request.length = 100;
  request.iso = {{0, 100, 0, 0}};
  std::vector<uint8_t> answer = IsochronousBlock(Command(kDirectionIn, 2, 100), 9, request.iso, {});
  urb::Write32(answer, 84 + 4, 100);  // claims 100 bytes, carries none
  const UrbReturn reply = ReturnOfAnswer(request, 0, answer);
  EXPECT_EQ(reply.actualLength, 0u);
  EXPECT_TRUE(reply.data.empty());
  // A block too short for its packets is no answer at all.
  answer.resize(84);
  urb::Write16(answer, 0, 84);
  EXPECT_EQ(ReturnOfAnswer(request, 0, answer).status, kErrProto);
}

TEST(UrbTranslation, AReadNeverReturnsMoreThanWasAskedFor) {
  SubmittedRequest request;
  request.in = true;
  request.length = 4;
  std::vector<uint8_t> answer = BulkOrInterruptBlock(Command(kDirectionIn, 1, 4), 1, {});
  urb::Write32(answer, 24, 8);
  answer.insert(answer.end(), {1, 2, 3, 4, 5, 6, 7, 8});
  const UrbReturn reply = ReturnOfAnswer(request, 0, answer);
  EXPECT_EQ(reply.data, (std::vector<uint8_t>{1, 2, 3, 4}));
  EXPECT_EQ(reply.actualLength, 4u);
}

TEST(UrbTranslation, ItemStatusesAndMalformedAnswersBecomeErrors) {
  SubmittedRequest request;
  request.packets = -1;
  EXPECT_EQ(ReturnOfAnswer(request, 0xFFFFFFFF, {}).status, kErrNoDev);
  EXPECT_EQ(ReturnOfAnswer(request, 5, {}).status, kErrProto);
  EXPECT_EQ(ReturnOfAnswer(request, 0, {1, 2, 3}).status, kErrProto);
  EXPECT_EQ(ReturnOfAnswer(request, 0, {1, 2, 3}).packets, -1);
}

TEST(UrbTranslation, UsbdStatusesBecomeLinuxErrnoValues) {
  const std::vector<std::pair<uint32_t, int32_t>> table{
      {0x00000000, 0},   {0xC0000004, -32},  {0xC0000030, -32}, {0x80000200, -32},
      {0xC0000E00, -32}, {0x80000300, -22},  {0xC0006000, -62}, {0xC0010000, -104},
      {0xC0007000, -19}, {0x80000900, -121}, {0xC0000008, -75}, {0xC0020000, -18},
      {0xC0000005, -71}, {0x40000000, -71},  {0x00000001, 0},   {0xC1234567, -71}};
  for (const auto &[status, errnoValue] : table) {
    EXPECT_EQ(ErrnoOfUsbdStatus(status), errnoValue) << std::hex << status;
  }
}

}  // namespace
}  // namespace pelarix::usbip
