#include "device/string_store.h"

#include <cstdlib>
#include <cstring>

namespace pelarix {
namespace {

uint32_t ReadU32(const uint8_t *at) {
  uint32_t value = 0;
  std::memcpy(&value, at, sizeof value);
  return value;
}

void WriteU32(uint8_t *at, uint32_t value) {
  std::memcpy(at, &value, sizeof value);
}

uint16_t ReadU16(const uint8_t *at) {
  uint16_t value = 0;
  std::memcpy(&value, at, sizeof value);
  return value;
}

bool IsStore(const uint8_t *store) {
  return store != nullptr && ReadU32(store) == kStringStoreMagic;
}

// Walks the entries in order. A blob made by this store always holds what its
// count says; one that came in through StringStoreCopy may not, so the walk
// also ends at an entry that would run past the blob's length.
class EntryWalk {
 public:
  explicit EntryWalk(const uint8_t *store)
      : store_(store),
        length_(ReadU32(store + 4)),
        left_(ReadU32(store + 8)),
        offset_(kStringStoreHeaderBytes) {}

  // The next entry, or null at the end.
  const uint8_t *Next() {
    if (left_ == 0 || uint64_t{offset_} + kStringStoreEntryHeaderBytes > length_) {
      return nullptr;
    }
    const uint8_t *entry = store_ + offset_;
    const uint32_t entryLength = ReadU32(entry);
    if (entryLength < kStringStoreEntryHeaderBytes || uint64_t{offset_} + entryLength > length_) {
      return nullptr;
    }
    offset_ += entryLength;
    --left_;
    return entry;
  }

 private:
  const uint8_t *store_;
  uint32_t length_;
  uint32_t left_;
  uint32_t offset_;
};

const uint8_t *FindEntry(const uint8_t *store, uint8_t index, uint16_t language) {
  if (!IsStore(store)) {
    return nullptr;
  }
  EntryWalk walk(store);
  for (const uint8_t *entry = walk.Next(); entry != nullptr; entry = walk.Next()) {
    if (entry[4] == index && (language == 0 || ReadU16(entry + 5) == language)) {
      return entry;
    }
  }
  return nullptr;
}

// Bytes of an entry's descriptor that really lie in the entry.
uint32_t DescriptorRoom(const uint8_t *entry) {
  return ReadU32(entry) - kStringStoreEntryHeaderBytes;
}

}  // namespace

uint8_t *StringStoreCreate() {
  auto *store = static_cast<uint8_t *>(std::calloc(1, kStringStoreHeaderBytes));
  if (store == nullptr) {
    return nullptr;
  }
  WriteU32(store, kStringStoreMagic);
  WriteU32(store + 4, kStringStoreHeaderBytes);
  return store;
}

uint32_t StringStoreDestroy(uint8_t *store) {
  if (!IsStore(store)) {
    return kStoreBad;
  }
  std::memset(store, 0, ReadU32(store + 4));
  std::free(store);
  return kStoreDone;
}

uint32_t StringStoreAdd(uint8_t *store, uint8_t index, uint16_t language, const uint8_t *descriptor,
                        uint8_t **newStore) {
  if (descriptor == nullptr) {
    return kStoreBadArgument;
  }
  if (!IsStore(store)) {
    return kStoreBad;
  }
  if (descriptor[1] != kStringDescriptorType) {
    return kStoreBadArgument;
  }
  const uint32_t oldLength = ReadU32(store + 4);
  const uint8_t bLength = descriptor[0];
  const uint32_t entryLength = kStringStoreEntryHeaderBytes + bLength;
  auto *grown = static_cast<uint8_t *>(std::malloc(oldLength + entryLength));
  if (grown == nullptr) {
    return kStoreNoMemory;
  }
  std::memcpy(grown, store, oldLength);
  WriteU32(grown + 4, oldLength + entryLength);
  WriteU32(grown + 8, ReadU32(store + 8) + 1);
  uint8_t *entry = grown + oldLength;
  WriteU32(entry, entryLength);
  entry[4] = index;
  std::memcpy(entry + 5, &language, sizeof language);
  std::memcpy(entry + kStringStoreEntryHeaderBytes, descriptor, bLength);
  *newStore = grown;
  StringStoreDestroy(store);
  return kStoreDone;
}

const uint8_t *StringStoreFind(const uint8_t *store, uint8_t index, uint16_t language) {
  const uint8_t *entry = FindEntry(store, index, language);
  return entry != nullptr ? entry + kStringStoreEntryHeaderBytes : nullptr;
}

uint8_t StringStoreLanguageCount(const uint8_t *store) {
  const uint8_t *entry = FindEntry(store, 0, 0);
  if (entry == nullptr || DescriptorRoom(entry) == 0) {
    return 0;
  }
  // A table shorter than its own two header bytes holds no language: the
  // count must not wrap into one that reads beyond the table.
  const uint32_t bLength = entry[kStringStoreEntryHeaderBytes];
  const uint32_t bytes = bLength < DescriptorRoom(entry) ? bLength : DescriptorRoom(entry);
  return bytes < 2 ? 0 : static_cast<uint8_t>((bytes - 2) / 2);
}

uint16_t StringStoreLanguage(const uint8_t *store, uint32_t position) {
  if (position >= StringStoreLanguageCount(store)) {
    return 0;
  }
  const uint8_t *table = StringStoreFind(store, 0, 0);
  return ReadU16(table + 2 + size_t{2} * position);
}

const uint8_t *StringStoreBlob(const uint8_t *store, uint32_t *length) {
  if (length == nullptr || !IsStore(store)) {
    return nullptr;
  }
  *length = ReadU32(store + 4);
  return store;
}

uint32_t StringStoreCopy(const uint8_t *blob, uint32_t length, uint8_t **copy) {
  if (copy == nullptr || blob == nullptr || length < kStringStoreHeaderBytes || !IsStore(blob) ||
      ReadU32(blob + 4) != length) {
    return kStoreBadArgument;
  }
  auto *made = static_cast<uint8_t *>(std::malloc(length));
  if (made == nullptr) {
    return kStoreNoMemory;
  }
  std::memcpy(made, blob, length);
  *copy = made;
  return kStoreDone;
}

uint32_t StringStoreClone(const uint8_t *store, uint8_t **copy) {
  if (copy == nullptr) {
    return kStoreBadArgument;
  }
  if (!IsStore(store)) {
    return kStoreBad;
  }
  return StringStoreCopy(store, ReadU32(store + 4), copy);
}

uint32_t StringStoreLength(const uint8_t *store) {
  return IsStore(store) ? ReadU32(store + 4) : 0;
}

uint32_t StringStoreCount(const uint8_t *store) {
  return IsStore(store) ? ReadU32(store + 8) : 0;
}

const uint8_t *StringStoreEntryAt(const uint8_t *store, uint32_t position) {
  if (!IsStore(store)) {
    return nullptr;
  }
  EntryWalk walk(store);
  const uint8_t *entry = walk.Next();
  for (uint32_t at = 0; entry != nullptr && at < position; ++at) {
    entry = walk.Next();
  }
  return entry;
}

}  // namespace pelarix
