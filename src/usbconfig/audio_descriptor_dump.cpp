#include "usbconfig/audio_descriptor_dump.h"

#include "ordo/usb/hex_text.h"
#include "ordo/usb/usb_config_log.h"
#include "ordo/usb/usb_device_config.h"
#include "usbconfig/audio_code_names.h"
#include "usbconfig/descriptor_dump.h"

namespace ordo::usb {
namespace {

constexpr uint32_t kLevel = kUsbLogDetail;
constexpr const char *p = kIndent6;

// Bit maps of controls are printed as hex text of their own.
class ControlsText {
 public:
  // `length` bytes at `offset`, as far as they lie inside the buffer.
  ControlsText(const DescriptorView &d, size_t offset, uint32_t length) {
    const size_t inside = d.Clip(offset, length);
    HexText(d.PointerAt(offset), static_cast<uint32_t>(inside), text_, sizeof text_);
  }
  const char *Text() const { return text_; }

 private:
  char text_[2048] = {};
};

void Heading(const DescriptorView &d, const char *heading) {
  UsbConfigLog(kLevel, heading, kIndent4);
  LogDescriptorHex(kLevel, d, kIndent4);
}

void OpeningLines(const DescriptorView &d) {
  UsbConfigLog(kLevel, "%sbLength:              0x%x  (%d)", p, d.Byte(0), d.Byte(0));
  UsbConfigLog(kLevel, "%sbDescriptorType:      0x%x", p, d.Byte(1));
  UsbConfigLog(kLevel, "%sbDescriptorSubtype:   0x%x", p, d.Byte(2));
}

// Audio control header fields, read whatever the subtype.
void ControlCommonFields(const DescriptorView &d) {
  UsbConfigLog(kLevel, "%sbcdADC:               0x%x", p, d.Word(3));
  UsbConfigLog(kLevel, "%swTotalLength:         0x%x  (%d)", p, d.Word(5), d.Word(5));
  const uint8_t collection = d.Byte(7);
  UsbConfigLog(kLevel, "%sbInCollection:        0x%x  (%d)", p, collection, collection);
  for (int i = 0; i < collection; ++i) {
    UsbConfigLog(kLevel, "%sbaInterfaceNr[%d]:    0x%x", p, i, d.Byte(8 + i));
  }
}

void InputTerminal(const DescriptorView &d) {
  const uint16_t type = d.Word(4);
  UsbConfigLog(kLevel, "%sbTerminalID:          0x%x", p, d.Byte(3));
  UsbConfigLog(kLevel, "%swTerminalType:        0x%x", p, type);
  UsbConfigLog(kLevel, "%swTerminalType:        0x%x  (%s)", p, type, TerminalTypeName(type));
  UsbConfigLog(kLevel, "%sbAssocTerminal:       0x%x", p, d.Byte(6));
  UsbConfigLog(kLevel, "%sbNrChannels:          0x%x", p, d.Byte(7));
  UsbConfigLog(kLevel, "%swChannelConfig:       0x%x", p, d.Word(8));
  UsbConfigLog(kLevel, "%siChannelNames:        0x%x", p, d.Byte(10));
  UsbConfigLog(kLevel, "%siTerminal:            0x%x", p, d.Byte(11));
}

void OutputTerminal(const DescriptorView &d) {
  const uint16_t type = d.Word(4);
  UsbConfigLog(kLevel, "%sbTerminalID:          0x%x", p, d.Byte(3));
  UsbConfigLog(kLevel, "%swTerminalType:        0x%x (%s)", p, type, TerminalTypeName(type));
  UsbConfigLog(kLevel, "%sbAssocTerminal:       0x%x", p, d.Byte(6));
  UsbConfigLog(kLevel, "%sbSoruceID:            0x%x", p, d.Byte(7));
  UsbConfigLog(kLevel, "%siTerminal:            0x%x", p, d.Byte(8));
}

// The channel cluster that follows the input pins of mixer, processing and
// extension units.
void ChannelCluster(const DescriptorView &d, size_t at) {
  UsbConfigLog(kLevel, "%sbNrChannels:          0x%x", p, d.Byte(at));
  UsbConfigLog(kLevel, "%swChannelConfig:       0x%x", p, d.Word(at + 1));
  UsbConfigLog(kLevel, "%siChannelNames:        0x%x", p, d.Byte(at + 3));
}

void MixerUnit(const DescriptorView &d) {
  const uint8_t pins = d.Byte(4);
  UsbConfigLog(kLevel, "%sbUnitID:              0x%x", p, d.Byte(3));
  UsbConfigLog(kLevel, "%sbNrInPins:            0x%x", p, pins);
  for (int i = 1; i <= pins; ++i) {
    UsbConfigLog(kLevel, "%sbaSourceID[%d]:        0x%x", p, i, d.Byte(4 + i));
  }
  ChannelCluster(d, 5 + pins);
  // The length of bmControls is taken as bLength - 6 - bNrInPins, which
  // runs four bytes past the field; iMixer is read behind that.
  const uint32_t controls = static_cast<uint32_t>(d.Length() - 6 - pins);
  const size_t at = 9 + pins;
  UsbConfigLog(kLevel, "%sbmControls:           %s", p, ControlsText(d, at, controls).Text());
  UsbConfigLog(kLevel, "%siMixer:               0x%x", p,
               d.Byte(static_cast<uint32_t>(at + controls)));
}

void SelectorUnit(const DescriptorView &d) {
  const uint8_t pins = d.Byte(4);
  UsbConfigLog(kLevel, "%sbLength:              0x%x  (%d)", p, d.Byte(0), d.Byte(0));
  UsbConfigLog(kLevel, "%sbDescriptorType:      0x%x)", p, d.Byte(1));
  UsbConfigLog(kLevel, "%sbDescriptorSubtype:   0x%x)", p, d.Byte(2));
  UsbConfigLog(kLevel, "%sbUnitID:              0x%x)", p, d.Byte(3));
  UsbConfigLog(kLevel, "%sbNrInPins:            0x%x)", p, pins);
  for (int i = 0; i < pins; ++i) {
    UsbConfigLog(kLevel, "%sbaSourceID[%d]:        0x%x)", p, i, d.Byte(5 + i));
  }
  UsbConfigLog(kLevel, "%siSelector:            0x%x)", p, d.Byte(5 + pins));
}

void FeatureUnit(const DescriptorView &d) {
  const int length = d.Length();
  const int size = d.Byte(5);
  // A bControlSize of 0 can't divide the controls into channels; it is
  // reported like any other length that doesn't fit.
  const int last = size == 0 ? -1 : (length - 7) / size - 1;
  if (size == 0 || length != (last + 1) * size + 7) {
    UsbConfigLog(kUsbLogError,
                 "%sAudio Control Feature Unit Descriptor: ERROR - featureDesc length mismatch",
                 kIndent4);
    LogDescriptorHex(kUsbLogError, d, kIndent4);
    return;
  }
  Heading(d, "%sAudio Control Feature Unit Descriptor:");
  OpeningLines(d);
  UsbConfigLog(kLevel, "%sbUnitID:              0x%x", p, d.Byte(3));
  UsbConfigLog(kLevel, "%sbSourceID:            0x%x", p, d.Byte(4));
  UsbConfigLog(kLevel, "%sbControlSize:         0x%x", p, size);
  for (int i = 0; i <= last; ++i) {
    UsbConfigLog(kLevel, "%sbmControls[%d]:       (%s)", p, i,
                 ControlsText(d, 6 + static_cast<size_t>(i) * size, size).Text());
  }
  UsbConfigLog(kLevel, "%siFeature:             0x%x", p, d.Byte(6 + (last + 1) * size));
}

// Pins, channel cluster and controls of processing and extension units;
// `firstPin` is the number printed for the first source.
void UnitPinsAndControls(const DescriptorView &d, int firstPin, const char *stringFormat) {
  const uint8_t pins = d.Byte(6);
  UsbConfigLog(kLevel, "%sbNrInPins:            0x%x", p, pins);
  for (int i = 0; i < pins; ++i) {
    UsbConfigLog(kLevel, "%sbaSourceID[%d]:       0x%x", p, firstPin + i, d.Byte(7 + i));
  }
  ChannelCluster(d, 7 + pins);
  const uint8_t controlSize = d.Byte(11 + pins);
  const size_t at = 12 + pins;
  UsbConfigLog(kLevel, "%sbControlSize:         0x%x", p, controlSize);
  UsbConfigLog(kLevel, "%sbmControls:           %s", p, ControlsText(d, at, controlSize).Text());
  UsbConfigLog(kLevel, stringFormat, p, d.Byte(at + controlSize));
}

void ProcessingUnit(const DescriptorView &d) {
  const uint16_t process = d.Word(4);
  UsbConfigLog(kLevel, "%sbUnitID:              0x%x", p, d.Byte(3));
  UsbConfigLog(kLevel, "%swProcessType:         0x%x  (%s)", p, process, ProcessTypeName(process));
  UnitPinsAndControls(d, 1, "%siProcessing:          0x%x");
}

void ExtensionUnit(const DescriptorView &d) {
  UsbConfigLog(kLevel, "%sbUnitID:              0x%x", p, d.Byte(3));
  UsbConfigLog(kLevel, "%swExtensionCode:       0x%x", p, d.Word(4));
  UnitPinsAndControls(d, 0, "%siExtension:           0x%x");
}

void DumpControl(const DescriptorView &d) {
  switch (d.Subtype()) {
    case 1:
      Heading(d, "%sAudio Control Interface Header Descriptor:");
      OpeningLines(d);
      return ControlCommonFields(d);
    case 2:
      Heading(d, "%sAudio Control Input Terminal Descriptor:");
      OpeningLines(d);
      return InputTerminal(d);
    case 3:
      Heading(d, "%sAudio Control Output Terminal Descriptor:");
      OpeningLines(d);
      return OutputTerminal(d);
    case 4:
      Heading(d, "%sAudio Control Mixer Unit Descriptor:");
      OpeningLines(d);
      return MixerUnit(d);
    case 5:
      Heading(d, "%sAudio Control Selector Unit Descriptor:");
      return SelectorUnit(d);
    case 6:
      return FeatureUnit(d);
    case 7:
      Heading(d, "%sAudio Control Processing Unit Descriptor:");
      OpeningLines(d);
      return ProcessingUnit(d);
    case 8:
      Heading(d, "%sAudio Control Extension Unit Descriptor:");
      OpeningLines(d);
      return ExtensionUnit(d);
    default:
      Heading(d, "%sAudio Control Descriptor:");
      OpeningLines(d);
      return ControlCommonFields(d);
  }
}

// Three-byte sample frequencies from `at` on; a count of 0 gives a range.
void SampleFrequencies(const DescriptorView &d, size_t at, uint8_t count) {
  if (count == 0) {
    const uint32_t lower = d.Triple(at);
    const uint32_t upper = d.Triple(at + 3);
    UsbConfigLog(kLevel, "%stLowerSamFreq:        0x%x   (%d Hz)", p, lower, lower);
    UsbConfigLog(kLevel, "%stUpperSamFreq:        0x%x   (%d Hz)", p, upper, upper);
    return;
  }
  for (int i = 1; i <= count; ++i) {
    const uint32_t frequency = d.Triple(at + 3 * static_cast<size_t>(i - 1));
    UsbConfigLog(kLevel, "%sSamFreq[%d]:           0x%x   (%d Hz)", p, i, frequency, frequency);
  }
}

void FormatType(const DescriptorView &d) {
  const uint8_t formatType = d.Byte(3);
  UsbConfigLog(kLevel, "%sbFormatType:          0x%x", p, formatType);
  if (formatType == 1 || formatType == 3) {
    UsbConfigLog(kLevel, "%sbNrChannels:          0x%x", p, d.Byte(4));
    UsbConfigLog(kLevel, "%sbSubframeSize:        0x%x", p, d.Byte(5));
    UsbConfigLog(kLevel, "%sbBitResolution:       0x%x", p, d.Byte(6));
    UsbConfigLog(kLevel, "%sbSamFreqType:         0x%x", p, d.Byte(7));
    SampleFrequencies(d, 8, d.Byte(7));
  } else if (formatType == 2) {
    UsbConfigLog(kLevel, "%swMaxBitRate:          0x%x", p, d.Word(4));
    UsbConfigLog(kLevel, "%swSamplesPerFrame:     0x%x", p, d.Word(6));
    UsbConfigLog(kLevel, "%sbSamFreqType:         0x%x", p, d.Byte(8));
    SampleFrequencies(d, 9, d.Byte(8));
  }
}

void DumpStreaming(const DescriptorView &d) {
  switch (d.Subtype()) {
    case 1: {
      const uint16_t tag = d.Word(5);
      Heading(d, "%sAudio Streaming Class Specific Interface Descriptor:");
      OpeningLines(d);
      UsbConfigLog(kLevel, "%sbTerminalLink:        0x%x", p, d.Byte(3));
      UsbConfigLog(kLevel, "%sbDelay:               0x%x", p, d.Byte(4));
      UsbConfigLog(kLevel, "%swFormatTag:           0x%x   (%s)", p, tag, FormatTagName(tag));
      return;
    }
    case 2:
      Heading(d, "%sAudio Streaming Format Type Descriptor:");
      OpeningLines(d);
      return FormatType(d);
    case 3:
      Heading(d, "%sAudio Streaming Format Specific Descriptor:");
      return OpeningLines(d);
    default:
      Heading(d, "%sAudio Streaming Descriptor:");
      UsbConfigLog(kLevel, "%sbLength:             0x%x  (%d)", p, d.Byte(0), d.Byte(0));
      UsbConfigLog(kLevel, "%sbDescriptorType:     0x%x", p, d.Byte(1));
      UsbConfigLog(kLevel, "%sbDescriptorSubtype:  0x%x", p, d.Byte(2));
      UsbConfigLog(kLevel, "%sbTerminalLink:       0x%x", p, d.Byte(3));
      UsbConfigLog(kLevel, "%sbDelay:              0x%x", p, d.Byte(4));
      UsbConfigLog(kLevel, "%swFormatTag:          0x%x", p, d.Word(5));
      return;
  }
}

void DumpAudioEndpoint(const DescriptorView &d) {
  Heading(d, "%sAudio Streaming Class Specific Audio Data Endpoint Descriptor:");
  OpeningLines(d);
  UsbConfigLog(kLevel, "%sbmAttributes:         0x%x", p, d.Byte(3));
  UsbConfigLog(kLevel, "%sbLockDelayUnits:      0x%x", p, d.Byte(4));
  UsbConfigLog(kLevel, "%swLockDelay:           0x%x", p, d.Word(5));
}

}  // namespace

void DumpAudioDescriptor(uint8_t interfaceSubClass, const DescriptorView &d) {
  // The feature unit's length mismatch is an error line, so nothing is to
  // be written only when even errors don't reach the hook.
  if (!UsbConfigLogWanted(kUsbLogError)) {
    return;
  }
  if (d.Type() == kDescCsEndpoint) {
    return DumpAudioEndpoint(d);
  }
  if (interfaceSubClass == kAudioControlSubClass) {
    return DumpControl(d);
  }
  if (interfaceSubClass == kAudioStreamingSubClass) {
    return DumpStreaming(d);
  }
}

}  // namespace ordo::usb
