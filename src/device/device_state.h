// Reads and writes of the device fields that some paths touch without the
// device's lock: the state (the unlocked check of an unplug), the flags (the
// getter and setter take no lock) and the pump's traffic counters.
#pragma once

#include <atomic>
#include <cstdint>

#include "device/device.h"

namespace pelarix {

inline uint32_t LoadField(const uint32_t &field) {
  return std::atomic_ref<uint32_t>(const_cast<uint32_t &>(field)).load(std::memory_order_relaxed);
}

inline void StoreField(uint32_t &field, uint32_t value) {
  std::atomic_ref<uint32_t>(field).store(value, std::memory_order_relaxed);
}

inline uint32_t DeviceStateOf(const PelarixDevice *device) {
  return LoadField(device->state);
}

inline void SetDeviceState(PelarixDevice *device, DeviceState state) {
  StoreField(device->state, state);
}

}  // namespace pelarix
