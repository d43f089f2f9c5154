// The string store of a device: the USB string descriptors known for it,
// keyed by string index and language id, kept as one contiguous blob in the
// layout the hub parses from the plug-in record:
//
//   header  magic "qrst" (u32), length of the whole blob (u32), count (u32)
//   entry   entry length = 7 + bLength (u32), index (u8), language (u16,
//           unaligned), the descriptor as received (bLength bytes)
//
// Entries follow one another in the order of addition, duplicates included.
// An addition replaces the blob by a new one, so nobody may keep a pointer
// into it across an addition. The store has no lock: its device's lock
// guards it.
#pragma once

#include <cstdint>

namespace pelarix {

// "qrst" read as a little-endian u32.
inline constexpr uint32_t kStringStoreMagic = 0x74737271;
inline constexpr uint32_t kStringStoreHeaderBytes = 12;
inline constexpr uint32_t kStringStoreEntryHeaderBytes = 7;
inline constexpr uint8_t kStringDescriptorType = 3;

// The store's own result codes.
enum StringStoreCode : uint32_t {
  kStoreDone = 0,
  kStoreBadArgument = 1,
  kStoreNoMemory = 2,
  kStoreBad = 3,  // no store, or a bad magic
};

// A new empty blob (12 bytes, count 0), or null.
uint8_t *StringStoreCreate();
// Frees the blob: kStoreDone, or kStoreBad for null or a bad magic.
uint32_t StringStoreDestroy(uint8_t *store);
// Appends descriptor (bLength bytes, trusted) under index and language; on
// kStoreDone *newStore is the new blob and the old one is freed.
uint32_t StringStoreAdd(uint8_t *store, uint8_t index, uint16_t language, const uint8_t *descriptor,
                        uint8_t **newStore);
// The descriptor of the first entry with this index and language (language 0:
// any language), or null.
const uint8_t *StringStoreFind(const uint8_t *store, uint8_t index, uint16_t language);
// Language ids in the table (index 0, language 0): 0 without one.
uint8_t StringStoreLanguageCount(const uint8_t *store);
// The language id at that place of the table, or 0.
uint16_t StringStoreLanguage(const uint8_t *store, uint32_t position);
// The blob itself and its length, or null.
const uint8_t *StringStoreBlob(const uint8_t *store, uint32_t *length);
// A copy of a blob of length bytes that bears the magic and whose length
// field says length; kStoreBadArgument otherwise.
uint32_t StringStoreCopy(const uint8_t *blob, uint32_t length, uint8_t **copy);
// A copy of the store: kStoreBadArgument for a null out, kStoreBad for a bad
// store, else as StringStoreCopy.
uint32_t StringStoreClone(const uint8_t *store, uint8_t **copy);
// The length and count fields; 0 for a bad store.
uint32_t StringStoreLength(const uint8_t *store);
uint32_t StringStoreCount(const uint8_t *store);
// The address of the entry at that position, or null beyond the count.
const uint8_t *StringStoreEntryAt(const uint8_t *store, uint32_t position);

}  // namespace pelarix
