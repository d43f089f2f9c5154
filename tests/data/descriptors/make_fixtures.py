#!/usr/bin/env python3
"""Writes the descriptor fixture library of this directory.

Each NAME.bin is laid out like Linux's sysfs `descriptors` file: the 18-byte
device descriptor, then every configuration descriptor set (wTotalLength bytes
each). Every byte comes from one of the builder functions below, whose
arguments and comments name each field as the USB 2.0 standard (chapter 9 and
the interface association ECN), USB Audio 1.0 (section 4), HID 1.11 (6.2.1),
CDC 1.2 (5.2.3) with PSTN 1.2 (5.3), CCID 1.1 (5.1) and UVC 1.1 (3.7) lay
them out. Run it from anywhere; it rewrites the files in place:

    python3 tests/data/descriptors/make_fixtures.py
"""

import os

HERE = os.path.dirname(os.path.abspath(__file__))


def le16(value):
    return [value & 0xFF, (value >> 8) & 0xFF]


def le32(value):
    return [value & 0xFF, (value >> 8) & 0xFF, (value >> 16) & 0xFF, (value >> 24) & 0xFF]


def le24(value):
    return [value & 0xFF, (value >> 8) & 0xFF, (value >> 16) & 0xFF]


# ---------------------------------------------------------------- USB 2.0, 9.6


def device(cls, subcls, proto, vid, pid, configs, bcd_usb=0x0200, mps0=64, bcd_device=0x0100):
    return [
        18,            # bLength
        0x01,          # bDescriptorType: DEVICE
        *le16(bcd_usb),  # bcdUSB
        cls,           # bDeviceClass
        subcls,        # bDeviceSubClass
        proto,         # bDeviceProtocol
        mps0,          # bMaxPacketSize0
        *le16(vid),    # idVendor
        *le16(pid),    # idProduct
        *le16(bcd_device),  # bcdDevice
        1,             # iManufacturer
        2,             # iProduct
        0,             # iSerialNumber
        configs,       # bNumConfigurations
    ]


def configuration(value, interfaces, body, attributes=0x80, max_power=50, total=None):
    """A configuration descriptor followed by `body`; wTotalLength covers both
    unless `total` overrides it (for the malformed sets)."""
    length = 9 + len(body) if total is None else total
    return [
        9,             # bLength
        0x02,          # bDescriptorType: CONFIGURATION
        *le16(length),  # wTotalLength
        interfaces,    # bNumInterfaces
        value,         # bConfigurationValue
        0,             # iConfiguration
        attributes,    # bmAttributes: D7 reserved (1), D6 self-powered, D5 remote wakeup
        max_power,     # bMaxPower, 2 mA units
    ] + body


def interface(number, alternate, endpoints, cls, subcls, proto, string=0):
    return [
        9,             # bLength
        0x04,          # bDescriptorType: INTERFACE
        number,        # bInterfaceNumber
        alternate,     # bAlternateSetting
        endpoints,     # bNumEndpoints
        cls,           # bInterfaceClass
        subcls,        # bInterfaceSubClass
        proto,         # bInterfaceProtocol
        string,        # iInterface
    ]


def endpoint(address, attributes, max_packet, interval, audio=False, refresh=0, sync=0):
    """Standard endpoint; audio class endpoints carry the two extra bytes of
    Audio 1.0 4.6.1.1."""
    body = [
        9 if audio else 7,  # bLength
        0x05,          # bDescriptorType: ENDPOINT
        address,       # bEndpointAddress: D7 direction (1 = IN), D3..0 number
        attributes,    # bmAttributes: D1..0 transfer type, D3..2 sync type
        *le16(max_packet),  # wMaxPacketSize
        interval,      # bInterval
    ]
    if audio:
        body += [
            refresh,   # bRefresh
            sync,      # bSynchAddress
        ]
    return body


def association(first, count, cls, subcls, proto):
    return [
        8,             # bLength
        0x0B,          # bDescriptorType: INTERFACE_ASSOCIATION
        first,         # bFirstInterface
        count,         # bInterfaceCount
        cls,           # bFunctionClass
        subcls,        # bFunctionSubClass
        proto,         # bFunctionProtocol
        0,             # iFunction
    ]


