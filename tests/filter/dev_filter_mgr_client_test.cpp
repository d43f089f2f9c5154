// The client's filter manager: the merge of local and agent lists under the
// agent's sequencing, the dirty flags, hints, the failsafe, the agent's blob,
// and the whole decision with its phase lines.
#include "ordo/usb/dev_filter_mgr_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "blob_builder.h"
#include "device_fixtures.h"
#include "ordo/usb/dev_filter_mgr_agent.h"
#include "ordo/usb/filter_types.h"

namespace ordo::usb {
namespace {

using testing::BlobBuilder;
using testing::DescriptorFile;
using ::testing::ElementsAre;
using testing::FilterLines;
using ::testing::IsEmpty;
using testing::Line;
using testing::LogCapture;
using testing::LogLine;

// The filter log's lines without the device dump that every load writes.
std::vector<LogLine> DecisionLines(const LogCapture &capture) {
  static const char *const kDumpFronts[] = {
      "DevFltr: Device Filter got device:",
      "DevFltr: Device id: Vid-",
      "DevFltr: Path: ",
      "DevFltr: Config count: ",
      "DevFltr: Config num: ",
      "DevFltr: Interface count: ",
      "DevFltr: Interface [",
  };
  std::vector<LogLine> lines;
  for (const LogLine &line : FilterLines(capture)) {
    bool dump = false;
    for (const char *front : kDumpFronts) dump = dump || line.second.rfind(front, 0) == 0;
    if (!dump) lines.push_back(line);
  }
  return lines;
}

class ClientManager : public ::testing::Test {
 protected:
  void Add(const std::vector<std::string> &rules, bool isLocal) {
    for (const std::string &rule : rules) client_.AddFilterRule(rule, isLocal);
  }
  bool Evaluate(const std::string &file, DevFilterResult &result) {
    const DescriptorFile bytes(file);
    capture_.clear();
    return client_.EvaluateDevice(bytes.device(), bytes.config(), -1, nullptr, result);
  }

