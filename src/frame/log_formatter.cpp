#include "frame/log_formatter.h"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/platform.h"

namespace pelarix {
namespace {

// Widths, precisions and field lengths beyond this cannot change what fits in
// a message; clamping them keeps the arithmetic far from overflow.
constexpr int kFieldLimit = 0x100000;
// A narrow argument of a wide message is converted on the stack, at most this
// many bytes of it (a message holds fewer characters than that anyway).
constexpr int kConvertChars = 256;
// Room for the longest fixed-point double at the largest precision we pass on
// (309 integer digits, point, kFloatPrecisionLimit decimals).
constexpr int kFloatPrecisionLimit = 300;
constexpr int kFloatChars = 640;

enum class LengthModifier {
  kNone,
  kChar,
  kShort,
  kLong,
  kLongLong,
  kLongDouble,
  kIntMax,
  kSize,
  kPtrDiff,
  kInt32,
  kWide
};

struct Directive {
  bool leftAlign = false;
  bool plusSign = false;
  bool spaceSign = false;
  bool alternate = false;
  bool leadZero = false;
  int width = 0;
  int precision = -1;  // -1: none given
  LengthModifier length = LengthModifier::kNone;
};

bool IsDigit(int c) {
  return c >= '0' && c <= '9';
}

template <typename Unit>
int BoundedLength(const Unit *text, int limit) {
  int length = 0;
  while (length < limit && text[length] != 0) {
    ++length;
  }
  return length;
}

template <typename Char>
class LogFormatter {
 public:
  LogFormatter(Char *text, int capacity, va_list args) : text_(text), capacity_(capacity) {
    va_copy(args_, args);
  }
  ~LogFormatter() { va_end(args_); }
  LogFormatter(const LogFormatter &) = delete;
  LogFormatter &operator=(const LogFormatter &) = delete;

  int Format(const Char *format) {
    const Char *cursor = format;
    while (*cursor != 0 && !Full()) {
      if (*cursor != '%') {
        Put(*cursor++);
        continue;
      }
      cursor = Convert(cursor);
    }
    text_[length_] = 0;
    return length_;
  }

 private:
  static constexpr bool kWideOutput = std::is_same_v<Char, char16_t>;

  bool Full() const { return length_ >= capacity_ - 1; }

  void Put(Char unit) {
    if (!Full()) {
      text_[length_++] = unit;
    }
  }

  // Narrow units reach a wide message only as ASCII (digits, fixed words) or
  // already converted; wide units that a narrow message cannot hold become '?'.
  template <typename Unit>
  void PutUnit(Unit unit) {
    if constexpr (sizeof(Unit) > sizeof(Char)) {
      Put(unit < 0x80 ? static_cast<Char>(unit) : static_cast<Char>('?'));
    } else {
      Put(static_cast<Char>(static_cast<std::make_unsigned_t<Unit>>(unit)));
    }
  }

  void PutRepeated(Char unit, int count) {
    for (; count > 0 && !Full(); --count) {
      Put(unit);
    }
  }

  // One conversion starting at '%'. Returns where the format goes on.
  const Char *Convert(const Char *percent) {
    Directive directive;
    const Char *cursor = ParseFlags(percent + 1, &directive);
    cursor = ParseWidth(cursor, &directive);
    cursor = ParsePrecision(cursor, &directive);
    cursor = ParseLength(cursor, &directive);
    const Char conversion = *cursor;
    if (conversion == 0) {
      return cursor;  // a lone '%' at the end prints nothing
    }
    const bool known =
        conversion <= 0x7F && EmitConversion(static_cast<char>(conversion), directive);
    if (!known) {
      // Unknown conversions (and %n, which would write through an argument)
      // are copied as they stand and consume no argument.
      for (const Char *echo = percent; echo <= cursor; ++echo) {
        Put(*echo);
      }
    }
    return cursor + 1;
  }

  const Char *ParseFlags(const Char *cursor, Directive *directive) {
    for (;; ++cursor) {
      switch (*cursor) {
        case '-':
          directive->leftAlign = true;
          break;
        case '+':
          directive->plusSign = true;
          break;
        case ' ':
          directive->spaceSign = true;
          break;
        case '#':
          directive->alternate = true;
          break;
        case '0':
          directive->leadZero = true;
          break;
        default:
          return cursor;
      }
    }
  }

  static const Char *ParseNumber(const Char *cursor, int *value) {
    int number = 0;
    for (; IsDigit(*cursor); ++cursor) {
      number = number * 10 + (*cursor - '0');
      if (number > kFieldLimit) {
        number = kFieldLimit;
      }
    }
    *value = number;
    return cursor;
  }

