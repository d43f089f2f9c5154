// What opening a key of a large registry file costs in memory: every
// allocation through operator new is counted, so the peak of what the reader
// holds at once is known exactly, without a clock. A program of its own, as
// it replaces the global allocation functions.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>

#include "platform/platform.h"

namespace {

std::atomic<size_t> gLiveBytes{0};
std::atomic<size_t> gPeakBytes{0};

// The size rides in front of each block, so that delete knows it.
constexpr size_t kFront = alignof(std::max_align_t);

void *CountedAllocate(size_t size) {
  auto *block = static_cast<unsigned char *>(std::malloc(size + kFront));
  if (block == nullptr) throw std::bad_alloc();
  *reinterpret_cast<size_t *>(block) = size;
  size_t live = gLiveBytes.fetch_add(size) + size;
  size_t peak = gPeakBytes.load();
  while (live > peak && !gPeakBytes.compare_exchange_weak(peak, live)) {
  }
  return block + kFront;
}

void CountedFree(void *memory) {
  if (memory == nullptr) return;
  auto *block = static_cast<unsigned char *>(memory) - kFront;
  gLiveBytes.fetch_sub(*reinterpret_cast<size_t *>(block));
  std::free(block);
}

}  // namespace

void *operator new(size_t size) {
  return CountedAllocate(size);
}
void *operator new[](size_t size) {
  return CountedAllocate(size);
}
void *operator new(size_t size, const std::nothrow_t &) noexcept {
  try {
    return CountedAllocate(size);
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}
void *operator new[](size_t size, const std::nothrow_t &) noexcept {
  return operator new(size, std::nothrow);
}
void operator delete(void *memory) noexcept {
  CountedFree(memory);
}
void operator delete[](void *memory) noexcept {
  CountedFree(memory);
}
void operator delete(void *memory, size_t) noexcept {
  CountedFree(memory);
}
void operator delete[](void *memory, size_t) noexcept {
  CountedFree(memory);
}

namespace pelarix::platform {
namespace {

constexpr const char *kGeneralKey = "Software\\Tessarin, Inc.\\Tessarin Halden\\USB";

// A file whose general key holds one long string value, as the registry
// editor writes it: UTF-16LE behind FF FE, or UTF-8.
std::string RegistryFileText(size_t valueChars) {
  std::string text =
      "Windows Registry Editor Version 5.00\r\n\r\n"
      "[HKEY_LOCAL_MACHINE\\Software\\Tessarin, Inc.\\Tessarin Halden\\USB]\r\n"
      "\"ExpectedItemLength\"=dword:00001000\r\n"
      "\"ExcludeVidPid\"=\"";
  while (text.size() < valueChars) text += "vid-1234_pid-5678;";
  text +=
      "\"\r\n\"AllowSplit\"=\"yes\"\r\n\r\n"
      "[HKEY_LOCAL_MACHINE\\Software\\Other]\r\n\"Big\"=\"";
  text.append(valueChars / 4, 'x');
  text += "\"\r\n";
  return text;
}

std::string Utf16Le(const std::string &ascii) {
  std::string bytes = "\xFF\xFE";
  for (char c : ascii) {
    bytes.push_back(c);
    bytes.push_back(0);
  }
  return bytes;
}

class RegistryMemoryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = std::filesystem::temp_directory_path() /
            ("pelarix-registry-memory-" + std::to_string(::getpid()) + ".reg");
    ::setenv("PELARIX_REGISTRY", path_.c_str(), 1);
  }
  void TearDown() override {
    ::unsetenv("PELARIX_REGISTRY");
    std::filesystem::remove(path_);
  }

  // Writes the file; returns its size.
  size_t Write(const std::string &bytes) {
    std::ofstream(path_, std::ios::binary) << bytes;
    return bytes.size();
  }

  // The most that opening the general key and reading its long value held
  // at once, beyond what was held before.
  size_t PeakOfOpenAndQuery(uint32_t *valueSize) {
    const size_t before = gLiveBytes.load();
    gPeakBytes.store(before);
    RegistryKey key = nullptr;
    EXPECT_EQ(RegistryOpenKey(kGeneralKey, 0x20119, &key), kErrorSuccess);
    uint32_t size = 0;
    EXPECT_EQ(RegistryQueryValue(key, "ExcludeVidPid", nullptr, nullptr, &size), kErrorSuccess);
    auto *data = static_cast<uint8_t *>(std::malloc(size));
    EXPECT_EQ(RegistryQueryValue(key, "ExcludeVidPid", nullptr, data, &size), kErrorSuccess);
    std::free(data);
    RegistryCloseKey(key);
    *valueSize = size;
    return gPeakBytes.load() - before;
  }

  std::filesystem::path path_;
};

// The file read whole (F), its text decoded to UTF-8 (F / 2), and the value
// kept (at most F / 2): never more than twice the file at once.
TEST_F(RegistryMemoryTest, Utf16FileCostsAtMostTwiceItsSize) {
  const size_t fileBytes = Write(Utf16Le(RegistryFileText(4u << 20)));
  uint32_t valueSize = 0;
  const size_t peak = PeakOfOpenAndQuery(&valueSize);
  EXPECT_GT(valueSize, 4000000u);
  EXPECT_LE(peak, 2 * fileBytes) << "peak " << peak << " for a file of " << fileBytes;
}

// The file read whole (F) and the value kept (at most F): twice the file.
TEST_F(RegistryMemoryTest, Utf8FileCostsAtMostTwiceItsSize) {
  const size_t fileBytes = Write(RegistryFileText(4u << 20));
  uint32_t valueSize = 0;
  const size_t peak = PeakOfOpenAndQuery(&valueSize);
  EXPECT_GT(valueSize, 4000000u);
  EXPECT_LE(peak, 2 * fileBytes) << "peak " << peak << " for a file of " << fileBytes;
}

// Values of other keys are not kept: opening a key costs no more for them.
TEST_F(RegistryMemoryTest, ValuesOfOtherKeysAreNotKept) {
  std::string text = RegistryFileText(1024);
  text +=
      "[HKEY_LOCAL_MACHINE\\Software\\Huge]\r\n\"Big\"=\"" + std::string(8u << 20, 'y') + "\"\r\n";
  const size_t fileBytes = Write(text);
  uint32_t valueSize = 0;
  const size_t peak = PeakOfOpenAndQuery(&valueSize);
  EXPECT_LE(peak, fileBytes + (1u << 20)) << "peak " << peak << " for a file of " << fileBytes;
}

}  // namespace
}  // namespace pelarix::platform
