#include "ordo/usb/filter_text.h"

#include <gtest/gtest.h>

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
