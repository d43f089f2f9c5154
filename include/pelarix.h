/*
 * pelarix: user-mode library of a virtual USB hub (the agent end of a USB
 * redirection path). This is its whole exported interface: plain C functions
 * that return a PelarixStatus and hand results back through pointers. It
 * compiles as C (C11) and as C++; link libpelarix.so (pkg-config pelarix, or
 * the CMake target pelarix::pelarix) or pelarix.dll's import library.
 *
 * A service's life:
 *   Pelarix_InitEx once per process (log sink and level), then
 *   Pelarix_CreateSession (one per hub connection), then per device the
 *   client offers Pelarix_CreateDevice (the filter decides; a refused device
 *   is Pelarix_DeviceBlocked), Pelarix_AddDeviceString for its strings and
 *   Pelarix_PluginDevice. One or more pump threads loop on
 *   Pelarix_GetNextItem, forward each item (Pelarix_GetItemInfo) to the
 *   client and answer it with Pelarix_CompleteItem, then Pelarix_CloseHandle
 *   the item. At the end: Pelarix_UnplugDevice, Pelarix_CancelGetItem once
 *   per pump and wait for each to return, then Pelarix_CloseHandle on the
 *   devices and last on the session. examples/minimal_service.c does all of
 *   it in one file.
 *
 * Log
 *   The sink gets a level and a NUL-terminated message. Levels run from 0
 *   (failures only) upwards, each adding detail: 0 failures, always
 *   delivered; 1 the start-up line and every setting read; 2 lifecycle
 *   (sessions, devices created, plugged, unplugged); 3 per-item traffic and
 *   handle counting. The logLevel given to Pelarix_InitEx is the highest
 *   level delivered. The text is UTF-16 on every platform: wchar_t on
 *   Windows, char16_t (not wchar_t, which is 32 bits there) elsewhere; it
 *   has no line end and is valid only during the call. The example's sink
 *   shows its conversion to UTF-8.
 *
 * Statuses (PelarixStatus, every function but Pelarix_GetVersion)
 *   Pelarix_Success             done.
 *   Pelarix_Pending             the plug-in goes on on a thread of its own;
 *                               its outcome arrives through the device's
 *                               PelarixPluginCallback.
 *   Pelarix_UnsupportedVersion  the init call's version is neither 1 nor 2.
 *   Pelarix_Failure             an event, thread or the string store could
 *                               not be made or used, a string fetch failed,
 *                               or the filter blob changed length.
 *   Pelarix_OutOfMemory         an allocation failed.
 *   Pelarix_InvalidHandle       null, stale, closed, or of the wrong kind
 *                               (a device where a session was due).
 *   Pelarix_InvalidParameter    a null or malformed argument; also an item
 *                               id not found parked.
 *   Pelarix_UnsupportedHubVersion  the hub's major version is below 2.
 *   Pelarix_HubOpenFailed       no hub to open, or it could not be opened
 *                               (on Linux: no socket in $PELARIX_HUB_DIR,
 *                               default /run/pelarix/hub, or no right to it).
 *   Pelarix_HubRequestFailed    a request to the hub failed.
 *   Pelarix_Cancelled           Pelarix_GetNextItem was ended by
 *                               Pelarix_CancelGetItem.
 *   Pelarix_DeviceExists        the hub already has the device.
 *   Pelarix_InvalidState        a second init; a device plugged in twice or
 *                               unplugged while not plugged in; a handle's
 *                               count would wrap.
 *   Pelarix_DeviceBlocked       the device filter refused the device.
 *
 * Threads
 *   Every function may be called from any thread, and sessions, devices and
 *   items may be used from several threads at once, with these rules:
 *   - Pelarix_InitEx (or Pelarix_Init) once, before anything else and
 *     before other threads use the library.
 *   - Pelarix_GetNextItem blocks; several threads may pump one session. End
 *     each pump with one Pelarix_CancelGetItem and wait for its thread to
 *     return before the last Pelarix_CloseHandle of the session: the library
 *     takes no reference on the session for the time of a call.
 *   - Close a device's handle once its items are closed, not while another
 *     thread closes its last item.
 *   - The log sink is called on whatever thread logs, several at once, with
 *     the library's locks held: it must be safe against concurrent calls and
 *     must not call back into the library.
 *   - The item buffer callback may run under the session's item lock: it
 *     must not block for long nor call Pelarix_GetNextItem. The plug-in
 *     callback runs on the caller's thread or on the deferred plug-in
 *     thread, with no lock held.
 */
#ifndef PELARIX_H
#define PELARIX_H

#include <stdint.h>

#if defined(_WIN32)
#include <wchar.h>
#if defined(PELARIX_BUILDING_LIBRARY)
#define PELARIX_API __declspec(dllexport)
#else
#define PELARIX_API __declspec(dllimport)
#endif
#define PELARIX_CALL __stdcall
/* Log text is UTF-16 on every platform. */
typedef wchar_t PelarixChar;
#else
#define PELARIX_API __attribute__((visibility("default")))
#define PELARIX_CALL
#if defined(__cplusplus)
typedef char16_t PelarixChar;
#else
#include <uchar.h>
typedef char16_t PelarixChar;
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef void *PelarixHandle;
typedef uint32_t PelarixStatus;

#define Pelarix_Success 0u
#define Pelarix_Pending 1u
#define Pelarix_UnsupportedVersion 2u
#define Pelarix_Failure 3u
#define Pelarix_OutOfMemory 4u
#define Pelarix_InvalidHandle 5u
#define Pelarix_InvalidParameter 6u
#define Pelarix_UnsupportedHubVersion 7u
#define Pelarix_HubOpenFailed 8u
#define Pelarix_HubRequestFailed 9u
#define Pelarix_Cancelled 10u
#define Pelarix_DeviceExists 11u
#define Pelarix_InvalidState 12u
#define Pelarix_DeviceBlocked 13u

