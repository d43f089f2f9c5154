#include "frame/startup_line.h"

#include <cstdarg>
#include <cstdint>
#include <new>

#include "frame/log.h"
#include "frame/log_formatter.h"
#include "platform/platform.h"

namespace pelarix {
namespace {

constexpr int kSubBlockChars = 512;

// A query goes on when it succeeds or fails with nothing to say (length 0);
// it stops the lookup when it fails with a length.
bool QueryGoesOn(bool found, uint32_t length) {
  return found || length == 0;
}

// Formats a sub-block name through the log formatter, so that its %4.4x
// reads as everywhere else.
void FormatSubBlock(char16_t *name, const char16_t *format, ...) {
  va_list args;
  va_start(args, format);
  FormatLogText(name, kSubBlockChars, format, args);
  va_end(args);
}

}  // namespace

void WriteStartupLineFromBlock(const void *block) {
  const void *description = nullptr;
  const void *version = nullptr;
  const void *translation = nullptr;
  uint32_t length = 0;
  char16_t name[kSubBlockChars];
  bool goOn = block != nullptr;
  if (goOn) {
    goOn = QueryGoesOn(platform::QueryModuleVersionValue(block, u"\\VarFileInfo\\Translation",
                                                         &translation, &length),
                       length);
  }
  // Without a translation there is no sub-block to name (the words are its
  // language and code page), so the lookup ends there too.
  if (goOn && translation != nullptr && length >= 2) {
    const auto *words = static_cast<const uint16_t *>(translation);
    FormatSubBlock(name, u"\\StringFileInfo\\%4.4x%4.4x\\FileVersion", words[0], words[1]);
    goOn = QueryGoesOn(platform::QueryModuleVersionValue(block, name, &version, &length), length);
    if (goOn) {
      FormatSubBlock(name, u"\\StringFileInfo\\%4.4x%4.4x\\FileDescription", words[0], words[1]);
      platform::QueryModuleVersionValue(block, name, &description, &length);
    }
  }
  LogMessage(kLogSettings, u"%s initialized, version: %s, release: %s",
             description != nullptr ? static_cast<const char16_t *>(description)
                                    : u"Tessarin Orlan Virtual USB Hub API",
             version != nullptr ? static_cast<const char16_t *>(version) : u"unknown", u"unknown");
}

void WriteStartupLine() {
  uint32_t size = 0;
  platform::GetModuleVersionBlock(nullptr, &size);
  unsigned char *block = size == 0 ? nullptr : new (std::nothrow) unsigned char[size];
  if (block != nullptr && platform::GetModuleVersionBlock(block, &size) != 0) {
    delete[] block;
    block = nullptr;
  }
  WriteStartupLineFromBlock(block);
  delete[] block;
}

}  // namespace pelarix
