// What the settings tests share: a registry file of their own for each test
// (on Windows imported into the real registry), the library's log as (level,
// text) lines, and the keys the code opened with their access masks.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "pelarix.h"
#include "platform/platform.h"
#include "registry_import.h"
#include "test_environment.h"

namespace pelarix::testing {

struct LogLine {
  uint32_t level;
  std::string text;
  friend bool operator==(const LogLine &, const LogLine &) = default;
  friend void PrintTo(const LogLine &line, std::ostream *os) {
    *os << "{" << line.level << ", \"" << line.text << "\"}";
  }
};

struct KeyOpen {
  std::string path;
  uint32_t access;
  uint32_t result;
  friend bool operator==(const KeyOpen &, const KeyOpen &) = default;
  friend void PrintTo(const KeyOpen &open, std::ostream *os) {
    *os << "{\"" << open.path << "\", 0x" << std::hex << open.access << ", " << std::dec
        << open.result << "}";
  }
};

inline std::vector<LogLine> &CapturedLog() {
  static std::vector<LogLine> lines;
  return lines;
}

inline void CaptureLog(uint32_t level, const PelarixChar *message) {
  std::string text;
  for (const PelarixChar *c = message; *c != 0; ++c) text.push_back(static_cast<char>(*c));
  CapturedLog().push_back({level, std::move(text)});
}

inline std::vector<KeyOpen> &RecordedOpens() {
  static std::vector<KeyOpen> opens;
  return opens;
}

inline void RecordOpen(void *, const char *path, uint32_t access, uint32_t result) {
  RecordedOpens().push_back({path, access, result});
}

inline constexpr const char *kSessionPolicy =
    "HKEY_LOCAL_MACHINE\\Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\Agent\\USB";
inline constexpr const char *kGeneral =
    "HKEY_LOCAL_MACHINE\\Software\\Tessarin, Inc.\\Tessarin Halden\\USB";
inline constexpr const char *kUsbPolicy =
    "HKEY_LOCAL_MACHINE\\Software\\Policies\\Tessarin, Inc.\\Tessarin Halden\\USB";

// Each test gets a registry file of its own, the whole log (level 3) and a
// record of the keys opened.
class RegistryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           ("pelarix-settings-" + std::to_string(ProcessId()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir_);
    file_ = dir_ / "registry.reg";
    SetEnvironment("PELARIX_REGISTRY", file_.string().c_str());
    Pelarix_InitEx(2, CaptureLog, 3, 0);  // later tests in one process keep the first sink
    CapturedLog().clear();
    RecordedOpens().clear();
    platform::SetRegistryOpenObserver(RecordOpen, nullptr);
  }
  void TearDown() override {
    platform::SetRegistryOpenObserver(nullptr, nullptr);
    ClearEnvironment("PELARIX_REGISTRY");
#ifdef _WIN32
    import_.Clear();
#endif
    std::filesystem::remove_all(dir_);
  }

  // A version 5.00 file of the given body (sections and values, "\n" ends).
  void WriteRegistry(const std::string &body) {
    WriteRegistryFile("Windows Registry Editor Version 5.00\r\n\r\n" + body);
  }

  // The whole file as it stands.
  void WriteRegistryFile(const std::string &contents) {
    {
      std::ofstream out(file_, std::ios::binary | std::ios::trunc);
      out << contents;
    }
#ifdef _WIN32
    ASSERT_TRUE(import_.Import(file_, contents)) << "regedit /s " << file_.string();
#endif
  }

  static platform::RegistryKey Open(const char *path) {
    platform::RegistryKey key = nullptr;
    platform::RegistryOpenKey(path, 0x20019, &key);
    return key;
  }

  static std::vector<LogLine> TakeLog() {
    std::vector<LogLine> lines = std::move(CapturedLog());
    CapturedLog().clear();
    return lines;
  }

  std::filesystem::path dir_;
  std::filesystem::path file_;
#ifdef _WIN32
  RegistryImport import_;
#endif
};

}  // namespace pelarix::testing
