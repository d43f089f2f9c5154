// A session on a virtual hub in a fresh directory, reached through the real
// socket transport, with a registry file of the test's own and the library's
// log captured at level 3. Devices are made from a small boot keyboard unless
// a test brings its own descriptors.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "frame/handle.h"
#include "frame/library_state.h"
#include "hub_directory.h"
#include "log_capture.h"
#include "pelarix.h"
#include "virtual_hub.h"

namespace pelarix::testing {

// Vendor 0x0E0F, product 0x0001; manufacturer 1, product 2, serial 3.
inline const std::vector<uint8_t> kKeyboardDevice = {0x12, 0x01, 0x00, 0x02, 0x00, 0x00,
                                                     0x00, 0x40, 0x0f, 0x0e, 0x01, 0x00,
                                                     0x00, 0x01, 0x01, 0x02, 0x03, 0x01};
// One configuration, one boot keyboard interface, its HID descriptor and one
// interrupt endpoint: 34 bytes.
inline const std::vector<uint8_t> kKeyboardConfig = {
    0x09, 0x02, 0x22, 0x00, 0x01, 0x01, 0x00, 0xa0, 0x32,  // configuration
    0x09, 0x04, 0x00, 0x00, 0x01, 0x03, 0x01, 0x01, 0x00,  // interface
    0x09, 0x21, 0x11, 0x01, 0x00, 0x01, 0x22, 0x3f, 0x00,  // HID
    0x07, 0x05, 0x81, 0x03, 0x08, 0x00, 0x0a};             // endpoint

inline const std::string kGeneralKey =
    "HKEY_LOCAL_MACHINE\\Software\\Tessarin, Inc.\\Tessarin Halden\\USB";

// The same device without strings.
inline std::vector<uint8_t> WithoutStrings(std::vector<uint8_t> device) {
  device[14] = device[15] = device[16] = 0;
  return device;
}

// A string descriptor of ASCII text.
inline std::vector<uint8_t> StringDescriptor(const std::string &text) {
  std::vector<uint8_t> descriptor = {static_cast<uint8_t>(2 + 2 * text.size()), 3};
  for (char c : text) {
    descriptor.push_back(static_cast<uint8_t>(c));
    descriptor.push_back(0);
  }
  return descriptor;
}

class DeviceTest : public ::testing::Test {
 protected:
  DeviceTest() : log_(3) {
    registry_ = directory_.Path() + "/registry.reg";
    ::setenv("PELARIX_REGISTRY", registry_.c_str(), 1);
  }
  ~DeviceTest() override {
    if (session_ != nullptr && IsValidHandle(session_, kSessionHandle)) {
      Pelarix_CloseHandle(session_);
    }
    if (hub_ != nullptr) hub_->Stop();
    ::unsetenv("PELARIX_REGISTRY");
  }

  // A registry file with these sections and values (each line ends "\r\n").
  void WriteRegistry(const std::string &body) {
    std::ofstream out(registry_, std::ios::binary | std::ios::trunc);
    out << "Windows Registry Editor Version 5.00\r\n\r\n" << body;
  }

  // Starts the hub, opens a session on it and forgets what was logged. The
  // session's filter log keeps the level the library had at the open: 0
  // keeps the filter's and the descriptor model's device dumps out of the
  // log, which then goes on at level 3.
  PelarixHandle OpenSession(PelarixItemBufferCallback callback = nullptr, void *context = nullptr,
                            int32_t filterLogLevel = 0) {
    if (hub_ == nullptr) {
      vhub::VirtualHubOptions options;
      options.directory = directory_.Path();
      hub_ = std::make_unique<vhub::VirtualHub>(options);
      std::string error;
      EXPECT_TRUE(hub_->Start(&error)) << error;
    }
    gLibrary.logLevel = filterLogLevel;
    EXPECT_EQ(Pelarix_CreateSessionEx(&session_, callback, context), Pelarix_Success);
    gLibrary.logLevel = 3;
    log_.Clear();
    return session_;
  }

  PelarixStatus Create(PelarixHandle *device, const std::vector<uint8_t> &deviceDesc,
                       const std::vector<uint8_t> &configDesc, uint32_t clientVersion = 4,
                       PelarixPluginCallback callback = nullptr, void *context = nullptr) {
    return Pelarix_CreateDeviceEx(session_, clientVersion, 0, 0xFFFFFFFF, 0, 0, deviceDesc.data(),
                                  configDesc.data(), callback, context, device);
  }

  // A keyboard device, created and then the log forgotten.
  PelarixHandle Keyboard(uint32_t clientVersion = 4, PelarixPluginCallback callback = nullptr,
                         void *context = nullptr) {
    PelarixHandle device = nullptr;
    EXPECT_EQ(Create(&device, kKeyboardDevice, kKeyboardConfig, clientVersion, callback, context),
              Pelarix_Success);
    log_.Clear();
    return device;
  }

  // The keyboard without strings: nothing to look for or fetch at plug-in.
  PelarixHandle Stringless(uint32_t clientVersion = 4, PelarixPluginCallback callback = nullptr,
                           void *context = nullptr) {
    PelarixHandle device = nullptr;
    EXPECT_EQ(Create(&device, WithoutStrings(kKeyboardDevice), kKeyboardConfig, clientVersion,
                     callback, context),
              Pelarix_Success);
    log_.Clear();
    return device;
  }

  vhub::HubModel &Model() { return hub_->Model(); }
  LogLines Lines() const { return log_.Lines(); }
  // The log without the lines of the device's settings, which tests of
  // their own check.
  LogLines DeviceLines() const {
    LogLines lines;
    for (const LogLine &line : log_.Lines()) {
      if (line.second.rfind("Effective configuration setting", 0) == 0) continue;
      lines.push_back(line);
    }
    return lines;
  }
  void ClearLog() { log_.Clear(); }

  vhub::ScopedHubDirectory directory_;
  std::string registry_;
  LogCapture log_;
  std::unique_ptr<vhub::VirtualHub> hub_;
  PelarixHandle session_ = nullptr;
};

inline std::string Ptr(const void *pointer) {
  return PointerText(pointer);
}

}  // namespace pelarix::testing
