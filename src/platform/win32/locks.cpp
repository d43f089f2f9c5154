// Recursive locks on Windows: a critical section placed in the byte block
// that the owning record carries, so a zero-filled record needs no allocation
// for its locks. Critical sections are recursive by nature.
#include <new>

#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace pelarix::platform {

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(RecursiveLock::storage));
static_assert(alignof(CRITICAL_SECTION) <= alignof(RecursiveLock));

namespace {
CRITICAL_SECTION *SectionOf(RecursiveLock *lock) {
  return std::launder(reinterpret_cast<CRITICAL_SECTION *>(lock->storage));
}
}  // namespace

void InitLock(RecursiveLock *lock) {
  InitializeCriticalSection(new (lock->storage) CRITICAL_SECTION);
}

void EnterLock(RecursiveLock *lock) {
  EnterCriticalSection(SectionOf(lock));
}

void LeaveLock(RecursiveLock *lock) {
  LeaveCriticalSection(SectionOf(lock));
}

void DeleteLock(RecursiveLock *lock) {
  DeleteCriticalSection(SectionOf(lock));
}

}  // namespace pelarix::platform
