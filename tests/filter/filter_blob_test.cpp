#include <gtest/gtest.h>

#include "blob_builder.h"
#include "log_capture.h"
#include "ordo/usb/filter_list.h"

namespace ordo::usb {
namespace {

using testing::BlobBuilder;
using testing::LogCapture;
using testing::LogLine;
using Bytes = std::vector<uint8_t>;
using Lines = std::vector<LogLine>;

Bytes encoded(const FilterList &list) {
  Bytes bytes(list.encodedSize(), 0xee);
  if (!bytes.empty()) {
    EXPECT_EQ(list.encode(bytes.data()), bytes.size());
  }
  return bytes;
}

FilterList listOf(const std::string &text) {
  FilterList list;
  list.add(text);
  return list;
}

// Every value of a list as type, details and rules, for whole-list comparison.
struct Flat {
  FilterType key;
  FilterType type;
  std::vector<FltDetail> details;
  std::vector<FltSplitRule> rules;
  bool operator==(const Flat &) const = default;
};

std::vector<Flat> flatten(const FilterList &list) {
  std::vector<Flat> flat;
  for (const auto &[key, values] : list.filters()) {
    for (const FltValue &value : values) {
      flat.push_back({key, value.getType(), value.details(), value.splitRules()});
    }
  }
  return flat;
}

TEST(FilterBlob, OneBooleanIs35Bytes) {
  FilterList list = listOf("usehid:o:true");
  EXPECT_EQ(list.encodedSize(), 35u);
  BlobBuilder expected;
  expected.number(1).pair(FilterTypeUsehid, FilterSeqOverride).number(1);
  expected.number(FilterTypeUsehid).number(1).number(0).text(":true,").text(";");
  EXPECT_EQ(encoded(list), expected.bytes());
}

TEST(FilterBlob, SequencingOnlyEncodesToZero) {
  FilterList list = listOf("exfa:m:; usehid:o:;");
  EXPECT_EQ(list.sequencing().size(), 2u);
  EXPECT_EQ(list.encodedSize(), 0u);
  EXPECT_EQ(list.encode(nullptr), 0u);
}

TEST(FilterBlob, NullBufferOnlyGivesTheSize) {
  FilterList list = listOf("exid:m:vid-1_pid-2");
  EXPECT_EQ(list.encode(nullptr), list.encodedSize());
}

TEST(FilterBlob, ListWithoutValuesStillWritesItsCountsWhenGivenABuffer) {
  FilterList list = listOf("exfa:m:;");
  Bytes buffer(16, 0xee);
  EXPECT_EQ(list.encode(buffer.data()), 0u);
  BlobBuilder expected;
  expected.number(1).pair(FilterTypeExfa, FilterSeqMerge).number(0);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.end()), expected.bytes());
}

TEST(FilterBlob, RecordLayoutWithSplitRuleAndFailedValue) {
  FilterList list = listOf("exfa:m:a_b;audio spid:m:vid-1_pid-2(exintf:01;exintf:2)");
  BlobBuilder expected;
  expected.number(2).pair(FilterTypeExfa, FilterSeqMerge).pair(FilterTypeSpid, FilterSeqMerge);
  expected.number(3);
  expected.number(FilterTypeNone).number(1).number(0).text(":a_b,;");
  expected.number(FilterTypeExfa).number(1).number(0).text(":audio,;");
  expected.number(FilterTypeSpid).number(2).number(1).text("vid:0001,pid:0002,");
  expected.sized("vid-0001_pid-0002").number(0).number(2).sized("01").sized("2").text(";");
  EXPECT_EQ(list.encodedSize(), expected.size());
  EXPECT_EQ(encoded(list), expected.bytes());
}

TEST(FilterBlob, RoundTripKeepsSequencedValuesAndExalldev) {
  FilterList original = listOf(
      "exid:m:vid-1234_pid-5678;vid-12**_pid-**** inid:o:pid-1_vid-2 exfa:m:audio;a_b "
      "spid:o:vid-1_pid-2(exintf:01;exintf:02) usehid:d:yes exalldev:true");
  original.addValues(FilterTypeInfa, "hid");  // no sequencing: dropped on the way
  Bytes bytes = encoded(original);
  FilterList decoded;
  decoded.decode(bytes.data(), false);
  EXPECT_EQ(decoded.sequencing(), original.sequencing());
  std::vector<Flat> expected;
  for (const Flat &flat : flatten(original)) {
    if (flat.type != FilterTypeNone && flat.key != FilterTypeInfa) expected.push_back(flat);
  }
  EXPECT_EQ(flatten(decoded), expected);
  FilterList bounded;
  EXPECT_TRUE(bounded.decodeBounded(bytes.data(), bytes.size(), false));
  EXPECT_EQ(flatten(bounded), expected);
}

