/*
 * pelarix: user-mode library of a virtual USB hub (the agent end of a USB
 * redirection path). This is its whole exported interface: plain C functions
 * that return a PelarixStatus and hand results back through pointers.
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

/* The log sink: level and a NUL-terminated UTF-16 message valid only during
 * the call. It may be called on any thread, concurrently. */
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