  LogCapture capture_;
  DevFilterMgrClient client_;
};

TEST_F(ClientManager, OverrideLetsTheAgentsBooleanStand) {
  Add({"usehid:false"}, true);
  Add({"usehid:o:true"}, false);
  client_.MergeFilterLists();
  EXPECT_TRUE(client_.merged().getBool(FilterTypeUsehid));
}

TEST_F(ClientManager, DefaultLetsTheClientsBooleanStand) {
  Add({"usehid:false"}, true);
  Add({"usehid:d:true"}, false);
  client_.MergeFilterLists();
  EXPECT_FALSE(client_.merged().getBool(FilterTypeUsehid));
}

TEST_F(ClientManager, OverrideDropsTheClientsList) {
  Add({"exid:m:vid-0001_pid-0001"}, true);
  Add({"exid:o:vid-0002_pid-0002"}, false);
  client_.MergeFilterLists();
  ASSERT_NE(client_.merged().list().valuesOf(FilterTypeExid), nullptr);
  EXPECT_EQ(client_.merged().list().valuesOf(FilterTypeExid)->size(), 1u);
  EXPECT_EQ(client_.merged().list().firstText(FilterTypeExid), "vid-0002_pid-0002");
}

TEST_F(ClientManager, MergeKeepsAgentThenClientFilters) {
  Add({"exid:m:vid-0001_pid-0001"}, true);
  Add({"exid:m:vid-0002_pid-0002"}, false);
  client_.MergeFilterLists();
  EXPECT_EQ(client_.merged().evaluateId("vid-0001_pid-0001"), FilterEvalExcluded);
  EXPECT_EQ(client_.merged().list().firstText(FilterTypeExid), "vid-0002_pid-0002");
}

TEST_F(ClientManager, OverrideWithoutAgentFiltersEmptiesTheKey) {
  Add({"exid:m:vid-0001_pid-0001"}, true);
  BlobBuilder blob;
  blob.number(1).pair(FilterTypeExid, FilterSeqOverride).number(0);
  ASSERT_TRUE(client_.ReadFilterBlob(blob.data(), blob.size(), false));
  client_.MergeFilterLists();
  EXPECT_FALSE(client_.merged().list().hasValues(FilterTypeExid));
}

TEST_F(ClientManager, AgentFilterWithoutSequencingIsIgnoredWithAnError) {
  Add({"exid:m:vid-0001_pid-0001"}, true);
  Add({"exid:vid-0002_pid-0002"}, false);
  capture_.clear();
  client_.MergeFilterLists();
  EXPECT_THAT(
      capture_.all(),
      ElementsAre(Line(0, "Filter rule found without MOI setting - ignoring rule for exid")));
  EXPECT_EQ(client_.merged().evaluateId("vid-0002_pid-0002"), FilterEvalNoHit);
  EXPECT_EQ(client_.merged().evaluateId("vid-0001_pid-0001"), FilterEvalExcluded);
}

TEST_F(ClientManager, ExcludeAllDevicesOfTheClientCountsOnlyAsExactlyTrue) {
  Add({"exalldev:1"}, true);
  Add({"exalldev:true"}, false);
  client_.MergeFilterLists();
  EXPECT_EQ(client_.merged().list().firstText(FilterTypeExalldev), "true");
  EXPECT_EQ(client_.merged().list().valuesOf(FilterTypeExalldev)->size(), 1u);

  DevFilterMgrClient other;
  other.AddFilterRule("exalldev:true", true);
  other.AddFilterRule("exalldev:false", false);
  other.MergeFilterLists();
  EXPECT_TRUE(other.merged().getBool(FilterTypeExalldev));
}

TEST_F(ClientManager, MergedTakesTheLocalDefaults) {
  client_.MergeFilterLists();
  EXPECT_EQ(client_.merged().defaults(), client_.local().defaults());
  EXPECT_EQ(client_.remote().defaults().size(), 1u);
  EXPECT_EQ(client_.local().defaults().size(), 13u);
}

TEST_F(ClientManager, ClientStringsAreLowerCasedAndPassNoGate) {
  capture_.clear();
  Add({"EXID:VID-ABCD_PID-0001"}, true);
  EXPECT_THAT(capture_.all(), ElementsAre(Line(2, "Adding FilterRule: exid:vid-abcd_pid-0001")));
  EXPECT_EQ(client_.local().evaluateId("vid-abcd_pid-0001"), FilterEvalExcluded);
}

// A merge writes the error line of an agent filter without sequencing, so
// the line tells each real merge.
TEST_F(ClientManager, MergeIsNotRepeatedWithoutAChange) {
  Add({"exid:vid-0002_pid-0002"}, false);
  DevFilterResult first;
  Evaluate("descriptors/mass_storage.bin", first);
  EXPECT_EQ(capture_.all().front(),
            Line(0, "Filter rule found without MOI setting - ignoring rule for exid"));
  DevFilterResult second;
  Evaluate("descriptors/mass_storage.bin", second);
  EXPECT_EQ(FilterLines(capture_).front(), Line(2, "Device Filter got device:"));
  Add({"exfa:m:audio"}, true);
  DevFilterResult third;
  Evaluate("descriptors/mass_storage.bin", third);
  EXPECT_EQ(capture_.all().front(),
            Line(0, "Filter rule found without MOI setting - ignoring rule for exid"));
}

TEST_F(ClientManager, ClearingAListMarksItForTheNextMerge) {
  Add({"exid:m:vid-0001_pid-0001"}, true);
  client_.MergeFilterLists();
  client_.ClearFilterRules(true);
  EXPECT_FALSE(client_.local().list().hasValues(FilterTypeExid));
  EXPECT_EQ(client_.local().defaults().size(), 13u);
  client_.MergeFilterLists();
  EXPECT_FALSE(client_.merged().list().hasValues(FilterTypeExid));
}

TEST_F(ClientManager, HintTakesEffectInMergedAtOnce) {
  client_.MergeFilterLists();
  ASSERT_FALSE(client_.merged().getBool(FilterTypeUsekeybmouse));
  capture_.clear();
  client_.SetHint(FilterTypeUsekeybmouse, true);
  EXPECT_TRUE(client_.merged().getBool(FilterTypeUsekeybmouse));
  EXPECT_THAT(capture_.all(), ElementsAre(Line(2, "Adding Hint: usekeybmouse:true"),
                                          Line(2, "Adding Hint: usekeybmouse:true")));
  // It survives the next real merge by being in local.
  Add({"exfa:m:audio"}, true);
  client_.MergeFilterLists();
  EXPECT_TRUE(client_.merged().getBool(FilterTypeUsekeybmouse));
}

TEST_F(ClientManager, HintBehindAnEarlierFilterOfItsTypeChangesNothing) {
  Add({"usekeybmouse:false"}, true);
  client_.MergeFilterLists();
  client_.SetHint(FilterTypeUsekeybmouse, true);
  EXPECT_FALSE(client_.merged().getBool(FilterTypeUsekeybmouse));
}

TEST_F(ClientManager, HintOfExcludeAllDevicesIsAFilter) {
  capture_.clear();
  client_.SetHint(FilterTypeExalldev, true);
  EXPECT_EQ(capture_.all().front(), Line(2, "Adding Filter: exalldev:true"));
}

TEST_F(ClientManager, MergedBeforeTheFirstMergeReadsEveryBooleanTrue) {
  EXPECT_TRUE(client_.merged().defaults().empty());
  EXPECT_TRUE(client_.merged().getBool(FilterTypeBlockdsplit));
  EXPECT_TRUE(client_.IsSplittingAllowed());
  EXPECT_FALSE(client_.merged().getBool(FilterTypeBlockdsplit));
}

TEST_F(ClientManager, SplittingBootFilterAndRemoteConfigQuestions) {
  EXPECT_TRUE(client_.IsBootFilterAllowed());
  EXPECT_TRUE(client_.IsRemoteConfigAllowed());
  Add({"blockdsplit:true", "blockbootdfilter:true", "blockremoteconfig:true"}, true);
  EXPECT_FALSE(client_.IsSplittingAllowed());
  EXPECT_FALSE(client_.IsBootFilterAllowed());
  EXPECT_FALSE(client_.IsRemoteConfigAllowed());
}

TEST_F(ClientManager, SplittingQuestionReadsMergedAndLocalQuestionsDoNot) {
  Add({"blockdsplit:o:true", "blockremoteconfig:o:true"}, false);
  EXPECT_FALSE(client_.IsSplittingAllowed());
  EXPECT_TRUE(client_.IsRemoteConfigAllowed());
}

TEST_F(ClientManager, WithoutDescriptorsOrFailsafeNothingIsDecided) {
  DevFilterResult result;
  result.BlockDevice();
  capture_.clear();
  const DescriptorFile bytes("descriptors/mass_storage.bin");
  EXPECT_FALSE(client_.EvaluateDevice(bytes.device(), nullptr, 1, nullptr, result));
  EXPECT_FALSE(client_.EvaluateDevice(nullptr, bytes.config(), 1, nullptr, result));
  EXPECT_FALSE(client_.EvaluateDevice(nullptr, nullptr, 1, nullptr, result));
  EXPECT_FALSE(result.IsDeviceAllowed());
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(ClientManager, FailsafeJudgesADeviceWithoutConfiguration) {
  client_.SetAllowDevDescFailsafe(true);
  const DescriptorFile bytes("descriptors/mass_storage.bin");
  DevFilterResult result;
  capture_.clear();
  EXPECT_TRUE(client_.EvaluateDevice(bytes.device(), nullptr, 1, nullptr, result));
  EXPECT_FALSE(result.IsDeviceAllowed());
  EXPECT_THAT(
      DecisionLines(capture_),
      ElementsAre(Line(2, "AllowDevDescFailsafe is enabled. Config Descriptor missing"),
                  Line(2, "[Combined] Device splitting not done. Not a composite device"),
                  Line(2, "[Combined] Device splitting not done. Missing Config descriptor"),
                  Line(2, "[Combined:Phase] Starting 2"),
                  Line(2,
                       "[Combined] Config Desc missing. Device blocked. Device not filtered in "
                       "and rest of the settings cannot be processed"),
                  Line(2, "[Combined:Phase] Finished 2"), Line(2, "[Remote:Phase] Starting 3"),
                  Line(2, "[Remote:Phase] Finished 3")));
}

TEST_F(ClientManager, FailsafeDeviceWithoutConfigurationPassesByItsId) {
  client_.SetAllowDevDescFailsafe(true);
  Add({"inid:m:vid-1d50_pid-6005"}, true);
  const DescriptorFile bytes("descriptors/mass_storage.bin");
  DevFilterResult result;
  EXPECT_TRUE(client_.EvaluateDevice(bytes.device(), nullptr, 1, nullptr, result));
  EXPECT_TRUE(result.IsDeviceAllowed());
}

TEST_F(ClientManager, FailsafeWithoutAnyDescriptorLeavesTheResultAsGiven) {
  client_.SetAllowDevDescFailsafe(true);
  DevFilterResult result;
  capture_.clear();
  EXPECT_TRUE(client_.EvaluateDevice(nullptr, nullptr, 1, nullptr, result));
  EXPECT_TRUE(result.IsDeviceAllowed());
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(
                  2, "AllowDevDescFailsafe is enabled. Device & Config Descriptors are missing")));
}

// An agent filter without sequencing stays out of merged, and only phase 3
// sees it.
TEST_F(ClientManager, WholeDecisionRunsPhaseThreeOnTheAgentsList) {
  Add({"allowautodsplit:true"}, true);
  Add({"exfa:storage"}, false);
  DevFilterResult result;
  EXPECT_TRUE(Evaluate("descriptors/mass_storage.bin", result));
  EXPECT_FALSE(result.IsDeviceAllowed());
  EXPECT_THAT(
      DecisionLines(capture_),
      ElementsAre(Line(0, "Filter rule found without MOI setting - ignoring rule for exfa"),
                  Line(2, "[Combined] Device splitting not done. Not a composite device"),
                  Line(2, "[Combined:Phase] Starting 2"), Line(2, "[Combined:Phase] Finished 2"),
                  Line(2, "[Remote:Phase] Starting 3"),
                  Line(2, "[Remote] Device blocked by ExcludeFamily. Family(s): storage"),
                  Line(2, "[Remote:Phase] Finished 3")));
}

TEST_F(ClientManager, BlockedByTheCombinedPhasesTheAgentsPhaseIsNotEntered) {
  Add({"exalldev:true"}, true);
  Add({"inid:vid-1d50_pid-6005"}, false);
  DevFilterResult result;
  EXPECT_TRUE(Evaluate("descriptors/mass_storage.bin", result));
  EXPECT_FALSE(result.IsDeviceAllowed());
  const std::vector<LogLine> lines = DecisionLines(capture_);
  EXPECT_THAT(
      std::vector<LogLine>(lines.end() - 4, lines.end()),
      ElementsAre(Line(2, "[Remote] Device blocked by ExcludeAllDevices setting"),
                  Line(2, "[Combined:Phase] Finished 2"), Line(2, "[Remote:Phase] Starting 3"),
                  Line(2, "[Remote:Phase] Finished 3")));
}

TEST_F(ClientManager, AgentBlobIsReadVerboselyBetweenItsTwoLines) {
  DevFilterMgrAgent agent;
  agent.AddFilterRule("exid:m:vid-1d50_pid-6005");
  std::vector<uint8_t> blob(agent.GetFilterBlob(nullptr));
  agent.GetFilterBlob(blob.data());
  capture_.clear();
  EXPECT_TRUE(client_.ReadFilterBlob(blob.data(), false));
  const std::vector<LogLine> lines = capture_.all();
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(lines.front(), Line(2, "Start reading Agent filter settings"));
  EXPECT_EQ(lines.back(), Line(2, "Finished reading Agent filter settings"));
  EXPECT_EQ(client_.remote().evaluateId("vid-1d50_pid-6005"), FilterEvalExcluded);
  DevFilterResult result;
  Evaluate("descriptors/mass_storage.bin", result);
  EXPECT_FALSE(result.IsDeviceAllowed());
}

TEST_F(ClientManager, LocalBlobIsReadQuietly) {
  DevFilterMgrClient source;
  source.AddFilterRule("exfa:m:storage", true);
  std::vector<uint8_t> blob(source.GetFilterBlob(nullptr, true));
  source.GetFilterBlob(blob.data(), true);
  EXPECT_EQ(source.GetFilterBlob(nullptr, false), 0u);
  capture_.clear();
  EXPECT_TRUE(client_.ReadFilterBlob(blob.data(), true));
  EXPECT_THAT(capture_.all(), IsEmpty());
  EXPECT_EQ(client_.local().evaluateFamily("storage"), FilterEvalExcluded);
}

TEST_F(ClientManager, RemoteConfigurationRefusedLeavesTheAgentUnheard) {
  Add({"blockremoteconfig:true"}, true);
  DevFilterMgrAgent agent;
  agent.AddFilterRule("exalldev:true");
  std::vector<uint8_t> blob(agent.GetFilterBlob(nullptr));
  agent.GetFilterBlob(blob.data());
  capture_.clear();
  EXPECT_TRUE(client_.ReadFilterBlob(blob.data(), false));
  EXPECT_TRUE(client_.ReadFilterBlob(blob.data(), blob.size(), false));
  EXPECT_THAT(capture_.all(), ElementsAre(Line(2, "Agent filter settings ignored"),
                                          Line(2, "Agent filter settings ignored")));
  EXPECT_FALSE(client_.remote().list().hasValues(FilterTypeExalldev));
}

TEST_F(ClientManager, TruncatedAgentBlobKeepsWhatWasWholeAndSaysSo) {
  BlobBuilder blob;
  blob.number(1).pair(FilterTypeExfa, FilterSeqMerge).number(2);
  blob.value(FilterTypeExfa, {{"", "storage"}});
  blob.number(FilterTypeExfa).number(1);
  EXPECT_FALSE(client_.ReadFilterBlob(blob.data(), blob.size(), false));
  EXPECT_EQ(client_.remote().evaluateFamily("storage"), FilterEvalExcluded);
}

TEST_F(ClientManager, EmptyBlobIsAListWithoutValues) {
  capture_.clear();
  EXPECT_TRUE(client_.ReadFilterBlob(nullptr, 0, false));
  EXPECT_TRUE(client_.ReadFilterBlob(nullptr, 0, true));
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(ClientManager, TestSplitRulesIsAFrame) {
  capture_.clear();
  client_.TestSplitRules("vid-1234_pid-5678", "hid");
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(3, "<< TestSplitRules >>"), Line(3, "   << DevFilterResult >>"),
                          Line(3, "   >> DevFilterResult <<"), Line(3, ">> TestSplitRules <<")));
}

TEST_F(ClientManager, TestSplitRulesWithSplittingDisabled) {
  Add({"blockdsplit:true"}, true);
  capture_.clear();
  client_.TestSplitRules("vid-1234_pid-5678", "hid");
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(3, "<< TestSplitRules >>"),
                          Line(3, "Device id: vid-1234_pid-5678 family: hid - Splitting disabled"),
                          Line(3, ">> TestSplitRules <<")));
}

TEST_F(ClientManager, PrintFilterListsShowsTheThreeLists) {
  Add({"exid:m:vid-0001_pid-0001"}, false);
  client_.MergeFilterLists();
  capture_.clear();
  client_.PrintFilterLists();
  std::vector<std::string> titles;
  for (const LogLine &line : capture_.all()) {
    EXPECT_EQ(line.first, 0u) << line.second;
    if (line.second.find(">>") != std::string::npos) titles.push_back(line.second);
  }
  EXPECT_THAT(titles,
              ElementsAre("DevFltr:  >>Local Filter List<<", "DevFltr:  >>Remote Filter List<<",
                          "DevFltr:  >>Merged Filter List<<"));
}

}  // namespace
}  // namespace ordo::usb
