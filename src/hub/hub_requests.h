// The requests that devices and items send, each with its failure line.
// logHandle is the handle the caller's line names (the session's, a device's
// or an item's, as the calling export has it); each returns Pelarix_Success
// or the status of the failure.
#pragma once

#include <cstdint>

#include "pelarix.h"
#include "platform/platform.h"

namespace pelarix {

// IOCTL_HUB_GET_UNIQUE_ITEM_ID into *itemId.
PelarixStatus HubGetUniqueItemId(platform::HubConnection hubHandle, const void *logHandle,
                                 uint32_t *itemId);

// IOCTL_HUB_GET_NEXT_PLUG_NUMBER into *plugNo.
PelarixStatus HubGetNextPlugNumber(platform::HubConnection hubHandle, const void *logHandle,
                                   uint32_t *plugNo);

// IOCTL_HUB_UNPLUG_DEVICE for plugNo.
PelarixStatus HubUnplugDevice(platform::HubConnection hubHandle, const void *logHandle,
                              uint32_t plugNo);

// IOCTL_HUB_GET_ITEM into record, which holds length bytes; *received is the
// number of bytes the hub gave (0 for no item).
PelarixStatus HubGetItem(platform::HubConnection hubHandle, const void *logHandle, void *record,
                         uint32_t length, uint32_t *received);

// IOCTL_HUB_GET_ITEM_BUFFER: the data of the item last delivered, into output
// of length bytes; received, where given, gets the bytes the hub returned.
PelarixStatus HubGetItemBuffer(platform::HubConnection hubHandle, const void *logHandle,
                               void *output, uint32_t length, uint32_t *received = nullptr);

// IOCTL_HUB_COMPLETE_ITEM with a HubCompleteRecord of length bytes. Its
// failure line is at level 3.
PelarixStatus HubCompleteItem(platform::HubConnection hubHandle, const void *logHandle,
                              const void *record, uint32_t length);

// IOCTL_HUB_PLUGIN_DEVICE with a HubPluginRecord of length bytes:
// Pelarix_DeviceExists for a PlugNo the hub already has, otherwise
// Pelarix_HubRequestFailed on failure.
PelarixStatus HubPluginDevice(platform::HubConnection hubHandle, const void *logHandle,
                              const void *record, uint32_t length);

}  // namespace pelarix
