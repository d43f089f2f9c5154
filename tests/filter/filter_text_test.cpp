#include "ordo/usb/filter_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "filter/filter_text_walk.h"

namespace ordo::usb {
namespace {

using Tokens = std::vector<std::string>;

TEST(SplitFilterText, SeparatorInsideParenthesesDoesNotCount) {
  EXPECT_EQ(splitFilterText("a;b(c;d);e", ";"), (Tokens{"a", "b(c;d)", "e"}));
}

TEST(SplitFilterText, EmptyTokensVanish) {
  EXPECT_EQ(splitFilterText("a;;b", ";"), (Tokens{"a", "b"}));
  EXPECT_EQ(splitFilterText(";a;", ";"), (Tokens{"a"}));
  EXPECT_EQ(splitFilterText(";", ";"), Tokens{});
  EXPECT_EQ(splitFilterText("", ";"), Tokens{});
}

TEST(SplitFilterText, UnclosedParenthesisKeepsTheRestWhole) {
  EXPECT_EQ(splitFilterText("a(b;c", ";"), (Tokens{"a(b;c"}));
}

TEST(SplitFilterText, OnlyTheFirstPairBehindTheTokenStartIsLookedAt) {
  EXPECT_EQ(splitFilterText("(a)b(c;d)", ";"), (Tokens{"(a)b(c", "d)"}));
}

TEST(SplitFilterText, OpenParenthesisAsSeparatorIgnoresParentheses) {
  EXPECT_EQ(splitFilterText("vid-1_pid-2(exintf:01;exintf:02)", "("),
            (Tokens{"vid-1_pid-2", "exintf:01;exintf:02)"}));
  EXPECT_EQ(splitFilterText("a((b", "("), (Tokens{"a", "b"}));
}

TEST(SplitFilterText, MultiCharacterSeparator) {
  EXPECT_EQ(splitFilterText("xvid1234", "vid"), (Tokens{"x", "1234"}));
  EXPECT_EQ(splitFilterText("vid1234", "vid"), (Tokens{"1234"}));
}

TEST(SplitFilterText, BlankInsideParenthesesDoesNotSplit) {
  EXPECT_EQ(splitFilterText("spid:m:vid-1_pid-2(exintf:1; exintf:2) usehid:o:true", " "),
            (Tokens{"spid:m:vid-1_pid-2(exintf:1; exintf:2)", "usehid:o:true"}));
}

TEST(SplitFilterText, ColonsInsideParenthesesAreProtected) {
  EXPECT_EQ(splitFilterText("spid:m:vid-1_pid-2(exintf:1;exintf:2)", ":"),
            (Tokens{"spid", "m", "vid-1_pid-2(exintf:1;exintf:2)"}));
}

TEST(SplitFilterText, ClosingSeparatorSplitsAfterPair) {
  EXPECT_EQ(splitFilterText("exintf:01)", ")"), (Tokens{"exintf:01"}));
  EXPECT_EQ(splitFilterText(")", ")"), Tokens{});
  EXPECT_EQ(splitFilterText("a)b)c", ")"), (Tokens{"a", "b", "c"}));
}

// Guarded: the documented walk never returns for a ")" that stands before the
// first "(" with both before the separator.
TEST(SplitFilterText, StrayClosingParenthesisBeforeOpeningOneTerminates) {
  EXPECT_EQ(splitFilterText(")(;", ";"), (Tokens{")(;"}));
  EXPECT_EQ(splitFilterText(")(a);b", ";"), (Tokens{")(a)", "b"}));
  EXPECT_EQ(splitFilterText("x)y(z;w)v;u", ";"), (Tokens{"x)y(z;w)v", "u"}));
  EXPECT_EQ(splitFilterText("(a)", ")"), (Tokens{"(a"}));
}

TEST(SplitFilterText, EmptySeparatorGivesTheWholeText) {
  EXPECT_EQ(splitFilterText("abc", ""), (Tokens{"abc"}));
  EXPECT_EQ(splitFilterText("", ""), Tokens{});
}

// The documented walk, step for step, with only the guard against a stray
// ")" (docs/deviations.md): the reference that every text must split alike.
Tokens documentedSplit(const std::string &text, const std::string &separator) {
  constexpr auto npos = std::string::npos;
  Tokens tokens;
  if (separator.empty()) {
    if (!text.empty()) tokens.push_back(text);
    return tokens;
  }
  size_t pos = 0;
  for (;;) {
    size_t hit = text.find(separator, pos);
    if (separator != "(") {
      size_t scan = pos;
      while (hit != npos) {
        size_t open = text.find('(', scan);
        size_t close = text.find(')', scan);
        if (open == npos || open > hit) break;
        if (close != npos && close > open && hit > close) break;
        if (close != npos && close <= hit) {
          scan = close + 1;
          continue;
        }
        size_t after = text.find(')', hit);
        if (after == npos) {
          hit = text.size();
          break;
        }
        scan = after + 1;
        hit = text.find(separator, scan);
      }
    }
    std::string token = text.substr(pos, hit == npos ? npos : hit - pos);
    if (!token.empty()) tokens.push_back(token);
    if (hit == npos || hit >= text.size()) break;
    pos = hit + separator.size();
  }
  return tokens;
}

TEST(SplitFilterText, EveryShortTextSplitsAsTheDocumentedWalk) {
  const std::string alphabet = "a;()_";
  const std::vector<std::string> separators = {";", "_", "(", ")", ";;", "a;", ")("};
  // Every text of up to 7 characters over the alphabet: each corner of the
  // walk, stray and unclosed parentheses included.
  std::vector<std::string> texts = {""};
  for (size_t begin = 0, length = 1; length <= 7; ++length) {
    const size_t end = texts.size();
    for (size_t i = begin; i < end; ++i) {
      for (char c : alphabet) texts.push_back(texts[i] + c);
    }
    begin = end;
  }
  size_t differences = 0;
  for (const std::string &separator : separators) {
    for (const std::string &text : texts) {
      if (splitFilterText(text, separator) != documentedSplit(text, separator)) {
        ADD_FAILURE() << '"' << text << "\" on \"" << separator << '"';
        if (++differences == 10) return;
      }
    }
  }
}

TEST(SplitFilterText, LongListsSplitAsTheDocumentedWalk) {
  std::string text;
  for (int i = 0; i < 300; ++i) {
    text += i % 7 == 0 ? "vid-1_pid-2(exintf:01;exintf:02);" : i % 11 == 0 ? ")(;" : "vid-3;";
    if (i % 13 == 0) text += "(a;b";
  }
  for (const std::string separator : {";", "_", "(", ":"}) {
    EXPECT_EQ(splitFilterText(text, separator), documentedSplit(text, separator)) << separator;
  }
}

// A text that counts the characters its searches read.
class CountingText {
 public:
  static constexpr size_t npos = std::string::npos;
  CountingText(const std::string &text, size_t *reads) : text_(text), reads_(reads) {}

