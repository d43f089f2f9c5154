// The exported header's records and values, which cross the library's
// boundary and so are fixed.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "pelarix.h"

namespace {

TEST(PublicHeaderTest, ItemInfoLayout) {
  EXPECT_EQ(sizeof(PelarixItemInfo), 40u);
  EXPECT_EQ(offsetof(PelarixItemInfo, type), 0u);
  EXPECT_EQ(offsetof(PelarixItemInfo, itemId), 4u);
  EXPECT_EQ(offsetof(PelarixItemInfo, param0), 8u);
  EXPECT_EQ(offsetof(PelarixItemInfo, param1), 12u);
  EXPECT_EQ(offsetof(PelarixItemInfo, param2), 16u);
  EXPECT_EQ(offsetof(PelarixItemInfo, param3), 20u);
  EXPECT_EQ(offsetof(PelarixItemInfo, dataLength), 24u);
  EXPECT_EQ(offsetof(PelarixItemInfo, data), 28u);
  EXPECT_EQ(offsetof(PelarixItemInfo, noCompletion), 36u);
  EXPECT_EQ(offsetof(PelarixItemInfo, reserved), 37u);
}

TEST(PublicHeaderTest, StatusCodes) {
  const PelarixStatus codes[] = {
      Pelarix_Success,
      Pelarix_Pending,
      Pelarix_UnsupportedVersion,
      Pelarix_Failure,
      Pelarix_OutOfMemory,
      Pelarix_InvalidHandle,
      Pelarix_InvalidParameter,
      Pelarix_UnsupportedHubVersion,
      Pelarix_HubOpenFailed,
      Pelarix_HubRequestFailed,
      Pelarix_Cancelled,
      Pelarix_DeviceExists,
      Pelarix_InvalidState,
      Pelarix_DeviceBlocked,
  };
  for (uint32_t value = 0; value < 14; ++value) EXPECT_EQ(codes[value], value);
}

TEST(PublicHeaderTest, Types) {
  EXPECT_TRUE((std::is_same_v<PelarixHandle, void *>));
  EXPECT_TRUE((std::is_same_v<PelarixStatus, uint32_t>));
#ifdef _WIN32
  // Windows' own UTF-16 type, and the system's calling convention.
  EXPECT_TRUE((std::is_same_v<PelarixChar, wchar_t>));
  EXPECT_TRUE((std::is_same_v<PelarixLogCallback, void(__stdcall *)(uint32_t, const wchar_t *)>));
#else
  EXPECT_TRUE((std::is_same_v<PelarixChar, char16_t>));
  EXPECT_TRUE((std::is_same_v<PelarixLogCallback, void (*)(uint32_t, const char16_t *)>));
#endif
  EXPECT_EQ(PELARIX_INTERFACE_VERSION, 2u);
}

}  // namespace
