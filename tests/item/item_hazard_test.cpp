// Hub answers the protocol rules out: the pump neither reads outside its
// buffer nor allocates without bound, and answers what it refuses.
#include <cstdlib>
#include <cstring>

#include "item_fixture.h"

namespace pelarix {
namespace {

using testing::ItemTest;
using testing::LogLines;
using testing::Pattern;
using testing::Ptr;

vhub::HubAnswer Answer(std::vector<uint8_t> output) {
  vhub::HubAnswer answer;
  answer.output = std::move(output);
  return answer;
}

std::vector<uint8_t> Header(uint32_t type, uint32_t id, uint32_t plugNo, uint32_t dataLength) {
  std::vector<uint8_t> bytes(40, 0);
  HubItemRecord header{};
  header.type = type;
  header.itemId = id;
  header.plugNo = plugNo;
  header.dataLength = dataLength;
  WriteHubItemRecord(bytes.data(), header);
  return bytes;
}

TEST_F(ItemTest, AnswerShorterThanItsHeaderIsAnsweredUnserved) {
  Start();
  std::vector<uint8_t> cut = Header(0, 77, 1, 0);
  cut.resize(20);
  Model().InjectAnswer(IOCTL_HUB_GET_ITEM, Answer(cut));
  const uint32_t good = Queue(0, Pattern(4));
  PelarixHandle item = Next();
  EXPECT_EQ(Record(item)->itemId, good);
  EXPECT_EQ(Lines()[0], (LogLines::value_type{0, "Malformed item returned, handle: " +
                                                     Ptr(session_) + ", Item Id: 77, length: 20"}));
  const auto completions = Model().Completions();
  ASSERT_EQ(completions.size(), 1u);
  EXPECT_EQ(completions[0].itemId, 77u);
  EXPECT_EQ(completions[0].status, 0xFFFFFFFFu);
  EXPECT_EQ(Device()->itemCount, 1u);  // the refused answer is not counted
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

TEST_F(ItemTest, DataLengthBeyondAnyTransferIsRefused) {
  Start();
  for (uint32_t length : {0xFFFFFFF0u, (64u << 20) + 1}) {
    Model().InjectAnswer(IOCTL_HUB_GET_ITEM, Answer(Header(0, 78, 1, length)));
  }
  const uint32_t good = Queue(0, Pattern(4));
  PelarixHandle item = Next();
  EXPECT_EQ(Record(item)->itemId, good);
  EXPECT_TRUE(Model().RequestsOf(IOCTL_HUB_GET_ITEM_BUFFER).empty());
  EXPECT_EQ(Model().Completions().size(), 2u);
  EXPECT_EQ(Device()->itemMaxLen, 4u);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

// The second request's output size counts the header too, so a hub may
// write 40 bytes more than the data: they land in spare room.
TEST_F(ItemTest, SecondAnswerFillingItsWholeCapacityStaysInTheBuffer) {
  Start();
  Queue(0, Pattern(600));
  const std::vector<uint8_t> full = Pattern(640, 9);
  Model().InjectAnswer(IOCTL_HUB_GET_ITEM_BUFFER, Answer(full));
  PelarixHandle item = Next();
  PelarixItemInfo info{};
  ASSERT_EQ(Pelarix_GetItemInfo(item, &info), Pelarix_Success);
  EXPECT_EQ(info.dataLength, 600u);
  const auto *data = static_cast<const uint8_t *>(info.data);
  EXPECT_EQ(std::vector<uint8_t>(data, data + 600),
            std::vector<uint8_t>(full.begin(), full.begin() + 600));
  EXPECT_EQ(Record(item)->suffixLength, 0u);
  EXPECT_EQ(Record(item)->bufferLength, 640u + 40);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

// The pump's buffer for a long item comes from malloc: a second answer
// shorter than the data must not leave a freed block's old bytes in it. The
// block of the buffer's size freed just before is what malloc hands out
// again.
TEST_F(ItemTest, ShortSecondAnswerLeavesNoStaleBytesInTheItem) {
  Start();
  Queue(0, Pattern(600));
  const std::vector<uint8_t> part = Pattern(100, 5);
  Model().InjectAnswer(IOCTL_HUB_GET_ITEM_BUFFER, Answer(part));
  void *stale = std::malloc(680);
  std::memset(stale, 0xAB, 680);
  std::free(stale);
  PelarixHandle item = Next();
  PelarixItemInfo info{};
  ASSERT_EQ(Pelarix_GetItemInfo(item, &info), Pelarix_Success);
  ASSERT_EQ(info.dataLength, 600u);
  const auto *data = static_cast<const uint8_t *>(info.data);
  EXPECT_EQ(std::vector<uint8_t>(data, data + 100), part);
  EXPECT_EQ(std::vector<uint8_t>(data + 100, data + 600), std::vector<uint8_t>(500, 0));
  EXPECT_EQ(Record(item)->bufferLength, 680u);
  EXPECT_EQ(Pelarix_CloseHandle(item), Pelarix_Success);
}

}  // namespace
}  // namespace pelarix
