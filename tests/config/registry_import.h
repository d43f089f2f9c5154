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
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace pelarix::testing {

class RegistryImport {
 public:
  ~RegistryImport() { Clear(); }

  // Imports the file; false if the registry editor could not run or failed.
  // The file-backed registry also reads the short hive name HKLM, which the
  // registry editor does not: a file that uses it is imported from a copy
  // with the name written out.
  bool Import(const std::filesystem::path &file, const std::string &contents) {
    Clear();
    const std::string expanded = ExpandHiveNames(contents);
    std::filesystem::path imported = file;
    if (expanded != contents) {
      imported = file.parent_path() / "imported.reg";
      std::ofstream(imported, std::ios::binary | std::ios::trunc) << expanded;
    }
    for (const std::string &key : LocalMachineKeys(expanded)) RememberNewKey(key);
    std::wstring command = L"regedit.exe /s \"" + imported.wstring() + L"\"";
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
  static std::string ExpandHiveNames(const std::string &contents) {
    std::string expanded;
    std::istringstream lines(contents);
    for (std::string line; std::getline(lines, line);) {
      const size_t at = line.find_first_not_of(" \t");
      if (at != std::string::npos && line[at] == '[') {
        const size_t name = line[at + 1] == '-' ? at + 2 : at + 1;
        if (line.compare(name, 5, "HKLM\\") == 0 || line.compare(name, 5, "hklm\\") == 0) {
          line.replace(name, 4, "HKEY_LOCAL_MACHINE");
        }
      }
      expanded += line + "\n";
    }
    return expanded;
  }

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