# ---------------------------------------------------------------- HID 1.11, 6.2.1


def hid(report_length, country=0):
    return [
        9,             # bLength
        0x21,          # bDescriptorType: HID
        *le16(0x0111),  # bcdHID 1.11
        country,       # bCountryCode
        1,             # bNumDescriptors
        0x22,          # bDescriptorType of the class descriptor: REPORT
        *le16(report_length),  # wDescriptorLength
    ]


# ---------------------------------------------------------------- Audio 1.0, 4.3 to 4.6

CS_INTERFACE = 0x24
CS_ENDPOINT = 0x25


def ac_header(total_length, interfaces):
    return [
        8 + len(interfaces),  # bLength
        CS_INTERFACE,  # bDescriptorType
        0x01,          # bDescriptorSubtype: HEADER
        *le16(0x0100),  # bcdADC 1.00
        *le16(total_length),  # wTotalLength of the class-specific AC descriptors
        len(interfaces),  # bInCollection
    ] + interfaces     # baInterfaceNr(1..n)


def input_terminal(terminal, terminal_type, channels, channel_config, assoc=0):
    return [
        12,            # bLength
        CS_INTERFACE,  # bDescriptorType
        0x02,          # bDescriptorSubtype: INPUT_TERMINAL
        terminal,      # bTerminalID
        *le16(terminal_type),  # wTerminalType
        assoc,         # bAssocTerminal
        channels,      # bNrChannels
        *le16(channel_config),  # wChannelConfig
        0,             # iChannelNames
        0,             # iTerminal
    ]


def output_terminal(terminal, terminal_type, source, assoc=0):
    return [
        9,             # bLength
        CS_INTERFACE,  # bDescriptorType
        0x03,          # bDescriptorSubtype: OUTPUT_TERMINAL
        terminal,      # bTerminalID
        *le16(terminal_type),  # wTerminalType
        assoc,         # bAssocTerminal
        source,        # bSourceID
        0,             # iTerminal
    ]


def mixer_unit(unit, sources, channels, channel_config, controls):
    return [
        10 + len(sources) + len(controls),  # bLength
        CS_INTERFACE,  # bDescriptorType
        0x04,          # bDescriptorSubtype: MIXER_UNIT
        unit,          # bUnitID
        len(sources),  # bNrInPins
    ] + sources + [    # baSourceID(1..p)
        channels,      # bNrChannels
        *le16(channel_config),  # wChannelConfig
        0,             # iChannelNames
    ] + controls + [   # bmControls
        0,             # iMixer
    ]


def selector_unit(unit, sources):
    return [
        6 + len(sources),  # bLength
        CS_INTERFACE,  # bDescriptorType
        0x05,          # bDescriptorSubtype: SELECTOR_UNIT
        unit,          # bUnitID
        len(sources),  # bNrInPins
    ] + sources + [    # baSourceID(1..p)
        0,             # iSelector
    ]


def feature_unit(unit, source, control_size, controls, length=None):
    """`controls` holds bmaControls(0..ch) flattened, control_size bytes each."""
    return [
        7 + len(controls) if length is None else length,  # bLength
        CS_INTERFACE,  # bDescriptorType
        0x06,          # bDescriptorSubtype: FEATURE_UNIT
        unit,          # bUnitID
        source,        # bSourceID
        control_size,  # bControlSize
    ] + controls + [   # bmaControls(0..ch)
        0,             # iFeature
    ]


def processing_unit(unit, process_type, sources, channels, channel_config, controls):
    return [
        13 + len(sources) + len(controls),  # bLength (no process-specific bytes)
        CS_INTERFACE,  # bDescriptorType
        0x07,          # bDescriptorSubtype: PROCESSING_UNIT
        unit,          # bUnitID
        *le16(process_type),  # wProcessType
        len(sources),  # bNrInPins
    ] + sources + [    # baSourceID(1..p)
        channels,      # bNrChannels
        *le16(channel_config),  # wChannelConfig
        0,             # iChannelNames
        len(controls),  # bControlSize
    ] + controls + [   # bmControls
        0,             # iProcessing
    ]