TEST(FilterBlob, DecodeAppendsToTheList) {
  FilterList list = listOf("exid:m:vid-1_pid-1");
  Bytes bytes = encoded(listOf("exid:o:vid-2_pid-2"));
  list.decode(bytes.data(), false);
  EXPECT_EQ(list.valuesOf(FilterTypeExid)->size(), 2u);
  EXPECT_EQ(list.sequencingOf(FilterTypeExid), FilterSeqOverride);
}

TEST(FilterBlob, VerboseDecodeLogsEveryStep) {
  Bytes bytes = encoded(listOf("usehid:o:true"));
  LogCapture log;
  FilterList list;
  list.decode(bytes.data(), true);
  EXPECT_EQ(log.all(), (Lines{{1, "DevFltr: Filter Sequencing total count: 1"},
                              {1, "DevFltr: Sequencing Info [0] : usehid = override"},
                              {1, "DevFltr: Filter total count: 1"},
                              {1, "DevFltr: Filter type: usehid"},
                              {1, "DevFltr: Filter Descriptions found: 1"},
                              {1, "DevFltr: Adding Filter Details [0]"},
                              {1, "DevFltr: Name: "},
                              {1, "DevFltr: Value: true"},
                              {1, "DevFltr: Filter Split rules found: 0"},
                              {1, "DevFltr: Filter # 0"}}));
}

TEST(FilterBlob, QuietDecodeLogsNothing) {
  Bytes bytes = encoded(listOf("usehid:o:true exalldev:true"));
  LogCapture log;
  FilterList list;
  list.decode(bytes.data(), false);
  EXPECT_TRUE(log.all().empty());
  EXPECT_EQ(list.valueCount(), 2u);
}

TEST(FilterBlob, VerboseDecodeOfRulesAndIgnoredValues) {
  BlobBuilder blob;
  blob.number(1).pair(FilterTypeSpid, 9);
  blob.number(2);
  blob.number(FilterTypeSpid).number(0).number(1);
  blob.sized("vid-0001_pid-0002").number(2).number(1).sized("audio").sized("hid").sized("03");
  blob.text(";");
  blob.value(FilterTypeExfa, {{"", "storage"}});
  LogCapture log;
  FilterList list;
  EXPECT_TRUE(list.decodeBounded(blob.data(), blob.size(), true));
  EXPECT_EQ(log.texts(), (std::vector<std::string>{
                             "DevFltr: Filter Sequencing total count: 1",
                             "DevFltr: Sequencing Info [0] : spid = unknown",
                             "DevFltr: Filter total count: 2",
                             "DevFltr: Filter type: spid",
                             "DevFltr: Filter Descriptions found: 0",
                             "DevFltr: Filter Split rules found: 1",
                             "DevFltr: Split rule [0]",
                             "DevFltr: vid-0001_pid-0002(exfa:audio, exfa:hid;exintf:03)",
                             "DevFltr: Filter # 0",
                             "DevFltr: Filter type: exfa",
                             "DevFltr: Filter Descriptions found: 1",
                             "DevFltr: Adding Filter Details [0]",
                             "DevFltr: Name: ",
                             "DevFltr: Value: storage",
                             "DevFltr: Filter Split rules found: 0",
                             "DevFltr: IGNORED Filter # 1",
                         }));
  ASSERT_EQ(list.valueCount(), 1u);
  const FltSplitRule &rule = list.valuesOf(FilterTypeSpid)->front().splitRules()[0];
  EXPECT_EQ(rule.families, (std::vector<std::string>{"audio", "hid"}));
  EXPECT_EQ(rule.interfaces, (std::vector<std::string>{"03"}));
  EXPECT_EQ(list.sequencingOf(FilterTypeSpid), 9u);
}

TEST(FilterBlob, ExalldevWithoutSequencingIsTaken) {
  Bytes bytes = encoded(listOf("exalldev:true"));
  FilterList list;
  list.decode(bytes.data(), false);
  EXPECT_EQ(list.firstText(FilterTypeExalldev), "true");
  EXPECT_TRUE(list.sequencing().empty());
}

TEST(FilterBlob, StringsEndAtAZeroByte) {
  BlobBuilder blob;
  blob.number(1).pair(FilterTypeSpid, FilterSeqMerge).number(1);
  blob.number(FilterTypeSpid).number(0).number(1);
  blob.number(6)
      .text(std::string("ab\0cd", 5) + "e")
      .number(0)
      .number(1)
      .number(3)
      .text(std::string("x\0y", 3));
  blob.text(";");
  FilterList list;
  EXPECT_TRUE(list.decodeBounded(blob.data(), blob.size(), false));
  const FltSplitRule &rule = list.valuesOf(FilterTypeSpid)->front().splitRules()[0];
  EXPECT_EQ(rule.id, "ab");
  EXPECT_EQ(rule.interfaces, (std::vector<std::string>{"x"}));
}

