// Events on Windows are the system's own event objects: an Event is the
// HANDLE itself, so the value the hub receives is the handle it can signal.
#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace pelarix::platform {

namespace {

HANDLE HandleOf(Event event) {
  return reinterpret_cast<HANDLE>(event);
}

}  // namespace

uint32_t CreateEvent(bool manualReset, Event *out) {
  *out = nullptr;
  HANDLE handle = CreateEventW(nullptr, manualReset ? TRUE : FALSE, FALSE, nullptr);
  if (handle == nullptr) return GetLastError();
  *out = reinterpret_cast<Event>(handle);
  return kErrorSuccess;
}

void SetEvent(Event event) {
  if (event != nullptr) ::SetEvent(HandleOf(event));
}

void ResetEvent(Event event) {
  if (event != nullptr) ::ResetEvent(HandleOf(event));
}

void CloseEvent(Event event) {
  if (event != nullptr) CloseHandle(HandleOf(event));
}

uint32_t WaitForEvent(Event event, uint32_t timeoutMs) {
  if (event == nullptr) return kWaitFailed;
  return WaitForSingleObject(HandleOf(event), timeoutMs);
}

uint32_t WaitForAnyEvent(const Event *events, uint32_t count, uint32_t timeoutMs) {
  if (count == 0 || count > kMaxWaitEvents) return kWaitFailed;
  HANDLE handles[kMaxWaitEvents];
  for (uint32_t i = 0; i < count; ++i) {
    if (events[i] == nullptr) return kWaitFailed;
    handles[i] = HandleOf(events[i]);
  }
  // With waitAll false the system reports the lowest signalled index and
  // consumes only that event, which is the contract here.
  return WaitForMultipleObjects(count, handles, FALSE, timeoutMs);
}

uint64_t EventHandleValue(Event event) {
  return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(event));
}

}  // namespace pelarix::platform
