// A USB/IP host as the tests and the benchmark play it: one TCP connection
// to the server, the operation phase (list, import), then commands and their
// returns, and bulk-only storage commands on top. It remembers the direction
// and packet count of every submit, since a return carries neither, to know
// what follows a return's header.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "usbip_wire.h"

namespace pelarix::usbip {

// A return as received: RET_SUBMIT's fields (RET_UNLINK's status), which
// command it was, and its 48-byte header as it came.
struct Reply : UrbReturn {
  uint32_t command = 0;
  std::vector<uint8_t> header;
};

using Setup = std::array<uint8_t, 8>;

class UsbipClient {
 public:
  UsbipClient() = default;
  ~UsbipClient();
  UsbipClient(const UsbipClient &) = delete;
  UsbipClient &operator=(const UsbipClient &) = delete;

  bool Connect(uint16_t port);
  // The device list's whole reply, read until the server closes.
  std::vector<uint8_t> List();
  // Imports a device: the reply's status, and on success the 312-byte record.
  uint32_t Import(const std::string &busId, std::vector<uint8_t> *record = nullptr);

  // Commands. Each returns the seqnum it used (one counter for all).
  uint32_t Submit(uint32_t ep, bool in, const Setup &setup, const std::vector<uint8_t> &out,
                  uint32_t length, uint32_t flags = 0, const std::vector<IsoPacket> &iso = {});
  uint32_t Unlink(uint32_t target);
  // The next return, or nothing when the connection ends or none comes in
  // time.
  std::optional<Reply> Read(int timeoutMs = 10000);

  // A submit and its return.
  std::optional<Reply> Control(const Setup &setup, uint32_t length,
                               const std::vector<uint8_t> &out = {});
  std::optional<Reply> In(uint32_t ep, uint32_t length);
  std::optional<Reply> Out(uint32_t ep, const std::vector<uint8_t> &data);

  // One bulk-only storage command: its wrapper to endpoint `out`, the data
  // phase (read into or written from *data), the status from `in`; false
  // when a stage fails or the status is not the command's or not good.
  bool Scsi(uint8_t in, uint8_t out, uint32_t tag, const std::vector<uint8_t> &block,
            uint32_t length, bool toHost, std::vector<uint8_t> *data);

  bool SendRaw(const std::vector<uint8_t> &bytes);
  // True when the server closed the connection within the time.
  bool WaitClosed(int timeoutMs = 10000);
  void Close();

  uint32_t devid = 0;
  uint32_t nextSeqnum = 1;

 private:
  bool ReadExact(uint8_t *bytes, size_t length, int timeoutMs);

  int fd_ = -1;
  struct Sent {
    bool in;
    size_t packets;
  };
  std::map<uint32_t, Sent> sent_;
};

// Setup packets of the standard requests.
Setup GetDescriptorSetup(uint8_t type, uint8_t index, uint16_t language, uint16_t length);
Setup SetConfigurationSetup(uint8_t value);
Setup GetConfigurationSetup();

}  // namespace pelarix::usbip
