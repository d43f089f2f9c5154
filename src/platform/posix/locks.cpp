// Recursive locks on POSIX: a recursive pthread mutex placed in the byte block
// that the owning record carries, so a zero-filled record needs no allocation
// for its locks.
#include <pthread.h>

#include <new>

#include "platform/platform.h"

namespace pelarix::platform {

static_assert(sizeof(pthread_mutex_t) <= sizeof(RecursiveLock::storage));
static_assert(alignof(pthread_mutex_t) <= alignof(RecursiveLock));

namespace {
pthread_mutex_t *MutexOf(RecursiveLock *lock) {
  return std::launder(reinterpret_cast<pthread_mutex_t *>(lock->storage));
}
}  // namespace

void InitLock(RecursiveLock *lock) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  auto *mutex = new (lock->storage) pthread_mutex_t;
  pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

void EnterLock(RecursiveLock *lock) {
  pthread_mutex_lock(MutexOf(lock));
}

void LeaveLock(RecursiveLock *lock) {
  pthread_mutex_unlock(MutexOf(lock));
}

void DeleteLock(RecursiveLock *lock) {
  pthread_mutex_destroy(MutexOf(lock));
}

}  // namespace pelarix::platform
