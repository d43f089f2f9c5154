// The hub's device interface on Windows: the SetupAPI enumeration of the
// hub's interface class, CreateFileW on the first interface's path, and each
// control request as an overlapped DeviceIoControl with an event of its own,
// so that concurrent requests on one handle never see each other's answers.
// An in-process hub device, when one is put in place, stands in for all of
// it (in_process_hub.h).
#include "platform/win32/windows_api.h"
// SetupAPI needs the base types of <windows.h> first.
#include <setupapi.h>

#include <cstddef>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include "platform/platform.h"
#include "platform/win32/in_process_hub.h"

namespace pelarix::platform {

struct HubDeviceSetObject {
  HDEVINFO info = INVALID_HANDLE_VALUE;  // the system's set, or none for in-process hubs
  SP_DEVICE_INTERFACE_DATA interface {};
  bool enumerated = false;
  bool inProcess = false;
  std::u16string inProcessPath;  // of the first in-process hub, if there is one
};

struct HubConnectionObject {
  HANDLE file = INVALID_HANDLE_VALUE;
  InProcessHubDevice *inProcess = nullptr;
};

namespace {

constexpr uint32_t kErrorInvalidParameter = 87;

// The hub's device interface class {C4FF233F-3CE7-487D-9D29-C25ED8BC6085}.
constexpr GUID kHubInterfaceClass = {
    0xC4FF233F, 0x3CE7, 0x487D, {0x9D, 0x29, 0xC2, 0x5E, 0xD8, 0xBC, 0x60, 0x85}};

// The in-process hubs by device path; the map's order is the enumeration's.
struct InProcessHubs {
  std::mutex lock;
  std::map<std::u16string, InProcessHubDevice *> byPath;
};

InProcessHubs &InProcess() {
  static InProcessHubs hubs;
  return hubs;
}

bool IsInProcessPath(const char16_t *path) {
  const std::u16string_view prefix(kInProcessHubPathPrefix);
  return std::u16string_view(path).substr(0, prefix.size()) == prefix;
}

// The in-process hub of a device path, or null.
InProcessHubDevice *FindInProcessHub(const char16_t *path) {
  std::lock_guard<std::mutex> lock(InProcess().lock);
  auto found = InProcess().byPath.find(path);
  return found != InProcess().byPath.end() ? found->second : nullptr;
}

// Copies a NUL-terminated path of chars characters (with the NUL) out.
uint32_t GivePath(const char16_t *source, uint32_t chars, char16_t *path, uint32_t pathChars,
                  uint32_t *requiredChars) {
  *requiredChars = chars;
  if (path == nullptr || pathChars < chars) return kErrorInsufficientBuffer;
  std::memcpy(path, source, chars * sizeof(char16_t));
  return kErrorSuccess;
}

uint32_t SystemInterfacePath(HubDeviceSet set, char16_t *path, uint32_t pathChars,
                             uint32_t *requiredChars) {
  DWORD requiredBytes = 0;
  SetupDiGetDeviceInterfaceDetailW(set->info, &set->interface, nullptr, 0, &requiredBytes, nullptr);
  constexpr DWORD kPathOffset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath);
  if (requiredBytes <= kPathOffset) return GetLastError();
  *requiredChars = static_cast<uint32_t>((requiredBytes - kPathOffset) / sizeof(WCHAR));
  if (path == nullptr || pathChars < *requiredChars) return kErrorInsufficientBuffer;
  auto *detail =
      static_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W *>(::operator new(requiredBytes, std::nothrow));
  if (detail == nullptr) return kErrorNotEnoughMemory;
  detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
  uint32_t error = kErrorSuccess;
  if (SetupDiGetDeviceInterfaceDetailW(set->info, &set->interface, detail, requiredBytes, nullptr,
                                       nullptr)) {
    std::memcpy(path, detail->DevicePath, *requiredChars * sizeof(char16_t));
    path[*requiredChars - 1] = 0;
  } else {
    error = GetLastError();
  }
  ::operator delete(detail);
  return error;
}

HubControlResult SystemControl(HANDLE file, uint32_t code, const void *input, uint32_t inputLength,
                               void *output, uint32_t outputLength, uint32_t *bytesReturned) {
  OVERLAPPED overlapped{};
  overlapped.hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  if (overlapped.hEvent == nullptr) return {GetLastError(), false};
  HubControlResult result{kErrorSuccess, false};
  DWORD bytes = 0;
  if (!DeviceIoControl(file, code, const_cast<void *>(input), inputLength, output, outputLength,
                       &bytes, &overlapped)) {
    result.error = GetLastError();
    if (result.error == kErrorIoPending) {
      result.pending = true;
      result.error =
          GetOverlappedResult(file, &overlapped, &bytes, TRUE) ? kErrorSuccess : GetLastError();
    }
  }
  *bytesReturned = bytes;
  CloseHandle(overlapped.hEvent);
  return result;
}

}  // namespace

