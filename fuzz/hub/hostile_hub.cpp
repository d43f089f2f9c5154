#include "hostile_hub.h"

#include <algorithm>
#include <cstring>

#include "platform/posix/system_error.h"

namespace pelarix::platform {

struct HubDeviceSetObject {
  int unused;
};

struct HubConnectionObject {
  int unused;
};

}  // namespace pelarix::platform

namespace pelarix::fuzzing {
namespace {

// The answers' errors: the hub's own three, what the virtual hub answers for
// bad requests, and a few the library has no words for.
constexpr uint32_t kErrors[] = {0xE0000001, 0xE0000002, 0xE0000003, 1,   31,    87,
                                122,        183,        234,        997, 0x103, 1460};
constexpr uint32_t kOpenErrors[] = {2, 5, 32, 1167, 1460};
constexpr char16_t kHubPath[] = u"/hostile/hub";

struct HubState {
  ScriptReader *script = nullptr;
  bool broken = false;
  int openConnections = 0;
  platform::Event itemEvent = nullptr;
  platform::HubConnectionObject connection{};
  platform::HubDeviceSetObject deviceSet{};
};

HubState gHub;

uint32_t ScriptedError() {
  const uint8_t pick = gHub.script->Byte();
  constexpr size_t kCount = sizeof kErrors / sizeof kErrors[0];
  return pick < kCount ? kErrors[pick] : gHub.script->U32();
}

// Fills the output: all the script has left up to the capacity (flag), or
// a scripted count, with the script's bytes, zero where the script has
// ended. (A long item's capacity may be 64 MiB: whole answers stop with the
// script so that a run does not write megabytes per input.)
uint32_t ScriptedOutput(uint8_t *output, uint32_t capacity, bool whole) {
  if (output == nullptr || capacity == 0) {
    return 0;
  }
  const uint32_t bytes =
      whole ? static_cast<uint32_t>(std::min<size_t>(capacity, gHub.script->Left()))
            : gHub.script->U16() % (capacity + 1);
  for (uint32_t i = 0; i < bytes; ++i) {
    output[i] = gHub.script->Byte();
  }
  return bytes;
}

}  // namespace

void HostileHub::Begin(ScriptReader *script) {
  gHub.script = script;
  gHub.broken = false;
  gHub.openConnections = 0;
  gHub.itemEvent = nullptr;
}

int HostileHub::End() {
  gHub.script = nullptr;
  gHub.itemEvent = nullptr;
  return gHub.openConnections;
}

bool HostileHub::RaiseItemEvent() {
  if (gHub.itemEvent == nullptr) {
    return false;
  }
  platform::SetEvent(gHub.itemEvent);
  return true;
}

}  // namespace pelarix::fuzzing

namespace pelarix::platform {

using fuzzing::gHub;

uint32_t HubGetDeviceSet(HubDeviceSet *out) {
  *out = &gHub.deviceSet;
  return kErrorSuccess;
}

uint32_t HubEnumFirstInterface(HubDeviceSet set) {
  return set != nullptr ? kErrorSuccess : kErrorNoMoreItems;
}

uint32_t HubGetInterfacePath(HubDeviceSet set, char16_t *path, uint32_t pathChars,
                             uint32_t *requiredChars) {
  if (set == nullptr) {
    return kErrorNoMoreItems;
  }
  *requiredChars = sizeof fuzzing::kHubPath / sizeof fuzzing::kHubPath[0];
  if (path == nullptr || pathChars < *requiredChars) {
    return kErrorInsufficientBuffer;
  }
  std::memcpy(path, fuzzing::kHubPath, sizeof fuzzing::kHubPath);
  return kErrorSuccess;
}

void HubDestroyDeviceSet(HubDeviceSet /*set*/) {}

// Opens unless the script's byte names one of the open errors.
uint32_t HubOpen(const char16_t * /*path*/, HubConnection *out) {
  *out = nullptr;
  if (gHub.script == nullptr) {
    return kErrorFileNotFound;
  }
  const uint8_t pick = gHub.script->Byte();
  constexpr size_t kCount = sizeof fuzzing::kOpenErrors / sizeof fuzzing::kOpenErrors[0];
  if (pick < kCount) {
    return fuzzing::kOpenErrors[pick];
  }
  ++gHub.openConnections;
  *out = &gHub.connection;
  return kErrorSuccess;
}

void HubClose(HubConnection hub) {
  if (hub != nullptr) {
    --gHub.openConnections;
  }
}

// One answer: byte 0 bit 7 breaks the connection for good, bits 0-1 choose
// success or an error, at once or after pending, bit 2 asks for the whole
// capacity; then the error (if any) and the output.
HubControlResult HubControl(HubConnection hub, uint32_t /*code*/, const void *input,
                            uint32_t inputLength, void *output, uint32_t outputLength,
                            uint32_t *bytesReturned, Event attachEvent) {
  *bytesReturned = 0;
  const bool buffersMissing =
      (input == nullptr && inputLength != 0) || (output == nullptr && outputLength != 0);
  if (hub == nullptr || buffersMissing) {
    return {kErrorInvalidParameter, false};
  }
  if (attachEvent != nullptr) {
    gHub.itemEvent = attachEvent;
  }
  if (gHub.script == nullptr || gHub.script->Done() || gHub.broken) {
    return {kErrorDeviceNotConnected, false};
  }
  const uint8_t shape = gHub.script->Byte();
  if ((shape & 0x80) != 0) {
    gHub.broken = true;
    return {kErrorDeviceNotConnected, false};
  }
  const bool failed = (shape & 1) != 0;
  const bool pending = (shape & 2) != 0;
  const uint32_t error = failed ? fuzzing::ScriptedError() : kErrorSuccess;
  *bytesReturned =
      fuzzing::ScriptedOutput(static_cast<uint8_t *>(output), outputLength, (shape & 4) != 0);
  return {error, pending};
}

}  // namespace pelarix::platform
