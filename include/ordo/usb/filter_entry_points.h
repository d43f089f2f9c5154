// The flat functions through which a program (the hub library's exported
// functions) uses an agent's filter manager: create it, feed it filter
// strings, ask it about a device, hand its list on as a blob. Each tolerates
// a null manager, which answers as "no filter could be made": no device is
// allowed and no blob exists. No exception leaves these functions.
#pragma once

#include <cstdint>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/dev_family.h"
#include "ordo/usb/log_hook.h"

// The handle type of the flat functions; the manager class stands behind it.
struct HDevFilterMgrAgent;

namespace ordo::usb {

// A new manager with an empty list, or null if it cannot be allocated.
HDevFilterMgrAgent *CreateFilterManager();

// SetFilterLogHook: the filter log of the whole process, not of this manager,
// which is not used and may be null. The last caller wins.
void SetFilterManagerLog(HDevFilterMgrAgent *manager, LogHook hook, uint32_t threshold);

// Feeds one filter string through the agent's gate. text is NUL-terminated;
// length is not looked at. A null text is ignored.
void AddFilterString(HDevFilterMgrAgent *manager, const char *text, uint32_t length);
void ClearFilterStrings(HDevFilterMgrAgent *manager);

// Whether the device may be forwarded, from its 18-byte device descriptor and
// its configuration descriptor with all that follows it (configDesc may be
// null). False for a null manager.
bool IsDeviceAllowedByFilter(HDevFilterMgrAgent *manager, const uint8_t *deviceDesc,
                             const uint8_t *configDesc);

// The same answer, and in *family a new DevFamily of the interfaces left
// allowed, which the caller gives back to FreeDeviceFamilyInfo. A null
// manager answers false and leaves *family alone.
bool GetDeviceFamilyInfo(HDevFilterMgrAgent *manager, const uint8_t *deviceDesc,
                         const uint8_t *configDesc, DevFamily **family);
void FreeDeviceFamilyInfo(DevFamily *family);

inline constexpr uint32_t kAudioOut = 0;
inline constexpr uint32_t kAudioIn = 1;
// An audio family with the sub-family of the direction (kAudioOut, kAudioIn);
// false for a null family and any other direction.
bool IsAudioFamily(const DevFamily *family, uint32_t direction);

// The list's binary form: its length, and with a buffer of that length the
// bytes. 0 for a list without values and for a null manager.
uint32_t GetFilterManagerBlob(HDevFilterMgrAgent *manager, uint8_t *buffer);
// Appends a blob that GetFilterManagerBlob wrote. The blob carries no length
// and is trusted to be whole; true unless the manager is null.
bool ReadFilterManagerBlob(HDevFilterMgrAgent *manager, const uint8_t *blob);
// The same for a blob that came from elsewhere: never reads past blob +
// length. False for a null manager or a blob that ran out, whose records
// read whole before the end are kept.
bool ReadFilterManagerBlob(HDevFilterMgrAgent *manager, const uint8_t *blob, uint32_t length);

// Destroys the manager (and with it the process-wide filter dictionary,
// which the next use rebuilds). Tolerates null.
void DestroyFilterManager(HDevFilterMgrAgent *manager);

}  // namespace ordo::usb
