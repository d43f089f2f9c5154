// The version block of the library's own module: the VERSIONINFO resource
// (version.rc) that the build links into the module holding this code, read
// with the system's version functions. The module is found by an address of
// its own rather than by name, so the block is the right one whether the
// code sits in pelarix.dll or is linked into a program.
#include <cstddef>

#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace pelarix::platform {

namespace {

// The file of the module holding this function; false if it cannot be named.
bool OwnModulePath(wchar_t *path, DWORD chars) {
  HMODULE module = nullptr;
  if (!GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          reinterpret_cast<LPCWSTR>(&OwnModulePath), &module)) {
    return false;
  }
  const DWORD length = GetModuleFileNameW(module, path, chars);
  return length > 0 && length < chars;
}

bool IsBinaryValue(const char16_t *subBlock) {
  constexpr char16_t kVarFileInfo[] = u"\\varfileinfo\\";
  for (size_t i = 0; kVarFileInfo[i] != 0; ++i) {
    char16_t unit = subBlock[i];
    if (unit >= u'A' && unit <= u'Z') unit = static_cast<char16_t>(unit + 0x20);
    if (unit != kVarFileInfo[i]) return false;
  }
  return true;
}

}  // namespace

uint32_t GetModuleVersionBlock(void *buffer, uint32_t *size) {
  wchar_t path[MAX_PATH * 4];
  if (!OwnModulePath(path, sizeof path / sizeof path[0])) {
    if (buffer == nullptr) *size = 0;
    return GetLastError();
  }
  const DWORD needed = GetFileVersionInfoSizeW(path, nullptr);
  if (buffer == nullptr) {
    *size = needed;
    return needed != 0 ? kErrorSuccess : GetLastError();
  }
  // The system would cut the block to fit; a cut block is refused here, as
  // the layer promises everywhere.
  if (needed == 0 || *size < needed) return kErrorInsufficientBuffer;
  return GetFileVersionInfoW(path, 0, *size, buffer) ? kErrorSuccess : GetLastError();
}

bool QueryModuleVersionValue(const void *block, const char16_t *subBlock, const void **value,
                             uint32_t *length) {
  *value = nullptr;
  *length = 0;
  if (block == nullptr || subBlock == nullptr) return false;
  void *found = nullptr;
  UINT foundLength = 0;
  const bool ok = VerQueryValueW(block, reinterpret_cast<const wchar_t *>(subBlock), &found,
                                 &foundLength) != FALSE;
  *value = found;
  // The system counts a text value in characters and a binary one (the
  // translations under \VarFileInfo) in bytes; the layer counts both in
  // UTF-16 units, as its block on POSIX does.
  *length = IsBinaryValue(subBlock) ? foundLength / sizeof(char16_t) : foundLength;
  return ok;
}

}  // namespace pelarix::platform
