// The string store's blob byte by byte, and its lookups.
#include "device/string_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace pelarix {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

std::vector<uint8_t> BlobOf(const uint8_t *store) {
  uint32_t length = 0;
  const uint8_t *blob = StringStoreBlob(store, &length);
  return blob != nullptr ? std::vector<uint8_t>(blob, blob + length) : std::vector<uint8_t>{};
}

// Adds descriptor and checks the code; the store is replaced on success.
uint32_t Add(uint8_t **store, uint8_t index, uint16_t language,
             const std::vector<uint8_t> &descriptor) {
  uint8_t *grown = nullptr;
  const uint32_t code = StringStoreAdd(*store, index, language, descriptor.data(), &grown);
  if (code == kStoreDone) *store = grown;
  return code;
}

class StringStoreTest : public ::testing::Test {
 protected:
  ~StringStoreTest() override { StringStoreDestroy(store_); }
  uint8_t *store_ = StringStoreCreate();
};

const std::vector<uint8_t> kLanguages = {4, 3, 0x09, 0x04};
const std::vector<uint8_t> kProduct = {10, 3, 'K', 0, 'e', 0, 'y', 0, 's', 0};

TEST_F(StringStoreTest, NewStoreIsTwelveBytesWithCountZero) {
  EXPECT_THAT(BlobOf(store_), ElementsAre(0x71, 0x72, 0x73, 0x74, 12, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_EQ(StringStoreLength(store_), 12u);
  EXPECT_EQ(StringStoreCount(store_), 0u);
  EXPECT_EQ(StringStoreFind(store_, 0, 0), nullptr);
  EXPECT_EQ(StringStoreEntryAt(store_, 0), nullptr);
  EXPECT_EQ(StringStoreLanguageCount(store_), 0);
}

TEST_F(StringStoreTest, DescriptorOfLength10AddsAnEntryOf17BytesWithAnUnalignedLanguage) {
  ASSERT_EQ(Add(&store_, 2, 0x0409, kProduct), kStoreDone);
  EXPECT_THAT(BlobOf(store_),
              ElementsAre(0x71, 0x72, 0x73, 0x74, 29, 0, 0, 0, 1, 0, 0, 0,  // header
                          17, 0, 0, 0, 2, 0x09, 0x04,                       // entry header
                          10, 3, 'K', 0, 'e', 0, 'y', 0, 's', 0));
  EXPECT_EQ(StringStoreCount(store_), 1u);
  EXPECT_EQ(StringStoreEntryAt(store_, 0), store_ + 12);
  EXPECT_EQ(StringStoreEntryAt(store_, 1), nullptr);
}

TEST_F(StringStoreTest, EntriesFollowInOrderOfAddition) {
  ASSERT_EQ(Add(&store_, 0, 0, kLanguages), kStoreDone);
  ASSERT_EQ(Add(&store_, 2, 0x0409, kProduct), kStoreDone);
  EXPECT_THAT(BlobOf(store_),
              ElementsAre(0x71, 0x72, 0x73, 0x74, 40, 0, 0, 0, 2, 0, 0, 0,  // header
                          11, 0, 0, 0, 0, 0, 0, 4, 3, 0x09, 0x04,           // language table
                          17, 0, 0, 0, 2, 0x09, 0x04, 10, 3, 'K', 0, 'e', 0, 'y', 0, 's', 0));
  EXPECT_EQ(StringStoreEntryAt(store_, 1), store_ + 23);
}

TEST_F(StringStoreTest, DescriptorOfAnotherTypeIsABadArgument) {
  EXPECT_EQ(Add(&store_, 2, 0x0409, {4, 2, 0, 0}), kStoreBadArgument);
  uint8_t *grown = nullptr;
  EXPECT_EQ(StringStoreAdd(store_, 2, 0x0409, nullptr, &grown), kStoreBadArgument);
  EXPECT_EQ(StringStoreCount(store_), 0u);
}

TEST_F(StringStoreTest, BadMagicIsNoStore) {
  uint8_t forged[12] = {'x', 'r', 's', 't', 12, 0, 0, 0, 0, 0, 0, 0};
  uint8_t *grown = nullptr;
  EXPECT_EQ(StringStoreAdd(forged, 2, 0, kProduct.data(), &grown), kStoreBad);
  EXPECT_EQ(StringStoreAdd(nullptr, 2, 0, kProduct.data(), &grown), kStoreBad);
  EXPECT_EQ(StringStoreFind(forged, 0, 0), nullptr);
  uint32_t length = 0;
  EXPECT_EQ(StringStoreBlob(forged, &length), nullptr);
  EXPECT_EQ(StringStoreBlob(store_, nullptr), nullptr);
  EXPECT_EQ(StringStoreDestroy(forged), kStoreBad);
  EXPECT_EQ(StringStoreDestroy(nullptr), kStoreBad);
  EXPECT_EQ(StringStoreLength(forged), 0u);
  EXPECT_EQ(StringStoreCount(forged), 0u);
  EXPECT_EQ(StringStoreEntryAt(forged, 0), nullptr);
  uint8_t *copy = nullptr;
  EXPECT_EQ(StringStoreClone(forged, &copy), kStoreBad);
  EXPECT_EQ(StringStoreClone(store_, nullptr), kStoreBadArgument);
}

TEST_F(StringStoreTest, FindWithLanguageZeroTakesAnyLanguage) {
  ASSERT_EQ(Add(&store_, 2, 0x0407, {4, 3, 'a', 0}), kStoreDone);
  ASSERT_EQ(Add(&store_, 2, 0x0409, kProduct), kStoreDone);
  const uint8_t *any = StringStoreFind(store_, 2, 0);
  ASSERT_NE(any, nullptr);
  EXPECT_EQ(any[2], 'a');
  const uint8_t *english = StringStoreFind(store_, 2, 0x0409);
  ASSERT_NE(english, nullptr);
  EXPECT_EQ(english[2], 'K');
  EXPECT_EQ(StringStoreFind(store_, 3, 0), nullptr);
}

TEST_F(StringStoreTest, SameKeyTwiceGivesTwoEntriesAndTheFirstIsFound) {
  ASSERT_EQ(Add(&store_, 2, 0x0409, {4, 3, 'a', 0}), kStoreDone);
  ASSERT_EQ(Add(&store_, 2, 0x0409, {4, 3, 'b', 0}), kStoreDone);
  EXPECT_EQ(StringStoreCount(store_), 2u);
  EXPECT_EQ(StringStoreLength(store_), 12u + 11 + 11);
  EXPECT_EQ(StringStoreFind(store_, 2, 0x0409)[2], 'a');
}

TEST_F(StringStoreTest, LanguageTableOfLength4CountsOneLanguage) {
  ASSERT_EQ(Add(&store_, 0, 0, kLanguages), kStoreDone);
  EXPECT_EQ(StringStoreLanguageCount(store_), 1);
  EXPECT_EQ(StringStoreLanguage(store_, 0), 0x0409);
  EXPECT_EQ(StringStoreLanguage(store_, 1), 0);
}

TEST_F(StringStoreTest, LanguageTableOfLength2CountsNone) {
  ASSERT_EQ(Add(&store_, 0, 0, {2, 3}), kStoreDone);
  EXPECT_EQ(StringStoreLanguageCount(store_), 0);
  EXPECT_EQ(StringStoreLanguage(store_, 0), 0);
}

// The table is looked up as index 0 in any language.
TEST_F(StringStoreTest, LanguageTableIsFoundUnderAnyLanguage) {
  ASSERT_EQ(Add(&store_, 0, 0x0409, {6, 3, 0x09, 0x04, 0x07, 0x04}), kStoreDone);
  EXPECT_EQ(StringStoreLanguageCount(store_), 2);
  EXPECT_EQ(StringStoreLanguage(store_, 1), 0x0407);
}

// A table whose bLength is below its own two header bytes would give a
// wrapped count of 255 languages, read from beyond the entry.
TEST_F(StringStoreTest, LanguageTableShorterThanItsHeaderCountsNone) {
  ASSERT_EQ(Add(&store_, 0, 0, {0, 3}), kStoreDone);
  EXPECT_EQ(StringStoreLength(store_), 12u + 7);
  EXPECT_EQ(StringStoreLanguageCount(store_), 0);
  EXPECT_EQ(StringStoreLanguage(store_, 0), 0);
}

TEST_F(StringStoreTest, CopyNeedsTheMagicAndAMatchingLength) {
  ASSERT_EQ(Add(&store_, 2, 0x0409, kProduct), kStoreDone);
  const std::vector<uint8_t> blob = BlobOf(store_);
  uint8_t *copy = nullptr;
  EXPECT_EQ(StringStoreCopy(blob.data(), static_cast<uint32_t>(blob.size()) - 1, &copy),
            kStoreBadArgument);
  EXPECT_EQ(StringStoreCopy(blob.data(), static_cast<uint32_t>(blob.size()), nullptr),
            kStoreBadArgument);
  EXPECT_EQ(StringStoreCopy(blob.data(), 4, &copy), kStoreBadArgument);
  ASSERT_EQ(StringStoreCopy(blob.data(), static_cast<uint32_t>(blob.size()), &copy), kStoreDone);
  EXPECT_THAT(BlobOf(copy), ElementsAreArray(blob));
  StringStoreDestroy(copy);
  ASSERT_EQ(StringStoreClone(store_, &copy), kStoreDone);
  EXPECT_THAT(BlobOf(copy), ElementsAreArray(blob));
  StringStoreDestroy(copy);
}

// A copied blob comes from elsewhere: an entry whose length runs past the
// blob, or a count above the entries held, ends the walk there.
TEST_F(StringStoreTest, WalkOfACopiedBlobStaysInsideIt) {
  std::vector<uint8_t> forged = {0x71, 0x72, 0x73, 0x74, 23, 0, 0, 0, 9, 0,   0, 0,
                                 11,   0,    0,    0,    1,  0, 0, 4, 3, 'a', 0};
  uint8_t *copy = nullptr;
  ASSERT_EQ(StringStoreCopy(forged.data(), static_cast<uint32_t>(forged.size()), &copy),
            kStoreDone);
  EXPECT_NE(StringStoreFind(copy, 1, 0), nullptr);
  EXPECT_EQ(StringStoreFind(copy, 2, 0), nullptr);
  EXPECT_EQ(StringStoreEntryAt(copy, 1), nullptr);
  copy[12] = 200;  // the entry now claims more than the blob holds
  EXPECT_EQ(StringStoreFind(copy, 1, 0), nullptr);
  copy[12] = 3;  // and now less than its own header
  EXPECT_EQ(StringStoreEntryAt(copy, 0), nullptr);
  StringStoreDestroy(copy);
}

}  // namespace
}  // namespace pelarix
