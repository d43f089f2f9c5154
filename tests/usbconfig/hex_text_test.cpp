#include "ordo/usb/hex_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace ordo::usb {
namespace {

std::string Render(const std::string &bytes, uint32_t outSize = 4096) {
  std::string out(outSize, '#');
  const int32_t written = HexText(reinterpret_cast<const uint8_t *>(bytes.data()),
                                  static_cast<uint32_t>(bytes.size()), out.data(), outSize);
  EXPECT_EQ(static_cast<size_t>(written), std::strlen(out.c_str()));
  return out.c_str();
}

TEST(HexText, SixteenBytesGiveOneLineWithoutLineEnd) {
  EXPECT_EQ(Render("0123456789abcdef"),
            "0000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  0123456789abcdef");
}

TEST(HexText, SeventeenBytesGiveTwoLines) {
  EXPECT_EQ(Render("0123456789abcdefg"),
            "0000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  0123456789abcdef\n"
            "0010  67 " +
                std::string(45, ' ') + " g");
}

TEST(HexText, ThreeByteDescriptorIsFilledWithThirtyNineBlanks) {
  EXPECT_EQ(Render(std::string("\x03\x31\x5a", 3)),
            "0000  03 31 5a " + std::string(39, ' ') + " .1Z");
}

TEST(HexText, AsciiColumnShowsOnlyThirtyTwoToOneHundredTwentySix) {
  EXPECT_EQ(Render(std::string("\x1f\x20\x7e\x7f\xff", 5)),
            "0000  1f 20 7e 7f ff " + std::string(33, ' ') + " . ~..");
}

TEST(HexText, OffsetIsThatOfTheLinesFirstByteInHex) {
  const std::string text = Render(std::string(33, 'A'));
  EXPECT_NE(text.find("\n0010  41"), std::string::npos);
  EXPECT_NE(text.find("\n0020  41 "), std::string::npos);
}

TEST(HexText, NullBytesOrZeroLengthGiveNothing) {
  char out[16] = "untouched";
  EXPECT_EQ(HexText(nullptr, 4, out, sizeof out), 0);
  const uint8_t byte = 1;
  EXPECT_EQ(HexText(&byte, 0, out, sizeof out), 0);
}

TEST(HexText, LengthAboveOutSizeIsCutAndTextStopsWhereRoomEnds) {
  // Cut to 7 bytes; the offset piece fits, the first byte's piece doesn't.
  EXPECT_EQ(Render(std::string(100, 'x'), 8), "0000  ");
  // Room for the offset and two bytes.
  EXPECT_EQ(Render(std::string(100, 'x'), 13), "0000  78 78 ");
}

TEST(HexText, TextStopsBeforeTheAsciiColumnThatNoLongerFits) {
  // One full line is 6 + 48 + 1 + 16 + 1 = 72 characters; 71 leave out the column.
  const std::string text = Render(std::string(32, 'x'), 60 + 12);
  EXPECT_EQ(text, "0000  " + std::string() + "78 78 78 78 78 78 78 78 78 78 78 78 78 78 78 78 ");
}

}  // namespace
}  // namespace ordo::usb
