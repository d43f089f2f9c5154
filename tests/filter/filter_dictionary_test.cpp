#include "ordo/usb/filter_dictionary.h"

#include <gtest/gtest.h>

#include "ordo/usb/filter_types.h"

namespace ordo::usb {
namespace {

const char *const kKeys[] = {"expt",
                             "inpt",
                             "exid",
                             "inid",
                             "exfa",
                             "infa",
                             "exalldev",
                             "exintf",
                             "exingp",
                             "spexid",
                             "spid",
                             "usehid",
                             "usehidboot",
                             "usekeybmouse",
                             "usesc",
                             "useaout",
                             "useain",
                             "usevideo",
                             "usenic",
                             "blockdsplit",
                             "allowautodsplit",
                             "blockbootdfilter",
                             "blockremoteconfig"};

TEST(FilterDictionary, KeysHaveTheirFixedNumbersBothWays) {
  auto dictionary = FilterDictionary::getInstance();
  ASSERT_EQ(dictionary->names().size(), 23u);
  for (FilterType type = 0; type < 23; ++type) {
    EXPECT_EQ(dictionary->names()[type], kKeys[type]);
    EXPECT_EQ(dictionary->typeOf(kKeys[type]), type);
    EXPECT_EQ(dictionary->nameOf(type), kKeys[type]);
  }
  EXPECT_EQ(dictionary->nameToType().size(), 23u);
  EXPECT_EQ(dictionary->typeToName().size(), 23u);
}

TEST(FilterDictionary, KeyInCapitalsIsUnknown) {
  EXPECT_EQ(FilterDictionary::getInstance()->typeOf("EXID"), FilterTypeNone);
  EXPECT_EQ(FilterDictionary::getInstance()->typeOf("Usehid"), 23u);
  EXPECT_EQ(FilterDictionary::getInstance()->typeOf(""), 23u);
}

TEST(FilterDictionary, NameOfUnknownNumberIsError) {
  EXPECT_EQ(FilterDictionary::getInstance()->nameOf(23), "ERROR");
  EXPECT_EQ(FilterDictionary::getInstance()->nameOf(0xffffffffu), "ERROR");
}

TEST(FilterDictionary, SequencingLettersAreExactWholeTexts) {
  auto dictionary = FilterDictionary::getInstance();
  EXPECT_EQ(dictionary->seqOf("m"), FilterSeqMerge);
  EXPECT_EQ(dictionary->seqOf("o"), FilterSeqOverride);
  EXPECT_EQ(dictionary->seqOf("d"), FilterSeqDefault);
  EXPECT_EQ(dictionary->seqOf("merge"), FilterSeqNotSet);
  EXPECT_EQ(dictionary->seqOf("M"), FilterSeqNotSet);
  EXPECT_EQ(dictionary->seqOf(""), FilterSeqNotSet);
  EXPECT_EQ(dictionary->seqOf("x"), FilterSeqNotSet);
}

TEST(FilterDictionary, SequencingNames) {
  auto dictionary = FilterDictionary::getInstance();
  EXPECT_EQ(dictionary->seqName(0), "merge");
  EXPECT_EQ(dictionary->seqName(1), "override");
  EXPECT_EQ(dictionary->seqName(2), "default");
  EXPECT_EQ(dictionary->seqName(3), "notset");
  EXPECT_EQ(dictionary->seqName(4), "unknown");
}

TEST(FilterDictionary, ValidSequencingByGroup) {
  for (FilterType type : {2u, 3u, 4u, 5u, 9u, 10u}) {
    EXPECT_TRUE(isValidSequencing(type, FilterSeqMerge)) << type;
    EXPECT_TRUE(isValidSequencing(type, FilterSeqOverride)) << type;
    EXPECT_FALSE(isValidSequencing(type, FilterSeqDefault)) << type;
    EXPECT_FALSE(isValidSequencing(type, FilterSeqNotSet)) << type;
  }
  for (FilterType type = 11; type <= 21; ++type) {
    EXPECT_FALSE(isValidSequencing(type, FilterSeqMerge)) << type;
    EXPECT_TRUE(isValidSequencing(type, FilterSeqOverride)) << type;
    EXPECT_TRUE(isValidSequencing(type, FilterSeqDefault)) << type;
    EXPECT_FALSE(isValidSequencing(type, FilterSeqNotSet)) << type;
  }
  for (FilterType type : {0u, 1u, 7u, 8u, 22u, 23u, 100u}) {
    for (FilterSeq seq = 0; seq < 5; ++seq) EXPECT_FALSE(isValidSequencing(type, seq)) << type;
  }
}

TEST(FilterDictionary, ExalldevTakesOnlyNotSet) {
  EXPECT_FALSE(isValidSequencing(FilterTypeExalldev, FilterSeqMerge));
  EXPECT_FALSE(isValidSequencing(FilterTypeExalldev, FilterSeqOverride));
  EXPECT_FALSE(isValidSequencing(FilterTypeExalldev, FilterSeqDefault));
  EXPECT_TRUE(isValidSequencing(FilterTypeExalldev, FilterSeqNotSet));
}

TEST(FilterDictionary, BlockremoteconfigTakesNothingThoughBlockbootdfilterDoes) {
  for (FilterSeq seq = 0; seq < 5; ++seq) {
    EXPECT_FALSE(isValidSequencing(FilterTypeBlockremoteconfig, seq));
  }
  EXPECT_TRUE(isValidSequencing(FilterTypeBlockbootdfilter, FilterSeqOverride));
  EXPECT_TRUE(isValidSequencing(FilterTypeBlockbootdfilter, FilterSeqDefault));
}

TEST(FilterDictionary, ReleaseThenLookupBuildsAnEqualDictionary) {
  auto first = FilterDictionary::getInstance();
  std::vector<std::string> names = first->names();
  auto byName = first->nameToType();
  auto byType = first->typeToName();
  EXPECT_TRUE(FilterDictionary::hasInstance());
  FilterDictionary::releaseInstance();
  EXPECT_FALSE(FilterDictionary::hasInstance());
  // A holder from before the release still reads a whole table.
  EXPECT_EQ(first->typeOf("spid"), FilterTypeSpid);
  auto second = FilterDictionary::getInstance();
  EXPECT_NE(first.get(), second.get());
  EXPECT_EQ(second->names(), names);
  EXPECT_EQ(second->nameToType(), byName);
  EXPECT_EQ(second->typeToName(), byType);
  FilterDictionary::releaseInstance();
  FilterDictionary::releaseInstance();  // releasing an absent one is harmless
  EXPECT_FALSE(FilterDictionary::hasInstance());
}

TEST(FilterDictionary, DumpWritesTheTableToStandardOutput) {
  ::testing::internal::CaptureStdout();
  FilterDictionary::getInstance()->dump();
  std::string expected = "\n ========== FilterDictionary ===========\n";
  for (const char *key : kKeys) expected += std::string(" ") + key + " " + key + "\n";
  expected += " ========== End of FilterDictionary ====\n";
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), expected);
}

TEST(FilterTypes, BooleanKeys) {
  for (FilterType type = 0; type < 30; ++type) {
    bool expected = type == 6 || (type >= 11 && type <= 22);
    EXPECT_EQ(isBooleanFilterType(type), expected) << type;
  }
}

}  // namespace
}  // namespace ordo::usb
