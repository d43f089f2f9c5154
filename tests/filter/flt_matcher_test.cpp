#include "ordo/usb/flt_matcher.h"

#include <gtest/gtest.h>

namespace ordo::usb {
namespace {

bool idMatches(const std::string &rule, const std::string &device) {
  return FltValue(FilterTypeExid, device).matches(FltValue(FilterTypeExid, rule));
}

bool familyMatches(const std::string &rule, const std::string &device) {
  return FltValue(FilterTypeExfa, device).matches(FltValue(FilterTypeExfa, rule));
}

TEST(DetailMatches, Rules) {
  EXPECT_TRUE(detailMatches({"vid", "1234"}, {"vid", "1234"}));
  EXPECT_FALSE(detailMatches({"vid", "1234"}, {"pid", "1234"}));
  EXPECT_TRUE(detailMatches({"", "*"}, {"", "anything long"}));
  EXPECT_TRUE(detailMatches({"", "abc"}, {"", "*"}));
  EXPECT_FALSE(detailMatches({"", ""}, {"", "a"}));
  EXPECT_TRUE(detailMatches({"", ""}, {"", ""}));
  EXPECT_FALSE(detailMatches({"", "ab"}, {"", "abc"}));
  EXPECT_TRUE(detailMatches({"", "a*c"}, {"", "abc"}));
  EXPECT_TRUE(detailMatches({"", "abc"}, {"", "*b*"}));
  EXPECT_FALSE(detailMatches({"", "a*c"}, {"", "abd"}));
  EXPECT_FALSE(detailMatches({"x", "*"}, {"y", "*"}));
}

TEST(FltMatcherDev, FourStarsMatchAnyProductButOneStarIsPadded) {
  EXPECT_TRUE(idMatches("vid-1234_pid-****", "vid-1234_pid-0042"));
  EXPECT_FALSE(idMatches("vid-1234_pid-*", "vid-1234_pid-0042"));
  EXPECT_TRUE(idMatches("vid-1234_pid-*", "vid-1234_pid-0007"));
}

TEST(FltMatcherDev, StarStandsForOneCharacter) {
  EXPECT_TRUE(idMatches("vid-12**_pid-5678", "vid-1299_pid-5678"));
  EXPECT_FALSE(idMatches("vid-12**_pid-5678", "vid-1300_pid-5678"));
}

TEST(FltMatcherDev, DeviceSideMayHoldTheWildcard) {
  EXPECT_TRUE(idMatches("vid-1234_pid-0001", "vid-****_pid-0001"));
}

TEST(FltMatcherDev, DetailsNamedDifferentlyMatchNothing) {
  EXPECT_FALSE(idMatches("bus-1_port-2", "vid-0001_pid-0002"));
  EXPECT_FALSE(idMatches("bus-1_port-2", "bus-1_port-2"));
}

TEST(FltMatcherDev, FailedRuleNeverMatches) {
  FltValue failed(FilterTypeExid, "vid-1234");
  FltValue device(FilterTypeExid, "vid-1234");
  EXPECT_FALSE(device.matches(failed));
  FltMatcherDev matcher("vid", "pid");
  // The matcher alone compares types and details; both failed values carry
  // the same "Error: " detail.
  EXPECT_TRUE(matcher.match(device, failed));
}

TEST(FltMatcherDev, ErrorPieceFailsAtTheValue) {
  EXPECT_FALSE(idMatches("vid-1-2_pid-3", "vid-****_pid-0003"));
}

TEST(FltMatcherDev, TwoValuesWithoutDetailsMatch) {
  FltMatcherDev matcher("vid", "pid");
  EXPECT_TRUE(matcher.match(FltValue(FilterTypeExid), FltValue(FilterTypeExid)));
  EXPECT_TRUE(FltValue(FilterTypeExid).matches(FltValue(FilterTypeExid)));
  EXPECT_FALSE(matcher.match(FltValue(FilterTypeExid), FltValue(FilterTypeInid)));
}

TEST(FltMatcherString, FamilyWildcards) {
  EXPECT_TRUE(familyMatches("*", "storage"));
  EXPECT_TRUE(familyMatches("ab*", "abc"));
  EXPECT_FALSE(familyMatches("ab*", "abcd"));
  EXPECT_FALSE(familyMatches("ab*", "xbc"));
  EXPECT_TRUE(familyMatches("hid", "hid"));
  EXPECT_FALSE(familyMatches("hid", "audio"));
}

TEST(FltMatcherString, InvalidValuesNeverMatch) {
  FltMatcherString matcher("", "");
  FltValue failed(FilterTypeExfa, "a_b");
  EXPECT_FALSE(matcher.match(failed, failed));
  EXPECT_FALSE(failed.matches(failed));
}

TEST(FltMatcherBool, BooleansNeverMatch) {
  for (FilterType type : {6u, 11u, 19u, 22u}) {
    FltValue value(type, "true");
    EXPECT_FALSE(value.matches(value)) << type;
  }
  FltMatcherBool matcher("", "");
  EXPECT_FALSE(matcher.match(FltValue(11, "true"), FltValue(11, "true")));
}

TEST(FltValue, MatchesNeedsSameTypeAndAMatcher) {
  EXPECT_FALSE(
      FltValue(FilterTypeExid, "vid-1_pid-2").matches(FltValue(FilterTypeInid, "vid-1_pid-2")));
  FltValue split(FilterTypeSpid, "vid-1_pid-2(exintf:1)");
  EXPECT_FALSE(split.matches(split));
  EXPECT_FALSE(FltValue(FilterTypeExintf).matches(FltValue(FilterTypeExintf)));
  EXPECT_FALSE(FltValue(FilterTypeNone).matches(FltValue(FilterTypeNone)));
}

TEST(FltValue, EqualsComparesTypeAndDetailsOnly) {
  FltValue a(FilterTypeSpid, "vid-1_pid-2(exintf:1)");
  FltValue b(FilterTypeSpid, "vid-1_pid-2(exintf:2)");
  EXPECT_TRUE(a.equals(b));
  EXPECT_FALSE(a.equals(FltValue(FilterTypeExid, "vid-1_pid-2")));
  EXPECT_TRUE(FltValue(FilterTypeExintf).equals(FltValue(FilterTypeExintf)));
  EXPECT_FALSE(FltValue(FilterTypeExfa, "a").equals(FltValue(FilterTypeExfa, "b")));
}

TEST(FltValue, FindSplitRulesByIdText) {
  FltValue value(FilterTypeSpid);
  value.addSplitRule({"vid-12**_pid-0001", {}, {"1"}});
  value.addSplitRule({"", {}, {"2"}});
  value.addSplitRule({"vid-1234_pid-0001", {}, {"3"}});
  value.addSplitRule({"vid-1234_pid-*", {}, {"4"}});
  std::vector<FltSplitRule> found;
  value.findSplitRules("vid-1234_pid-0001", found);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].interfaces, (std::vector<std::string>{"1"}));
  EXPECT_EQ(found[1].interfaces, (std::vector<std::string>{"3"}));
  value.findSplitRules("vid-1234_pid-0001", found);
  EXPECT_EQ(found.size(), 4u);  // appends
  std::vector<FltSplitRule> none;
  value.findSplitRules("vid-1234_pid-12", none);
  EXPECT_TRUE(none.empty());
  value.findSplitRules("", none);
  EXPECT_TRUE(none.empty());
}

