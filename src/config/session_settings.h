// The setting strings a session reads once at creation and keeps for its
// lifetime. Filled in by the settings reader.
#pragma once

namespace pelarix {

struct SessionSettings {};

}  // namespace pelarix
