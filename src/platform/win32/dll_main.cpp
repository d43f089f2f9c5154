// The load entry of pelarix.dll. The library keeps no per-thread state, so
// the thread attach and detach calls are switched off at process attach.
#include "platform/win32/windows_api.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(instance);
  return TRUE;
}