void AddInProcessHubDevice(const char16_t *name, InProcessHubDevice *device) {
  std::lock_guard<std::mutex> lock(InProcess().lock);
  InProcess().byPath[std::u16string(kInProcessHubPathPrefix) + name] = device;
}

void RemoveInProcessHubDevice(InProcessHubDevice *device) {
  std::lock_guard<std::mutex> lock(InProcess().lock);
  std::erase_if(InProcess().byPath, [device](const auto &entry) { return entry.second == device; });
}

uint32_t HubGetDeviceSet(HubDeviceSet *out) {
  *out = nullptr;
  auto *set = new (std::nothrow) HubDeviceSetObject;
  if (set == nullptr) return kErrorNotEnoughMemory;
  {
    std::lock_guard<std::mutex> lock(InProcess().lock);
    set->inProcess = !InProcess().byPath.empty();
    if (set->inProcess) set->inProcessPath = InProcess().byPath.begin()->first;
  }
  if (!set->inProcess) {
    set->info = SetupDiGetClassDevsW(&kHubInterfaceClass, nullptr, nullptr,
                                     DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
    if (set->info == INVALID_HANDLE_VALUE) {
      const uint32_t error = GetLastError();
      delete set;
      return error;
    }
  }
  *out = set;
  return kErrorSuccess;
}

uint32_t HubEnumFirstInterface(HubDeviceSet set) {
  if (set == nullptr) return kErrorInvalidHandle;
  if (!set->inProcess) {
    set->interface.cbSize = sizeof set->interface;
    if (!SetupDiEnumDeviceInterfaces(set->info, nullptr, &kHubInterfaceClass, 0, &set->interface)) {
      return GetLastError();
    }
  }
  set->enumerated = true;
  return kErrorSuccess;
}

uint32_t HubGetInterfacePath(HubDeviceSet set, char16_t *path, uint32_t pathChars,
                             uint32_t *requiredChars) {
  *requiredChars = 0;
  if (set == nullptr) return kErrorNoMoreItems;
  // The path is the first interface's, whether or not it was enumerated
  // before.
  if (!set->enumerated) {
    const uint32_t error = HubEnumFirstInterface(set);
    if (error != kErrorSuccess) return error;
  }
  if (set->inProcess) {
    return GivePath(set->inProcessPath.c_str(),
                    static_cast<uint32_t>(set->inProcessPath.size() + 1), path, pathChars,
                    requiredChars);
  }
  return SystemInterfacePath(set, path, pathChars, requiredChars);
}

void HubDestroyDeviceSet(HubDeviceSet set) {
  if (set == nullptr) return;
  if (set->info != INVALID_HANDLE_VALUE) SetupDiDestroyDeviceInfoList(set->info);
  delete set;
}

uint32_t HubOpen(const char16_t *path, HubConnection *out) {
  *out = nullptr;
  auto *hub = new (std::nothrow) HubConnectionObject;
  if (hub == nullptr) return kErrorNotEnoughMemory;
  uint32_t error = kErrorSuccess;
  if (InProcessHubDevice *device = FindInProcessHub(path)) {
    error = device->Open();
    hub->inProcess = device;
  } else if (IsInProcessPath(path)) {
    error = kErrorFileNotFound;  // a hub taken away since it was enumerated
  } else {
    hub->file = CreateFileW(reinterpret_cast<const wchar_t *>(path), GENERIC_READ | GENERIC_WRITE,
                            0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    if (hub->file == INVALID_HANDLE_VALUE) error = GetLastError();
  }
  if (error != kErrorSuccess) {
    delete hub;
    return error;
  }
  *out = hub;
  return kErrorSuccess;
}

void HubClose(HubConnection hub) {
  if (hub == nullptr) return;
  if (hub->inProcess != nullptr) {
    hub->inProcess->Close();
  } else {
    CloseHandle(hub->file);
  }
  delete hub;
}

HubControlResult HubControl(HubConnection hub, uint32_t code, const void *input,
                            uint32_t inputLength, void *output, uint32_t outputLength,
                            uint32_t *bytesReturned, Event /*attachEvent*/) {
  // The event's handle already travels in the input: a driver in the kernel,
  // and an in-process hub alike, reach it by that value.
  *bytesReturned = 0;
  const bool buffersMissing =
      (input == nullptr && inputLength != 0) || (output == nullptr && outputLength != 0);
  if (hub == nullptr || buffersMissing) return {kErrorInvalidParameter, false};
  if (hub->inProcess != nullptr) {
    return hub->inProcess->Control(code, input, inputLength, output, outputLength, bytesReturned);
  }
  return SystemControl(hub->file, code, input, inputLength, output, outputLength, bytesReturned);
}

}  // namespace pelarix::platform