TEST(FilterBlob, CommaInAFamilyWordDoesNotSurvive) {
  Bytes bytes = encoded(listOf("exfa:m:a,b"));
  FilterList list;
  list.decode(bytes.data(), false);
  EXPECT_EQ(list.firstText(FilterTypeExfa), "a");
}

TEST(FilterBlob, DetailLongerThanTheSearchLimitIsNotRead) {
  std::string fits(254, 'x');  // ":" + 254 + "," ends at offset 255
  std::string tooLong(255, 'x');
  for (const std::string &word : {fits, tooLong}) {
    BlobBuilder blob;
    blob.number(1).pair(FilterTypeExfa, FilterSeqMerge).number(1);
    blob.value(FilterTypeExfa, {{"", word}});
    FilterList list;
    EXPECT_TRUE(list.decodeBounded(blob.data(), blob.size(), false));
    const FltValue &value = list.valuesOf(FilterTypeExfa)->front();
    if (word == fits) {
      EXPECT_EQ(value.details(), (std::vector<FltDetail>{{"", fits}}));
    } else {
      EXPECT_TRUE(value.details().empty());
    }
  }
}

// Guarded: a "," ahead of the ":" would make the value run backwards.
TEST(FilterBlob, CommaBeforeColonEndsTheDetails) {
  BlobBuilder blob;
  blob.number(1).pair(FilterTypeExid, FilterSeqMerge).number(1);
  blob.number(FilterTypeExid).number(2).number(0).text("vid:01,2,pid:0003,;");
  FilterList list;
  EXPECT_TRUE(list.decodeBounded(blob.data(), blob.size(), false));
  const FltValue &value = list.valuesOf(FilterTypeExid)->front();
  EXPECT_EQ(value.details(), (std::vector<FltDetail>{{"vid", "01"}}));
}

// Guarded: the documented decoder takes no length. The bounded one never
// reads past the end (each prefix sits in a heap block of its exact size, so
// the address sanitizer sees any overread) and reports the short record.
TEST(FilterBlob, BoundedDecodeOfEveryPrefixStaysInside) {
  Bytes whole = encoded(
      listOf("exid:m:vid-1234_pid-5678 spid:o:vid-1_pid-2(exintf:01;exintf:02) usehid:d:yes"));
  FilterList reference;
  reference.decode(whole.data(), false);
  for (size_t length = 0; length <= whole.size(); ++length) {
    auto prefix = std::make_unique<uint8_t[]>(length + 0);
    std::copy(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length), prefix.get());
    FilterList list;
    bool complete = list.decodeBounded(prefix.get(), length, true);
    // Only the ";" behind the last record is never looked at.
    EXPECT_EQ(complete, length + 1 >= whole.size()) << length;
    if (complete) {
      EXPECT_EQ(flatten(list), flatten(reference));
    }
  }
}

TEST(FilterBlob, ShortRecordKeepsWhatWasWhole) {
  Bytes whole = encoded(listOf("exid:m:vid-1234_pid-5678 exfa:o:audio"));
  FilterList list;
  EXPECT_FALSE(list.decodeBounded(whole.data(), whole.size() - 4, false));
  EXPECT_EQ(list.sequencing().size(), 2u);
  EXPECT_EQ(list.firstText(FilterTypeExid), "vid-1234_pid-5678");
  EXPECT_FALSE(list.hasValues(FilterTypeExfa));
}

TEST(FilterBlob, HugeCountsStopAtTheEnd) {
  BlobBuilder blob;
  blob.number(0xffffffffu).pair(1, 1);
  FilterList list;
  EXPECT_FALSE(list.decodeBounded(blob.data(), blob.size(), false));
  BlobBuilder values;
  values.number(0).number(0xffffffffu).number(FilterTypeExalldev).number(0xffffffffu).number(0);
  EXPECT_FALSE(list.decodeBounded(values.data(), values.size(), false));
  BlobBuilder rule;
  rule.number(0).number(1).number(FilterTypeExalldev).number(0).number(1).number(0xfffffff0u);
  EXPECT_FALSE(list.decodeBounded(rule.data(), rule.size(), false));
  EXPECT_FALSE(list.decodeBounded(nullptr, 100, false));
}

}  // namespace
}  // namespace ordo::usb
