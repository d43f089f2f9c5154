// The settings tests under Windows: the same registry editor files the POSIX
// tests hand the file-backed registry are imported into the real registry by
// the registry editor (regedit /s). Each import first takes away what the
// previous one added, and remembers, for every key its file names, the
// highest key above it that did not exist before, so that the next test
// finds the registry as the prefix had it.
#pragma once

#ifdef _WIN32

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#undef CreateEvent  // the platform layer's own function of that name

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace pelarix::testing {

class RegistryImport {
 public:
  ~RegistryImport() { Clear(); }

  // Imports the file; false if the registry editor could not run or failed.
  bool Import(const std::filesystem::path &file, const std::string &contents) {
    Clear();
    for (const std::string &key : LocalMachineKeys(contents)) RememberNewKey(key);
    std::wstring command = L"regedit.exe /s \"" + file.wstring() + L"\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &process)) {
      return false;
    }
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD exitCode = 1;
    GetExitCodeProcess(process.hProcess, &exitCode);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return exitCode == 0;
  }

  // Deletes every key tree the last import made.
  void Clear() {
    for (const std::string &key : added_) RegDeleteTreeA(HKEY_LOCAL_MACHINE, key.c_str());
    added_.clear();
  }

 private:
  // The paths below HKEY_LOCAL_MACHINE of the file's sections (deletions too).
  static std::vector<std::string> LocalMachineKeys(const std::string &contents) {
    static const std::string kHive = "HKEY_LOCAL_MACHINE\\";
    std::vector<std::string> keys;
    std::istringstream lines(contents);
    std::string line;
    while (std::getline(lines, line)) {
      size_t at = line.find('[');
      if (at == std::string::npos) continue;
      ++at;
      if (at < line.size() && line[at] == '-') ++at;
      if (line.compare(at, kHive.size(), kHive) != 0) continue;
      const size_t end = line.find(']', at);
      keys.push_back(line.substr(at + kHive.size(), end == std::string::npos
                                                        ? std::string::npos
                                                        : end - at - kHive.size()));
    }
    return keys;
  }

  static bool KeyExists(const std::string &path) {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
      return false;
    }
    RegCloseKey(key);
    return true;
  }

  void RememberNewKey(const std::string &path) {
    for (size_t end = path.find('\\');; end = path.find('\\', end + 1)) {
      const std::string prefix = path.substr(0, end);
      if (!prefix.empty() && !KeyExists(prefix)) {
        added_.push_back(prefix);
        return;
      }
      if (end == std::string::npos) return;
    }
  }

  std::vector<std::string> added_;
};

}  // namespace pelarix::testing

#endif  // _WIN32
