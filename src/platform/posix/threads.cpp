// Threads that start suspended, as _beginthreadex with CREATE_SUSPENDED: the
// new thread waits on its gate until ResumeThread opens it. The thread and
// the handle share the record; whichever lets go last frees it, so closing the
// handle of a running thread detaches it safely.
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>

#include "platform/platform.h"
#include "platform/posix/system_error.h"

namespace pelarix::platform {

struct ThreadObject {
  ThreadObject(ThreadRoutine start, void *context) : routine(start), argument(context) {}

  ThreadRoutine routine;
  void *argument;
  pthread_t id{};
  std::mutex mutex;
  std::condition_variable changed;
  bool resumed = false;
  bool abandoned = false;  // closed before it was resumed: never runs
  bool finished = false;
  std::atomic<int> owners{2};
};

namespace {

void LetGo(ThreadObject *thread) {
  if (thread->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete thread;
  }
}

void *ThreadMain(void *context) {
  auto *thread = static_cast<ThreadObject *>(context);
  bool run = false;
  {
    std::unique_lock<std::mutex> lock(thread->mutex);
    thread->changed.wait(lock, [thread] { return thread->resumed || thread->abandoned; });
    run = thread->resumed;
  }
  if (run) {
    thread->routine(thread->argument);
  }
  {
    std::lock_guard<std::mutex> lock(thread->mutex);
    thread->finished = true;
  }
  thread->changed.notify_all();
  LetGo(thread);
  return nullptr;
}

}  // namespace

uint32_t CreateSuspendedThread(ThreadRoutine routine, void *argument, Thread *out) {
  *out = nullptr;
  auto *thread = new (std::nothrow) ThreadObject{routine, argument};
  if (thread == nullptr) {
    return kErrorNotEnoughMemory;
  }
  int error = pthread_create(&thread->id, nullptr, ThreadMain, thread);
  if (error != 0) {
    delete thread;
    return WindowsErrorFromErrno(error);
  }
  *out = thread;
  return kErrorSuccess;
}

void ResumeThread(Thread thread) {
  if (thread == nullptr) {
    return;
  }
  {
    std::lock_guard<std::mutex> lock(thread->mutex);
    thread->resumed = true;
  }
  thread->changed.notify_all();
}

uint32_t WaitForThread(Thread thread, uint32_t timeoutMs) {
  if (thread == nullptr) {
    return kWaitFailed;
  }
  std::unique_lock<std::mutex> lock(thread->mutex);
  auto ended = [thread] { return thread->finished; };
  if (timeoutMs == kInfinite) {
    thread->changed.wait(lock, ended);
    return kWaitObject0;
  }
  bool done = thread->changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), ended);
  return done ? kWaitObject0 : kWaitTimeout;
}

void CloseThread(Thread thread) {
  if (thread == nullptr) {
    return;
  }
  bool finished = false;
  {
    std::lock_guard<std::mutex> lock(thread->mutex);
    // A thread that was never resumed would wait for ever: let it end unrun.
    if (!thread->resumed) {
      thread->abandoned = true;
    }
    finished = thread->finished;
  }
  thread->changed.notify_all();
  if (finished) {
    pthread_join(thread->id, nullptr);
  } else {
    pthread_detach(thread->id);
  }
  LetGo(thread);
}

void Sleep(uint32_t milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

}  // namespace pelarix::platform