  size_t size() const { return text_.size(); }
  size_t find(char wanted, size_t from) const { return count(from, text_.find(wanted, from), 1); }
  size_t find(const std::string &wanted, size_t from) const {
    return count(from, text_.find(wanted, from), wanted.size());
  }
  std::string substr(size_t pos, size_t length) const { return text_.substr(pos, length); }

 private:
  size_t count(size_t from, size_t found, size_t width) const {
    const size_t end = found == npos ? text_.size() : found + width;
    *reads_ += end > from ? end - from : 0;
    return found;
  }

  const std::string &text_;
  size_t *reads_;
};

// The walk reads each character a bounded number of times, whatever the
// number of entries: a long list costs in proportion to its length.
TEST(SplitFilterText, WalkReadsALongListInLinearTime) {
  for (const char *entry : {"vid-1234_pid-5678;", "vid-1234_pid-5678(a;b);", "x)y;", "(a;"}) {
    std::string text;
    for (int i = 0; i < 20000; ++i) text += entry;
    size_t reads = 0;
    const CountingText counted(text, &reads);
    const Tokens tokens = FilterTextWalk<CountingText>(counted, ";").split();
    EXPECT_EQ(tokens, splitFilterText(text, ";")) << entry;
    EXPECT_LE(reads, 4 * text.size()) << entry;
  }
}

TEST(BoolText, SixWordsWithCase) {
  for (const char *word : {"yes", "true", "1", "no", "false", "0"}) EXPECT_TRUE(isBoolText(word));
  for (const char *word : {"YES", "True", "", "2", "on", "off", "y"})
    EXPECT_FALSE(isBoolText(word));
  for (const char *word : {"yes", "true", "1"}) EXPECT_TRUE(isTrueText(word));
  for (const char *word : {"no", "false", "0", "TRUE", ""}) EXPECT_FALSE(isTrueText(word));
}

TEST(ToLowerFilterText, EveryCharacter) {
  EXPECT_EQ(toLowerFilterText("ExID:M:VID-ABCD_Pid-12eF"), "exid:m:vid-abcd_pid-12ef");
}

}  // namespace
}  // namespace ordo::usb
