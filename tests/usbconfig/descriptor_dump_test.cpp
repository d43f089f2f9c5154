// The fixed dump form of each descriptor kind.
#include <gtest/gtest.h>

#include <algorithm>

#include "descriptor_fixtures.h"
#include "log_recorder.h"
#include "ordo/usb/usb_model.h"
#include "usbconfig/audio_code_names.h"

namespace ordo::usb {
namespace {

using namespace testing;
using Lines = std::vector<LogLine>;

std::string Hex(const Bytes &bytes) {
  char text[4096];
  HexText(bytes.data(), static_cast<uint32_t>(bytes.size()), text, sizeof text);
  return text;
}

class DescriptorDump : public ::testing::Test {
 protected:
  // The lines logged for what follows an audio interface of `subclass`.
  Lines AudioDump(uint8_t subclass, const Bytes &descriptors) {
    Parse(Cat({Interface(0, 0, 0, 0x01, subclass), descriptors}));
    const Lines &all = log_.Lines();
    const auto start =
        std::find(all.begin(), all.end(),
                  LogLine{1, "LookupDeducedFamily(): Called for non vendor specific"});
    EXPECT_NE(start, all.end());
    return Lines(start + 1, all.end());
  }
  void Parse(const Bytes &body) {
    set_ = ConfigSet(body);
    config_.SetDeviceDescriptor(device_.data());
    ASSERT_TRUE(config_.AddConfigDescriptor(0, set_.data(), false));
  }

