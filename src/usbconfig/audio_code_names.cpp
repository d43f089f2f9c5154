#include "usbconfig/audio_code_names.h"

#include <cstddef>

namespace ordo::usb {
namespace {

// A run of consecutive codes from `first` on.
struct CodeRun {
  uint16_t first;
  const char *const *texts;
  size_t count;
};

template <size_t N>
constexpr CodeRun Run(uint16_t first, const char *const (&texts)[N]) {
  return CodeRun{first, texts, N};
}

const char *NameIn(const CodeRun *runs, size_t runCount, uint16_t code) {
  for (size_t i = 0; i < runCount; ++i) {
    if (code >= runs[i].first && static_cast<size_t>(code - runs[i].first) < runs[i].count) {
      return runs[i].texts[code - runs[i].first];
    }
  }
  return "UNKNOWN";
}

constexpr const char *kUsbTerminals[] = {"USB Undefined", "USB streaming"};
constexpr const char *kUsbVendorTerminals[] = {"USB vendor specific"};
constexpr const char *kInputTerminals[] = {"Input Undefined",
                                           "Microphone",
                                           "Desktop microphone",
                                           "Personal microphone",
                                           "Omni-directional microphone",
                                           "Microphone array",
                                           "Processing microphone array"};
constexpr const char *kOutputTerminals[] = {"Output Undefined",
                                            "Speaker",
                                            "Headphones",
                                            "Head Mounted Display Audio",
                                            "Desktop speaker",
                                            "Room speaker",
                                            "Communication speaker",
                                            "Low frequency effects speaker"};
constexpr const char *kBidirectionalTerminals[] = {"Bi-directional Undefined",
                                                   "Handset",
                                                   "Headset",
                                                   "Speakerphone, no echo reduction",
                                                   "Echo-suppressing speakerphone",
                                                   "Echo-canceling speakerphone"};
constexpr const char *kTelephonyTerminals[] = {"Telephony Undefined", "Phone line", "Telephone",
                                               "Down Line Phone"};
constexpr const char *kExternalTerminals[] = {
    "External Undefined", "Analog connector",         "Digital audio interface",
    "Line connector",     "Legacy audio connector",   "S/PDIF interface",
    "1394 DA stream",     "1394 DV stream soundtrack"};
constexpr const char *kEmbeddedTerminals[] = {"Embedded Undefined",
                                              "Level Calibration Noise Source",
                                              "Equalization Noise",
                                              "CD player",
                                              "DAT",
                                              "DCC",
                                              "MiniDisk",
                                              "Analog Tape",
                                              "Phonograph",
                                              "VCR Audio",
                                              "Video Disc Audio",
                                              "DVD Audio",
                                              "TV Tuner Audio",
                                              "Satellite Receiver Audio",
                                              "Cable Tuner Audio",
                                              "DSS Audio",
                                              "Radio Receiver",
                                              "Radio Transmitter",
                                              "Multi-track Recorder",
                                              "Synthesizer"};

constexpr CodeRun kTerminalRuns[] = {
    Run(0x0100, kUsbTerminals),           Run(0x01FF, kUsbVendorTerminals),
    Run(0x0200, kInputTerminals),         Run(0x0300, kOutputTerminals),
    Run(0x0400, kBidirectionalTerminals), Run(0x0500, kTelephonyTerminals),
    Run(0x0600, kExternalTerminals),      Run(0x0700, kEmbeddedTerminals),
};

constexpr const char *kTypeOneFormats[] = {"TYPE_I_UNDEFINED", "PCM",  "PCM8",
                                           "IEEE_FLOAT",       "ALAW", "MULAW"};
constexpr const char *kTypeTwoFormats[] = {"TYPE_II_UNDEFINED", "MPEG", "AC-3"};
constexpr const char *kTypeThreeFormats[] = {
    "TYPE_III_UNDEFINED",        "IEC1937_AC-3",
    "IEC1937_MPEG-1_Layer1",     "IEC1937_MPEG-1_Layer2/3 or IEC1937_MPEG-2_NOEXT",
    "IEC1937_MPEG-2_EXT",        "IEC1937_MPEG-2_Layer1_LS",
    "IEC1937_MPEG-2_Layer2/3_LS"};

constexpr CodeRun kFormatRuns[] = {
    Run(0x0000, kTypeOneFormats),
    Run(0x1000, kTypeTwoFormats),
    Run(0x2000, kTypeThreeFormats),
};

constexpr const char *kProcesses[] = {"Undefined Process",
                                      "Up / Down Mix Process",
                                      "Dolby Prologic Process",
                                      "3D-Stereo Extender Process",
                                      "Reverberation Process",
                                      "Chorus Process",
                                      "Dynamic Range Compressor Process"};

constexpr CodeRun kProcessRuns[] = {Run(0x0000, kProcesses)};

template <size_t N>
const char *NameIn(const CodeRun (&runs)[N], uint16_t code) {
  return NameIn(runs, N, code);
}

}  // namespace

const char *TerminalTypeName(uint16_t terminalType) {
  return NameIn(kTerminalRuns, terminalType);
}

const char *FormatTagName(uint16_t formatTag) {
  return NameIn(kFormatRuns, formatTag);
}

const char *ProcessTypeName(uint16_t processType) {
  return NameIn(kProcessRuns, processType);
}

}  // namespace ordo::usb
