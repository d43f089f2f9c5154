// The nine control requests of the hub's device interface. Codes follow the
// system's CTL_CODE rule, device type FILE_DEVICE_BUS_EXTENDER, read access.
#pragma once

#include <cstdint>

namespace pelarix {

inline constexpr uint32_t kFileDeviceBusExtender = 0x2A;
inline constexpr uint32_t kFileReadAccess = 1;
inline constexpr uint32_t kMethodInDirect = 1;
inline constexpr uint32_t kMethodOutDirect = 2;

constexpr uint32_t HubControlCode(uint32_t function, uint32_t method) {
  return kFileDeviceBusExtender << 16 | kFileReadAccess << 14 | function << 2 | method;
}

inline constexpr uint32_t IOCTL_HUB_GET_VERSION = HubControlCode(0x801, kMethodOutDirect);
inline constexpr uint32_t IOCTL_HUB_SET_NOTIFICATION_EVENT = HubControlCode(0x802, kMethodInDirect);
inline constexpr uint32_t IOCTL_HUB_GET_UNIQUE_ITEM_ID = HubControlCode(0x803, kMethodInDirect);
inline constexpr uint32_t IOCTL_HUB_GET_NEXT_PLUG_NUMBER = HubControlCode(0x804, kMethodInDirect);
// Function 0x805 is not used.
inline constexpr uint32_t IOCTL_HUB_UNPLUG_DEVICE = HubControlCode(0x806, kMethodInDirect);
inline constexpr uint32_t IOCTL_HUB_GET_ITEM = HubControlCode(0x807, kMethodInDirect);
inline constexpr uint32_t IOCTL_HUB_GET_ITEM_BUFFER = HubControlCode(0x808, kMethodInDirect);
inline constexpr uint32_t IOCTL_HUB_COMPLETE_ITEM = HubControlCode(0x809, kMethodInDirect);
inline constexpr uint32_t IOCTL_HUB_PLUGIN_DEVICE = HubControlCode(0x80A, kMethodInDirect);

static_assert(IOCTL_HUB_GET_VERSION == 0x2A6006);
static_assert(IOCTL_HUB_SET_NOTIFICATION_EVENT == 0x2A6009);
static_assert(IOCTL_HUB_GET_UNIQUE_ITEM_ID == 0x2A600D);
static_assert(IOCTL_HUB_GET_NEXT_PLUG_NUMBER == 0x2A6011);
static_assert(IOCTL_HUB_UNPLUG_DEVICE == 0x2A6019);
static_assert(IOCTL_HUB_GET_ITEM == 0x2A601D);
static_assert(IOCTL_HUB_GET_ITEM_BUFFER == 0x2A6021);
static_assert(IOCTL_HUB_COMPLETE_ITEM == 0x2A6025);
static_assert(IOCTL_HUB_PLUGIN_DEVICE == 0x2A6029);

// Errors the hub reports after a pending request, beyond the system's own.
inline constexpr uint32_t kHubErrorNotificationEventNotSet = 0xE0000001;
inline constexpr uint32_t kHubErrorDeviceDescriptorCheck = 0xE0000002;
inline constexpr uint32_t kHubErrorConfigDescriptorCheck = 0xE0000003;

}  // namespace pelarix