  static int ClampField(int value) { return value > kFieldLimit ? kFieldLimit : value; }

  const Char *ParseWidth(const Char *cursor, Directive *directive) {
    if (*cursor != '*') {
      return ParseNumber(cursor, &directive->width);
    }
    const int width = va_arg(args_, int);
    if (width < 0) {
      directive->leftAlign = true;
      directive->width = width < -kFieldLimit ? kFieldLimit : -width;
    } else {
      directive->width = ClampField(width);
    }
    return cursor + 1;
  }

  const Char *ParsePrecision(const Char *cursor, Directive *directive) {
    if (*cursor != '.') {
      return cursor;
    }
    ++cursor;
    if (*cursor != '*') {
      return ParseNumber(cursor, &directive->precision);
    }
    const int precision = va_arg(args_, int);
    directive->precision = precision < 0 ? -1 : ClampField(precision);
    return cursor + 1;
  }

  static const Char *ParseLength(const Char *cursor, Directive *directive) {
    switch (*cursor) {
      case 'h':
        if (cursor[1] == 'h') {
          directive->length = LengthModifier::kChar;
          return cursor + 2;
        }
        directive->length = LengthModifier::kShort;
        return cursor + 1;
      case 'l':
        if (cursor[1] == 'l') {
          directive->length = LengthModifier::kLongLong;
          return cursor + 2;
        }
        directive->length = LengthModifier::kLong;
        return cursor + 1;
      case 'L':
        directive->length = LengthModifier::kLongDouble;
        return cursor + 1;
      case 'j':
        directive->length = LengthModifier::kIntMax;
        return cursor + 1;
      case 'z':
        directive->length = LengthModifier::kSize;
        return cursor + 1;
      case 't':
        directive->length = LengthModifier::kPtrDiff;
        return cursor + 1;
      case 'w':
        directive->length = LengthModifier::kWide;
        return cursor + 1;
      case 'I':
        if (cursor[1] == '6' && cursor[2] == '4') {
          directive->length = LengthModifier::kLongLong;
          return cursor + 3;
        }
        if (cursor[1] == '3' && cursor[2] == '2') {
          directive->length = LengthModifier::kInt32;
          return cursor + 3;
        }
        directive->length = LengthModifier::kPtrDiff;
        return cursor + 1;
      default:
        return cursor;
    }
  }

  // Emits one known conversion; false for one that is not known.
  bool EmitConversion(char conversion, const Directive &directive) {
    switch (conversion) {
      case 'd':
      case 'i':
        EmitSigned(directive);
        return true;
      case 'u':
      case 'o':
      case 'x':
      case 'X':
        EmitUnsigned(directive, conversion);
        return true;
      case 'c':
      case 'C':
        EmitCharacter(directive, IsWideArgument(directive, conversion == 'C'));
        return true;
      case 's':
      case 'S':
        EmitString(directive, IsWideArgument(directive, conversion == 'S'));
        return true;
      case 'p':
        EmitPointer(directive);
        return true;
      case 'f':
      case 'F':
      case 'e':
      case 'E':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
        EmitFloat(directive, conversion);
        return true;
      case '%':
        Put('%');
        return true;
      default:
        return false;
    }
  }

  // The runtime's rule: h is narrow and l or w wide whatever the function;
  // otherwise the lower-case letter has the message's width and the
  // upper-case one the other.
  static bool IsWideArgument(const Directive &directive, bool upperCase) {
    if (directive.length == LengthModifier::kShort) {
      return false;
    }
    if (directive.length == LengthModifier::kLong || directive.length == LengthModifier::kWide) {
      return true;
    }
    return upperCase ? !kWideOutput : kWideOutput;
  }

  // Each case reads the C type its modifier names. intmax_t and ptrdiff_t
  // (size_t) are one type on 64-bit targets but not on 32-bit ones, so their
  // cases stay apart even where the compiler sees the same code.
  int64_t ReadSigned(LengthModifier length) {
    switch (length) {
      case LengthModifier::kChar:
        return static_cast<signed char>(va_arg(args_, int));
      case LengthModifier::kShort:
        return static_cast<short>(va_arg(args_, int));
      case LengthModifier::kLong:
        return va_arg(args_, long);
      case LengthModifier::kLongLong:
        return va_arg(args_, long long);
      // NOLINTNEXTLINE(bugprone-branch-clone): alike on 64-bit targets only
      case LengthModifier::kIntMax:
        return va_arg(args_, intmax_t);
      case LengthModifier::kSize:
      case LengthModifier::kPtrDiff:
        return va_arg(args_, ptrdiff_t);
      default:
        return va_arg(args_, int);
    }
  }

