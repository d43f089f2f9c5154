// AutoFilter: the family table with its HID ladder, and the audio rules
// that keep the audio of one device together.
#include "ordo/usb/auto_filter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "device_fixtures.h"
#include "ordo/usb/filter_settings.h"
#include "ordo/usb/filter_types.h"

namespace ordo::usb {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::Line;
using testing::LogCapture;

using Names = std::vector<std::string>;
using Keys = std::vector<uint32_t>;

// The settings as merged gets them from a client: the full default table,
// then the rules.
FilterSettings Merged(const std::vector<std::string> &rules = {}) {
  return testing::SettingsWith(rules, true);
}

constexpr DevFamily kBootKeyboard{kFamilyHid | kFamilyHidBootable, kSubFamilyKeyboard};
constexpr DevFamily kBootMouse{kFamilyHid | kFamilyHidBootable, kSubFamilyMouse};
constexpr DevFamily kPlainKeyboard{kFamilyHid, kSubFamilyKeyboard};
constexpr DevFamily kSensor{kFamilyHid, kSubFamilyUnknown};
constexpr DevFamily kSmartCard{kFamilySmartCard, kSubFamilyUnknown};
constexpr DevFamily kVideo{kFamilyVideo, kSubFamilyUnknown};
constexpr DevFamily kStorage{kFamilyStorage, kSubFamilyUnknown};
constexpr DevFamily kAudioOut{kFamilyAudio, kSubFamilyAudioOut};
constexpr DevFamily kAudioIn{kFamilyAudio, kSubFamilyAudioIn};
constexpr DevFamily kAudioControl{kFamilyAudio, kSubFamilyUnknown};
constexpr DevFamily kHeadset{kFamilyAudio, kSubFamilyAudioOut | kSubFamilyAudioIn};

struct TableAnswer {
  bool blocked;
  Names names;
  Keys keys;
};

TableAnswer Table(const FilterSettings &settings, DevFamily family) {
  TableAnswer answer;
  answer.blocked = AutoFilterFamily(settings, family, &answer.names, answer.keys);
  return answer;
}

TEST(CountAudioFamily, CountsTheDirectionsOfAnAudioFamily) {
  EXPECT_EQ(CountAudioFamily(kStorage), 0u);
  EXPECT_EQ(CountAudioFamily(DevFamily{kFamilyHid, kSubFamilyAudioOut | kSubFamilyAudioIn}), 0u);
  EXPECT_EQ(CountAudioFamily(kAudioControl), 1u);
  EXPECT_EQ(CountAudioFamily(DevFamily{kFamilyAudio, 0}), 1u);
  EXPECT_EQ(CountAudioFamily(kAudioOut), 2u);
  EXPECT_EQ(CountAudioFamily(kAudioIn), 2u);
  EXPECT_EQ(CountAudioFamily(kHeadset), 3u);
}

TEST(AutoFilterFamily, BootKeyboardStopsAtKeyboardOrMouse) {
  const TableAnswer answer = Table(Merged(), kBootKeyboard);
  EXPECT_TRUE(answer.blocked);
  EXPECT_THAT(answer.names, ElementsAre("keyboard"));
  EXPECT_THAT(answer.keys, ElementsAre(FilterTypeUsekeybmouse));
}

TEST(AutoFilterFamily, BootMouse) {
  const TableAnswer answer = Table(Merged(), kBootMouse);
  EXPECT_TRUE(answer.blocked);
  EXPECT_THAT(answer.names, ElementsAre("mouse"));
  EXPECT_THAT(answer.keys, ElementsAre(FilterTypeUsekeybmouse));
}

TEST(AutoFilterFamily, KeyboardAndMouseOnOneInterfaceFireOneKey) {
  const TableAnswer answer =
      Table(Merged(), DevFamily{kFamilyHid, kSubFamilyKeyboard | kSubFamilyMouse});
  EXPECT_TRUE(answer.blocked);
  EXPECT_THAT(answer.names, ElementsAre("keyboard", "mouse"));
  EXPECT_THAT(answer.keys, ElementsAre(FilterTypeUsekeybmouse));
}

TEST(AutoFilterFamily, SensorPassesAsHidIsAllowed) {
  const TableAnswer answer = Table(Merged(), kSensor);
  EXPECT_FALSE(answer.blocked);
  EXPECT_THAT(answer.names, IsEmpty());
  EXPECT_THAT(answer.keys, IsEmpty());
}

TEST(AutoFilterFamily, SmartCard) {
  const TableAnswer answer = Table(Merged(), kSmartCard);
  EXPECT_TRUE(answer.blocked);
  EXPECT_THAT(answer.names, ElementsAre("smart-card"));
  EXPECT_THAT(answer.keys, ElementsAre(FilterTypeUsesc));
}

TEST(AutoFilterFamily, VideoAndStoragePass) {
  EXPECT_FALSE(Table(Merged(), kVideo).blocked);
  EXPECT_FALSE(Table(Merged(), kStorage).blocked);
}

TEST(AutoFilterFamily, NicFiresOnlyForAFamilyHandedWithItsBit) {
  const TableAnswer answer = Table(Merged(), DevFamily{kFamilyNic, kSubFamilyUnknown});
  EXPECT_TRUE(answer.blocked);
  EXPECT_THAT(answer.names, ElementsAre("nic"));
  EXPECT_THAT(answer.keys, ElementsAre(FilterTypeUsenic));
}

TEST(AutoFilterFamily, SmartCardThenKeyboardInFiringOrder) {
  const TableAnswer answer =
      Table(Merged(), DevFamily{kFamilySmartCard | kFamilyHid, kSubFamilyKeyboard});
  EXPECT_TRUE(answer.blocked);
  EXPECT_THAT(answer.names, ElementsAre("smart-card", "keyboard"));
  EXPECT_THAT(answer.keys, ElementsAre(FilterTypeUsesc, FilterTypeUsekeybmouse));
}

TEST(AutoFilterFamily, AllowedKeyboardFallsToHidBootable) {
  const TableAnswer answer =
      Table(Merged({"usekeybmouse:true", "usehidboot:false"}), kBootKeyboard);
  EXPECT_TRUE(answer.blocked);
  EXPECT_THAT(answer.names, ElementsAre("hid-bootable"));
  EXPECT_THAT(answer.keys, ElementsAre(FilterTypeUsehidboot));
}

TEST(AutoFilterFamily, AllowedKeyboardAndBootFallToHid) {
  const TableAnswer answer = Table(Merged({"usekeybmouse:true", "usehid:false"}), kBootKeyboard);
  EXPECT_TRUE(answer.blocked);
  EXPECT_THAT(answer.names, ElementsAre("hid"));
  EXPECT_THAT(answer.keys, ElementsAre(FilterTypeUsehid));
}

TEST(AutoFilterFamily, KeyboardPassesWhenAllThreeAllowIt) {
  EXPECT_FALSE(Table(Merged({"usekeybmouse:true"}), kBootKeyboard).blocked);
}

TEST(AutoFilterFamily, NonBootKeyboardNeedsOnlyTwo) {
  EXPECT_FALSE(Table(Merged({"usekeybmouse:true", "usehidboot:false"}), kPlainKeyboard).blocked);
}

TEST(AutoFilterFamily, BlockedKeyboardDoesNotAskHidBootable) {
  // usehidboot false would fire too if the ladder went on.
  const TableAnswer answer = Table(Merged({"usehidboot:false"}), kBootKeyboard);
  EXPECT_THAT(answer.keys, ElementsAre(FilterTypeUsekeybmouse));
}

TEST(AutoFilterFamily, AudioStepsNeedTheAudioBit) {
  EXPECT_FALSE(Table(Merged(), DevFamily{kFamilyStorage, kSubFamilyAudioOut}).blocked);
  const TableAnswer answer = Table(Merged(), kAudioOut);
  EXPECT_TRUE(answer.blocked);
  EXPECT_THAT(answer.names, ElementsAre("audio-out"));
  EXPECT_THAT(answer.keys, ElementsAre(FilterTypeUseaout));
}

TEST(AutoFilterFamily, EveryAudioAndVideoRuleInOrder) {
  const TableAnswer answer =
      Table(Merged({"useain:false", "usevideo:false"}),
            DevFamily{kFamilyAudio | kFamilyVideo, kSubFamilyAudioOut | kSubFamilyAudioIn});
  EXPECT_THAT(answer.names, ElementsAre("audio-out", "audio-in", "video"));
  EXPECT_THAT(answer.keys, ElementsAre(FilterTypeUseaout, FilterTypeUseain, FilterTypeUsevideo));
}

TEST(AutoFilterFamily, NullNamesStillGivesKeys) {
  Keys keys;
  EXPECT_TRUE(AutoFilterFamily(Merged(), kSmartCard, nullptr, keys));
  EXPECT_THAT(keys, ElementsAre(FilterTypeUsesc));
}

// AutoFilter with the device's whole family, the log caught.
class AutoFilterAudio : public ::testing::Test {
 protected:
  bool Ask(const FilterSettings &settings, DevFamily family, DevFamily deviceFamily) {
    return AutoFilter(settings, family, deviceFamily, names_, keys_);
  }
  LogCapture capture_;
  Names names_;
  Keys keys_;
};

constexpr const char *kNotSplitLine =
    "audio-out is blocked using AutoFilter setting. The setting is ignored as there are multiple "
    "audio interfaces which shouldnt be split";

TEST_F(AutoFilterAudio, LoudspeakerBlockedWithoutNameOrLine) {
  const FilterSettings settings = Merged();
  capture_.clear();
  EXPECT_TRUE(Ask(settings, kAudioOut, kAudioOut));
  EXPECT_THAT(names_, IsEmpty());
  EXPECT_THAT(keys_, IsEmpty());
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(AutoFilterAudio, MicrophonePasses) {
  const FilterSettings settings = Merged();
  capture_.clear();
  EXPECT_FALSE(Ask(settings, kAudioIn, kAudioIn));
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(AutoFilterAudio, MicrophoneRefusedByUseainIsBlockedWithoutName) {
  const FilterSettings settings = Merged({"useain:false"});
  capture_.clear();
  EXPECT_TRUE(Ask(settings, kAudioIn, kAudioIn));
  EXPECT_THAT(names_, IsEmpty());
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(AutoFilterAudio, HeadsetByDefaultIsNotSplit) {
  const FilterSettings settings = Merged();
  capture_.clear();
  EXPECT_FALSE(Ask(settings, kAudioOut, kHeadset));
  EXPECT_THAT(capture_.all(), ElementsAre(Line(2, kNotSplitLine)));
  capture_.clear();
  EXPECT_FALSE(Ask(settings, kAudioIn, kHeadset));
  EXPECT_THAT(capture_.all(), IsEmpty());
  EXPECT_FALSE(Ask(settings, kAudioControl, kHeadset));
  EXPECT_THAT(capture_.all(), IsEmpty());
  EXPECT_THAT(names_, IsEmpty());
  EXPECT_THAT(keys_, IsEmpty());
}

TEST_F(AutoFilterAudio, HeadsetWithOnlyAudioInRefusedNamesAudioOutAllTheSame) {
  const FilterSettings settings = Merged({"useaout:o:true", "useain:o:false"});
  capture_.clear();
  EXPECT_FALSE(Ask(settings, kAudioIn, kHeadset));
  EXPECT_THAT(capture_.all(), ElementsAre(Line(2, kNotSplitLine)));
  capture_.clear();
  EXPECT_FALSE(Ask(settings, kAudioOut, kHeadset));
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(AutoFilterAudio, HeadsetWithAudioOutAllowed) {
  const FilterSettings settings = Merged({"useaout:o:true"});
  capture_.clear();
  EXPECT_FALSE(Ask(settings, kAudioOut, kHeadset));
  EXPECT_FALSE(Ask(settings, kAudioIn, kHeadset));
  EXPECT_THAT(capture_.all(), IsEmpty());
}

TEST_F(AutoFilterAudio, HeadsetWithBothRefusedBlocksEachNameOnce) {
  const FilterSettings settings = Merged({"useaout:false", "useain:false"});
  capture_.clear();
  EXPECT_TRUE(Ask(settings, kAudioOut, kHeadset));
  EXPECT_TRUE(Ask(settings, kAudioIn, kHeadset));
  EXPECT_TRUE(Ask(settings, kAudioOut, kHeadset));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2, "All audio interfaces are blocked by AutoFilters"),
                          Line(2, "All audio interfaces are blocked by AutoFilters"),
                          Line(2, "All audio interfaces are blocked by AutoFilters")));
  EXPECT_THAT(names_, ElementsAre("audio-out", "audio-in"));
  EXPECT_THAT(keys_, ElementsAre(FilterTypeUseaout, FilterTypeUseain));
}

TEST_F(AutoFilterAudio, VideoRuleOnAnAudioFamilyIsOverruledWhenBothDirectionsAreAllowed) {
  const FilterSettings settings = Merged({"usevideo:false", "useaout:true", "useain:true"});
  capture_.clear();
  EXPECT_FALSE(Ask(settings, DevFamily{kFamilyAudio | kFamilyVideo, kSubFamilyAudioOut}, kHeadset));
  EXPECT_THAT(capture_.all(),
              ElementsAre(Line(2, "All audio interfaces are allowed by AutoFilters")));
  EXPECT_THAT(names_, IsEmpty());
}

TEST_F(AutoFilterAudio, DeviceFamilyBaseIsNotTested) {
  const FilterSettings settings = Merged();
  capture_.clear();
  EXPECT_FALSE(
      Ask(settings, kAudioOut, DevFamily{kFamilyStorage, kSubFamilyAudioOut | kSubFamilyAudioIn}));
  EXPECT_THAT(capture_.all(), ElementsAre(Line(2, kNotSplitLine)));
}

TEST_F(AutoFilterAudio, NamesAlreadyHeldAreNotAddedTwice) {
  names_ = {"audio-out"};
  keys_ = {FilterTypeUseaout};
  const FilterSettings settings = Merged({"useaout:false", "useain:false"});
  EXPECT_TRUE(Ask(settings, kAudioOut, kHeadset));
  EXPECT_THAT(names_, ElementsAre("audio-out"));
  EXPECT_THAT(keys_, ElementsAre(FilterTypeUseaout));
}

TEST_F(AutoFilterAudio, NonAudioHitsAccumulate) {
  const FilterSettings settings = Merged();
  EXPECT_TRUE(Ask(settings, kBootKeyboard, kUnknownFamily));
  EXPECT_TRUE(Ask(settings, kSmartCard, kUnknownFamily));
  EXPECT_TRUE(Ask(settings, kBootMouse, kUnknownFamily));
  EXPECT_FALSE(Ask(settings, kStorage, kUnknownFamily));
  EXPECT_THAT(names_, ElementsAre("keyboard", "smart-card", "mouse"));
  EXPECT_THAT(keys_, ElementsAre(FilterTypeUsekeybmouse, FilterTypeUsesc));
}

}  // namespace
}  // namespace ordo::usb