TEST(FltMatcher, FactoryAndNames) {
  auto dev = makeFltMatcher(FilterTypeExpt);
  ASSERT_NE(dynamic_cast<FltMatcherDev *>(dev.get()), nullptr);
  EXPECT_EQ(dev->name1(), "bus");
  EXPECT_EQ(dev->name2(), "port");
  EXPECT_EQ(dev->pattern1(), "bus*");
  EXPECT_EQ(dev->pattern2(), "port*");
  for (FilterType type : {2u, 3u, 9u}) {
    auto id = makeFltMatcher(type);
    ASSERT_NE(dynamic_cast<FltMatcherDev *>(id.get()), nullptr);
    EXPECT_EQ(id->name1(), "vid");
    EXPECT_EQ(id->pattern2(), "pid*");
  }
  for (FilterType type : {4u, 5u}) {
    auto family = makeFltMatcher(type);
    ASSERT_NE(dynamic_cast<FltMatcherString *>(family.get()), nullptr);
    EXPECT_EQ(family->name1(), "");
    EXPECT_EQ(family->pattern1(), "");
  }
  for (FilterType type : {6u, 11u, 22u}) {
    EXPECT_NE(dynamic_cast<FltMatcherBool *>(makeFltMatcher(type).get()), nullptr);
  }
  for (FilterType type : {7u, 8u, 10u, 23u, 50u}) EXPECT_EQ(makeFltMatcher(type), nullptr);
  FltMatcher base("a", "");
  EXPECT_EQ(base.pattern1(), "a*");
  EXPECT_EQ(base.pattern2(), "");
  EXPECT_FALSE(base.match(FltValue(FilterTypeExfa, "a"), FltValue(FilterTypeExfa, "a")));
}

}  // namespace
}  // namespace ordo::usb