  uint64_t ReadUnsigned(LengthModifier length) {
    switch (length) {
      case LengthModifier::kChar:
        return static_cast<unsigned char>(va_arg(args_, unsigned));
      case LengthModifier::kShort:
        return static_cast<unsigned short>(va_arg(args_, unsigned));
      case LengthModifier::kLong:
        return va_arg(args_, unsigned long);
      case LengthModifier::kLongLong:
        return va_arg(args_, unsigned long long);
      // NOLINTNEXTLINE(bugprone-branch-clone): alike on 64-bit targets only
      case LengthModifier::kIntMax:
        return va_arg(args_, uintmax_t);
      case LengthModifier::kSize:
      case LengthModifier::kPtrDiff:
        return va_arg(args_, size_t);
      default:
        return va_arg(args_, unsigned);
    }
  }

  void EmitSigned(const Directive &directive) {
    const int64_t value = ReadSigned(directive.length);
    const uint64_t magnitude =
        value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    char prefix[1];
    int prefixLength = 0;
    if (value < 0) {
      prefix[prefixLength++] = '-';
    } else if (directive.plusSign) {
      prefix[prefixLength++] = '+';
    } else if (directive.spaceSign) {
      prefix[prefixLength++] = ' ';
    }
    EmitDigits(directive, magnitude, 10, false, prefix, prefixLength);
  }

  void EmitUnsigned(const Directive &directive, char conversion) {
    const uint64_t value = ReadUnsigned(directive.length);
    const bool upper = conversion == 'X';
    char prefix[2];
    int prefixLength = 0;
    if (directive.alternate && value != 0 && (conversion == 'x' || conversion == 'X')) {
      prefix[prefixLength++] = '0';
      prefix[prefixLength++] = upper ? 'X' : 'x';
    }
    const unsigned base = conversion == 'o' ? 8 : conversion == 'u' ? 10 : 16;
    EmitDigits(directive, value, base, upper, prefix, prefixLength);
  }

  // Digits of value after the sign or 0x prefix. The precision is the least
  // number of digits, and a precision of 0 prints no digit for 0. A given
  // precision turns the 0 flag off, as in the runtime.
  void EmitDigits(const Directive &directive, uint64_t value, unsigned base, bool upper,
                  const char *prefix, int prefixLength) {
    const char *symbols = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char reversed[24];
    int count = 0;
    if (value != 0 || directive.precision != 0) {
      do {
        reversed[count++] = symbols[value % base];
        value /= base;
      } while (value != 0);
    }
    int zeros = directive.precision > count ? directive.precision - count : 0;
    if (directive.alternate && base == 8 && zeros == 0 &&
        (count == 0 || reversed[count - 1] != '0')) {
      zeros = 1;
    }
    char digits[sizeof(reversed)];
    int length = 0;
    while (count > 0) {
      digits[length++] = reversed[--count];
    }
    Directive field = directive;
    if (directive.precision >= 0) {
      field.leadZero = false;
    }
    EmitField(field, prefix, prefixLength, zeros, digits, length);
  }

  void EmitPointer(const Directive &directive) {
    Directive pointer = directive;
    pointer.precision = static_cast<int>(2 * sizeof(void *));
    pointer.alternate = false;
    const auto value = reinterpret_cast<uintptr_t>(va_arg(args_, void *));
    EmitDigits(pointer, value, 16, true, nullptr, 0);
  }

  void EmitCharacter(const Directive &directive, bool wideArgument) {
    const int value = va_arg(args_, int);
    if (wideArgument) {
      const auto unit = static_cast<char16_t>(value);
      EmitWideText(directive, &unit, 1);
    } else {
      const auto unit = static_cast<char>(value);
      EmitNarrowText(directive, &unit, 1);
    }
  }

  void EmitString(const Directive &directive, bool wideArgument) {
    const int limit = directive.precision >= 0 ? directive.precision : kFieldLimit;
    if (wideArgument) {
      const auto *text = va_arg(args_, const char16_t *);
      if (text == nullptr) {
        text = u"(null)";
      }
      EmitWideText(directive, text, BoundedLength(text, limit));
    } else {
      const auto *text = va_arg(args_, const char *);
      if (text == nullptr) {
        text = "(null)";
      }
      EmitNarrowText(directive, text, BoundedLength(text, limit));
    }
  }

