#include "frame/record_pool.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define PELARIX_POOL_POISONS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define PELARIX_POOL_POISONS 1
#endif
#endif

#ifdef PELARIX_POOL_POISONS
#include <sanitizer/asan_interface.h>
#endif

namespace pelarix {
namespace {

constexpr uint32_t kKindCount = 4;
constexpr int kSizesPerKind = 4;
// Slabs double from 8 slots up to 2^20 slots, so 64 slabs hold more records
// of a kind than memory does.
constexpr size_t kMaxSlabsPerKind = 64;
constexpr size_t kFirstSlabSlots = 8;
constexpr size_t kMaxSlabSlots = size_t{1} << 20;
constexpr size_t kSlotAlignment = alignof(std::max_align_t);

#ifdef PELARIX_POOL_POISONS
// Under AddressSanitizer each slot ends in a poisoned gap, so an overrun of
// one record is caught before it reaches the next, as it was when each record
// had an allocation of its own.
constexpr size_t kRedzone = kSlotAlignment;
void Poison(void *at, size_t size) {
  ASAN_POISON_MEMORY_REGION(at, size);
}
#else
constexpr size_t kRedzone = 0;
void Poison(void *, size_t) {}
#endif

// A block of equal slots, written once before it is published.
struct Slab {
  unsigned char *begin;
  size_t stride;
  size_t slots;
};

// The records of one size within a kind. A free record is all zero but for
// its link, which sits in the parent slot: the magic at offset 0 stays zero,
// so the record fails validation.
struct SizeClass {
  size_t recordSize = 0;  // 0: not in use yet
  size_t stride = 0;
  HandleHeader *freeHead = nullptr;
  unsigned char *fresh = nullptr;  // the next never-used slot of the newest slab
  size_t freshLeft = 0;
  size_t nextSlabSlots = kFirstSlabSlots;
};

struct KindPool {
  std::mutex mutex;  // guards sizes and the writing of slabs
  SizeClass sizes[kSizesPerKind];
  // Published slabs. IsPoolRecord reads them without the lock: an entry is
  // stored before the count that makes it visible.
  std::atomic<Slab *> slabs[kMaxSlabsPerKind] = {};
  std::atomic<size_t> slabCount{0};
};

KindPool gPools[kKindCount];

KindPool &PoolOf(uint32_t kind) {
  return gPools[kind % kKindCount];
}

size_t StrideOf(size_t size) {
  return (size + kRedzone + kSlotAlignment - 1) / kSlotAlignment * kSlotAlignment;
}

// The class of records of this size, made on first use; null once every
// slot holds another size.
SizeClass *SizeClassOf(KindPool &pool, size_t size, bool create) {
  for (SizeClass &sized : pool.sizes) {
    if (sized.recordSize == size) {
      return &sized;
    }
    if (sized.recordSize == 0 && create) {
      sized.recordSize = size;
      sized.stride = StrideOf(size);
      return &sized;
    }
  }
  return nullptr;
}

// Takes a new slab for the class and publishes it; false when memory or the
// slab table is out.
bool AddSlab(KindPool &pool, SizeClass &sized) {
  const size_t count = pool.slabCount.load(std::memory_order_relaxed);
  if (count == kMaxSlabsPerKind) {
    return false;
  }
  auto *slab = new (std::nothrow) Slab{nullptr, sized.stride, sized.nextSlabSlots};
  if (slab == nullptr) {
    return false;
  }
  slab->begin = static_cast<unsigned char *>(std::calloc(slab->slots, slab->stride));
  if (slab->begin == nullptr) {
    delete slab;
    return false;
  }
  for (size_t i = 0; i < slab->slots; ++i) {
    Poison(slab->begin + i * slab->stride + sized.recordSize, slab->stride - sized.recordSize);
  }
  pool.slabs[count].store(slab, std::memory_order_release);
  pool.slabCount.store(count + 1, std::memory_order_release);
  sized.fresh = slab->begin;
  sized.freshLeft = slab->slots;
  if (sized.nextSlabSlots < kMaxSlabSlots) {
    sized.nextSlabSlots *= 2;
  }
  return true;
}

// A free or never-used slot of the class, or null.
unsigned char *TakeSlot(KindPool &pool, SizeClass &sized) {
  if (sized.freeHead != nullptr) {
    HandleHeader *record = sized.freeHead;
    sized.freeHead = record->parent;
    record->parent = nullptr;
    return reinterpret_cast<unsigned char *>(record);
  }
  if (sized.freshLeft == 0 && !AddSlab(pool, sized)) {
    return nullptr;
  }
  unsigned char *slot = sized.fresh;
  sized.fresh += sized.stride;
  --sized.freshLeft;
  return slot;
}

bool IsSlotOf(const KindPool &pool, uintptr_t address) {
  const size_t count = pool.slabCount.load(std::memory_order_acquire);
  for (size_t i = 0; i < count; ++i) {
    const Slab *slab = pool.slabs[i].load(std::memory_order_acquire);
    const auto begin = reinterpret_cast<uintptr_t>(slab->begin);
    if (address >= begin && address - begin < slab->stride * slab->slots) {
      return (address - begin) % slab->stride == 0;
    }
  }
  return false;
}

}  // namespace

void *AllocateRecord(HandleKind kind, size_t size) {
  if (size < sizeof(HandleHeader)) {
    size = sizeof(HandleHeader);
  }
  KindPool &pool = PoolOf(kind);
  std::lock_guard<std::mutex> guard(pool.mutex);
  SizeClass *sized = SizeClassOf(pool, size, true);
  return sized != nullptr ? TakeSlot(pool, *sized) : nullptr;
}

void FreeRecord(HandleKind kind, void *record, size_t size) {
  if (record == nullptr || !IsPoolRecord(record, kind)) {
    return;
  }
  if (size < sizeof(HandleHeader)) {
    size = sizeof(HandleHeader);
  }
  KindPool &pool = PoolOf(kind);
  std::lock_guard<std::mutex> guard(pool.mutex);
  SizeClass *sized = SizeClassOf(pool, size, false);
  if (sized == nullptr) {
    return;  // not a size this kind ever handed out
  }
  std::memset(record, 0, size);
  auto *header = static_cast<HandleHeader *>(record);
  header->parent = sized->freeHead;
  sized->freeHead = header;
}

bool IsPoolRecord(const void *address, uint32_t kind) {
  const auto at = reinterpret_cast<uintptr_t>(address);
  if (kind != kAnyHandle) {
    return IsSlotOf(PoolOf(kind), at);
  }
  for (const KindPool &pool : gPools) {
    if (IsSlotOf(pool, at)) {
      return true;
    }
  }
  return false;
}

}  // namespace pelarix
