// The settings of one device, read at each device creation from the device's
// own keys and the defaults: its plug-in delay and the flags handed to the
// hub.
#pragma once

#include <cstdint>

#include "ordo/usb/filter_entry_points.h"

namespace pelarix {

struct DeviceSettings {
  uint32_t pluginDelayMs;  // seconds read times 1000, in 32 bits
  uint32_t deviceFlags;
};

// deviceDesc is the device's 18-byte descriptor copy, configDesc its
// configuration descriptor copy (may be null), filterManager the session's
// (may be null); device only names the device in log lines. The flags are the
// device's own value, else the audio-out default for an audio-out device,
// else the general default, else 0.
DeviceSettings ReadDeviceSettings(HDevFilterMgrAgent *filterManager, const uint8_t *deviceDesc,
                                  const uint8_t *configDesc, const void *device);

}  // namespace pelarix
