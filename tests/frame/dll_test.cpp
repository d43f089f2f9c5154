// pelarix.dll as a Windows program uses it: loaded through its import
// library, its exports found by name, the start-up line made from the DLL's
// own VERSIONINFO resource, and a session that finds no hub driver.
#include <gtest/gtest.h>
#include <windows.h>

#include <fstream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "pelarix.h"

namespace {

using Line = std::pair<uint32_t, std::string>;

std::vector<Line> &Lines() {
  static std::vector<Line> lines;
  return lines;
}

void PELARIX_CALL Capture(uint32_t level, const PelarixChar *message) {
  std::string text;
  for (const PelarixChar *c = message; *c != 0; ++c) text.push_back(static_cast<char>(*c));
  Lines().emplace_back(level, text);
}

HMODULE Library() {
  return GetModuleHandleW(L"pelarix.dll");
}

std::set<std::string> ExpectedNames() {
  std::set<std::string> names;
  std::ifstream file(PELARIX_EXPORTED_NAMES);
  for (std::string name; std::getline(file, name);) {
    if (!name.empty()) names.insert(name);
  }
  return names;
}

// The names of the loaded DLL's export directory.
std::set<std::string> ExportedNames(HMODULE module) {
  const auto *base = reinterpret_cast<const unsigned char *>(module);
  const auto *dos = reinterpret_cast<const IMAGE_DOS_HEADER *>(base);
  const auto *nt = reinterpret_cast<const IMAGE_NT_HEADERS64 *>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY &entry =
      nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  const auto *exports =
      reinterpret_cast<const IMAGE_EXPORT_DIRECTORY *>(base + entry.VirtualAddress);
  const auto *names = reinterpret_cast<const DWORD *>(base + exports->AddressOfNames);
  std::set<std::string> found;
  for (DWORD i = 0; i < exports->NumberOfNames; ++i) {
    found.insert(reinterpret_cast<const char *>(base + names[i]));
  }
  EXPECT_EQ(exports->NumberOfNames, exports->NumberOfFunctions);
  return found;
}

TEST(DllTest, ProgramImportsTheDll) {
  EXPECT_NE(Library(), nullptr);
  EXPECT_EQ(Pelarix_GetVersion(), 2u);
}

TEST(DllTest, ExportDirectoryHoldsExactlyTheNames) {
  const std::set<std::string> expected = ExpectedNames();
  ASSERT_EQ(expected.size(), 29u);
  EXPECT_EQ(ExportedNames(Library()), expected);
  for (const std::string &name : expected) {
    EXPECT_NE(GetProcAddress(Library(), name.c_str()), nullptr) << name;
  }
}

TEST(DllTest, VersionResourceNamesTheProjectVersion) {
  wchar_t path[MAX_PATH];
  ASSERT_GT(GetModuleFileNameW(Library(), path, MAX_PATH), 0u);
  const DWORD size = GetFileVersionInfoSizeW(path, nullptr);
  ASSERT_GT(size, 0u);
  std::vector<unsigned char> block(size);
  ASSERT_TRUE(GetFileVersionInfoW(path, 0, size, block.data()));
  void *value = nullptr;
  UINT length = 0;
  ASSERT_TRUE(VerQueryValueW(block.data(), L"\\", &value, &length));
  const auto *fixed = static_cast<const VS_FIXEDFILEINFO *>(value);
  EXPECT_EQ(fixed->dwSignature, 0xFEEF04BDu);
  EXPECT_EQ(fixed->dwFileType, static_cast<DWORD>(VFT_DLL));
  ASSERT_TRUE(VerQueryValueW(block.data(), L"\\StringFileInfo\\040904b0\\OriginalFilename", &value,
                             &length));
  EXPECT_EQ(std::wstring(static_cast<const wchar_t *>(value)), L"pelarix.dll");
}

TEST(DllTest, StartupLineReadsTheDllsVersionBlock) {
  ASSERT_EQ(Pelarix_InitEx(2, Capture, 1, 0), Pelarix_Success);
  const std::vector<Line> expected = {
      {1, "Tessarin Orlan Virtual USB Hub API initialized, version: " +
              std::string(PELARIX_PROJECT_VERSION) + ", release: unknown"}};
  EXPECT_EQ(Lines(), expected);
}

// No hub driver is installed under Wine: the enumeration of the hub's
// interface class finds nothing.
TEST(DllTest, SessionWithoutAHubDriverIsHubOpenFailed) {
  ASSERT_EQ(Pelarix_InitEx(2, Capture, 2, 0), Pelarix_Success);
  Lines().clear();
  PelarixHandle handle = &handle;
  EXPECT_EQ(Pelarix_CreateSession(&handle), Pelarix_HubOpenFailed);
  EXPECT_EQ(handle, nullptr);
  const std::string null = "0000000000000000";
  const std::vector<Line> expected = {
      {2, "SetupDiEnumDeviceInterfaces failed, error: 0x103"},
      {2, "Open virtual hub interface, handle: " + null + ", status: 0x8"},
      {0, "Failed to open virtual hub interface"},
      {2, "Open handle: " + null + ", status: 0x8"}};
  EXPECT_EQ(Lines(), expected);
}

}  // namespace
