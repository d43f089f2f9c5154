// Virtual device records. The frame needs only what destroys one: a release
// that drops a device's last reference ends here.
#pragma once

namespace pelarix {

struct PelarixDevice;

// Unplugs a plugged device, then frees it unless items remain; frees a
// lingering session whose last device this was. May run more than once.
void DestroyDevice(PelarixDevice *device);

}  // namespace pelarix
