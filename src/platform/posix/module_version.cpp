// The module's version information on POSIX.
//
// A shared object has no version resource, so the library carries its own
// version block, compiled in: the translation 0409/04b0 (U.S. English,
// Unicode) and under it "FileDescription" and "FileVersion", the latter being
// the CMake project version (PELARIX_FILE_VERSION). The block is laid out
// like this, all in UTF-16 units: for each value its key length and value
// length (with their NULs where they have one), the key, the value; a pair
// of zero lengths ends it. Lookups compare keys without regard to ASCII case,
// as VerQueryValueW does.
#include <cstdint>
#include <cstring>

#include "platform/platform.h"

#ifndef PELARIX_FILE_VERSION
#error "PELARIX_FILE_VERSION must name the project version"
#endif

namespace pelarix::platform {
namespace {

struct VersionValue {
  const char16_t *key;
  const char16_t *value;
  uint16_t valueChars;
};

constexpr char16_t kTranslation[] = {0x0409, 0x04B0};
constexpr char16_t kFileVersion[] = u"" PELARIX_FILE_VERSION;
constexpr char16_t kFileDescription[] = u"Tessarin Orlan Virtual USB Hub API";

constexpr VersionValue kValues[] = {
    {u"\\VarFileInfo\\Translation", kTranslation, 2},
    {u"\\StringFileInfo\\040904b0\\FileVersion", kFileVersion,
     sizeof(kFileVersion) / sizeof(char16_t)},
    {u"\\StringFileInfo\\040904b0\\FileDescription", kFileDescription,
     sizeof(kFileDescription) / sizeof(char16_t)},
};

uint16_t KeyChars(const char16_t *key) {
  uint16_t length = 0;
  while (key[length] != 0) {
    ++length;
  }
  return static_cast<uint16_t>(length + 1);
}

uint32_t BlockChars() {
  uint32_t chars = 2;  // the closing pair of lengths
  for (const VersionValue &entry : kValues) {
    chars += 2 + KeyChars(entry.key) + entry.valueChars;
  }
  return chars;
}

char16_t AsciiLower(char16_t unit) {
  return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 0x20) : unit;
}

bool SameKey(const char16_t *left, const char16_t *right) {
  for (;; ++left, ++right) {
    if (AsciiLower(*left) != AsciiLower(*right)) {
      return false;
    }
    if (*left == 0) {
      return true;
    }
  }
}

}  // namespace

uint32_t GetModuleVersionBlock(void *buffer, uint32_t *size) {
  const uint32_t bytes = BlockChars() * sizeof(char16_t);
  if (buffer == nullptr) {
    *size = bytes;
    return kErrorSuccess;
  }
  if (*size < bytes) {
    return kErrorInsufficientBuffer;
  }
  auto *out = static_cast<char16_t *>(buffer);
  for (const VersionValue &entry : kValues) {
    const uint16_t keyChars = KeyChars(entry.key);
    *out++ = keyChars;
    *out++ = entry.valueChars;
    std::memcpy(out, entry.key, keyChars * sizeof(char16_t));
    out += keyChars;
    std::memcpy(out, entry.value, entry.valueChars * sizeof(char16_t));
    out += entry.valueChars;
  }
  out[0] = 0;
  out[1] = 0;
  return kErrorSuccess;
}

bool QueryModuleVersionValue(const void *block, const char16_t *subBlock, const void **value,
                             uint32_t *length) {
  *value = nullptr;
  *length = 0;
  if (block == nullptr || subBlock == nullptr) {
    return false;
  }
  const auto *cursor = static_cast<const char16_t *>(block);
  while (cursor[0] != 0) {
    const uint16_t keyChars = cursor[0];
    const uint16_t valueChars = cursor[1];
    const char16_t *key = cursor + 2;
    if (SameKey(key, subBlock)) {
      *value = key + keyChars;
      *length = valueChars;
      return true;
    }
    cursor = key + keyChars + valueChars;
  }
  return false;
}

}  // namespace pelarix::platform
