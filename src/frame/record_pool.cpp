#include "frame/record_pool.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

namespace pelarix {
namespace {

constexpr int kKindCount = 4;

// Records of one kind have one size in the library, but the pool does not
// rely on it: each kind keeps a list per record size (a few sizes at most), so
// a record is only ever reused for a request of its own size. A free record is
// all zero but for its link, which sits in the parent slot: the magic at
// offset 0 stays zero, so the record fails validation.
struct SizedList {
  size_t recordSize = 0;
  HandleHeader *head = nullptr;
};

constexpr int kSizesPerKind = 4;

struct FreeList {
  std::mutex mutex;
  SizedList sizes[kSizesPerKind];
};

FreeList gFreeLists[kKindCount];

FreeList &FreeListOf(HandleKind kind) {
  return gFreeLists[static_cast<uint32_t>(kind) % kKindCount];
}

// The list of records of this size, made on first use; null once every slot
// holds another size.
SizedList *SizedListOf(FreeList &list, size_t size) {
  for (SizedList &sized : list.sizes) {
    if (sized.recordSize == size || sized.recordSize == 0) {
      sized.recordSize = size;
      return &sized;
    }
  }
  return nullptr;
}

}  // namespace

void *AllocateRecord(HandleKind kind, size_t size) {
  if (size < sizeof(HandleHeader)) {
    size = sizeof(HandleHeader);
  }
  FreeList &list = FreeListOf(kind);
  {
    std::lock_guard<std::mutex> guard(list.mutex);
    SizedList *sized = SizedListOf(list, size);
    if (sized != nullptr && sized->head != nullptr) {
      HandleHeader *record = sized->head;
      sized->head = record->parent;
      record->parent = nullptr;
      return record;
    }
  }
  return std::calloc(1, size);
}

void FreeRecord(HandleKind kind, void *record, size_t size) {
  if (record == nullptr) {
    return;
  }
  if (size < sizeof(HandleHeader)) {
    size = sizeof(HandleHeader);
  }
  std::memset(record, 0, size);
  auto *header = static_cast<HandleHeader *>(record);
  FreeList &list = FreeListOf(kind);
  std::lock_guard<std::mutex> guard(list.mutex);
  SizedList *sized = SizedListOf(list, size);
  if (sized == nullptr) {
    // More sizes than the pool keeps apart: this record goes back to the
    // allocator, as no request of another size may ever receive it.
    std::free(record);
    return;
  }
  header->parent = sized->head;
  sized->head = header;
}

}  // namespace pelarix
