// The one narrow layer between the library and the operating system. Nothing
// else in the library includes an OS header. Each call maps onto one or two
// Win32 calls on Windows (named beside it); the POSIX implementation gives the
// same observable behaviour, with Windows error codes as results.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pelarix::platform {

// Windows error codes the callers look at, whatever the platform.
inline constexpr uint32_t kErrorSuccess = 0;
inline constexpr uint32_t kErrorFileNotFound = 2;
inline constexpr uint32_t kErrorAccessDenied = 5;
inline constexpr uint32_t kErrorInvalidHandle = 6;
inline constexpr uint32_t kErrorNotEnoughMemory = 8;
inline constexpr uint32_t kErrorSharingViolation = 32;
inline constexpr uint32_t kErrorInsufficientBuffer = 122;
inline constexpr uint32_t kErrorAlreadyExists = 183;
inline constexpr uint32_t kErrorMoreData = 234;
inline constexpr uint32_t kErrorNoMoreItems = 0x103;
inline constexpr uint32_t kErrorIoPending = 997;
inline constexpr uint32_t kErrorDeviceNotConnected = 1167;

// ---------------------------------------------------------------------------
// Recursive locks (InitializeCriticalSection and friends). The storage lives
// inside the zero-filled records that own it, so it is a plain byte block.
struct RecursiveLock {
  alignas(16) unsigned char storage[64];
};
void InitLock(RecursiveLock *lock);
void EnterLock(RecursiveLock *lock);
void LeaveLock(RecursiveLock *lock);
void DeleteLock(RecursiveLock *lock);

// ---------------------------------------------------------------------------
// Events (CreateEventW, SetEvent, ResetEvent, CloseHandle). A manual-reset
// event stays set until reset; an auto-reset event releases exactly one
// waiter per set. Null is "no event".
struct EventObject;
using Event = EventObject *;

// Returns 0 and the new event, or the system's error and null.
uint32_t CreateEvent(bool manualReset, Event *out);
void SetEvent(Event event);
void ResetEvent(Event event);
void CloseEvent(Event event);

inline constexpr uint32_t kInfinite = 0xFFFFFFFFu;
inline constexpr uint32_t kWaitObject0 = 0;
inline constexpr uint32_t kWaitTimeout = 258;
inline constexpr uint32_t kWaitFailed = 0xFFFFFFFFu;

// WaitForSingleObject: kWaitObject0, kWaitTimeout or kWaitFailed.
uint32_t WaitForEvent(Event event, uint32_t timeoutMs);
// WaitForMultipleObjects with waitAll false: kWaitObject0 + the lowest index
// among the signalled events (consuming that one if it is auto-reset),
// kWaitTimeout or kWaitFailed. At most kMaxWaitEvents events.
inline constexpr uint32_t kMaxWaitEvents = 64;
uint32_t WaitForAnyEvent(const Event *events, uint32_t count, uint32_t timeoutMs);

// The value the hub receives for an event in IOCTL_HUB_SET_NOTIFICATION_EVENT:
// the HANDLE on Windows, the eventfd on POSIX.
uint64_t EventHandleValue(Event event);

// ---------------------------------------------------------------------------
// Threads (_beginthreadex with CREATE_SUSPENDED, ResumeThread,
// WaitForSingleObject, CloseHandle). A thread runs only once resumed.
struct ThreadObject;
using Thread = ThreadObject *;
using ThreadRoutine = uint32_t (*)(void *argument);

// Returns 0 and the suspended thread, or the system's error and null.
uint32_t CreateSuspendedThread(ThreadRoutine routine, void *argument, Thread *out);
void ResumeThread(Thread thread);
// kWaitObject0 once the thread has ended, or kWaitTimeout.
uint32_t WaitForThread(Thread thread, uint32_t timeoutMs);
// Releases the handle; a running thread goes on, detached. A thread that was
// never resumed ends without running its routine.
void CloseThread(Thread thread);

void Sleep(uint32_t milliseconds);

// ---------------------------------------------------------------------------
// The hub's device interface (SetupDi*, CreateFileW, DeviceIoControl,
// GetOverlappedResult, CloseHandle).
struct HubDeviceSetObject;
using HubDeviceSet = HubDeviceSetObject *;
struct HubConnectionObject;
using HubConnection = HubConnectionObject *;

