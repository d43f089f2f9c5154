// Any bytes as the client's answer to a string fetch: the completion reads
// nothing beyond the answer (an exact-size heap copy), and stores a string
// only when the answer holds all of it.
//   byte 0-3: the completion's status; byte 4, bit 0: data given (else null);
//   the rest: the answer.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "device/device.h"
#include "device/string_fetch.h"
#include "device/string_store.h"
#include "frame/handle.h"
#include "frame/record_pool.h"
#include "item/item.h"
#include "item/item_completion.h"
#include "platform/platform.h"

namespace {

using namespace pelarix;

constexpr uint8_t kIndex = 7;
constexpr uint32_t kBlockBytes = 80;

// One device for the whole run, with the lock and event a fetch uses.
PelarixDevice *FetchingDevice() {
  auto *device = static_cast<PelarixDevice *>(AllocateRecord(kDeviceHandle, sizeof(PelarixDevice)));
  InitHandleHeader(&device->header, kDeviceHandle, nullptr);
  platform::InitLock(&device->lock);
  if (platform::CreateEvent(false, &device->deferredEvent) != 0) std::abort();
  return device;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static PelarixDevice *device = FetchingDevice();
  if (size < 5) return 0;
  uint32_t status = 0;
  std::memcpy(&status, data, sizeof status);
  const bool withData = (data[4] & 1) != 0;
  const uint32_t length = static_cast<uint32_t>(size - 5);
  auto *answer = static_cast<uint8_t *>(std::malloc(length > 0 ? length : 1));
  std::memcpy(answer, data + 5, length);

  device->stringStore = StringStoreCreate();
  device->fetchIndex = kIndex;
  device->fetchLanguage = kEnglishUs;
  device->fetchItemId = 1;
  device->fetchComplete = CompleteStringDescriptorItem;
  PelarixItem *item = NewItemRecord(device);
  item->flags = kItemInternal;
  CompleteItemInternal(item, status, length, withData ? answer : nullptr);

  const uint8_t *stored = StringStoreFind(device->stringStore, kIndex, kEnglishUs);
  if (stored != nullptr) {
    const bool whole = withData && length >= kBlockBytes + 2 && stored[0] <= length - kBlockBytes;
    if (!whole || std::memcmp(stored, answer + kBlockBytes, stored[0]) != 0) std::abort();
  }
  if (item->state != kItemCompleted || device->fetchComplete != nullptr) std::abort();
  StringStoreDestroy(device->stringStore);
  device->stringStore = nullptr;
  platform::DeleteLock(&item->lock);
  FreeRecord(kItemHandle, item, sizeof(PelarixItem));
  std::free(answer);
  platform::WaitForEvent(device->deferredEvent, 0);  // the completion's set
  return 0;
}
