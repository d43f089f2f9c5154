#include "frame/log_formatter.h"

#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#undef CreateEvent  // the platform layer's own function of that name
#endif

#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <limits>
#include <string>

#include "log_capture.h"

namespace pelarix {
namespace {

using testing::Printable;

#ifdef _WIN32
std::string Shown(const std::string &text) {
  return text;
}
std::string Shown(const std::u16string &text) {
  return Printable(text);
}

// Whether the C runtime is the reference for a format: when each directive is
// one the library's own messages use (integers, pointers, characters and
// texts of the format's own width, with flags, width and precision). Where
// the runtimes disagree among themselves (msvcrt and the universal runtime
// on floating point, %hh, the zero flag beside a precision, a narrow text's
// code page, conversions no standard knows), the formatter keeps its one
// documented answer and the runtime is not asked.
template <typename Char>
bool RuntimeIsAskedAbout(const Char *format) {
  const std::string allowed = "diuxXopcs";
  for (const Char *at = format; *at != 0; ++at) {
    if (*at != '%') continue;
    if (*++at == '%') continue;
    bool zeroFlag = false;
    for (; *at == '-' || *at == '+' || *at == ' ' || *at == '#' || *at == '0'; ++at) {
      zeroFlag = zeroFlag || *at == '0';
    }
    // Fields wider than any message are the formatter's own bound to keep.
    auto skipNumber = [&at] {
      long value = 0;
      for (; (*at >= '0' && *at <= '9') || *at == '*'; ++at) {
        if (*at != '*') value = value * 10 + (*at - '0');
        if (value > 252) return false;
      }
      return true;
    };
    if (!skipNumber()) return false;
    if (*at == '.') {
      if (zeroFlag) return false;
      ++at;
      if (!skipNumber()) return false;
    }
    if (*at == 0 || allowed.find(static_cast<char>(*at)) == std::string::npos) return false;
  }
  return true;
}

// The Windows C runtime's own formatting, which the library's formatter
// follows: msvcrt's _vsnwprintf and _vsnprintf, found by name so that no
// compatibility layer of the compiler's runtime stands in between.
template <typename Char>
std::basic_string<Char> FormatWithRuntime(int capacity, const Char *format, va_list args) {
  using Formatter = int(__cdecl *)(Char *, size_t, const Char *, va_list);
  HMODULE runtime = GetModuleHandleW(L"msvcrt.dll");
  const char *name = sizeof(Char) == 1 ? "_vsnprintf" : "_vsnwprintf";
  // FARPROC names no signature; the cast through void * gives it its own.
  auto formatter =
      reinterpret_cast<Formatter>(reinterpret_cast<void *>(GetProcAddress(runtime, name)));
  if (formatter == nullptr) return {};
  Char text[600] = {};
  // The runtime writes at most count characters and ends with a NUL only
  // if it fits; the library's buffer keeps one place for the NUL.
  formatter(text, static_cast<size_t>(capacity - 1), format, args);
  text[capacity - 1] = 0;
  return text;
}
#endif

// Formats into a buffer of capacity characters and checks that the length
// returned is where the NUL stands. Under Windows each case is also formatted
// by the C runtime, which must give the same text.
template <typename Char>
std::basic_string<Char> FormatArgs(int capacity, const Char *format, va_list args) {
#ifdef _WIN32
  va_list runtimeArgs;
  va_copy(runtimeArgs, args);
#endif
  Char text[600];
  const int length = FormatLogText(text, capacity, format, args);
  EXPECT_EQ(std::char_traits<Char>::length(text), static_cast<size_t>(length));
#ifdef _WIN32
  if (RuntimeIsAskedAbout(format)) {
    const std::basic_string<Char> runtimeText = FormatWithRuntime(capacity, format, runtimeArgs);
    EXPECT_EQ(Shown(runtimeText), Shown(std::basic_string<Char>(text)))
        << "the runtime formats it otherwise: " << Shown(std::basic_string<Char>(format));
  }
  va_end(runtimeArgs);
#endif
  return text;
}

std::string FormatWithCapacity(int capacity, const char16_t *format, ...) {
  va_list args;
  va_start(args, format);
  const std::u16string text = FormatArgs(capacity, format, args);
  va_end(args);
  return Printable(text);
}

#define WIDE(...) FormatWithCapacity(252, __VA_ARGS__)

std::string Narrow(int capacity, const char *format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = FormatArgs(capacity, format, args);
  va_end(args);
  return text;
}

TEST(LogFormatterTest, PlainTextAndPercent) {
  EXPECT_EQ(WIDE(u"Close handle"), "Close handle");
  EXPECT_EQ(WIDE(u"100%% sure"), "100% sure");
  EXPECT_EQ(WIDE(u""), "");
}

TEST(LogFormatterTest, SignedAndUnsignedIntegers) {
  EXPECT_EQ(WIDE(u"%d|%i|%u", -42, 7, 4000000000u), "-42|7|4000000000");
  EXPECT_EQ(WIDE(u"%d", std::numeric_limits<int>::min()), "-2147483648");
  EXPECT_EQ(WIDE(u"%x|%X|%o", 0xBEEFu, 0xbeefu, 8u), "beef|BEEF|10");
  EXPECT_EQ(WIDE(u"status: 0x%x", 0xFFFFFFFFu), "status: 0xffffffff");
  EXPECT_EQ(WIDE(u"%+d|% d|%+d", 5, 5, -5), "+5| 5|-5");
}

TEST(LogFormatterTest, WidthPrecisionAndFlags) {
  EXPECT_EQ(WIDE(u"Vid_%04.4x&Pid_%04.4x", 0x1au, 0xC52Bu), "Vid_001a&Pid_c52b");
  EXPECT_EQ(WIDE(u"%4.4x%4.4x", 0x409u, 0x4b0u), "040904b0");
  EXPECT_EQ(WIDE(u"[%4x][%-4x][%04x]", 0x1au, 0x1au, 0x1au), "[  1a][1a  ][001a]");
  EXPECT_EQ(WIDE(u"[%08.3d]", 42), "[     042]");
  EXPECT_EQ(WIDE(u"[%05d][%-05d]", -42, -42), "[-0042][-42  ]");
  EXPECT_EQ(WIDE(u"[%.0d][%.0x]", 0, 0u), "[][]");
  EXPECT_EQ(WIDE(u"[%#x][%#X][%#x][%#o][%#o]", 0x1fu, 0x1fu, 0u, 8u, 0u),
            "[0x1f][0X1F][0][010][0]");
  EXPECT_EQ(WIDE(u"[%#06x]", 0x1fu), "[0x001f]");
}

TEST(LogFormatterTest, StarWidthAndPrecision) {
  EXPECT_EQ(WIDE(u"[%*d]", 5, 42), "[   42]");
  EXPECT_EQ(WIDE(u"[%*d]", -5, 42), "[42   ]");
  EXPECT_EQ(WIDE(u"[%.*s]", 3, u"abcdef"), "[abc]");
  EXPECT_EQ(WIDE(u"[%.*s]", -1, u"abcdef"), "[abcdef]");
  EXPECT_EQ(WIDE(u"[%*.*x]", 6, 4, 0xau), "[  000a]");
}

TEST(LogFormatterTest, LengthModifiers) {
  EXPECT_EQ(
      WIDE(u"%lld|%I64d|%llx|%I64X", -5000000000LL, 5000000000LL, 0x123456789ULL, 0xABCDEF012ULL),
      "-5000000000|5000000000|123456789|ABCDEF012");
  EXPECT_EQ(WIDE(u"%hd|%hu|%hhu|%hhd", 70000, 70000, 300, 200), "4464|4464|44|-56");
  EXPECT_EQ(WIDE(u"%ld|%lu", -3L, 3UL), "-3|3");
  EXPECT_EQ(WIDE(u"%zu|%Iu|%td|%jd", size_t{9}, size_t{10}, ptrdiff_t{-11}, intmax_t{12}),
            "9|10|-11|12");
  EXPECT_EQ(WIDE(u"%I32d|%I32x", -1, 0xffu), "-1|ff");
}

TEST(LogFormatterTest, PointerIsSixteenUppercaseDigits) {
  EXPECT_EQ(WIDE(u"handle: %p", reinterpret_cast<void *>(0xABCDEF12)), "handle: 00000000ABCDEF12");
  EXPECT_EQ(WIDE(u"%p", nullptr), "0000000000000000");
  EXPECT_EQ(WIDE(u"[%20p]", reinterpret_cast<void *>(1)), "[    0000000000000001]");
  EXPECT_EQ(WIDE(u"[%-18p]", reinterpret_cast<void *>(1)), "[0000000000000001  ]");
}

TEST(LogFormatterTest, WideFormatStrings) {
  EXPECT_EQ(WIDE(u"%s initialized", u"Hub API"), "Hub API initialized");
  EXPECT_EQ(WIDE(u"%S|%hs|%ls|%ws", "narrow", "h", u"l", u"w"), "narrow|h|l|w");
  EXPECT_EQ(
      WIDE(u"[%s][%S]", static_cast<const char16_t *>(nullptr), static_cast<const char *>(nullptr)),
      "[(null)][(null)]");
  EXPECT_EQ(WIDE(u"[%6s][%-6s][%.2s]", u"ab", u"ab", u"abcd"), "[    ab][ab    ][ab]");
  // The runtime pads strings with zeros too when asked.
  EXPECT_EQ(WIDE(u"[%05s]", u"ab"), "[000ab]");
  // A narrow argument goes through the code page (UTF-8 here).
#ifdef _WIN32
  // The system's ANSI code page, Windows-1252 in the test run.
  EXPECT_EQ(WIDE(u"%S", "caf\xE9"), "caf\\u00e9");
  EXPECT_EQ(WIDE(u"%S", "\x80"), "\\u20ac");
#else
  EXPECT_EQ(WIDE(u"%S", "caf\xC3\xA9"), "caf\\u00e9");
  EXPECT_EQ(WIDE(u"%S", "\xF0\x9F\x94\x8C"), "\\ud83d\\udd0c");
#endif
}

TEST(LogFormatterTest, Characters) {
  EXPECT_EQ(WIDE(u"[%c][%C][%hc][%lc][%3c]", u'w', 'n', 'h', u'l', u'x'), "[w][n][h][l][  x]");
  EXPECT_EQ(WIDE(u"%c", 0x20AC), "\\u20ac");
}

TEST(LogFormatterTest, FloatingPoint) {
  EXPECT_EQ(WIDE(u"%f|%.2f|%10.3f|%-8.1f|", 1.5, 3.14159, 2.5, -0.25),
            "1.500000|3.14|     2.500|-0.2    |");
  EXPECT_EQ(WIDE(u"%e|%E|%g|%g|%G", 12345.678, 0.5, 0.0001, 1e20, 1e-10),
            "1.234568e+04|5.000000E-01|0.0001|1e+20|1E-10");
  EXPECT_EQ(WIDE(u"%a|%+.1f|%08.2f", 1.0, 2.0, -3.5), "0x1p+0|+2.0|-0003.50");
  EXPECT_EQ(WIDE(u"%f|%F|%f", std::numeric_limits<double>::infinity(),
                 std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()),
            "inf|INF|-inf");
  EXPECT_EQ(WIDE(u"%Lf", 0.5L), "0.500000");
}

TEST(LogFormatterTest, UnknownConversionsAreCopiedAndConsumeNothing) {
  EXPECT_EQ(WIDE(u"%q %d", 7), "%q 7");
  EXPECT_EQ(WIDE(u"%-5k|%d", 8), "%-5k|8");
  EXPECT_EQ(WIDE(u"trailing %"), "trailing ");
  EXPECT_EQ(WIDE(u"%\u00e9%d", 9), "%\\u00e99");
}

TEST(LogFormatterTest, PercentNWritesNothing) {
  int target = 1234;
  EXPECT_EQ(WIDE(u"ab%n%d", 5), "ab%n5");
  EXPECT_EQ(target, 1234);
}

TEST(LogFormatterTest, TruncatesToCapacity) {
  EXPECT_EQ(FormatWithCapacity(8, u"abcdefghij"), "abcdefg");
  EXPECT_EQ(FormatWithCapacity(8, u"ab%s", u"cdefghij"), "abcdefg");
  EXPECT_EQ(FormatWithCapacity(8, u"%12d", 5), "       ");
  EXPECT_EQ(FormatWithCapacity(8, u"%-12d|", 5), "5      ");
  EXPECT_EQ(FormatWithCapacity(1, u"abc"), "");
  EXPECT_EQ(FormatWithCapacity(4, u"%.500d", 1), "000");
  EXPECT_EQ(FormatWithCapacity(4, u"%999999999d", 1), "   ");
}

TEST(LogFormatterTest, NarrowFormat) {
  EXPECT_EQ(Narrow(252, "DevFltr: %s=%d", "Vid", 5), "DevFltr: Vid=5");
  EXPECT_EQ(Narrow(252, "%S|%ls|%hs", u"wide", u"l\u00e9", "h"), "wide|l?|h");
  EXPECT_EQ(Narrow(252, "%c%C", 'a', u'b'), "ab");
  EXPECT_EQ(Narrow(252, "%p", reinterpret_cast<void *>(0x10)), "0000000000000010");
  EXPECT_EQ(Narrow(6, "%s", "abcdefgh"), "abcde");
  EXPECT_EQ(Narrow(252, "50%% %z"), "50% ");
}

}  // namespace
}  // namespace pelarix
