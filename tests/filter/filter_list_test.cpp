#include "ordo/usb/filter_list.h"

#include <gtest/gtest.h>

#include "blob_builder.h"
#include "log_capture.h"
#include "ordo/usb/filter_dictionary.h"

namespace ordo::usb {
namespace {

using testing::BlobBuilder;
using testing::LogCapture;
using testing::LogLine;
using Lines = std::vector<LogLine>;
using Texts = std::vector<std::string>;

// The texts of a key's values, each read on a copy as the dumps do.
Texts textsOf(const FilterList &list, FilterType type) {
  Texts texts;
  if (const std::vector<FltValue> *values = list.valuesOf(type)) {
    for (FltValue value : *values) texts.push_back(value.toString());
  }
  return texts;
}

LogLine refused(const std::string &why, const std::string &entry) {
  return {4, "DevFltr: " + why + "Filter string ignored: " + entry};
}

TEST(FilterListAdd, BadEntryIsSkippedAndOthersStay) {
  LogCapture log;
  FilterList list;
  list.add("exid:m:vid-1234_pid-5678 foo:bar usehid:o:true");
  EXPECT_EQ(textsOf(list, FilterTypeExid), (Texts{"vid-1234_pid-5678"}));
  EXPECT_EQ(textsOf(list, FilterTypeUsehid), (Texts{"true"}));
  EXPECT_EQ(list.sequencing(), (FilterList::SequencingMap{{FilterTypeExid, FilterSeqMerge},
                                                          {FilterTypeUsehid, FilterSeqOverride}}));
  EXPECT_EQ(list.filters().size(), 2u);
  EXPECT_EQ(log.all(), (Lines{refused("Invalid filter. ", "foo:bar")}));
}

TEST(FilterListAdd, SeveralItemsGiveSeveralValues) {
  LogCapture log;
  FilterList list;
  list.add("exid:m:vid-1234_pid-5678;vid-0e0f_pid-0001 exalldev:true");
  EXPECT_EQ(textsOf(list, FilterTypeExid), (Texts{"vid-1234_pid-5678", "vid-0e0f_pid-0001"}));
  EXPECT_EQ(textsOf(list, FilterTypeExalldev), (Texts{"true"}));
  EXPECT_EQ(list.sequencingOf(FilterTypeExid), FilterSeqMerge);
  EXPECT_EQ(list.sequencingOf(FilterTypeExalldev), FilterSeqNotSet);
  EXPECT_TRUE(log.all().empty());
}

TEST(FilterListAdd, LastLetterWinsAndValuesAccumulate) {
  FilterList list;
  list.add("exid:m:vid-1234_pid-5678 exid:o:vid-1111_pid-2222");
  EXPECT_EQ(textsOf(list, FilterTypeExid), (Texts{"vid-1234_pid-5678", "vid-1111_pid-2222"}));
  EXPECT_EQ(list.sequencingOf(FilterTypeExid), FilterSeqOverride);
  list.add("exid:m:vid-1234_pid-5678");
  EXPECT_EQ(list.valuesOf(FilterTypeExid)->size(), 3u);  // no duplicate check
}

TEST(FilterListAdd, EntryWithoutLetterIsAcceptedWithoutSequencing) {
  LogCapture log;
  FilterList list;
  list.add("exid:vid-1234_pid-5678");
  EXPECT_EQ(textsOf(list, FilterTypeExid), (Texts{"vid-1234_pid-5678"}));
  EXPECT_TRUE(list.sequencing().empty());
  EXPECT_TRUE(log.all().empty());
  // The agent's gate reads the same entry and finds no valid letter.
  FilterEntry entry = FilterList::parseEntry("exid:vid-1234_pid-5678");
  EXPECT_EQ(entry.type, FilterTypeExid);
  EXPECT_EQ(entry.seq, FilterSeqNotSet);
  EXPECT_FALSE(isValidSequencing(entry.type, entry.seq));
}

TEST(FilterListAdd, UnknownLetterCountsAsNone) {
  LogCapture log;
  FilterList list;
  list.add("exid:x:vid-1234_pid-5678");
  EXPECT_EQ(textsOf(list, FilterTypeExid), (Texts{"vid-1234_pid-5678"}));
  EXPECT_TRUE(list.sequencing().empty());
  EXPECT_TRUE(log.all().empty());
}

TEST(FilterListAdd, FourthTokenIsIgnored) {
  FilterList list;
  list.add("exid:m:vid-1_pid-2:extra");
  EXPECT_EQ(textsOf(list, FilterTypeExid), (Texts{"vid-0001_pid-0002"}));
}

TEST(FilterListAdd, IdentifierWithoutBothPartsIsInvalidValue) {
  LogCapture log;
  FilterList list;
  list.add("exid:m:vid-1234");
  list.add("inid:m:vid-1_pid-2;vid-3");
  list.add("spexid:m:1234");
  EXPECT_TRUE(list.filters().empty());
  EXPECT_TRUE(list.sequencing().empty());
  EXPECT_EQ(log.all(), (Lines{refused("Invalid value. ", "exid:m:vid-1234"),
                              refused("Invalid value. ", "inid:m:vid-1_pid-2;vid-3"),
                              refused("Invalid value. ", "spexid:m:1234")}));
}

TEST(FilterListAdd, LetterTheKeyDoesNotTakeIsRefused) {
  LogCapture log;
  FilterList list;
  list.add("usehid:m:true exalldev:o:true exalldev:true expt:m:bus-1_port-2");
  EXPECT_EQ(textsOf(list, FilterTypeExalldev), (Texts{"true"}));
  EXPECT_FALSE(list.hasValues(FilterTypeUsehid));
  EXPECT_FALSE(list.hasValues(FilterTypeExpt));
  EXPECT_TRUE(list.sequencing().empty());
  EXPECT_EQ(log.all(), (Lines{refused("Invalid sequencing info. ", "usehid:m:true"),
                              refused("Invalid sequencing info. ", "exalldev:o:true"),
                              refused("Invalid sequencing info. ", "expt:m:bus-1_port-2")}));
}

TEST(FilterListAdd, ParenthesesMustBalanceAtDepthOne) {
  LogCapture log;
  FilterList list;
  list.add("exfa:m:a(b");
  list.add("exfa:m:((a))");
  list.add("exfa:m:a)b(");
  EXPECT_TRUE(list.filters().empty());
  list.add("exfa:m:(a)");
  EXPECT_EQ(textsOf(list, FilterTypeExfa), (Texts{"(a)"}));
  EXPECT_EQ(log.all(), (Lines{refused("Invalid filter. ", "exfa:m:a(b"),
                              refused("Invalid filter. ", "exfa:m:((a))"),
                              refused("Invalid filter. ", "exfa:m:a)b(")}));
}

TEST(FilterListAdd, ValueSpelledErrorIsRefused) {
  LogCapture log;
  FilterList list;
  list.add("exfa:m:error");
  EXPECT_TRUE(list.filters().empty());
  EXPECT_EQ(log.all(), (Lines{refused("Invalid filter. ", "exfa:m:error")}));
}

TEST(FilterListAdd, EmptyValueAndMissingColonAndUnknownKey) {
  LogCapture log;
  FilterList list;
  list.add("usehid usehid: USEHID:o:true :true");
  EXPECT_TRUE(list.filters().empty());
  EXPECT_EQ(
      log.all(),
      (Lines{refused("Invalid filter. ", "usehid"), refused("Invalid filter. ", "usehid:"),
             refused("Invalid filter. ", "USEHID:o:true"), refused("Invalid filter. ", ":true")}));
}

TEST(FilterListAdd, TrailingColonMakesTheLetterTheValue) {
  LogCapture log;
  FilterList list;
  list.add("usehid:o:");
  EXPECT_TRUE(log.all().empty());
  EXPECT_TRUE(list.sequencing().empty());
  ASSERT_TRUE(list.hasValues(FilterTypeUsehid));
  EXPECT_EQ(list.valuesOf(FilterTypeUsehid)->front().getType(), FilterTypeNone);
  EXPECT_EQ(list.firstText(FilterTypeUsehid), "o");
}

TEST(FilterListAdd, SplitRule) {
  LogCapture log;
  FilterList list;
  list.add("spid:m:vid-1_pid-2(exintf:1;exintf:2)");
  ASSERT_TRUE(list.hasValues(FilterTypeSpid));
  const FltValue &value = list.valuesOf(FilterTypeSpid)->front();
  ASSERT_EQ(value.splitRules().size(), 1u);
  EXPECT_EQ(value.splitRules()[0].interfaces, (Texts{"1", "2"}));
  EXPECT_EQ(list.valuesOf(FilterTypeSpid)->size(), 1u);
  list.add("spid:m:vid-1_pid-2");
  EXPECT_EQ(list.valuesOf(FilterTypeSpid)->size(), 1u);
  EXPECT_EQ(log.all(), (Lines{refused("Invalid value. ", "spid:m:vid-1_pid-2")}));
}

TEST(FilterListAdd, BlankInsideParenthesesDoesNotSplitTheString) {
  LogCapture log;
  FilterList list;
  list.add("spid:m:vid-1_pid-2(exintf:1; exintf:2) usehid:o:false");
  EXPECT_TRUE(log.all().empty());
  ASSERT_EQ(list.valuesOf(FilterTypeSpid)->size(), 1u);
  // " exintf" is no key, so the second entry of the rule is passed over.
  EXPECT_EQ(list.valuesOf(FilterTypeSpid)->front().splitRules()[0].interfaces, (Texts{"1"}));
  EXPECT_EQ(textsOf(list, FilterTypeUsehid), (Texts{"false"}));
}

TEST(FilterListAdd, SequencingWithoutValues) {
  FilterList list;
  list.add("exfa:m:;");
  EXPECT_FALSE(list.hasValues(FilterTypeExfa));
  EXPECT_EQ(list.valuesOf(FilterTypeExfa), nullptr);
  EXPECT_EQ(list.sequencingOf(FilterTypeExfa), FilterSeqMerge);
  EXPECT_TRUE(list.filters().empty());
}

TEST(FilterListAdd, ValueFailingInItsHelperIsStoredAsType23) {
  LogCapture log;
  FilterList list;
  list.add("exfa:a_b usehid:maybe");
  EXPECT_TRUE(log.all().empty());
  ASSERT_TRUE(list.hasValues(FilterTypeExfa));
  EXPECT_EQ(list.valuesOf(FilterTypeExfa)->front().getType(), FilterTypeNone);
  EXPECT_EQ(list.valuesOf(FilterTypeUsehid)->front().getType(), FilterTypeNone);
}

TEST(FilterListAdd, KeysWithoutHelperStoreEmptyValues) {
  FilterList list;
  list.add("exintf:anything exingp:x;y");
  EXPECT_EQ(list.valuesOf(FilterTypeExintf)->size(), 1u);
  EXPECT_EQ(list.valuesOf(FilterTypeExingp)->size(), 2u);
  EXPECT_TRUE(list.valuesOf(FilterTypeExingp)->front().details().empty());
}

TEST(FilterListAdd, PathValuesHaveNoCheckBeforeTheHelper) {
  LogCapture log;
  FilterList list;
  list.add("expt:x_y inpt:bus-1_port-2");
  EXPECT_TRUE(log.all().empty());
  EXPECT_EQ(list.valuesOf(FilterTypeExpt)->front().getType(), FilterTypeNone);
  EXPECT_EQ(textsOf(list, FilterTypeInpt), (Texts{"bus-01_port-02"}));
}

TEST(FilterListAdd, PercentInAnEntryIsLoggedAsWritten) {
  LogCapture log;
  FilterList list;
  list.add("ex%s%n:m:1");
  EXPECT_EQ(log.all(), (Lines{refused("Invalid filter. ", "ex%s%n:m:1")}));
}

TEST(FilterListChecks, CheckParens) {
  EXPECT_FALSE(FilterList::checkParens(""));
  EXPECT_TRUE(FilterList::checkParens("abc"));
  EXPECT_TRUE(FilterList::checkParens("a(b)c(d)"));
  EXPECT_FALSE(FilterList::checkParens("a(b"));
  EXPECT_FALSE(FilterList::checkParens("a)b"));
  EXPECT_FALSE(FilterList::checkParens("((a))"));
}

TEST(FilterListChecks, IdTextLooksForSubstringsOnly) {
  EXPECT_TRUE(FilterList::isValidIdText("vid-zz_pid-"));
  EXPECT_TRUE(FilterList::isValidIdText("PID-1_VID-2"));
  EXPECT_TRUE(FilterList::isValidIdText("vid-1_pid-2;pid-3_vid-4"));
  EXPECT_FALSE(FilterList::isValidIdText("vid-1_pid-2;vid-3"));
  EXPECT_FALSE(FilterList::isValidIdText(";"));
  EXPECT_FALSE(FilterList::isValidIdText("vid-1pid-2"));
}

TEST(FilterListChecks, SplitText) {
  EXPECT_TRUE(FilterList::isValidSplitText("vid-1_pid-2(x)"));
  EXPECT_TRUE(FilterList::isValidSplitText("vid-1_pid-2(x);vid-3_pid-4(y)"));
  EXPECT_FALSE(FilterList::isValidSplitText("vid-1_pid-2"));
  EXPECT_FALSE(FilterList::isValidSplitText("vid-1(x)"));
  EXPECT_FALSE(FilterList::isValidSplitText(";"));
  EXPECT_TRUE(FilterList::isValidValueText(FilterTypeExfa, "anything"));
  EXPECT_FALSE(FilterList::isValidValueText(FilterTypeSpexid, "anything"));
}

TEST(FilterListEntry, ParseEntry) {
  FilterEntry one = FilterList::parseEntry("usehid");
  EXPECT_EQ(one.type, FilterTypeUsehid);
  EXPECT_EQ(one.seq, FilterSeqNotSet);
  EXPECT_EQ(one.value, "error");
  FilterEntry none = FilterList::parseEntry("");
  EXPECT_EQ(none.type, FilterTypeNone);
  FilterEntry full = FilterList::parseEntry("usehid:d:yes");
  EXPECT_EQ(full.type, FilterTypeUsehid);
  EXPECT_EQ(full.seq, FilterSeqDefault);
  EXPECT_EQ(full.value, "yes");
  // The agent's gate reads a whole string as one entry.
  FilterEntry whole = FilterList::parseEntry("exid:m:vid-1_pid-2 inid:o:vid-3_pid-4");
  EXPECT_EQ(whole.type, FilterTypeExid);
  EXPECT_EQ(whole.seq, FilterSeqMerge);
}

TEST(FilterListQueries, CountsTextsAndSequencing) {
  FilterList list;
  EXPECT_EQ(list.valueCount(), 0u);
  EXPECT_TRUE(list.allHaveSequencing());
  EXPECT_EQ(list.firstText(FilterTypeExid), "");
  list.add("exid:m:vid-1_pid-2;vid-3_pid-4 usehid:o:no");
  EXPECT_EQ(list.valueCount(), 3u);
  EXPECT_EQ(list.firstText(FilterTypeExid), "vid-0001_pid-0002");
  EXPECT_TRUE(list.allHaveSequencing());
  list.add("exalldev:true");
  EXPECT_FALSE(list.allHaveSequencing());
  EXPECT_EQ(list.sequencingOf(FilterTypeInid), FilterSeqNotSet);
  list.clear();
  EXPECT_TRUE(list.filters().empty());
  EXPECT_TRUE(list.sequencing().empty());
}

TEST(FilterListQueries, FirstTextLeavesTheStoredValueUncached) {
  FilterList list;
  list.add("exfa:m:audio");
  EXPECT_EQ(list.firstText(FilterTypeExfa), "audio");
  EXPECT_FALSE(list.valuesOf(FilterTypeExfa)->front().isTextCached());
}

TEST(FilterListQueries, CopyValuesFilesEachUnderItsOwnType) {
  FilterList source;
  source.add("exfa:m:audio;a_b;video");
  FilterList target;
  target.copyValues(FilterTypeExfa, source);
  EXPECT_EQ(textsOf(target, FilterTypeExfa), (Texts{"audio", "video"}));
  EXPECT_EQ(textsOf(target, FilterTypeNone), (Texts{"a_b"}));
  EXPECT_TRUE(target.sequencing().empty());
  target.copyValues(FilterTypeInfa, source);  // nothing there
  EXPECT_FALSE(target.hasValues(FilterTypeInfa));
}

FilterList listOf(const std::string &text) {
  FilterList list;
  list.add(text);
  return list;
}

FilterList merged(const FilterList &local, const FilterList &remote) {
  FilterList result;
  FilterList::merge(local, remote, result);
  return result;
}

TEST(FilterListMerge, OverrideDropsLocalEvenWithoutRemoteValues) {
  FilterList result = merged(listOf("exfa:m:audio exid:m:vid-1_pid-1"), listOf("exfa:o:;"));
  EXPECT_FALSE(result.hasValues(FilterTypeExfa));
  EXPECT_EQ(textsOf(result, FilterTypeExid), (Texts{"vid-0001_pid-0001"}));
  EXPECT_TRUE(result.sequencing().empty());
}

TEST(FilterListMerge, OverrideTakesRemote) {
  FilterList result =
      merged(listOf("exid:m:vid-0001_pid-0001"), listOf("exid:o:vid-0002_pid-0002"));
  EXPECT_EQ(textsOf(result, FilterTypeExid), (Texts{"vid-0002_pid-0002"}));
}

TEST(FilterListMerge, MergeOfListKeyPutsRemoteFirst) {
  FilterList result =
      merged(listOf("exid:m:vid-1234_pid-5678;vid-1_pid-1"), listOf("exid:m:vid-1234_pid-5678"));
  EXPECT_EQ(textsOf(result, FilterTypeExid),
            (Texts{"vid-1234_pid-5678", "vid-1234_pid-5678", "vid-0001_pid-0001"}));
}

TEST(FilterListMerge, DefaultOfBooleanPrefersLocal) {
  LogCapture log;
  EXPECT_EQ(textsOf(merged(listOf("usehid:false"), listOf("usehid:d:true")), FilterTypeUsehid),
            (Texts{"false"}));
  EXPECT_EQ(textsOf(merged(listOf("usehid:true"), listOf("usehid:d:false")), FilterTypeUsehid),
            (Texts{"true"}));
  EXPECT_EQ(textsOf(merged(listOf("usehid:true"), listOf("usehid:o:false")), FilterTypeUsehid),
            (Texts{"false"}));
  EXPECT_EQ(textsOf(merged(listOf(""), listOf("usehid:d:false")), FilterTypeUsehid),
            (Texts{"false"}));
  EXPECT_TRUE(log.all().empty());
}

TEST(FilterListMerge, LettersTheStringsCannotCarryStillMergeByTable) {
  // Merge on a boolean key and default on a list key only arrive in a blob.
  BlobBuilder blob;
  blob.number(3)
      .pair(FilterTypeUsehid, FilterSeqMerge)
      .pair(FilterTypeExfa, FilterSeqDefault)
      .pair(FilterTypeInfa, 7)
      .number(3)
      .value(FilterTypeUsehid, {{"", "false"}})
      .value(FilterTypeExfa, {{"", "video"}})
      .value(FilterTypeInfa, {{"", "hid"}});
  FilterList remote;
  ASSERT_TRUE(remote.decodeBounded(blob.data(), blob.size(), false));
  FilterList local = listOf("usehid:true exfa:audio infa:storage");
  FilterList result = merged(local, remote);
  EXPECT_EQ(textsOf(result, FilterTypeUsehid), (Texts{"true"}));
  EXPECT_EQ(textsOf(result, FilterTypeExfa), (Texts{"video", "audio"}));
  EXPECT_FALSE(result.hasValues(FilterTypeInfa));  // an unknown number keeps nothing
}

TEST(FilterListMerge, NotSetKeepsLocalAndWarnsAboutRemote) {
  LogCapture log;
  FilterList remote;
  remote.addValues(FilterTypeExid, "vid-2_pid-2");
  FilterList result = merged(listOf("exid:vid-1_pid-1 infa:hid"), remote);
  EXPECT_EQ(textsOf(result, FilterTypeExid), (Texts{"vid-0001_pid-0001"}));
  EXPECT_EQ(textsOf(result, FilterTypeInfa), (Texts{"hid"}));
  EXPECT_EQ(
      log.all(),
      (Lines{{4, "DevFltr: Filter rule found without MOI setting - ignoring rule for exid"}}));
}

TEST(FilterListMerge, ExalldevKeepsLocalOnlyForExactTrue) {
  LogCapture log;
  EXPECT_EQ(textsOf(merged(listOf("exalldev:true"), listOf("exalldev:false")), FilterTypeExalldev),
            (Texts{"true"}));
  EXPECT_EQ(textsOf(merged(listOf("exalldev:1"), listOf("exalldev:true")), FilterTypeExalldev),
            (Texts{"true"}));
  EXPECT_EQ(textsOf(merged(listOf("exalldev:1"), listOf("exalldev:false")), FilterTypeExalldev),
            (Texts{"false"}));
  EXPECT_EQ(textsOf(merged(listOf("exalldev:false"), listOf("exalldev:yes")), FilterTypeExalldev),
            (Texts{"yes"}));
  EXPECT_EQ(textsOf(merged(listOf(""), listOf("exalldev:true")), FilterTypeExalldev),
            (Texts{"true"}));
  EXPECT_EQ(textsOf(merged(listOf("exalldev:false"), listOf("")), FilterTypeExalldev),
            (Texts{"false"}));
  EXPECT_TRUE(log.all().empty());
}

TEST(FilterListMerge, ExalldevLocalTrueIsReadFromItsFirstValue) {
  FilterList local = listOf("exalldev:false exalldev:true");
  FilterList result = merged(local, listOf("exalldev:yes"));
  EXPECT_EQ(textsOf(result, FilterTypeExalldev), (Texts{"yes"}));
}

TEST(FilterListMerge, FailedLocalValuesLandUnderKey23) {
  FilterList result = merged(listOf("exfa:a_b"), FilterList());
  EXPECT_FALSE(result.hasValues(FilterTypeExfa));
  EXPECT_EQ(result.valuesOf(FilterTypeNone)->size(), 1u);
}

TEST(FilterListDump, WritesEveryValueAndTheMoiSettingsAtDetailLevel) {
  FilterList list;
  list.add("exid:m:vid-1234_pid-5678;pid-1_vid-2 exfa:a_b usehid:o:true exalldev:false");
  LogCapture log;
  list.dump();
  EXPECT_EQ(log.all(), (Lines{{0, "DevFltr:  ========== FilterList ==========="},
                              {0, "DevFltr:  [exid->exid] : vid-1234_pid-5678"},
                              {0, "DevFltr:  [exid->exid] : vid-0002_pid-0001"},
                              {0, "DevFltr:  [exfa->ERROR] : a_b"},
                              {0, "DevFltr:  [exalldev->exalldev] : false"},
                              {0, "DevFltr:  [usehid->usehid] : true"},
                              {0, "DevFltr:  MOI SETTINGS"},
                              {0, "DevFltr:  FilterType: exid -> merge"},
                              {0, "DevFltr:  FilterType: usehid -> override"},
                              {0, "DevFltr:  ========== End of FilterList ===="}}));
}

TEST(FilterListDump, WithoutMoiSettings) {
  FilterList list;
  list.add("exalldev:true");
  LogCapture log;
  list.dump();
  EXPECT_EQ(
      log.texts(),
      (Texts{"DevFltr:  ========== FilterList ===========", "DevFltr:  [exalldev->exalldev] : true",
             "DevFltr:  ========== End of FilterList ===="}));
}

TEST(FilterListDump, NothingWithoutValuesEvenWithSequencing) {
  FilterList list;
  list.add("exfa:m:;");
  LogCapture log;
  list.dump();
  EXPECT_TRUE(log.all().empty());
}

TEST(FilterListDump, SplitRuleShowsItsRuleText) {
  FilterList list;
  list.add("spid:m:vid-1_pid-2(exintf:01;exintf:02)");
  LogCapture log;
  list.dump();
  ASSERT_EQ(log.texts().size(), 5u);
  EXPECT_EQ(log.texts()[1], "DevFltr:  [spid->spid] : vid-0001_pid-0002(exintf:01,exintf:02)");
}

}  // namespace
}  // namespace ordo::usb
