// Threads on Windows: the runtime's _beginthreadex with CREATE_SUSPENDED, so
// the runtime's per-thread state is set up for the routine. The thread runs a
// small trampoline that knows whether it was resumed or abandoned: a thread
// whose handle is closed before it ever ran is resumed only to end at once,
// rather than stay suspended for the life of the process.
#include <process.h>

#include <atomic>
#include <new>

#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace pelarix::platform {

struct ThreadObject {
  ThreadObject(ThreadRoutine start, void *context) : routine(start), argument(context) {}

  ThreadRoutine routine;
  void *argument;
  HANDLE handle = nullptr;
  std::atomic<bool> resumed{false};
  std::atomic<bool> abandoned{false};
  std::atomic<int> owners{2};  // the handle's side and the thread's side
};

namespace {

void LetGo(ThreadObject *thread) {
  if (thread->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) delete thread;
}

unsigned __stdcall ThreadMain(void *context) {
  auto *thread = static_cast<ThreadObject *>(context);
  if (!thread->abandoned.load(std::memory_order_acquire)) thread->routine(thread->argument);
  LetGo(thread);
  return 0;
}

}  // namespace

uint32_t CreateSuspendedThread(ThreadRoutine routine, void *argument, Thread *out) {
  *out = nullptr;
  auto *thread = new (std::nothrow) ThreadObject{routine, argument};
  if (thread == nullptr) return kErrorNotEnoughMemory;
  uintptr_t handle = _beginthreadex(nullptr, 0, ThreadMain, thread, CREATE_SUSPENDED, nullptr);
  if (handle == 0) {
    // _beginthreadex leaves the system's reason in errno's companion, the
    // last error; the record never reached a thread.
    const uint32_t error = GetLastError();
    delete thread;
    return error != kErrorSuccess ? error : kErrorNotEnoughMemory;
  }
  thread->handle = reinterpret_cast<HANDLE>(handle);
  *out = thread;
  return kErrorSuccess;
}

void ResumeThread(Thread thread) {
  if (thread == nullptr || thread->resumed.exchange(true)) return;
  ::ResumeThread(thread->handle);
}

uint32_t WaitForThread(Thread thread, uint32_t timeoutMs) {
  if (thread == nullptr) return kWaitFailed;
  return WaitForSingleObject(thread->handle, timeoutMs);
}

void CloseThread(Thread thread) {
  if (thread == nullptr) return;
  HANDLE handle = thread->handle;
  if (!thread->resumed.exchange(true)) {
    thread->abandoned.store(true, std::memory_order_release);
    ::ResumeThread(handle);
  }
  LetGo(thread);
  CloseHandle(handle);
}

void Sleep(uint32_t milliseconds) {
  ::Sleep(milliseconds);
}

}  // namespace pelarix::platform