/* The interface version that Pelarix_GetVersion reports. */
#define PELARIX_INTERFACE_VERSION 2u

/* What Pelarix_GetItemInfo fills in. Its layout crosses the library's
 * boundary: 40 bytes with 4-byte packing, so the data pointer at offset 28
 * is not aligned to 8. */
#pragma pack(push, 4)
typedef struct PelarixItemInfo {
  uint32_t type;
  uint32_t itemId;
  uint32_t param0;
  uint32_t param1;
  uint32_t param2;
  uint32_t param3;
  uint32_t dataLength;
  void *data;
  uint8_t noCompletion;
  uint8_t reserved[3];
} PelarixItemInfo;
#pragma pack(pop)

#ifdef __cplusplus
static_assert(sizeof(PelarixItemInfo) == 40, "PelarixItemInfo is 40 bytes");
#else
_Static_assert(sizeof(PelarixItemInfo) == 40, "PelarixItemInfo is 40 bytes");
#endif

/* The log sink: level (0 failures, higher more verbose) and a
 * NUL-terminated UTF-16 message valid only during the call. It may be called
 * on any thread, concurrently (see Threads above). */
typedef void(PELARIX_CALL *PelarixLogCallback)(uint32_t level, const PelarixChar *message);

/* Asks for room in front of (prefix) and behind (suffix) an item's data.
 * plugNo is 0xFFFFFFFF where the item's device is not known yet. */
typedef void(PELARIX_CALL *PelarixItemBufferCallback)(void *context, uint32_t length,
                                                      uint32_t *prefixLength,
                                                      uint32_t *suffixLength, uint32_t plugNo);

/* The outcome of a plug-in, on the caller's thread or the deferred thread. */
typedef void(PELARIX_CALL *PelarixPluginCallback)(PelarixHandle device, uint32_t status,
                                                  void *context);

/* Set-up */
PELARIX_API uint32_t PELARIX_CALL Pelarix_GetVersion(void);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_InitEx(uint32_t version,
                                                      PelarixLogCallback logCallback,
                                                      uint32_t logLevel,
                                                      uint32_t lateItemAllocation);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_Init(uint32_t version,
                                                    PelarixLogCallback logCallback,
                                                    uint32_t logLevel);

/* Sessions and handles */
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CreateSession(PelarixHandle *pelarixHandle);
PELARIX_API PelarixStatus PELARIX_CALL
Pelarix_CreateSessionEx(PelarixHandle *pelarixHandle, PelarixItemBufferCallback itemBufferCallback,
                        void *itemBufferContext);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CloseHandle(PelarixHandle handle);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_DuplicateHandle(PelarixHandle handle);

/* Devices. Descriptors come without a buffer length: deviceDesc must hold
 * the 18 bytes of a USB device descriptor, configDesc a configuration
 * descriptor with all that follows it, at least wTotalLength bytes (read from
 * its bytes 2 and 3; only those are copied), and string a USB string
 * descriptor of bLength bytes (its first byte). */
PELARIX_API PelarixStatus PELARIX_CALL
Pelarix_CreateDevice(PelarixHandle session, uint32_t clientVersion, uint8_t partial,
                     const uint8_t *deviceDesc, const uint8_t *configDesc,
                     PelarixPluginCallback callback, void *context, PelarixHandle *deviceHandle);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CreateDeviceEx(
    PelarixHandle session, uint32_t clientVersion, uint8_t partial, uint32_t plugParam1,
    uint32_t plugParam2, uint32_t plugParam3, const uint8_t *deviceDesc, const uint8_t *configDesc,
    PelarixPluginCallback callback, void *context, PelarixHandle *deviceHandle);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_AddDeviceString(PelarixHandle device, uint8_t index,
                                                               uint16_t language,
                                                               const uint8_t *string);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_PluginDevice(PelarixHandle device);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_UnplugDevice(PelarixHandle device);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetDeviceSessionHandle(PelarixHandle device,
                                                                      PelarixHandle *pelarixHandle);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetDeviceId(PelarixHandle device,
                                                           uint32_t *deviceId);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetDeviceFlags(PelarixHandle device,
                                                              uint32_t *deviceFlags);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_SetDeviceFlags(PelarixHandle device,
                                                              uint32_t deviceFlags);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetDeviceClientVersion(PelarixHandle device,
                                                                      uint32_t *version);

/* The pump */
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetNextItem(PelarixHandle session,
                                                           PelarixHandle *itemHandle);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CancelGetItem(PelarixHandle session);

/* Items */
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_ParkItem(PelarixHandle item);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_UnparkItem(uint32_t itemId, PelarixHandle session,
                                                          PelarixHandle *handle);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetItemDeviceHandle(PelarixHandle item,
                                                                   PelarixHandle *deviceHandle);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetItemId(PelarixHandle item, uint32_t *itemId);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetItemInfo(PelarixHandle item,
                                                           PelarixItemInfo *itemInfo);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetItemRaw(PelarixHandle item,
                                                          uint32_t *prefixLength,
                                                          uint32_t *suffixLength,
                                                          uint32_t *dataLength, void **buffer);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CompleteItem(PelarixHandle item, uint32_t status,
                                                            uint32_t length, const void *data);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_CompleteItemRaw(PelarixHandle item, uint32_t length,
                                                               const void *record);
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetUniqueItemId(PelarixHandle session,
                                                               uint32_t *itemId);

/* The filter */
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_GetFilterBlob(PelarixHandle session,
                                                             uint32_t *bufferLength, void **buffer);

#ifdef __cplusplus
}
#endif

#endif /* PELARIX_H */
