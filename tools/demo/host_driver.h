// The host side's driver of one plugged device: enumeration through items,
// checked against the plug-in record the hub received, then the class
// traffic its interfaces call for.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "descriptor_set.h"
#include "host_side.h"

namespace pelarix::demo {

class HostDriver {
 public:
  HostDriver(HostSide &host, uint32_t plugNo, std::vector<uint8_t> pluginRecord,
             HostOptions options);

  // Enumerates and drives the device; the report says what passed.
  HostDeviceReport Run();

 private:
  std::optional<std::vector<uint8_t>> Request(const std::vector<uint8_t> &block);
  // A read of a descriptor or a bulk/interrupt pipe: the data it returned.
  std::optional<std::vector<uint8_t>> Read(const std::vector<uint8_t> &block);
  bool Write(uint32_t pipeHandle, const std::vector<uint8_t> &data);
  void Fail(const std::string &problem);

  bool ReadDescriptors();
  bool ReadStrings();
  std::optional<std::vector<uint8_t>> ReadString(uint8_t index, uint16_t language);
  bool SelectConfiguration();
  void GetStatus();

  // Storage: bulk-only transport on a mass-storage interface.
  void DriveStorage(const InterfaceLayout &interface);
  bool ScsiCommand(const std::vector<uint8_t> &command, uint32_t length, bool toHost,
                   std::vector<uint8_t> *data);
  bool VerifyDisk();

  // Keyboard: the reports of a boot keyboard's interrupt-in pipe.
  void DriveKeyboard(const InterfaceLayout &interface);

  HostSide &host_;
  uint32_t plugNo_;
  std::vector<uint8_t> pluginRecord_;
  HostOptions options_;
  HostDeviceReport report_;
  std::vector<uint8_t> device_;
  std::vector<uint8_t> config_;
  std::map<uint8_t, uint32_t> pipeOfEndpoint_;
  uint32_t bulkIn_ = 0;
  uint32_t bulkOut_ = 0;
  uint32_t tag_ = 0;
};

}  // namespace pelarix::demo
