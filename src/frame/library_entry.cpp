// The set-up exports and the library-wide state.
#include "frame/library_state.h"
#include "frame/startup_line.h"
#include "pelarix.h"

namespace pelarix {

LibraryState gLibrary;

}  // namespace pelarix

using pelarix::gLibrary;

extern "C" {

PELARIX_API uint32_t PELARIX_CALL Pelarix_GetVersion(void) {
  return PELARIX_INTERFACE_VERSION;
}

// There is no matching shutdown export, so a process initialises the library
// once; every later attempt is a state error and changes nothing.
PELARIX_API PelarixStatus PELARIX_CALL Pelarix_InitEx(uint32_t version,
                                                      PelarixLogCallback logCallback,
                                                      uint32_t logLevel,
                                                      uint32_t lateItemAllocation) {
  if (version != 1 && version != 2) {
    return Pelarix_UnsupportedVersion;
  }
  if (gLibrary.initCount.fetch_add(1) + 1 > 1) {
    gLibrary.initCount.fetch_sub(1);
    return Pelarix_InvalidState;
  }
  gLibrary.logCallback = logCallback;
  gLibrary.logLevel = static_cast<int32_t>(logLevel);
  gLibrary.lateItemAllocation = lateItemAllocation;
  if (logCallback != nullptr) {
    pelarix::WriteStartupLine();
  }
  return Pelarix_Success;
}

PELARIX_API PelarixStatus PELARIX_CALL Pelarix_Init(uint32_t version,
                                                    PelarixLogCallback logCallback,
                                                    uint32_t logLevel) {
  return Pelarix_InitEx(version, logCallback, logLevel, 0);
}

}  // extern "C"
