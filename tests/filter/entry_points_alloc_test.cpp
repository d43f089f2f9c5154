// The flat functions under memory exhaustion: this program replaces the
// global allocator with one that a test can make fail, so that the engine's
// std::bad_alloc is seen to end at the flat functions as a refusal.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>

#include "ordo/usb/filter_entry_points.h"

namespace {

// Armed: every allocation fails. Plain (not atomic): these tests run on one
// thread.
bool failAllocations = false;

void *Allocate(std::size_t size) {
  if (failAllocations) throw std::bad_alloc();
  void *memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

class FailingAllocations {
 public:
  FailingAllocations() { failAllocations = true; }
  ~FailingAllocations() { failAllocations = false; }
  FailingAllocations(const FailingAllocations &) = delete;
  FailingAllocations &operator=(const FailingAllocations &) = delete;
};

// vendor 1234, product 5678, one configuration with one HID interface.
constexpr uint8_t kDevice[18] = {0x12, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x40, 0x34,
                                 0x12, 0x78, 0x56, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01};
constexpr uint8_t kConfig[18] = {0x09, 0x02, 0x12, 0x00, 0x01, 0x01, 0x00, 0x80, 0x32,
                                 0x09, 0x04, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00};

}  // namespace

void *operator new(std::size_t size) {
  return Allocate(size);
}
void *operator new[](std::size_t size) {
  return Allocate(size);
}
void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
  try {
    return Allocate(size);
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}
void *operator new[](std::size_t size, const std::nothrow_t &tag) noexcept {
  return operator new(size, tag);
}
void operator delete(void *memory) noexcept {
  std::free(memory);
}
void operator delete[](void *memory) noexcept {
  std::free(memory);
}
void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void *memory, std::size_t) noexcept {
  std::free(memory);
}

namespace ordo::usb {
namespace {

TEST(FilterEntryPointsOutOfMemory, CreateGivesNull) {
  FailingAllocations failing;
  EXPECT_EQ(CreateFilterManager(), nullptr);
}

TEST(FilterEntryPointsOutOfMemory, DeviceIsRefusedWithoutAnException) {
  HDevFilterMgrAgent *manager = CreateFilterManager();
  ASSERT_NE(manager, nullptr);
  ASSERT_TRUE(IsDeviceAllowedByFilter(manager, kDevice, kConfig));
  {
    FailingAllocations failing;
    EXPECT_FALSE(IsDeviceAllowedByFilter(manager, kDevice, kConfig));
  }
  EXPECT_TRUE(IsDeviceAllowedByFilter(manager, kDevice, kConfig));
  DestroyFilterManager(manager);
}

TEST(FilterEntryPointsOutOfMemory, StringIsDroppedWithoutAnException) {
  HDevFilterMgrAgent *manager = CreateFilterManager();
  ASSERT_NE(manager, nullptr);
  {
    FailingAllocations failing;
    AddFilterString(manager, "exid:m:vid-1234_pid-5678", 24);
  }
  // Nothing was stored, so the device the string names still passes.
  EXPECT_TRUE(IsDeviceAllowedByFilter(manager, kDevice, kConfig));
  DestroyFilterManager(manager);
}

}  // namespace
}  // namespace ordo::usb
