#include "ordo/usb/filter_settings.h"

#include <gtest/gtest.h>

#include "log_capture.h"

namespace ordo::usb {
namespace {

using testing::LogCapture;
using testing::LogLine;
using Lines = std::vector<LogLine>;

FilterSettings settingsWith(const std::string &text, bool fullDefaults = false) {
  FilterSettings settings;
  settings.setDefaultPreferences(fullDefaults);
  settings.list().add(text);
  return settings;
}

TEST(FilterSettingsDefaults, FullAndShortTables) {
  FilterSettings settings;
  EXPECT_TRUE(settings.defaults().empty());
  settings.setDefaultPreferences(false);
  EXPECT_EQ(settings.defaults(), (FilterSettings::DefaultsMap{{6, "false"}}));
  settings.setDefaultPreferences(true);
  EXPECT_EQ(settings.defaults(), (FilterSettings::DefaultsMap{{6, "false"},
                                                              {11, "true"},
                                                              {12, "true"},
                                                              {13, "false"},
                                                              {14, "false"},
                                                              {15, "false"},
                                                              {16, "true"},
                                                              {17, "true"},
                                                              {18, "false"},
                                                              {19, "false"},
                                                              {20, "false"},
                                                              {21, "false"},
                                                              {22, "false"}}));
  settings.setDefaultPreferences(false);
  EXPECT_EQ(settings.defaults().size(), 1u);
}

TEST(FilterSettingsGetBool, DefaultsAndMissingKeys) {
  FilterSettings full = settingsWith("", true);
  FilterSettings brief = settingsWith("", false);
  EXPECT_TRUE(full.getBool(FilterTypeUsehid));
  EXPECT_TRUE(brief.getBool(FilterTypeUsehid));
  EXPECT_FALSE(full.getBool(FilterTypeUsenic));
  EXPECT_TRUE(brief.getBool(FilterTypeUsenic));
  EXPECT_FALSE(full.getBool(FilterTypeExalldev));
  EXPECT_FALSE(brief.getBool(FilterTypeExalldev));
  FilterSettings none;
  EXPECT_TRUE(none.getBool(FilterTypeBlockdsplit));  // empty map, no filter
}

TEST(FilterSettingsGetBool, FirstValidValueWins) {
  EXPECT_FALSE(settingsWith("usehid:maybe usehid:no usehid:yes", true).getBool(FilterTypeUsehid));
  EXPECT_TRUE(settingsWith("usenic:1", true).getBool(FilterTypeUsenic));
  EXPECT_TRUE(settingsWith("usenic:yes usenic:false", true).getBool(FilterTypeUsenic));
  EXPECT_TRUE(settingsWith("exalldev:true", false).getBool(FilterTypeExalldev));
}

TEST(FilterSettingsGetBool, OnlyInvalidValuesFallBackToDefaults) {
  EXPECT_FALSE(settingsWith("usenic:maybe", true).getBool(FilterTypeUsenic));
  EXPECT_TRUE(settingsWith("usenic:maybe", false).getBool(FilterTypeUsenic));
}

TEST(FilterSettingsGetBool, NonBooleanKey) {
  EXPECT_FALSE(settingsWith("exid:m:vid-1_pid-2", true).getBool(FilterTypeExid));
  EXPECT_TRUE(settingsWith("", true).getBool(FilterTypeExid));
  FilterSettings settings = settingsWith("", true);
  settings.list().addValues(FilterTypeExfa, "a_b");
  EXPECT_FALSE(settings.getBool(FilterTypeExfa));
}

TEST(FilterSettingsGetBool, LeavesTheReadTextAsTheSharedText) {
  FilterSettings settings = settingsWith("usehid:yes", true);
  FltValue cached(FilterTypeExfa, "audio");
  cached.toString();
  EXPECT_TRUE(settings.getBool(FilterTypeUsehid));
  EXPECT_EQ(cached.toString(), "yes");
  EXPECT_FALSE(settings.list().valuesOf(FilterTypeUsehid)->front().isTextCached());
}

TEST(FilterSettingsRules, AddFilterRuleLogsAndAdds) {
  LogCapture log;
  FilterSettings settings;
  settings.addFilterRule("");
  EXPECT_TRUE(log.all().empty());
  settings.addFilterRule("usehid:o:true foo:1");
  EXPECT_EQ(log.all(), (Lines{{1, "DevFltr: Adding FilterRule: usehid:o:true foo:1"},
                              {4, "DevFltr: Invalid filter. Filter string ignored: foo:1"}}));
  EXPECT_TRUE(settings.list().hasValues(FilterTypeUsehid));
}

TEST(FilterSettingsRules, AddBooleanIsAFilterForExalldevAndAHintOtherwise) {
  LogCapture log;
  FilterSettings settings;
  settings.addBoolean(FilterTypeExalldev, true);
  settings.addBoolean(FilterTypeUsekeybmouse, false);
  EXPECT_EQ(log.all(), (Lines{{1, "DevFltr: Adding Filter: exalldev:true"},
                              {1, "DevFltr: Adding Hint: usekeybmouse:false"}}));
  EXPECT_EQ(settings.list().firstText(FilterTypeExalldev), "true");
  EXPECT_EQ(settings.list().firstText(FilterTypeUsekeybmouse), "false");
  EXPECT_TRUE(settings.list().sequencing().empty());
}

TEST(FilterSettingsRules, ClearKeepsDefaults) {
  FilterSettings settings = settingsWith("usehid:o:false", true);
  settings.clear();
  EXPECT_TRUE(settings.list().filters().empty());
  EXPECT_TRUE(settings.list().sequencing().empty());
  EXPECT_EQ(settings.defaults().size(), 13u);
}

TEST(FilterSettingsDump, DefaultsAtDetailLevel) {
  FilterSettings settings = settingsWith("", false);
  LogCapture log;
  settings.dumpDefaults();
  EXPECT_EQ(log.all(), (Lines{{0, "DevFltr:  ========== Default Preferences ==========="},
                              {0, "DevFltr:  [exalldev] : false"},
                              {0, "DevFltr:  ========== End of Default Preferences ===="}}));
  log.clear();
  FilterSettings().dumpDefaults();
  EXPECT_TRUE(log.all().empty());
}

TEST(FilterSettingsMerge, MergedTakesLocalDefaultsAndMergedLists) {
  FilterSettings local = settingsWith("usehid:false exid:m:vid-1_pid-1", true);
  FilterSettings remote = settingsWith("usehid:o:true exid:m:vid-2_pid-2", false);
  FilterSettings merged;
  FilterSettings::merge(local, remote, merged);
  EXPECT_EQ(merged.defaults(), local.defaults());
  EXPECT_TRUE(merged.getBool(FilterTypeUsehid));
  EXPECT_EQ(merged.list().valuesOf(FilterTypeExid)->size(), 2u);
  EXPECT_EQ(merged.list().firstText(FilterTypeExid), "vid-0002_pid-0002");
}

TEST(FilterSettingsMerge, DefaultLetterKeepsTheLocalBoolean) {
  FilterSettings local = settingsWith("usehid:false", true);
  FilterSettings remote = settingsWith("usehid:d:true", false);
  FilterSettings merged;
  FilterSettings::merge(local, remote, merged);
  EXPECT_FALSE(merged.getBool(FilterTypeUsehid));
}

TEST(FilterSettingsEvaluate, EmptyListsGiveNoHit) {
  FilterSettings settings = settingsWith("", true);
  EXPECT_EQ(settings.evaluateId("vid-1234_pid-5678"), FilterEvalNoHit);
  EXPECT_EQ(settings.evaluateFamily("hid"), FilterEvalNoHit);
  EXPECT_EQ(settings.evaluatePath("bus-1_port-02"), FilterEvalNoHit);
  EXPECT_FALSE(settings.isSplitExcluded("vid-1234_pid-5678"));
}

TEST(FilterSettingsEvaluate, ExcludeIsAskedBeforeInclude) {
  FilterSettings settings = settingsWith("inid:m:vid-1234_pid-5678 exid:m:vid-1234_pid-5678");
  EXPECT_EQ(settings.evaluateId("vid-1234_pid-5678"), FilterEvalExcluded);
  FilterSettings includeOnly = settingsWith("inid:m:vid-1234_pid-****");
  EXPECT_EQ(includeOnly.evaluateId("vid-1234_pid-0042"), FilterEvalIncluded);
  EXPECT_EQ(includeOnly.evaluateId("vid-1235_pid-0042"), FilterEvalNoHit);
}

TEST(FilterSettingsEvaluate, WildcardsAndPadding) {
  FilterSettings settings = settingsWith("exid:m:vid-1234_pid-*;vid-12**_pid-5678");
  EXPECT_EQ(settings.evaluateId("vid-1234_pid-0042"), FilterEvalNoHit);
  EXPECT_EQ(settings.evaluateId("vid-1234_pid-0004"), FilterEvalExcluded);
  EXPECT_EQ(settings.evaluateId("vid-1299_pid-5678"), FilterEvalExcluded);
  EXPECT_EQ(settings.evaluateId("vid-1300_pid-5678"), FilterEvalNoHit);
  FilterSettings plain = settingsWith("inid:m:vid-1234_pid-0001");
  EXPECT_EQ(plain.evaluateId("vid-****_pid-0001"), FilterEvalIncluded);
}

TEST(FilterSettingsEvaluate, Families) {
  FilterSettings settings = settingsWith("exfa:m:ab* infa:m:*");
  EXPECT_EQ(settings.evaluateFamily("abc"), FilterEvalExcluded);
  EXPECT_EQ(settings.evaluateFamily("abcd"), FilterEvalIncluded);
  EXPECT_EQ(settings.evaluateFamily("storage"), FilterEvalIncluded);
  FilterSettings failed = settingsWith("exfa:a_b");
  EXPECT_EQ(failed.evaluateFamily("a_b"), FilterEvalNoHit);
}

TEST(FilterSettingsEvaluate, Paths) {
  FilterSettings settings = settingsWith("expt:bus-1/4_port-0b inpt:bus-*_port-1");
  EXPECT_EQ(settings.evaluatePath("bus-1/4_port-0b"), FilterEvalExcluded);
  EXPECT_EQ(settings.evaluatePath("bus-2_port-01"), FilterEvalIncluded);
  EXPECT_EQ(settings.evaluatePath("bus-12_port-01"), FilterEvalNoHit);
  EXPECT_EQ(settings.evaluatePath("Error"), FilterEvalNoHit);
}

TEST(FilterSettingsEvaluate, IdentifierRuleUnderExidDoesNotMatchAPath) {
  FilterSettings settings;
  settings.list().addValues(FilterTypeExid, "bus-1_port-2");
  EXPECT_EQ(settings.evaluateId("vid-0001_pid-0002"), FilterEvalNoHit);
}

TEST(FilterSettingsEvaluate, SplitExclusion) {
  FilterSettings settings = settingsWith("spexid:m:vid-1234_pid-****");
  EXPECT_TRUE(settings.isSplitExcluded("vid-1234_pid-0001"));
  EXPECT_FALSE(settings.isSplitExcluded("vid-4321_pid-0001"));
  EXPECT_EQ(settings.evaluate("vid-1234_pid-0001", FilterTypeSpexid, FilterTypeSpexid),
            FilterEvalExcluded);
}

TEST(FilterSettingsEvaluate, EachTypeOfTheRangeParsesForItself) {
  // One text read as a path under expt and as an identifier under exid: only
  // the types whose parse fits the rule can hit.
  FilterSettings settings = settingsWith("exid:m:vid-1_pid-2 inpt:bus-1_port-2");
  EXPECT_EQ(settings.evaluate("vid-1_pid-2", FilterTypeExpt, FilterTypeExid), FilterEvalIncluded);
  EXPECT_EQ(settings.evaluate("bus-1_port-2", FilterTypeExpt, FilterTypeExid), FilterEvalIncluded);
  EXPECT_EQ(settings.evaluate("bus-1_port-2", FilterTypeInpt, FilterTypeInid), FilterEvalExcluded);
  EXPECT_EQ(settings.evaluate("vid-1_pid-2", 0, 0xffffffffu), FilterEvalIncluded);
  EXPECT_EQ(settings.evaluate("vid-1_pid-2", 5, 4), FilterEvalNoHit);
}

TEST(FilterSettingsEvaluate, BooleanAndSplitKeysNeverMatch) {
  FilterSettings settings = settingsWith("usehid:o:true spid:m:vid-1_pid-2(exintf:1)");
  EXPECT_EQ(settings.evaluate("true", FilterTypeUsehid, FilterTypeUsehid), FilterEvalNoHit);
  EXPECT_EQ(settings.evaluate("vid-1_pid-2(exintf:1)", FilterTypeSpid, FilterTypeSpid),
            FilterEvalNoHit);
}

TEST(FilterSettingsEvaluate, FailedValuesUnderKey23NeverMatch) {
  FilterSettings settings;
  FilterList source;
  source.add("exfa:a_b");
  settings.list().copyValues(FilterTypeExfa, source);
  ASSERT_TRUE(settings.list().hasValues(FilterTypeNone));
  EXPECT_EQ(settings.evaluate("a_b", FilterTypeNone, FilterTypeNone), FilterEvalNoHit);
}

}  // namespace
}  // namespace ordo::usb