def extension_unit(unit, code, sources, channels, channel_config, controls):
    return [
        13 + len(sources) + len(controls),  # bLength
        CS_INTERFACE,  # bDescriptorType
        0x08,          # bDescriptorSubtype: EXTENSION_UNIT
        unit,          # bUnitID
        *le16(code),   # wExtensionCode
        len(sources),  # bNrInPins
    ] + sources + [    # baSourceID(1..p)
        channels,      # bNrChannels
        *le16(channel_config),  # wChannelConfig
        0,             # iChannelNames
        len(controls),  # bControlSize
    ] + controls + [   # bmControls
        0,             # iExtension
    ]


def as_general(terminal_link, format_tag, delay=1):
    return [
        7,             # bLength
        CS_INTERFACE,  # bDescriptorType
        0x01,          # bDescriptorSubtype: AS_GENERAL
        terminal_link,  # bTerminalLink
        delay,         # bDelay, frames
        *le16(format_tag),  # wFormatTag
    ]


def format_type_i(channels, subframe, bits, rates):
    """Type I format (Audio Data Formats 1.0, 2.2.5) with discrete rates;
    format_type_i_range gives a continuous range."""
    body = [
        8 + 3 * len(rates),  # bLength
        CS_INTERFACE,  # bDescriptorType
        0x02,          # bDescriptorSubtype: FORMAT_TYPE
        0x01,          # bFormatType: FORMAT_TYPE_I
        channels,      # bNrChannels
        subframe,      # bSubframeSize
        bits,          # bBitResolution
        len(rates),    # bSamFreqType: discrete rates
    ]
    for rate in rates:
        body += le24(rate)  # tSamFreq[n]
    return body


def format_type_i_range(channels, subframe, bits, low, high):
    return [
        14,            # bLength
        CS_INTERFACE,  # bDescriptorType
        0x02,          # bDescriptorSubtype: FORMAT_TYPE
        0x01,          # bFormatType: FORMAT_TYPE_I
        channels,      # bNrChannels
        subframe,      # bSubframeSize
        bits,          # bBitResolution
        0,             # bSamFreqType: continuous
        *le24(low),    # tLowerSamFreq
        *le24(high),   # tUpperSamFreq
    ]


def format_type_ii(max_bit_rate, samples_per_frame, rates):
    body = [
        9 + 3 * len(rates),  # bLength
        CS_INTERFACE,  # bDescriptorType
        0x02,          # bDescriptorSubtype: FORMAT_TYPE
        0x02,          # bFormatType: FORMAT_TYPE_II
        *le16(max_bit_rate),  # wMaxBitRate, kbit/s
        *le16(samples_per_frame),  # wSamplesPerFrame
        len(rates),    # bSamFreqType
    ]
    for rate in rates:
        body += le24(rate)  # tSamFreq[n]
    return body


def format_specific_mpeg():
    return [
        5,             # bLength
        CS_INTERFACE,  # bDescriptorType
        0x03,          # bDescriptorSubtype: FORMAT_SPECIFIC
        *le16(0x1001),  # wFormatTag: MPEG
    ]


def audio_endpoint(attributes=0x01, lock_units=0, lock_delay=0):
    return [
        7,             # bLength
        CS_ENDPOINT,   # bDescriptorType
        0x01,          # bDescriptorSubtype: EP_GENERAL
        attributes,    # bmAttributes: D0 sampling frequency control
        lock_units,    # bLockDelayUnits
        *le16(lock_delay),  # wLockDelay
    ]