  void EmitWideText(const Directive &directive, const char16_t *text, int length) {
    EmitField(directive, nullptr, 0, 0, text, length);
  }

  // A narrow argument of a wide message goes through the system's code page
  // conversion first, from a stack buffer.
  void EmitNarrowText(const Directive &directive, const char *text, int length) {
    if constexpr (kWideOutput) {
      char16_t converted[kConvertChars];
      const int bytes = length < kConvertChars - 1 ? length : kConvertChars - 1;
      const int units =
          bytes == 0 ? 0 : platform::AnsiToUtf16(text, bytes, converted, kConvertChars);
      EmitField(directive, nullptr, 0, 0, converted, units);
    } else {
      EmitField(directive, nullptr, 0, 0, text, length);
    }
  }

  void EmitFloat(const Directive &directive, char conversion) {
    const double value = directive.length == LengthModifier::kLongDouble
                             ? static_cast<double>(va_arg(args_, long double))
                             : va_arg(args_, double);
    const char lower = static_cast<char>(conversion | 0x20);
    const bool upper = conversion != lower;
    char prefix[3];
    int prefixLength = 0;
    if (std::signbit(value)) {
      prefix[prefixLength++] = '-';
    } else if (directive.plusSign) {
      prefix[prefixLength++] = '+';
    } else if (directive.spaceSign) {
      prefix[prefixLength++] = ' ';
    }
    const double magnitude = std::fabs(value);
    const bool finite = std::isfinite(magnitude);
    if (lower == 'a' && finite) {
      prefix[prefixLength++] = '0';
      prefix[prefixLength++] = upper ? 'X' : 'x';
    }
    char digits[kFloatChars];
    const int length = FloatDigits(magnitude, lower, directive.precision, digits);
    if (upper) {
      for (int i = 0; i < length; ++i) {
        if (digits[i] >= 'a' && digits[i] <= 'z') {
          digits[i] = static_cast<char>(digits[i] - 0x20);
        }
      }
    }
    Directive field = directive;
    if (!finite) {
      field.leadZero = false;
    }
    EmitField(field, prefix, prefixLength, 0, digits, length);
  }

  static int FloatDigits(double magnitude, char lower, int precision, char *digits) {
    std::to_chars_result result{};
    char *const end = digits + kFloatChars;
    if (precision > kFloatPrecisionLimit) {
      precision = kFloatPrecisionLimit;
    }
    if (lower == 'a') {
      result = precision < 0
                   ? std::to_chars(digits, end, magnitude, std::chars_format::hex)
                   : std::to_chars(digits, end, magnitude, std::chars_format::hex, precision);
    } else {
      const std::chars_format format = lower == 'f'   ? std::chars_format::fixed
                                       : lower == 'e' ? std::chars_format::scientific
                                                      : std::chars_format::general;
      result = std::to_chars(digits, end, magnitude, format, precision < 0 ? 6 : precision);
    }
    return result.ec == std::errc() ? static_cast<int>(result.ptr - digits) : 0;
  }

  // The runtime's field layout: spaces, the sign or 0x prefix, zeros from the
  // 0 flag, zeros from the precision, the body, and spaces behind for a
  // left-aligned field.
  template <typename Unit>
  void EmitField(const Directive &directive, const char *prefix, int prefixLength,
                 int precisionZeros, const Unit *body, int bodyLength) {
    const int used = prefixLength + precisionZeros + bodyLength;
    const int padding = directive.width > used ? directive.width - used : 0;
    if (!directive.leftAlign && !directive.leadZero) {
      PutRepeated(' ', padding);
    }
    for (int i = 0; i < prefixLength; ++i) {
      Put(static_cast<Char>(prefix[i]));
    }
    if (!directive.leftAlign && directive.leadZero) {
      PutRepeated('0', padding);
    }
    PutRepeated('0', precisionZeros);
    for (int i = 0; i < bodyLength && !Full(); ++i) {
      PutUnit(body[i]);
    }
    if (directive.leftAlign) {
      PutRepeated(' ', padding);
    }
  }

  Char *text_;
  int capacity_;
  int length_ = 0;
  // The constructor's va_copy fills it; the braces make it defined before that
  // for tools that do not take va_copy for an initialisation.
  va_list args_{};
};

}  // namespace

int FormatLogText(char16_t *text, int capacity, const char16_t *format, va_list args) {
  return LogFormatter<char16_t>(text, capacity, args).Format(format);
}

int FormatLogText(char *text, int capacity, const char *format, va_list args) {
  return LogFormatter<char>(text, capacity, args).Format(format);
}

}  // namespace pelarix
