// Item records. The frame needs only what destroys one: a release that drops
// an item's last reference ends here.
#pragma once

namespace pelarix {

struct PelarixItem;

// Completes an item nobody completed (status 0xFFFFFFFF), unlinks and frees
// it, and frees a lingering device whose last item this was.
void DestroyItem(PelarixItem *item);

}  // namespace pelarix
