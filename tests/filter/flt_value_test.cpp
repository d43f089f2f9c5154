#include "ordo/usb/flt_value.h"

#include <gtest/gtest.h>

#include "ordo/usb/flt_str_helper.h"

namespace ordo::usb {
namespace {

using Details = std::vector<FltDetail>;

TEST(FltValue, DefaultAndTypedConstruction) {
  FltValue empty;
  EXPECT_EQ(empty.getType(), FilterTypeNone);
  EXPECT_FALSE(empty.isValid());
  EXPECT_FALSE(empty.isTextCached());
  EXPECT_TRUE(empty.details().empty());
  EXPECT_TRUE(empty.splitRules().empty());
  FltValue typed(FilterTypeExid);
  EXPECT_EQ(typed.getType(), FilterTypeExid);
  EXPECT_TRUE(typed.isValid());
  EXPECT_TRUE(typed.details().empty());
}

TEST(FltValue, IdentifierIsPaddedInFixedOrder) {
  FltValue value(FilterTypeExid, "vid-1_pid-2");
  EXPECT_EQ(value.getType(), FilterTypeExid);
  EXPECT_EQ(value.details(), (Details{{"vid", "0001"}, {"pid", "0002"}}));
  EXPECT_EQ(value.toString(), "vid-0001_pid-0002");
}

TEST(FltValue, ReversedIdentifierGivesTheSameOrder) {
  FltValue reversed(FilterTypeInid, "pid-5678_vid-1234");
  FltValue straight(FilterTypeInid, "vid-1234_pid-5678");
  EXPECT_EQ(reversed.details(), straight.details());
  EXPECT_EQ(reversed.details(), (Details{{"vid", "1234"}, {"pid", "5678"}}));
}

TEST(FltValue, LongIdentifierStaysWhole) {
  FltValue value(FilterTypeSpexid, "vid-12345_pid-1");
  EXPECT_EQ(value.details(), (Details{{"vid", "12345"}, {"pid", "0001"}}));
}

TEST(FltValue, WildcardsArePaddedLikeDigits) {
  FltValue value(FilterTypeExid, "vid-12**_pid-*");
  EXPECT_EQ(value.details(), (Details{{"vid", "12**"}, {"pid", "000*"}}));
  FltValue path(FilterTypeExpt, "bus-*_port-1");
  EXPECT_EQ(path.details(), (Details{{"bus", "0*"}, {"port", "01"}}));
}

TEST(FltValue, PathPadsToTwo) {
  FltValue value(FilterTypeExpt, "bus-1_port-2");
  EXPECT_EQ(value.details(), (Details{{"bus", "01"}, {"port", "02"}}));
  FltValue longer(FilterTypeInpt, "bus-123_port-2");
  EXPECT_EQ(longer.details(), (Details{{"bus", "123"}, {"port", "02"}}));
  FltValue reversed(FilterTypeInpt, "port-2_bus-1/4");
  EXPECT_EQ(reversed.details(), (Details{{"bus", "1/4"}, {"port", "02"}}));
}

TEST(FltValue, IdentifierWithoutTwoPartsFails) {
  FltValue value(FilterTypeExid, "vid-1234");
  EXPECT_EQ(value.getType(), FilterTypeNone);
  EXPECT_EQ(value.details(), (Details{{"", "Error: vid-1234"}}));
  FltValue three(FilterTypeExid, "vid-1_pid-2_x");
  EXPECT_EQ(three.details(), (Details{{"", "Error: vid-1_pid-2_x"}}));
  FltValue noPid(FilterTypeExid, "vid-1_xid-2");
  EXPECT_EQ(noPid.getType(), FilterTypeNone);
  EXPECT_EQ(noPid.details(), (Details{{"", "Error: vid-1_xid-2"}}));
}

TEST(FltValue, UnreadablePieceKeepsTheType) {
  FltValue value(FilterTypeExid, "vid-1-2_pid-3");
  EXPECT_EQ(value.getType(), FilterTypeExid);
  EXPECT_EQ(value.details(), (Details{{"vid-1-2", "Error"}, {"pid", "0003"}}));
}

TEST(FltValue, BothNamesMayFindTheSameToken) {
  FltValue value(FilterTypeExid, "vidpid-1_x");
  EXPECT_EQ(value.getType(), FilterTypeExid);
  EXPECT_EQ(value.details(), (Details{{"vidpid", "0001"}, {"vidpid", "0001"}}));
}

TEST(FltStrHelperDevAbs, HyphenlessPieceWithTextOnBothSides) {
  FltStrHelperDev helper("vid", "pid", FilterTypeExid);
  FltDetail detail;
  helper.parseIdPiece("xvid12", detail);
  EXPECT_EQ(detail, (FltDetail{"vid", "0012"}));
  helper.parseIdPiece("xpid7", detail);
  EXPECT_EQ(detail, (FltDetail{"pid", "0007"}));
  helper.parseIdPiece("abc", detail);
  EXPECT_EQ(detail, (FltDetail{"abc", "Error"}));
}

// Guarded: the documented piece reader asks for a token that is not there
// and lets the out-of-range failure leave the engine.
TEST(FltStrHelperDevAbs, HyphenlessPieceStartingWithNameCannotBeRead) {
  FltStrHelperDev helper("vid", "pid", FilterTypeExid);
  FltDetail detail;
  helper.parseIdPiece("vid1234", detail);
  EXPECT_EQ(detail, (FltDetail{"vid1234", "Error"}));
  helper.parseIdPiece("1234pid", detail);
  EXPECT_EQ(detail, (FltDetail{"1234pid", "Error"}));
  FltValue value(FilterTypeExid, "vid1234_pid5678");
  EXPECT_EQ(value.getType(), FilterTypeExid);
  EXPECT_EQ(value.details(), (Details{{"vid1234", "Error"}, {"pid5678", "Error"}}));
}

TEST(FltStrHelperDevAbs, PadId) {
  FltStrHelperDev id("vid", "pid", FilterTypeExid);
  EXPECT_EQ(id.padId(""), "0000");
  EXPECT_EQ(id.padId("*"), "000*");
  EXPECT_EQ(id.padId("abcd"), "abcd");
  FltStrHelperDev path("bus", "port", FilterTypeInpt);
  EXPECT_EQ(path.padId("*"), "0*");
  EXPECT_EQ(path.padId("7"), "07");
  EXPECT_EQ(path.padId("1/4"), "1/4");
}

TEST(FltValue, SplitRuleWithTwoInterfaces) {
  FltValue value(FilterTypeSpid, "vid-1_pid-2(exintf:01;exintf:02)");
  EXPECT_EQ(value.getType(), FilterTypeSpid);
  EXPECT_EQ(value.details(), (Details{{"vid", "0001"}, {"pid", "0002"}}));
  ASSERT_EQ(value.splitRules().size(), 1u);
  const FltSplitRule &rule = value.splitRules()[0];
  EXPECT_EQ(rule.id, "vid-0001_pid-0002");
  EXPECT_TRUE(rule.families.empty());
  EXPECT_EQ(rule.interfaces, (std::vector<std::string>{"01", "02"}));
  EXPECT_EQ(value.toString(), "vid-0001_pid-0002(exintf:01,exintf:02)");
}

TEST(FltValue, SplitRuleWithHyphen) {
  FltValue value(FilterTypeSpid, "vid-1_pid-2(exintf-01)");
  ASSERT_EQ(value.splitRules().size(), 1u);
  EXPECT_EQ(value.splitRules()[0].interfaces, (std::vector<std::string>{"01"}));
}

TEST(FltValue, SplitRuleKeepsOnlyInterfaces) {
  FltValue value(FilterTypeSpid, "vid-1_pid-2(exfa:hid;exintf:02;exingp:3)");
  ASSERT_EQ(value.splitRules().size(), 1u);
  EXPECT_EQ(value.splitRules()[0].interfaces, (std::vector<std::string>{"02"}));
}

TEST(FltValue, SplitRuleStopsAtTokenWithoutSeparator) {
  FltValue value(FilterTypeSpid, "vid-1_pid-2(x;exintf:02)");
  EXPECT_EQ(value.getType(), FilterTypeSpid);
  ASSERT_EQ(value.splitRules().size(), 1u);
  EXPECT_TRUE(value.splitRules()[0].interfaces.empty());
  EXPECT_EQ(value.toString(), "");
  FltValue later(FilterTypeSpid, "vid-1_pid-2(exintf:01;x;exintf:02)");
  EXPECT_EQ(later.splitRules()[0].interfaces, (std::vector<std::string>{"01"}));
}

TEST(FltValue, SplitRuleEntryKeepsFurtherPieces) {
  FltValue value(FilterTypeSpid, "vid-1_pid-2(exintf:a:b;exintf;exintf:)");
  ASSERT_EQ(value.splitRules().size(), 1u);
  EXPECT_EQ(value.splitRules()[0].interfaces, (std::vector<std::string>{"a:b"}));
}

TEST(FltValue, SplitRuleTextBehindParenthesisIsDropped) {
  FltValue value(FilterTypeSpid, "vid-1_pid-2(exintf:01)tail");
  ASSERT_EQ(value.splitRules().size(), 1u);
  EXPECT_EQ(value.splitRules()[0].interfaces, (std::vector<std::string>{"01"}));
}

TEST(FltValue, EmptySplitRuleFailsKeepingTheDetails) {
  FltValue value(FilterTypeSpid, "vid-1_pid-2()");
  EXPECT_EQ(value.getType(), FilterTypeNone);
  EXPECT_EQ(value.details(),
            (Details{{"vid", "0001"}, {"pid", "0002"}, {"", "Error: vid-1_pid-2()"}}));
  EXPECT_TRUE(value.splitRules().empty());
}

TEST(FltValue, SplitRuleWithoutParenthesisOrTwoPartsFails) {
  FltValue noParen(FilterTypeSpid, "vid-1_pid-2");
  EXPECT_EQ(noParen.getType(), FilterTypeNone);
  EXPECT_EQ(noParen.details(), (Details{{"", "Error: vid-1_pid-2"}}));
  FltValue onePart(FilterTypeSpid, "vid-1(exintf:1)");
  EXPECT_EQ(onePart.getType(), FilterTypeNone);
  EXPECT_EQ(onePart.details(), (Details{{"", "Error: vid-1(exintf:1)"}}));
}

TEST(FltValue, SplitRuleWithNameMissingStaysEmptyAndValid) {
  FltValue value(FilterTypeSpid, "vid-1_xid-2(exintf:1)");
  EXPECT_EQ(value.getType(), FilterTypeSpid);
  EXPECT_TRUE(value.details().empty());
  EXPECT_TRUE(value.splitRules().empty());
}

TEST(FltValue, FamilyWord) {
  FltValue value(FilterTypeExfa, "storage");
  EXPECT_EQ(value.getType(), FilterTypeExfa);
  EXPECT_EQ(value.details(), (Details{{"", "storage"}}));
  FltValue any(FilterTypeInfa, "*");
  EXPECT_EQ(any.getType(), FilterTypeInfa);
  EXPECT_EQ(any.toString(), "*");
}

TEST(FltValue, FamilyWordWithUnderscoreFailsYetKeepsText) {
  FltValue value(FilterTypeExfa, "a_b");
  EXPECT_EQ(value.getType(), FilterTypeNone);
  EXPECT_EQ(value.details(), (Details{{"", "a_b"}}));
  FltValue empty(FilterTypeExfa, "");
  EXPECT_EQ(empty.getType(), FilterTypeNone);
  EXPECT_EQ(empty.details(), (Details{{"", ""}}));
}

TEST(FltValue, BooleanWords) {
  FltValue yes(FilterTypeUsehid, "yes");
  EXPECT_EQ(yes.getType(), FilterTypeUsehid);
  EXPECT_EQ(yes.details(), (Details{{"", "yes"}}));
  FltValue maybe(FilterTypeUsehid, "maybe");
  EXPECT_EQ(maybe.getType(), FilterTypeNone);
  EXPECT_EQ(maybe.details(), (Details{{"", "maybe"}}));
  FltValue upper(FilterTypeExalldev, "TRUE");
  EXPECT_EQ(upper.getType(), FilterTypeNone);
}

TEST(FltValue, EmptyBooleanFailsWithOneEmptyDetail) {
  FltValue value(FilterTypeUsenic, "");
  EXPECT_EQ(value.getType(), FilterTypeNone);
  EXPECT_EQ(value.details(), (Details{{"", ""}}));
}

TEST(FltValue, TypesWithoutHelperStayEmpty) {
  for (FilterType type : {FilterTypeExintf, FilterTypeExingp, 24u}) {
    FltValue value(type, "anything_at:all");
    EXPECT_EQ(value.getType(), type);
    EXPECT_TRUE(value.details().empty());
  }
}

TEST(FltValue, AddDetailAndAddValue) {
  FltValue value(FilterTypeExfa);
  value.addDetail({"a", "1"});
  value.addValue("x");
  EXPECT_EQ(value.details(), (Details{{"a", "1"}, {"", "x"}}));
  value.addValue("y", true);
  EXPECT_EQ(value.details(), (Details{{"", "y"}}));
  value.addDetail({"b", ""}, true);
  EXPECT_EQ(value.details(), (Details{{"b", ""}}));
}

TEST(FltValue, IdStringJoinsDetailsOrSaysError) {
  FltValue value(FilterTypeExid);
  EXPECT_EQ(value.idString(), "Error");
  value.addDetail({"vid", "1"});
  value.addDetail({"", "x"});
  value.addDetail({"pid", ""});
  EXPECT_EQ(value.idString(), "vid-1_x_pid");
  EXPECT_FALSE(value.isTextCached());
}

TEST(FltValue, ToStringOfACachedValueGivesTheSharedText) {
  FltValue first(FilterTypeExfa, "audio");
  FltValue second(FilterTypeExfa, "storage");
  EXPECT_EQ(first.toString(), "audio");
  EXPECT_TRUE(first.isTextCached());
  EXPECT_EQ(second.toString(), "storage");
  // first has its flag set, so it returns what second left behind.
  EXPECT_EQ(first.toString(), "storage");
  first.addValue("x");
  EXPECT_FALSE(first.isTextCached());
  EXPECT_EQ(first.toString(), "audio_x");
}

TEST(FltValue, CopyCarriesTheFlag) {
  FltValue value(FilterTypeExfa, "audio");
  value.toString();
  FltValue copy = value;
  EXPECT_TRUE(copy.isTextCached());
  FltValue other(FilterTypeExfa, "video");
  other.toString();
  EXPECT_EQ(copy.toString(), "video");
}

TEST(FltValue, AddSplitRuleKeepsTheFlag) {
  FltValue value(FilterTypeSpid);
  value.toString();
  EXPECT_TRUE(value.isTextCached());
  value.addSplitRule(FltSplitRule{"vid-0001_pid-0002", {}, {"1"}});
  EXPECT_TRUE(value.isTextCached());
  EXPECT_EQ(value.toString(), "");
}

TEST(FltSplitRule, TextUsesTwoDifferentListSeparators) {
  FltSplitRule rule{"vid-0001_pid-0002", {"audio", "hid"}, {"01", "02"}};
  EXPECT_EQ(rule.text(), "vid-0001_pid-0002(exfa:audio, exfa:hid;exintf:01,exintf:02)");
  FltSplitRule familiesOnly{"id", {"a"}, {}};
  EXPECT_EQ(familiesOnly.text(), "id(exfa:a)");
  FltSplitRule interfacesOnly{"id", {}, {"3"}};
  EXPECT_EQ(interfacesOnly.text(), "id(exintf:3)");
  FltSplitRule empty{"vid-0001_pid-0002", {}, {}};
  EXPECT_EQ(empty.text(), "");
}

TEST(FltStrHelper, Factory) {
  struct Row {
    FilterType type;
    const char *name1;
    const char *name2;
  };
  for (Row row : {Row{0, "bus", "port"}, Row{1, "bus", "port"}, Row{2, "vid", "pid"},
                  Row{3, "vid", "pid"}, Row{9, "vid", "pid"}}) {
    auto helper = makeFltStrHelper(row.type);
    ASSERT_NE(dynamic_cast<FltStrHelperDev *>(helper.get()), nullptr) << row.type;
    EXPECT_EQ(helper->idName1(), row.name1);
    EXPECT_EQ(helper->idName2(), row.name2);
    EXPECT_EQ(helper->type(), row.type);
  }
  auto split = makeFltStrHelper(10);
  ASSERT_NE(dynamic_cast<FltStrHelperSpltIdInc *>(split.get()), nullptr);
  EXPECT_EQ(split->idName1(), "vid");
  for (FilterType type : {4u, 5u}) {
    auto helper = makeFltStrHelper(type);
    ASSERT_NE(dynamic_cast<FltStrHelperFam *>(helper.get()), nullptr);
    EXPECT_EQ(helper->idName1(), "");
    EXPECT_EQ(helper->idName2(), "");
  }
  for (FilterType type = 11; type <= 22; ++type) {
    EXPECT_NE(dynamic_cast<FltStrHelperBool *>(makeFltStrHelper(type).get()), nullptr);
  }
  EXPECT_NE(dynamic_cast<FltStrHelperBool *>(makeFltStrHelper(6).get()), nullptr);
  for (FilterType type : {7u, 8u, 23u, 99u}) EXPECT_EQ(makeFltStrHelper(type), nullptr);
}

TEST(FltStrHelper, BaseParseDoesNothing) {
  FltStrHelper helper("", "", FilterTypeExfa);
  FltValue value(FilterTypeExfa);
  helper.parse("storage", value);
  EXPECT_TRUE(value.details().empty());
  FltStrHelperDevAbs abstractDev("vid", "pid", FilterTypeExid);
  abstractDev.parse("vid-1_pid-2", value);
  EXPECT_TRUE(value.details().empty());
}

}  // namespace
}  // namespace ordo::usb
