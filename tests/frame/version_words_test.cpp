// The module's version block and the system version, as the platform layer
// provides them: on POSIX compiled in, on Windows the VERSIONINFO resource.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "test_environment.h"

namespace pelarix::platform {
namespace {

std::vector<unsigned char> FetchBlock() {
  uint32_t size = 0;
  EXPECT_EQ(GetModuleVersionBlock(nullptr, &size), 0u);
  std::vector<unsigned char> block(size);
  EXPECT_EQ(GetModuleVersionBlock(block.data(), &size), 0u);
  return block;
}

std::u16string QueryText(const void *block, const char16_t *name, uint32_t *length) {
  const void *value = nullptr;
  if (!QueryModuleVersionValue(block, name, &value, length)) return u"<missing>";
  return static_cast<const char16_t *>(value);
}

TEST(ModuleVersionTest, BlockHasItsSizeAndRefusesASmallBuffer) {
  uint32_t size = 0;
  ASSERT_EQ(GetModuleVersionBlock(nullptr, &size), 0u);
  ASSERT_GT(size, 0u);
  std::vector<unsigned char> block(size);
  uint32_t tooSmall = size - 1;
  EXPECT_EQ(GetModuleVersionBlock(block.data(), &tooSmall), kErrorInsufficientBuffer);
}

TEST(ModuleVersionTest, TranslationIsUsEnglishUnicode) {
  const std::vector<unsigned char> block = FetchBlock();
  const void *value = nullptr;
  uint32_t length = 0;
  ASSERT_TRUE(
      QueryModuleVersionValue(block.data(), u"\\VarFileInfo\\Translation", &value, &length));
  ASSERT_EQ(length, 2u);
  const auto *words = static_cast<const uint16_t *>(value);
  EXPECT_EQ(words[0], 0x0409);
  EXPECT_EQ(words[1], 0x04B0);
}

TEST(ModuleVersionTest, FileVersionIsTheProjectVersion) {
  const std::vector<unsigned char> block = FetchBlock();
  uint32_t length = 0;
  const std::u16string version =
      QueryText(block.data(), u"\\StringFileInfo\\040904b0\\FileVersion", &length);
  const std::string expected = PELARIX_PROJECT_VERSION;
  EXPECT_EQ(version, std::u16string(expected.begin(), expected.end()));
  EXPECT_EQ(length, expected.size() + 1);
}

TEST(ModuleVersionTest, KeysIgnoreAsciiCase) {
  const std::vector<unsigned char> block = FetchBlock();
  uint32_t length = 0;
  EXPECT_EQ(QueryText(block.data(), u"\\STRINGFILEINFO\\040904B0\\FileDescription", &length),
            u"Tessarin Orlan Virtual USB Hub API");
  EXPECT_EQ(length, 35u);
}

TEST(ModuleVersionTest, UnknownKeyIsMissingWithLengthZero) {
  const std::vector<unsigned char> block = FetchBlock();
  const void *value = &block;
  uint32_t length = 99;
  EXPECT_FALSE(QueryModuleVersionValue(block.data(), u"\\StringFileInfo\\040904b0\\ProductName",
                                       &value, &length));
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(length, 0u);
  EXPECT_FALSE(QueryModuleVersionValue(nullptr, u"\\VarFileInfo\\Translation", &value, &length));
}

#ifdef _WIN32
// GetVersionExW under the test run's Wine prefix, which says Windows 7.
TEST(SystemVersionTest, RunningWindowsIsTheTestPrefixsWindows7) {
  uint32_t major = 0;
  uint32_t minor = 0;
  GetSystemVersion(&major, &minor);
  EXPECT_EQ(major, 6u);
  EXPECT_EQ(minor, 1u);
}

// The POSIX layer's stand-in for a Windows version is not Windows's.
TEST(SystemVersionTest, EnvironmentDoesNotChangeTheWindowsVersion) {
  ASSERT_TRUE(testing::SetEnvironment("PELARIX_OS_VERSION", "10.0"));
  uint32_t major = 0;
  uint32_t minor = 0;
  GetSystemVersion(&major, &minor);
  EXPECT_EQ(major, 6u);
  EXPECT_EQ(minor, 1u);
  testing::ClearEnvironment("PELARIX_OS_VERSION");
}
#else
TEST(SystemVersionTest, OverrideGivesMajorAndMinor) {
  uint32_t major = 0;
  uint32_t minor = 0;
  ASSERT_TRUE(testing::SetEnvironment("PELARIX_OS_VERSION", "6.2"));
  GetSystemVersion(&major, &minor);
  EXPECT_EQ(major, 6u);
  EXPECT_EQ(minor, 2u);
  ASSERT_TRUE(testing::SetEnvironment("PELARIX_OS_VERSION", "10"));
  GetSystemVersion(&major, &minor);
  EXPECT_EQ(major, 10u);
  EXPECT_EQ(minor, 0u);
  ASSERT_TRUE(testing::SetEnvironment("PELARIX_OS_VERSION", "garbage"));
  GetSystemVersion(&major, &minor);
  EXPECT_EQ(major, 0u);
  EXPECT_EQ(minor, 0u);
  testing::ClearEnvironment("PELARIX_OS_VERSION");
}

TEST(SystemVersionTest, KernelReleaseWithoutOverride) {
  testing::ClearEnvironment("PELARIX_OS_VERSION");
  uint32_t major = 0;
  uint32_t minor = 99999;
  GetSystemVersion(&major, &minor);
  EXPECT_GE(major, 2u);  // every kernel this runs on is 2.x or later
  EXPECT_LT(minor, 1000u);
}
#endif

}  // namespace
}  // namespace pelarix::platform