def audio_stream(number, terminal_link, address, rates, channels=2, bits=16):
    """An audio streaming interface: alternate 0 without endpoints (zero
    bandwidth), alternate 1 with PCM and one isochronous endpoint."""
    subframe = bits // 8
    packet = channels * subframe * (max(rates) // 1000)
    return (interface(number, 0, 0, 0x01, 0x02, 0x00) +
            interface(number, 1, 1, 0x01, 0x02, 0x00) +
            as_general(terminal_link, 0x0001) +          # PCM
            format_type_i(channels, subframe, bits, rates) +
            # isochronous: asynchronous when capturing, adaptive when playing
            endpoint(address, 0x05 if address & 0x80 else 0x09, packet, 1, audio=True) +
            audio_endpoint())


# ---------------------------------------------------------------- CDC 1.2, 5.2.3; PSTN 1.2, 5.3


def cdc_header():
    return [
        5,             # bFunctionLength
        CS_INTERFACE,  # bDescriptorType
        0x00,          # bDescriptorSubtype: Header
        *le16(0x0120),  # bcdCDC 1.20
    ]


def cdc_call_management(data_interface):
    return [
        5,             # bFunctionLength
        CS_INTERFACE,  # bDescriptorType
        0x01,          # bDescriptorSubtype: Call Management
        0x03,          # bmCapabilities: handles call management, over the data class
        data_interface,  # bDataInterface
    ]


def cdc_acm():
    return [
        4,             # bFunctionLength
        CS_INTERFACE,  # bDescriptorType
        0x02,          # bDescriptorSubtype: Abstract Control Management
        0x02,          # bmCapabilities: line coding and serial state
    ]


def cdc_union(control, subordinates):
    return [
        3 + 1 + len(subordinates),  # bFunctionLength
        CS_INTERFACE,  # bDescriptorType
        0x06,          # bDescriptorSubtype: Union
        control,       # bControlInterface
    ] + subordinates   # bSubordinateInterface0..n


# ---------------------------------------------------------------- CCID 1.1, 5.1


def ccid_class():
    return [
        54,            # bLength
        0x21,          # bDescriptorType: CCID functional (shares HID's code)
        *le16(0x0110),  # bcdCCID 1.10
        0,             # bMaxSlotIndex
        0x07,          # bVoltageSupport: 5 V, 3 V, 1.8 V
        *le32(0x00000003),  # dwProtocols: T=0 and T=1
        *le32(3580),   # dwDefaultClock, kHz
        *le32(3580),   # dwMaximumClock, kHz
        0,             # bNumClockSupported
        *le32(9600),   # dwDataRate, bps
        *le32(344086),  # dwMaxDataRate, bps
        0,             # bNumDataRatesSupported
        *le32(254),    # dwMaxIFSD
        *le32(0),      # dwSynchProtocols
        *le32(0),      # dwMechanical
        *le32(0x000204BA),  # dwFeatures: automatic parameters, clock, baud, PPS; short APDU
        *le32(271),    # dwMaxCCIDMessageLength
        0xFF,          # bClassGetResponse: echo
        0xFF,          # bClassEnvelope: echo
        *le16(0),      # wLcdLayout: none
        0,             # bPINSupport
        1,             # bMaxCCIDBusySlots
    ]


# ---------------------------------------------------------------- UVC 1.1, 3.7


def vc_header(total_length, interfaces):
    return [
        12 + len(interfaces),  # bLength
        CS_INTERFACE,  # bDescriptorType
        0x01,          # bDescriptorSubtype: VC_HEADER
        *le16(0x0110),  # bcdUVC 1.10
        *le16(total_length),  # wTotalLength of the VC descriptors
        *le32(48000000),  # dwClockFrequency
        len(interfaces),  # bInCollection
    ] + interfaces     # baInterfaceNr(1..n)


def vc_camera_terminal():
    return [
        18,            # bLength
        CS_INTERFACE,  # bDescriptorType
        0x02,          # bDescriptorSubtype: VC_INPUT_TERMINAL
        1,             # bTerminalID
        *le16(0x0201),  # wTerminalType: ITT_CAMERA
        0,             # bAssocTerminal
        0,             # iTerminal
        *le16(0), *le16(0), *le16(0),  # wObjectiveFocalLength min, max, wOcularFocalLength
        3,             # bControlSize
        0x00, 0x00, 0x00,  # bmControls
    ]


def vc_output_terminal(source):
    return [
        9,             # bLength
        CS_INTERFACE,  # bDescriptorType
        0x03,          # bDescriptorSubtype: VC_OUTPUT_TERMINAL
        2,             # bTerminalID
        *le16(0x0101),  # wTerminalType: TT_STREAMING
        0,             # bAssocTerminal
        source,        # bSourceID
        0,             # iTerminal
    ]


def vc_interrupt_endpoint():
    return [
        5,             # bLength
        CS_ENDPOINT,   # bDescriptorType
        0x03,          # bDescriptorSubtype: EP_INTERRUPT
        *le16(16),     # wMaxTransferSize
    ]


def vs_input_header(total_length, endpoint_address):
    return [
        14,            # bLength (one format)
        CS_INTERFACE,  # bDescriptorType
        0x01,          # bDescriptorSubtype: VS_INPUT_HEADER
        1,             # bNumFormats
        *le16(total_length),  # wTotalLength of the VS descriptors
        endpoint_address,  # bEndpointAddress
        0,             # bmInfo
        2,             # bTerminalLink
        0,             # bStillCaptureMethod
        0,             # bTriggerSupport
        0,             # bTriggerUsage
        1,             # bControlSize
        0x00,          # bmaControls(1)
    ]


def vs_format_mjpeg():
    return [
        11,            # bLength
        CS_INTERFACE,  # bDescriptorType
        0x06,          # bDescriptorSubtype: VS_FORMAT_MJPEG
        1,             # bFormatIndex
        1,             # bNumFrameDescriptors
        0x01,          # bmFlags: fixed size samples
        1,             # bDefaultFrameIndex
        0,             # bAspectRatioX
        0,             # bAspectRatioY
        0,             # bmInterlaceFlags
        0,             # bCopyProtect
    ]


def vs_frame_mjpeg():
    return [
        30,            # bLength (one discrete interval)
        CS_INTERFACE,  # bDescriptorType
        0x07,          # bDescriptorSubtype: VS_FRAME_MJPEG
        1,             # bFrameIndex
        0,             # bmCapabilities
        *le16(640),    # wWidth
        *le16(480),    # wHeight
        *le32(24576000),  # dwMinBitRate
        *le32(24576000),  # dwMaxBitRate
        *le32(614400),  # dwMaxVideoFrameBufferSize
        *le32(333333),  # dwDefaultFrameInterval, 100 ns units (30 fps)
        1,             # bFrameIntervalType: one discrete interval
        *le32(333333),  # dwFrameInterval(1)
    ]


# ---------------------------------------------------------------- the library

FIXTURES = {}


def fixture(name, description):
    def register(build):
        FIXTURES[name] = (description, build)
        return build
    return register


@fixture("boot_keyboard", "HID boot keyboard: one interface 03/01/01, interrupt IN")
def boot_keyboard():
    return device(0, 0, 0, 0x1D50, 0x6001, 1) + configuration(1, 1,
        interface(0, 0, 1, 0x03, 0x01, 0x01) + hid(63) + endpoint(0x81, 0x03, 8, 10),
        attributes=0xA0)


@fixture("boot_mouse", "HID boot mouse: one interface 03/01/02, interrupt IN")
def boot_mouse():
    return device(0, 0, 0, 0x1D50, 0x6002, 1) + configuration(1, 1,
        interface(0, 0, 1, 0x03, 0x01, 0x02) + hid(52) + endpoint(0x81, 0x03, 4, 10),
        attributes=0xA0)


@fixture("keyboard_mouse", "composite: boot keyboard (interface 0) and boot mouse (interface 1)")
def keyboard_mouse():
    return device(0, 0, 0, 0x1D50, 0x6003, 1) + configuration(1, 2,
        interface(0, 0, 1, 0x03, 0x01, 0x01) + hid(63) + endpoint(0x81, 0x03, 8, 10) +
        interface(1, 0, 1, 0x03, 0x01, 0x02) + hid(52) + endpoint(0x82, 0x03, 4, 10),
        attributes=0xA0)


@fixture("hid_sensor", "non-boot HID (sensor hub style): 03/00/00 with IN and OUT interrupt endpoints")
def hid_sensor():
    return device(0, 0, 0, 0x1D50, 0x6004, 1) + configuration(1, 1,
        interface(0, 0, 2, 0x03, 0x00, 0x00) + hid(420) +
        endpoint(0x81, 0x03, 64, 1) + endpoint(0x01, 0x03, 64, 1))


@fixture("mass_storage", "mass storage, SCSI transparent command set, bulk-only: 08/06/50")
def mass_storage():
    return device(0, 0, 0, 0x1D50, 0x6005, 1) + configuration(1, 1,
        interface(0, 0, 2, 0x08, 0x06, 0x50) +
        endpoint(0x81, 0x02, 512, 0) + endpoint(0x02, 0x02, 512, 0), max_power=100)


def headset_control():
    """AC for a headset: USB streaming -> feature -> headphones, microphone ->
    feature -> selector -> USB streaming."""
    units = (input_terminal(1, 0x0101, 2, 0x0003) +          # USB streaming, stereo L/R
             feature_unit(2, 1, 1, [0x01, 0x02, 0x02]) +       # mute master, volume L and R
             output_terminal(3, 0x0302, 2) +                  # headphones
             input_terminal(4, 0x0201, 1, 0x0000) +           # microphone, mono
             feature_unit(5, 4, 1, [0x03, 0x00]) +             # mute+volume master
             selector_unit(6, [5]) +
             output_terminal(7, 0x0101, 6))                   # USB streaming
    return ac_header(8 + 2 + len(units), [1, 2]) + units


@fixture("headset", "USB headset: audio control, audio-out streaming (interface 1) and audio-in "
         "streaming (interface 2), each with alternates 0 and 1 and class-specific endpoints")
def headset():
    return device(0, 0, 0, 0x1D50, 0x6010, 1) + configuration(1, 3,
        interface(0, 0, 0, 0x01, 0x01, 0x00) + headset_control() +
        audio_stream(1, 1, 0x01, [48000, 44100]) +
        audio_stream(2, 7, 0x82, [16000], channels=1))


@fixture("loudspeaker", "loudspeaker: audio control with mixer, processing and extension units, "
         "one audio-out streaming interface with a continuous rate range")
def loudspeaker():
    units = (input_terminal(1, 0x0101, 2, 0x0003) +
             mixer_unit(2, [1], 2, 0x0003, [0x0F]) +
             processing_unit(3, 0x0002, [2], 2, 0x0003, [0x01]) +   # Dolby Prologic
             extension_unit(4, 0x1234, [3], 2, 0x0003, [0x01]) +
             output_terminal(5, 0x0301, 4))                        # speaker
    control = ac_header(9 + len(units), [1]) + units
    stream = (interface(1, 0, 0, 0x01, 0x02, 0x00) + interface(1, 1, 1, 0x01, 0x02, 0x00) +
              as_general(1, 0x0001) + format_type_i_range(2, 2, 16, 8000, 48000) +
              endpoint(0x01, 0x09, 192, 1, audio=True) + audio_endpoint(0x01, 2, 1))
    return device(0, 0, 0, 0x1D50, 0x6011, 1) + configuration(1, 2,
        interface(0, 0, 0, 0x01, 0x01, 0x00) + control + stream)


@fixture("microphone", "microphone: audio control and one audio-in streaming interface; a second "
         "alternate carries MPEG (format type II and format-specific descriptors)")
def microphone():
    units = input_terminal(1, 0x0201, 1, 0x0000) + output_terminal(2, 0x0101, 1)
    control = ac_header(9 + len(units), [1]) + units
    stream = (interface(1, 0, 0, 0x01, 0x02, 0x00) + interface(1, 1, 1, 0x01, 0x02, 0x00) +
              as_general(2, 0x0001) + format_type_i(1, 2, 16, [48000, 32000]) +
              endpoint(0x81, 0x05, 96, 1, audio=True) + audio_endpoint() +
              interface(1, 2, 1, 0x01, 0x02, 0x00) +
              as_general(2, 0x1001) + format_type_ii(256, 1152, [48000]) +
              format_specific_mpeg() +
              endpoint(0x81, 0x05, 96, 1, audio=True) + audio_endpoint())
    return device(0, 0, 0, 0x1D50, 0x6012, 1) + configuration(1, 2,
        interface(0, 0, 0, 0x01, 0x01, 0x00) + control + stream)


@fixture("uvc_webcam", "UVC webcam: video association (control + streaming with alternates), audio "
         "association (control + microphone streaming)")
def uvc_webcam():
    vc_units = vc_camera_terminal() + vc_output_terminal(1)
    video_control = (interface(0, 0, 1, 0x0E, 0x01, 0x00) +
                     vc_header(13 + len(vc_units), [1]) + vc_units +
                     endpoint(0x83, 0x03, 16, 6) + vc_interrupt_endpoint())
    vs = vs_format_mjpeg() + vs_frame_mjpeg()
    video_stream = (interface(1, 0, 0, 0x0E, 0x02, 0x00) + vs_input_header(14 + len(vs), 0x81) + vs +
                    interface(1, 1, 1, 0x0E, 0x02, 0x00) + endpoint(0x81, 0x05, 0x0B20, 1))
    units = input_terminal(1, 0x0201, 1, 0x0000) + output_terminal(2, 0x0101, 1)
    audio = (interface(2, 0, 0, 0x01, 0x01, 0x00) + ac_header(9 + len(units), [3]) + units +
             interface(3, 0, 0, 0x01, 0x02, 0x00) + interface(3, 1, 1, 0x01, 0x02, 0x00) +
             as_general(2, 0x0001) + format_type_i(1, 2, 16, [16000]) +
             endpoint(0x82, 0x05, 32, 1, audio=True) + audio_endpoint())
    return device(0xEF, 0x02, 0x01, 0x1D50, 0x6020, 1) + configuration(1, 4,
        association(0, 2, 0x0E, 0x03, 0x00) + video_control + video_stream +
        association(2, 2, 0x01, 0x00, 0x00) + audio)


@fixture("cdc_acm_modem", "CDC ACM modem, device class 02/00/00: control interface with header, "
         "call management, ACM and union descriptors, data interface")
def cdc_acm_modem():
    return device(0x02, 0x00, 0x00, 0x1D50, 0x6030, 1) + configuration(1, 2,
        interface(0, 0, 1, 0x02, 0x02, 0x01) +
        cdc_header() + cdc_call_management(1) + cdc_acm() + cdc_union(0, [1]) +
        endpoint(0x83, 0x03, 8, 16) +
        interface(1, 0, 2, 0x0A, 0x00, 0x00) +
        endpoint(0x81, 0x02, 64, 0) + endpoint(0x02, 0x02, 64, 0))


@fixture("ccid_reader", "CCID smart-card reader: one interface 0B/00/00 with its class descriptor, "
         "bulk pair and interrupt IN")
def ccid_reader():
    return device(0, 0, 0, 0x1D50, 0x6040, 1) + configuration(1, 1,
        interface(0, 0, 3, 0x0B, 0x00, 0x00) + ccid_class() +
        endpoint(0x01, 0x02, 64, 0) + endpoint(0x82, 0x02, 64, 0) + endpoint(0x83, 0x03, 8, 16))


@fixture("hub", "high-speed hub with multiple transaction translators: interface 0 alternates 0 "
         "(single TT) and 1 (multi TT)")
def hub():
    return device(0x09, 0x00, 0x02, 0x1D50, 0x6050, 1) + configuration(1, 1,
        interface(0, 0, 1, 0x09, 0x00, 0x01) + endpoint(0x81, 0x03, 1, 12) +
        interface(0, 1, 1, 0x09, 0x00, 0x02) + endpoint(0x81, 0x03, 1, 12), attributes=0xE0)


@fixture("vendor_specific", "vendor-specific device: one FF/FF/FF interface with a bulk pair")
def vendor_specific():
    return device(0xFF, 0xFF, 0xFF, 0x1D50, 0x6060, 1) + configuration(1, 1,
        interface(0, 0, 2, 0xFF, 0xFF, 0xFF) +
        endpoint(0x81, 0x02, 512, 0) + endpoint(0x01, 0x02, 512, 0))


@fixture("two_configurations", "two configurations: value 1 is a vendor interface, value 2 a "
         "storage interface and a boot keyboard")
def two_configurations():
    return (device(0, 0, 0, 0x1D50, 0x6070, 2) +
            configuration(1, 1, interface(0, 0, 2, 0xFF, 0x00, 0x00) +
                          endpoint(0x81, 0x02, 512, 0) + endpoint(0x01, 0x02, 512, 0)) +
            configuration(2, 2, interface(0, 0, 2, 0x08, 0x06, 0x50) +
                          endpoint(0x81, 0x02, 512, 0) + endpoint(0x02, 0x02, 512, 0) +
                          interface(1, 0, 1, 0x03, 0x01, 0x01) + hid(63) +
                          endpoint(0x83, 0x03, 8, 10)))


@fixture("malformed_blength_zero", "malformed: an unknown descriptor with bLength 0 behind the "
         "storage interface's endpoints, followed by a second interface")
def malformed_blength_zero():
    return device(0, 0, 0, 0x1D50, 0x6080, 1) + configuration(1, 2,
        interface(0, 0, 2, 0x08, 0x06, 0x50) +
        endpoint(0x81, 0x02, 512, 0) + endpoint(0x02, 0x02, 512, 0) +
        [0, 0x30, 0, 0] +  # bLength 0, bDescriptorType 0x30, two more bytes
        interface(1, 0, 0, 0xFF, 0x00, 0x00))


@fixture("malformed_overrun", "malformed: the last endpoint claims 64 bytes where 7 are left")
def malformed_overrun():
    body = interface(0, 0, 2, 0xFF, 0x00, 0x00) + endpoint(0x81, 0x02, 64, 0) + endpoint(0x01, 0x02, 64, 0)
    body[-7] = 64      # bLength of the second endpoint, running past wTotalLength
    return device(0, 0, 0, 0x1D50, 0x6081, 1) + configuration(1, 1, body)


@fixture("malformed_truncated_interface", "malformed: the set ends 4 bytes into an interface "
         "descriptor (bLength 9) behind a complete boot mouse interface")
def malformed_truncated_interface():
    body = (interface(0, 0, 1, 0x03, 0x01, 0x02) + hid(52) + endpoint(0x81, 0x03, 4, 10) +
            interface(1, 0, 1, 0x03, 0x01, 0x01)[:4])  # bLength, type, number, alternate only
    return device(0, 0, 0, 0x1D50, 0x6082, 1) + configuration(1, 2, body)


@fixture("malformed_final_two_byte", "malformed: a vendor interface followed by a final two-byte "
         "descriptor, which the walk never visits")
def malformed_final_two_byte():
    return device(0, 0, 0, 0x1D50, 0x6083, 1) + configuration(1, 1,
        interface(0, 0, 0, 0xFF, 0x00, 0x00) + [2, 0x31])  # bLength 2, bDescriptorType 0x31


@fixture("malformed_final_three_byte", "malformed: a vendor interface followed by a final "
         "three-byte descriptor, which the walk visits")
def malformed_final_three_byte():
    return device(0, 0, 0, 0x1D50, 0x6084, 1) + configuration(1, 1,
        interface(0, 0, 0, 0xFF, 0x00, 0x00) + [3, 0x31, 0x5A])  # bLength 3, type 0x31, one byte


@fixture("malformed_feature_size_zero", "malformed: an audio control feature unit with "
         "bControlSize 0, and one whose bLength doesn't fit its control size")
def malformed_feature_size_zero():
    units = (input_terminal(1, 0x0101, 2, 0x0003) +
             feature_unit(2, 1, 0, [0x01, 0x02]) +             # bControlSize 0
             feature_unit(3, 2, 2, [0x01, 0x00, 0x02], length=10) +  # 3 control bytes, size 2
             output_terminal(4, 0x0301, 3))
    return device(0, 0, 0, 0x1D50, 0x6085, 1) + configuration(1, 1,
        interface(0, 0, 0, 0x01, 0x01, 0x00) + ac_header(9 + len(units), [1]) + units)


def configurations_of(blob):
    """Offsets of the configuration sets behind the device descriptor."""
    offsets, at = [], 18
    while at + 4 <= len(blob):
        offsets.append(at)
        at += blob[at + 2] | (blob[at + 3] << 8)
    return offsets


def main():
    index = ["# Descriptor fixtures", "",
             "Written by `make_fixtures.py` (run it to rebuild them): each file is the 18-byte "
             "device descriptor followed by every configuration descriptor set, as in Linux's "
             "sysfs `descriptors` file. Every byte is named in the builder functions of the "
             "script. `golden/NAME.txt` is the model's descriptor dump of each set at log level "
             "0, checked by hand.", "",
             "| File | Bytes | What it is |", "|---|---|---|"]
    for name, (description, build) in FIXTURES.items():
        blob = bytes(build())
        with open(os.path.join(HERE, name + ".bin"), "wb") as out:
            out.write(blob)
        index.append(f"| `{name}.bin` | {len(blob)} | {description} |")
    with open(os.path.join(HERE, "INDEX.md"), "w") as out:
        out.write("\n".join(index) + "\n")


if __name__ == "__main__":
    main()
