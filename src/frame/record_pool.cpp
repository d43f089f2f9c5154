#include "frame/record_pool.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

namespace pelarix {
namespace {

constexpr int kKindCount = 4;

// A free record is all zero but for this link, which sits in the parent slot:
// the magic at offset 0 stays zero, so the record fails validation.
struct FreeList {
  std::mutex mutex;
  HandleHeader *head = nullptr;
};

FreeList gFreeLists[kKindCount];

FreeList &FreeListOf(HandleKind kind) {
  return gFreeLists[static_cast<uint32_t>(kind) % kKindCount];
}

}  // namespace

void *AllocateRecord(HandleKind kind, size_t size) {
  FreeList &list = FreeListOf(kind);
  {
    std::lock_guard<std::mutex> guard(list.mutex);
    HandleHeader *record = list.head;
    if (record != nullptr) {
      list.head = record->parent;
      record->parent = nullptr;
      return record;
    }
  }
  return std::calloc(1, size < sizeof(HandleHeader) ? sizeof(HandleHeader) : size);
}

void FreeRecord(HandleKind kind, void *record, size_t size) {
  if (record == nullptr) {
    return;
  }
  std::memset(record, 0, size);
  auto *header = static_cast<HandleHeader *>(record);
  FreeList &list = FreeListOf(kind);
  std::lock_guard<std::mutex> guard(list.mutex);
  header->parent = list.head;
  list.head = header;
}

}  // namespace pelarix