  LogRecorder log_;
  Bytes device_ = DeviceDescriptor(0, 0, 0);
  Bytes set_;
  UsbDeviceConfig config_;
};

TEST_F(DescriptorDump, ConfigurationInterfaceAndPipe) {
  Parse(Cat({Interface(0, 0, 1, 0x08, 0x06, 0x50), Endpoint(0x81, 0x02, 512, 0)}));
  const Bytes &set = set_;
  EXPECT_EQ(log_.Lines(), (Lines{
                              {1, "Descriptor Dump:"},
                              {1, Hex(set)},
                              {0, "Configuration Descriptor:"},
                              {0, Hex(Bytes(set.begin(), set.begin() + 9))},
                              {0, "  bLength:             0x9  (9)"},
                              {0, "  dbDescriptorType:    0x2"},
                              {0, "  wTotalLength:        0x19  (25)"},
                              {0, "  bNumInterfaces:      0x1"},
                              {0, "  bConfigurationValue: 0x1"},
                              {0, "  iConfiguration:      0x0"},
                              {0, "  bmAttributes:        0x80"},
                              {0, "  MaxPower:            0x32"},
                              {0, "  Interface Descriptor:"},
                              {0, "  " + Hex(Interface(0, 0, 1, 0x08, 0x06, 0x50))},
                              {0, "    bLength:              0x9  (9)"},
                              {0, "    bDescriptorType:      0x4"},
                              {0, "    bInterfaceNumber:     0x0"},
                              {0, "    bAlternateSetting:    0x0"},
                              {0, "    bNumEndpoints:        0x1"},
                              {0, "    bInterfaceClass:      0x8"},
                              {0, "    bInterfaceSubClass:   0x6"},
                              {0, "    bInterfaceProtocol:   0x50"},
                              {0, "    iInterface:           0x0"},
                              {1, "LookupDeducedFamily(): Called for non vendor specific"},
                              {0, "    Pipe Descriptor:"},
                              {0, "    " + Hex(Endpoint(0x81, 0x02, 512, 0))},
                              {0, "      bLength:             0x7  (7)"},
                              {0, "      bDescriptorType:     0x5"},
                              {0, "      bEndpointAddress:    0x81 (in)"},
                              {0, "      bmAttributes:        0x2"},
                              {0, "      wMaxPacketSize:      0x200"},
                              {0, "      bInterval:           0x0"},
                          }));
}

TEST_F(DescriptorDump, AssociationAndOutPipe) {
  Parse(Cat({Association(0, 1, 0xFF, 0x01, 0x02), Interface(0, 0, 1, 0xFF), Endpoint(0x02)}));
  EXPECT_TRUE(log_.Contains(0, "  Interface Association Descriptor:"));
  const std::vector<std::string> texts = log_.TextsAt(0);
  const auto at = std::find(texts.begin(), texts.end(), "  Interface Association Descriptor:");
  ASSERT_NE(at, texts.end());
  EXPECT_EQ(std::vector<std::string>(at + 1, at + 10),
            (std::vector<std::string>{
                "  " + Hex(Association(0, 1, 0xFF, 0x01, 0x02)),
                "    bLength:              0x8  (8)", "    bDescriptorType:      0xb",
                "    bFirstInterface:      0x0", "    bInterfaceCount:      0x1",
                "    bFunctionClass:       0xff", "    bFunctionSubClass:    0x1",
                "    bFunctionProtocol:    0x2", "    iFunction:            0x0"}));
  EXPECT_TRUE(log_.Contains(0, "      bEndpointAddress:    0x2 (out)"));
}

TEST_F(DescriptorDump, UnionFuntionDescriptor) {
  device_ = DeviceDescriptor(0x02, 0, 0);
  Parse(Cat({Interface(0, 0, 0, 0x02, 0x02), Union({0, 1}), Interface(1, 0, 0, 0x0A)}));
  const std::vector<std::string> texts = log_.TextsAt(0);
  const auto at = std::find(texts.begin(), texts.end(), "    Union Funtion Descriptor:");
  ASSERT_NE(at, texts.end());
  EXPECT_EQ(std::vector<std::string>(at + 1, at + 5),
            (std::vector<std::string>{
                "    " + Hex(Union({0, 1})), "      bFunctionLength:      0x5  (5)",
                "      bDescriptorType:      0x24", "      bDescriptorSubtype:   0x6"}));
}

TEST_F(DescriptorDump, ControlHeader) {
  const Bytes header = {10, 0x24, 0x01, 0x00, 0x01, 0x1E, 0x00, 0x02, 0x01, 0x02};
  EXPECT_EQ(AudioDump(1, header), (Lines{{0, "    Audio Control Interface Header Descriptor:"},
                                         {0, "    " + Hex(header)},
                                         {0, "      bLength:              0xa  (10)"},
                                         {0, "      bDescriptorType:      0x24"},
                                         {0, "      bDescriptorSubtype:   0x1"},
                                         {0, "      bcdADC:               0x100"},
                                         {0, "      wTotalLength:         0x1e  (30)"},
                                         {0, "      bInCollection:        0x2  (2)"},
                                         {0, "      baInterfaceNr[0]:    0x1"},
                                         {0, "      baInterfaceNr[1]:    0x2"}}));
}

TEST_F(DescriptorDump, ControlOfUnlistedSubtypeReadsAsHeader) {
  const Bytes other = {9, 0x24, 0x09, 0x00, 0x01, 0x09, 0x00, 0x01, 0x03};
  const Lines lines = AudioDump(1, other);
  ASSERT_EQ(lines.size(), 9u);
  EXPECT_EQ(lines[0].text, "    Audio Control Descriptor:");
  EXPECT_EQ(lines[8].text, "      baInterfaceNr[0]:    0x3");
}

TEST_F(DescriptorDump, InputTerminalPrintsItsTypeTwice) {
  const Bytes terminal = {12, 0x24, 0x02, 0x01, 0x01, 0x02, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00};
  EXPECT_EQ(AudioDump(1, terminal), (Lines{{0, "    Audio Control Input Terminal Descriptor:"},
                                           {0, "    " + Hex(terminal)},
                                           {0, "      bLength:              0xc  (12)"},
                                           {0, "      bDescriptorType:      0x24"},
                                           {0, "      bDescriptorSubtype:   0x2"},
                                           {0, "      bTerminalID:          0x1"},
                                           {0, "      wTerminalType:        0x201"},
                                           {0, "      wTerminalType:        0x201  (Microphone)"},
                                           {0, "      bAssocTerminal:       0x0"},
                                           {0, "      bNrChannels:          0x1"},
                                           {0, "      wChannelConfig:       0x0"},
                                           {0, "      iChannelNames:        0x0"},
                                           {0, "      iTerminal:            0x0"}}));
}

TEST_F(DescriptorDump, OutputTerminalWithItsSoruceID) {
  const Bytes terminal = {9, 0x24, 0x03, 0x03, 0x02, 0x03, 0x00, 0x02, 0x00};
  EXPECT_EQ(AudioDump(1, terminal), (Lines{{0, "    Audio Control Output Terminal Descriptor:"},
                                           {0, "    " + Hex(terminal)},
                                           {0, "      bLength:              0x9  (9)"},
                                           {0, "      bDescriptorType:      0x24"},
                                           {0, "      bDescriptorSubtype:   0x3"},
                                           {0, "      bTerminalID:          0x3"},
                                           {0, "      wTerminalType:        0x302 (Headphones)"},
                                           {0, "      bAssocTerminal:       0x0"},
                                           {0, "      bSoruceID:            0x2"},
                                           {0, "      iTerminal:            0x0"}}));
}

TEST_F(DescriptorDump, MixerControlsRunFourBytesPastTheirEnd) {
  // One pin, one byte of bmControls (0x0f), iMixer 0.
  const Bytes mixer = {12, 0x24, 0x04, 0x02, 0x01, 0x01, 0x02, 0x03, 0x00, 0x00, 0x0F, 0x00};
  // bmControls is shown for bLength - 6 - bNrInPins = 5 bytes, reaching into
  // the next descriptor, and iMixer is read at bLength + 3, its bTerminalID.
  const Bytes next = {9, 0x24, 0x03, 0x05, 0x01, 0x03, 0x00, 0x02, 0x00};
  const Lines lines = AudioDump(1, Cat({mixer, next}));
  ASSERT_GE(lines.size(), 14u);
  EXPECT_EQ(Lines(lines.begin(), lines.begin() + 14),
            (Lines{{0, "    Audio Control Mixer Unit Descriptor:"},
                   {0, "    " + Hex(mixer)},
                   {0, "      bLength:              0xc  (12)"},
                   {0, "      bDescriptorType:      0x24"},
                   {0, "      bDescriptorSubtype:   0x4"},
                   {0, "      bUnitID:              0x2"},
                   {0, "      bNrInPins:            0x1"},
                   {0, "      baSourceID[1]:        0x1"},
                   {0, "      bNrChannels:          0x2"},
                   {0, "      wChannelConfig:       0x3"},
                   {0, "      iChannelNames:        0x0"},
                   {0, "      bmControls:           " + Hex({0x0F, 0x00, 0x09, 0x24, 0x03})},
                   {0, "      iMixer:               0x5"},
                   {0, "    Audio Control Output Terminal Descriptor:"}}));
}

TEST_F(DescriptorDump, SelectorLinesCloseWithAParenthesis) {
  const Bytes selector = {8, 0x24, 0x05, 0x06, 0x02, 0x04, 0x05, 0x00};
  EXPECT_EQ(AudioDump(1, selector), (Lines{{0, "    Audio Control Selector Unit Descriptor:"},
                                           {0, "    " + Hex(selector)},
                                           {0, "      bLength:              0x8  (8)"},
                                           {0, "      bDescriptorType:      0x24)"},
                                           {0, "      bDescriptorSubtype:   0x5)"},
                                           {0, "      bUnitID:              0x6)"},
                                           {0, "      bNrInPins:            0x2)"},
                                           {0, "      baSourceID[0]:        0x4)"},
                                           {0, "      baSourceID[1]:        0x5)"},
                                           {0, "      iSelector:            0x0)"}}));
}

TEST_F(DescriptorDump, FeatureUnitChannelControls) {
  const Bytes feature = {10, 0x24, 0x06, 0x02, 0x01, 0x01, 0x01, 0x02, 0x02, 0x00};
  EXPECT_EQ(AudioDump(1, feature), (Lines{{0, "    Audio Control Feature Unit Descriptor:"},
                                          {0, "    " + Hex(feature)},
                                          {0, "      bLength:              0xa  (10)"},
                                          {0, "      bDescriptorType:      0x24"},
                                          {0, "      bDescriptorSubtype:   0x6"},
                                          {0, "      bUnitID:              0x2"},
                                          {0, "      bSourceID:            0x1"},
                                          {0, "      bControlSize:         0x1"},
                                          {0, "      bmControls[0]:       (" + Hex({0x01}) + ")"},
                                          {0, "      bmControls[1]:       (" + Hex({0x02}) + ")"},
                                          {0, "      bmControls[2]:       (" + Hex({0x02}) + ")"},
                                          {0, "      iFeature:             0x0"}}));
}

TEST_F(DescriptorDump, FeatureUnitWithTwoByteControls) {
  const Bytes feature = {11, 0x24, 0x06, 0x02, 0x01, 0x02, 0x01, 0x00, 0x02, 0x00, 0x07};
  const Lines lines = AudioDump(1, feature);
  ASSERT_EQ(lines.size(), 11u);
  EXPECT_EQ(lines[8].text, "      bmControls[0]:       (" + Hex({0x01, 0x00}) + ")");
  EXPECT_EQ(lines[9].text, "      bmControls[1]:       (" + Hex({0x02, 0x00}) + ")");
  EXPECT_EQ(lines[10].text, "      iFeature:             0x7");
}

TEST_F(DescriptorDump, FeatureUnitLengthMismatchIsAnError) {
  const Bytes feature = {10, 0x24, 0x06, 0x03, 0x02, 0x02, 0x01, 0x00, 0x02, 0x00};
  EXPECT_EQ(
      AudioDump(1, feature),
      (Lines{{4, "    Audio Control Feature Unit Descriptor: ERROR - featureDesc length mismatch"},
             {4, "    " + Hex(feature)}}));
}

TEST_F(DescriptorDump, ProcessingUnitCountsPinsFromOne) {
  const Bytes unit = {15,   0x24, 0x07, 0x03, 0x02, 0x00, 0x02, 0x01,
                      0x02, 0x02, 0x03, 0x00, 0x00, 0x01, 0x01};
  Bytes whole = unit;
  whole.push_back(0x00);  // iProcessing
  whole[0] = 16;
  EXPECT_EQ(AudioDump(1, whole),
            (Lines{{0, "    Audio Control Processing Unit Descriptor:"},
                   {0, "    " + Hex(whole)},
                   {0, "      bLength:              0x10  (16)"},
                   {0, "      bDescriptorType:      0x24"},
                   {0, "      bDescriptorSubtype:   0x7"},
                   {0, "      bUnitID:              0x3"},
                   {0, "      wProcessType:         0x2  (Dolby Prologic Process)"},
                   {0, "      bNrInPins:            0x2"},
                   {0, "      baSourceID[1]:       0x1"},
                   {0, "      baSourceID[2]:       0x2"},
                   {0, "      bNrChannels:          0x2"},
                   {0, "      wChannelConfig:       0x3"},
                   {0, "      iChannelNames:        0x0"},
                   {0, "      bControlSize:         0x1"},
                   {0, "      bmControls:           " + Hex({0x01})},
                   {0, "      iProcessing:          0x0"}}));
}

TEST_F(DescriptorDump, ExtensionUnitCountsPinsFromZero) {
  const Bytes unit = {14,   0x24, 0x08, 0x04, 0x34, 0x12, 0x01,
                      0x03, 0x02, 0x03, 0x00, 0x00, 0x01, 0x01};
  Bytes whole = unit;
  whole.push_back(0x09);  // iExtension
  whole[0] = 15;
  EXPECT_EQ(AudioDump(1, whole), (Lines{{0, "    Audio Control Extension Unit Descriptor:"},
                                        {0, "    " + Hex(whole)},
                                        {0, "      bLength:              0xf  (15)"},
                                        {0, "      bDescriptorType:      0x24"},
                                        {0, "      bDescriptorSubtype:   0x8"},
                                        {0, "      bUnitID:              0x4"},
                                        {0, "      wExtensionCode:       0x1234"},
                                        {0, "      bNrInPins:            0x1"},
                                        {0, "      baSourceID[0]:       0x3"},
                                        {0, "      bNrChannels:          0x2"},
                                        {0, "      wChannelConfig:       0x3"},
                                        {0, "      iChannelNames:        0x0"},
                                        {0, "      bControlSize:         0x1"},
                                        {0, "      bmControls:           " + Hex({0x01})},
                                        {0, "      iExtension:           0x9"}}));
}

TEST_F(DescriptorDump, StreamingGeneralWithFormatTagName) {
  const Bytes general = {7, 0x24, 0x01, 0x01, 0x01, 0x01, 0x10};
  EXPECT_EQ(AudioDump(2, general),
            (Lines{{0, "    Audio Streaming Class Specific Interface Descriptor:"},
                   {0, "    " + Hex(general)},
                   {0, "      bLength:              0x7  (7)"},
                   {0, "      bDescriptorType:      0x24"},
                   {0, "      bDescriptorSubtype:   0x1"},
                   {0, "      bTerminalLink:        0x1"},
                   {0, "      bDelay:               0x1"},
                   {0, "      wFormatTag:           0x1001   (MPEG)"}}));
}

TEST_F(DescriptorDump, FormatTypeWithTwoRatesPrintsBoth) {
  const Bytes format = {14,   0x24, 0x02, 0x01, 0x02, 0x02, 0x10,
                        0x02, 0x80, 0xBB, 0x00, 0x44, 0xAC, 0x00};
  EXPECT_EQ(AudioDump(2, format), (Lines{{0, "    Audio Streaming Format Type Descriptor:"},
                                         {0, "    " + Hex(format)},
                                         {0, "      bLength:              0xe  (14)"},
                                         {0, "      bDescriptorType:      0x24"},
                                         {0, "      bDescriptorSubtype:   0x2"},
                                         {0, "      bFormatType:          0x1"},
                                         {0, "      bNrChannels:          0x2"},
                                         {0, "      bSubframeSize:        0x2"},
                                         {0, "      bBitResolution:       0x10"},
                                         {0, "      bSamFreqType:         0x2"},
                                         {0, "      SamFreq[1]:           0xbb80   (48000 Hz)"},
                                         {0, "      SamFreq[2]:           0xac44   (44100 Hz)"}}));
}

TEST_F(DescriptorDump, FormatTypeRange) {
  const Bytes format = {14,   0x24, 0x02, 0x03, 0x02, 0x02, 0x10,
                        0x00, 0x40, 0x1F, 0x00, 0x80, 0xBB, 0x00};
  const Lines lines = AudioDump(2, format);
  ASSERT_EQ(lines.size(), 12u);
  EXPECT_EQ(lines[5].text, "      bFormatType:          0x3");
  EXPECT_EQ(lines[10].text, "      tLowerSamFreq:        0x1f40   (8000 Hz)");
  EXPECT_EQ(lines[11].text, "      tUpperSamFreq:        0xbb80   (48000 Hz)");
}

TEST_F(DescriptorDump, FormatTypeTwo) {
  const Bytes format = {12, 0x24, 0x02, 0x02, 0x00, 0x01, 0x80, 0x04, 0x01, 0x80, 0xBB, 0x00};
  const Lines lines = AudioDump(2, format);
  ASSERT_EQ(lines.size(), 10u);
  EXPECT_EQ(lines[6].text, "      wMaxBitRate:          0x100");
  EXPECT_EQ(lines[7].text, "      wSamplesPerFrame:     0x480");
  EXPECT_EQ(lines[8].text, "      bSamFreqType:         0x1");
  EXPECT_EQ(lines[9].text, "      SamFreq[1]:           0xbb80   (48000 Hz)");
}

TEST_F(DescriptorDump, FormatTypeOfOtherKindPrintsNothingMore) {
  const Bytes format = {6, 0x24, 0x02, 0x04, 0x01, 0x02};
  EXPECT_EQ(AudioDump(2, format).size(), 6u);
}

TEST_F(DescriptorDump, FormatSpecificHasOnlyTheOpeningLines) {
  const Bytes specific = {5, 0x24, 0x03, 0x01, 0x10};
  EXPECT_EQ(AudioDump(2, specific), (Lines{{0, "    Audio Streaming Format Specific Descriptor:"},
                                           {0, "    " + Hex(specific)},
                                           {0, "      bLength:              0x5  (5)"},
                                           {0, "      bDescriptorType:      0x24"},
                                           {0, "      bDescriptorSubtype:   0x3"}}));
}

TEST_F(DescriptorDump, StreamingOfOtherSubtypeUsesItsOwnSpacing) {
  const Bytes other = {7, 0x24, 0x09, 0x01, 0x02, 0x03, 0x00};
  EXPECT_EQ(AudioDump(2, other), (Lines{{0, "    Audio Streaming Descriptor:"},
                                        {0, "    " + Hex(other)},
                                        {0, "      bLength:             0x7  (7)"},
                                        {0, "      bDescriptorType:     0x24"},
                                        {0, "      bDescriptorSubtype:  0x9"},
                                        {0, "      bTerminalLink:       0x1"},
                                        {0, "      bDelay:              0x2"},
                                        {0, "      wFormatTag:          0x3"}}));
}

TEST_F(DescriptorDump, AudioDataEndpoint) {
  const Bytes endpoint = {7, 0x25, 0x01, 0x01, 0x02, 0x03, 0x00};
  EXPECT_EQ(AudioDump(3, endpoint),
            (Lines{{0, "    Audio Streaming Class Specific Audio Data Endpoint Descriptor:"},
                   {0, "    " + Hex(endpoint)},
                   {0, "      bLength:              0x7  (7)"},
                   {0, "      bDescriptorType:      0x25"},
                   {0, "      bDescriptorSubtype:   0x1"},
                   {0, "      bmAttributes:         0x1"},
                   {0, "      bLockDelayUnits:      0x2"},
                   {0, "      wLockDelay:           0x3"}}));
}

TEST(AudioCodeNames, TablesAndTheirEnds) {
  EXPECT_STREQ(TerminalTypeName(0x0100), "USB Undefined");
  EXPECT_STREQ(TerminalTypeName(0x0101), "USB streaming");
  EXPECT_STREQ(TerminalTypeName(0x0102), "UNKNOWN");
  EXPECT_STREQ(TerminalTypeName(0x01FF), "USB vendor specific");
  EXPECT_STREQ(TerminalTypeName(0x0206), "Processing microphone array");
  EXPECT_STREQ(TerminalTypeName(0x0207), "UNKNOWN");
  EXPECT_STREQ(TerminalTypeName(0x0307), "Low frequency effects speaker");
  EXPECT_STREQ(TerminalTypeName(0x0405), "Echo-canceling speakerphone");
  EXPECT_STREQ(TerminalTypeName(0x0503), "Down Line Phone");
  EXPECT_STREQ(TerminalTypeName(0x0607), "1394 DV stream soundtrack");
  EXPECT_STREQ(TerminalTypeName(0x0713), "Synthesizer");
  EXPECT_STREQ(TerminalTypeName(0x0714), "UNKNOWN");
  EXPECT_STREQ(TerminalTypeName(0x0000), "UNKNOWN");
  EXPECT_STREQ(FormatTagName(0x0000), "TYPE_I_UNDEFINED");
  EXPECT_STREQ(FormatTagName(0x0005), "MULAW");
  EXPECT_STREQ(FormatTagName(0x0006), "UNKNOWN");
  EXPECT_STREQ(FormatTagName(0x1002), "AC-3");
  EXPECT_STREQ(FormatTagName(0x2003), "IEC1937_MPEG-1_Layer2/3 or IEC1937_MPEG-2_NOEXT");
  EXPECT_STREQ(FormatTagName(0x2006), "IEC1937_MPEG-2_Layer2/3_LS");
  EXPECT_STREQ(FormatTagName(0x2007), "UNKNOWN");
  EXPECT_STREQ(ProcessTypeName(0), "Undefined Process");
  EXPECT_STREQ(ProcessTypeName(6), "Dynamic Range Compressor Process");
  EXPECT_STREQ(ProcessTypeName(7), "UNKNOWN");
}

}  // namespace
}  // namespace ordo::usb

namespace ordo::usb {
namespace {

TEST(DescriptorDumpLevels, FeatureUnitErrorPassesAThresholdThatHidesDetail) {
  testing::LogRecorder log(2);
  const testing::DeviceBlob blob =
      testing::ReadDeviceBlob(testing::FixturePath("malformed_feature_size_zero"));
  UsbDeviceConfig config;
  testing::LoadInto(config, blob);
  const std::string mismatch =
      "    Audio Control Feature Unit Descriptor: ERROR - featureDesc length mismatch";
  ASSERT_EQ(log.Lines().size(), 4u);
  EXPECT_EQ(log.Lines()[0], (testing::LogLine{4, mismatch}));
  EXPECT_EQ(log.Lines()[2], (testing::LogLine{4, mismatch}));
  EXPECT_EQ(log.Lines()[3].level, 4u);
}

}  // namespace
}  // namespace ordo::usb
