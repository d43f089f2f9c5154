// The registry on POSIX: one file in the registry editor's export format, so
// the file an administrator imports on Windows configures a Linux agent too.
// The file is read at every open and never cached, so a key opened at session
// or device creation sees the file as it is then.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <optional>
#include <string>
#include <system_error>

#include "platform/platform.h"
#include "platform/posix/registry_file_parser.h"
#include "platform/posix/system_error.h"

namespace pelarix::platform {

struct RegistryKeyObject {
  RegistryFileKey values;
};

namespace {

constexpr const char *kDefaultRegistryFile = "/etc/pelarix/registry.reg";

// A registry export of a whole machine is tens of megabytes; the library
// reads a handful of values. A larger file is refused before it is read, so
// a wrong path cannot make every session creation swallow a huge file.
constexpr std::uintmax_t kMaxRegistryFileBytes = 64u << 20;

std::atomic<RegistryOpenObserver> observerHook{nullptr};
std::atomic<void *> observerContext{nullptr};

const char *RegistryFilePath() {
  const char *path = std::getenv("PELARIX_REGISTRY");
  return (path != nullptr && *path != '\0') ? path : kDefaultRegistryFile;
}

// 0 and the whole file, kErrorFileNotFound when there is no readable file,
// kErrorNotEnoughMemory when it is beyond the bound.
uint32_t ReadRegistryFile(std::string *contents) {
  const std::filesystem::path path(RegistryFilePath());
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    return kErrorFileNotFound;
  }
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (error) {
    return kErrorFileNotFound;
  }
  if (size > kMaxRegistryFileBytes) {
    return kErrorNotEnoughMemory;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return kErrorFileNotFound;
  }
  contents->assign(static_cast<size_t>(size), '\0');
  in.read(contents->data(), static_cast<std::streamsize>(size));
  contents->resize(static_cast<size_t>(in.gcount()));
  return kErrorSuccess;
}

uint32_t OpenKeyFromFile(const char *path, RegistryKey *out) {
  std::string contents;
  const uint32_t error = ReadRegistryFile(&contents);
  if (error != kErrorSuccess) {
    return error;
  }
  std::optional<RegistryFileKey> key = RegistryFile::ReadKey(std::move(contents), path);
  if (!key) {
    return kErrorFileNotFound;
  }
  *out = new RegistryKeyObject{std::move(*key)};
  return kErrorSuccess;
}

}  // namespace

uint32_t RegistryOpenKey(const char *path, uint32_t access, RegistryKey *out) {
  uint32_t result = kErrorInvalidParameter;
  if (out != nullptr && path != nullptr) {
    *out = nullptr;
    try {
      result = OpenKeyFromFile(path, out);
    } catch (const std::bad_alloc &) {
      result = kErrorNotEnoughMemory;
    }
  }
  if (RegistryOpenObserver observer = observerHook.load(); observer != nullptr) {
    observer(observerContext.load(), path, access, result);
  }
  return result;
}

uint32_t RegistryQueryValue(RegistryKey key, const char *name, uint32_t *type, uint8_t *data,
                            uint32_t *size) {
  if (key == nullptr) {
    return kErrorInvalidHandle;
  }
  if (data != nullptr && size == nullptr) {
    return kErrorInvalidParameter;
  }
  const RegistryFileValue *found = FindRegistryValue(key->values, name == nullptr ? "" : name);
  if (found == nullptr) {
    return kErrorFileNotFound;
  }
  const RegistryFileValue &value = *found;
  // The file is bounded far below 4 GiB, so every value's size fits.
  const auto needed = static_cast<uint32_t>(value.data.size());
  if (type != nullptr) {
    *type = value.type;
  }
  if (data == nullptr) {
    if (size != nullptr) {
      *size = needed;
    }
    return kErrorSuccess;
  }
  if (*size < needed) {
    *size = needed;
    return kErrorMoreData;
  }
  if (needed != 0) {
    std::memcpy(data, value.data.data(), needed);
  }
  *size = needed;
  return kErrorSuccess;
}

void RegistryCloseKey(RegistryKey key) {
  delete key;
}

void SetRegistryOpenObserver(RegistryOpenObserver observer, void *context) {
  observerContext.store(context);
  observerHook.store(observer);
}

}  // namespace pelarix::platform
