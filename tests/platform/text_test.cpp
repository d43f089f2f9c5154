// ANSI-to-UTF-16 conversion: UTF-8 on POSIX, with MultiByteToWideChar's rules
// for lengths, NULs, small buffers and ill-formed input; on Windows the
// system's own conversion with its ANSI code page.
#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#undef CreateEvent  // the platform layer's own function of that name
#endif

#include <algorithm>
#include <string>

#include "platform/platform.h"

namespace pelarix::platform {
namespace {

// Converts bytes (all of them, NULs included) into a buffer of capacity
// characters; the result's size is what the call returned.
std::u16string Convert(const std::string &bytes, int32_t capacity = 64) {
  std::u16string out(static_cast<size_t>(capacity), u'#');
  const int32_t written = AnsiToUtf16(bytes.data(), static_cast<int32_t>(bytes.size()),
                                      capacity == 0 ? nullptr : out.data(), capacity);
  out.resize(static_cast<size_t>(written));
  return out;
}

TEST(TextTest, AsciiIsWidened) {
  EXPECT_EQ(Convert("Vid_046d"), u"Vid_046d");
}

#ifndef _WIN32  // UTF-8, the POSIX layer's ANSI code page
TEST(TextTest, MultiByteSequences) {
  EXPECT_EQ(Convert("caf\xC3\xA9"), u"caf\u00e9");
  EXPECT_EQ(Convert("\xE2\x82\xAC"), u"\u20ac");
  EXPECT_EQ(Convert("\xEF\xBF\xBF"), u"\uffff");
  EXPECT_EQ(Convert("\xF0\x9F\x94\x8C"), u"\U0001F50C");
  EXPECT_EQ(Convert("\xF4\x8F\xBF\xBF"), u"\U0010FFFF");
}
#endif

#ifndef _WIN32  // UTF-8, the POSIX layer's ANSI code page
TEST(TextTest, NulTerminatedInputIncludesTheNul) {
  char16_t out[8] = {u'#', u'#', u'#', u'#', u'#', u'#', u'#', u'#'};
  EXPECT_EQ(AnsiToUtf16("ab\xC3\xA9", -1, out, 8), 4);
  EXPECT_EQ(std::u16string(out, 4), std::u16string(u"ab\u00e9\0", 4));
  EXPECT_EQ(out[4], u'#');
}
#endif

TEST(TextTest, EmbeddedNulIsConvertedWithAnExplicitLength) {
  EXPECT_EQ(Convert(std::string("a\0b", 3)), std::u16string(u"a\0b", 3));
}

#ifndef _WIN32  // UTF-8, the POSIX layer's ANSI code page
TEST(TextTest, ZeroOutputAsksForTheSize) {
  EXPECT_EQ(AnsiToUtf16("a\xF0\x9F\x94\x8C", 5, nullptr, 0), 3);
  EXPECT_EQ(AnsiToUtf16("abc", -1, nullptr, 0), 4);
}
#endif

TEST(TextTest, TooSmallOutputFails) {
  char16_t out[2];
  EXPECT_EQ(AnsiToUtf16("abc", 3, out, 2), 0);
  EXPECT_EQ(AnsiToUtf16("\xF0\x9F\x94\x8C", 4, out, 1), 0);
  EXPECT_EQ(AnsiToUtf16("ab", 2, out, 2), 2);
}

TEST(TextTest, InvalidArgumentsFail) {
  char16_t out[4];
  EXPECT_EQ(AnsiToUtf16(nullptr, 3, out, 4), 0);
  EXPECT_EQ(AnsiToUtf16("abc", 0, out, 4), 0);
  EXPECT_EQ(AnsiToUtf16("abc", -2, out, 4), 0);
  EXPECT_EQ(AnsiToUtf16("abc", 3, nullptr, 4), 0);
  EXPECT_EQ(AnsiToUtf16("abc", 3, out, -1), 0);
}

#ifndef _WIN32  // UTF-8, the POSIX layer's ANSI code page
TEST(TextTest, EachMaximalIllFormedSubpartBecomesOneReplacement) {
  // Stray continuation bytes and bytes that never start a sequence.
  EXPECT_EQ(Convert("a\x80"
                    "b\xBF\xC0\xC1\xF5\xFF"),
            u"a\ufffdb\ufffd\ufffd\ufffd\ufffd\ufffd");
  // A truncated sequence is one replacement, then the next byte stands.
  EXPECT_EQ(Convert("\xE2\x82"
                    "A"),
            u"\ufffdA");
  EXPECT_EQ(Convert("\xF0\x9F\x94"), u"\ufffd");
  EXPECT_EQ(Convert("\xC3"), u"\ufffd");
  // Overlong forms, surrogates and values past U+10FFFF fail at their
  // second byte, which then stands on its own.
  EXPECT_EQ(Convert("\xE0\x80\x80"), u"\ufffd\ufffd\ufffd");
  EXPECT_EQ(Convert("\xED\xA0\x80"), u"\ufffd\ufffd\ufffd");
  EXPECT_EQ(Convert("\xF0\x80\x80\x80"), u"\ufffd\ufffd\ufffd\ufffd");
  EXPECT_EQ(Convert("\xF4\x90\x80\x80"), u"\ufffd\ufffd\ufffd\ufffd");
}
#endif

#ifndef _WIN32  // UTF-8, the POSIX layer's ANSI code page
TEST(TextTest, LongestInputNeverNeedsMoreUnitsThanBytes) {
  const std::string bytes = std::string(250, '\xF0') + "\x9F\x94\x8C";
  EXPECT_LE(AnsiToUtf16(bytes.data(), static_cast<int32_t>(bytes.size()), nullptr, 0),
            static_cast<int32_t>(bytes.size()));
}
#endif

#ifdef _WIN32
// The system's ANSI code page, which is Windows-1252 in the test run's Wine
// prefix (U.S. English): one character per byte, 0x80 the euro sign.
TEST(TextTest, WindowsConvertsWithTheSystemsAnsiCodePage) {
  ASSERT_EQ(GetACP(), 1252u);
  EXPECT_EQ(Convert("caf\xE9"), u"caf\u00e9");
  EXPECT_EQ(Convert("\x80"), u"\u20ac");
  EXPECT_EQ(AnsiToUtf16("a\xE9\x80", 3, nullptr, 0), 3);
  char16_t out[8];
  std::fill(out, out + 8, u'#');
  EXPECT_EQ(AnsiToUtf16("ab\xE9", -1, out, 8), 4);
  EXPECT_EQ(std::u16string(out, 4), std::u16string(u"ab\u00e9\0", 4));
  EXPECT_EQ(out[4], u'#');
}
#endif

}  // namespace
}  // namespace pelarix::platform