// SetupDiGetClassDevsW for the hub's interface class: 0 or the error.
uint32_t HubGetDeviceSet(HubDeviceSet *out);
// SetupDiEnumDeviceInterfaces for member index 0: 0 or the error.
uint32_t HubEnumFirstInterface(HubDeviceSet set);
// SetupDiGetDeviceInterfaceDetailW: the device path of the first interface,
// NUL-terminated UTF-16. With a null path only *requiredChars is set (the
// length with the NUL). Returns 0 or the error.
uint32_t HubGetInterfacePath(HubDeviceSet set, char16_t *path, uint32_t pathChars,
                             uint32_t *requiredChars);
// SetupDiDestroyDeviceInfoList; tolerates null.
void HubDestroyDeviceSet(HubDeviceSet set);

// CreateFileW on the device path, read and write, exclusive, overlapped.
uint32_t HubOpen(const char16_t *path, HubConnection *out);
void HubClose(HubConnection hub);

// One control request. error is 0 or a Windows error code; pending tells that
// DeviceIoControl answered ERROR_IO_PENDING and the error (if any) came from
// GetOverlappedResult. attachEvent is only for IOCTL_HUB_SET_NOTIFICATION_EVENT,
// whose input already holds EventHandleValue(); on POSIX the event's
// descriptor travels with the request.
struct HubControlResult {
  uint32_t error;
  bool pending;
};
HubControlResult HubControl(HubConnection hub, uint32_t code, const void *input,
                            uint32_t inputLength, void *output, uint32_t outputLength,
                            uint32_t *bytesReturned, Event attachEvent);

// ---------------------------------------------------------------------------
// Registry reads under HKEY_LOCAL_MACHINE (RegOpenKeyExA, RegQueryValueExA,
// RegCloseKey). Results are Windows error codes.
struct RegistryKeyObject;
using RegistryKey = RegistryKeyObject *;
inline constexpr uint32_t kRegNone = 0;
inline constexpr uint32_t kRegSz = 1;
inline constexpr uint32_t kRegExpandSz = 2;
inline constexpr uint32_t kRegBinary = 3;
inline constexpr uint32_t kRegDword = 4;
inline constexpr uint32_t kRegMultiSz = 7;

// On POSIX the registry is a file in the registry editor's export format,
// $PELARIX_REGISTRY or else /etc/pelarix/registry.reg, read afresh at each
// open; no file means no key. A key exists if its section (or one below it)
// does. Paths and value names compare without regard to case. Opening sets
// *out to null on failure.
uint32_t RegistryOpenKey(const char *path, uint32_t access, RegistryKey *out);
// With a null data: type and size. With data: type, data and size; fails with
// kErrorMoreData when size is too small, giving the size needed and leaving
// the data alone. type may be null; a null or empty name is the default value.
// Text values (REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ) come back narrow (UTF-8),
// their NULs counted in the size.
uint32_t RegistryQueryValue(RegistryKey key, const char *name, uint32_t *type, uint8_t *data,
                            uint32_t *size);
// Tolerates null.
void RegistryCloseKey(RegistryKey key);

// Told of every RegistryOpenKey with its path, access mask and result. The
// file-backed registry has no use for the masks, so this is where they stay
// visible (to tests and diagnostics). Null removes the observer.
using RegistryOpenObserver = void (*)(void *context, const char *path, uint32_t access,
                                      uint32_t result);
void SetRegistryOpenObserver(RegistryOpenObserver observer, void *context);

// ---------------------------------------------------------------------------
// GetVersionExW: major and minor version of the running system.
void GetSystemVersion(uint32_t *major, uint32_t *minor);

// GetFileVersionInfoW and VerQueryValueW on the library's own module. With a
// null buffer, *size is set to the size of the version block (0 when there is
// none). QueryModuleVersionValue looks a sub-block up in a block fetched before
// and gives a pointer into it and its length in characters.
uint32_t GetModuleVersionBlock(void *buffer, uint32_t *size);
bool QueryModuleVersionValue(const void *block, const char16_t *subBlock, const void **value,
                             uint32_t *length);

// MultiByteToWideChar with the system's ANSI code page (UTF-8 on POSIX).
// Converts inputLength bytes (-1: up to and with the NUL) into at most
// outputChars characters; returns the number written, 0 on failure.
int32_t AnsiToUtf16(const char *input, int32_t inputLength, char16_t *output, int32_t outputChars);

}  // namespace pelarix::platform
