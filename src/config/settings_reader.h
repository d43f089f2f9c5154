// Readers of single registry values, policy over local: where the policy key
// holds the value, the local key is not asked, and nothing is merged. A null
// key is one that could not be opened, and is skipped. Each reader logs what
// it decides; none fails its caller.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace pelarix {

// A REG_DWORD bounded to [minimum, maximum]. *found (if given) tells whether
// a REG_DWORD was found, 0 included.
uint32_t ReadDwordSetting(platform::RegistryKey policyKey, platform::RegistryKey localKey,
                          uint32_t defaultValue, uint32_t minimum, uint32_t maximum,
                          uint32_t *found, const char *name);

// A REG_SZ behind prefix (a filter key such as "exid:"), allocated with
// std::calloc; *length counts prefix, value and the value's NUL. Null when
// absent or unreadable.
char *ReadStringSetting(platform::RegistryKey policyKey, platform::RegistryKey localKey,
                        const char *prefix, const char *name, uint32_t *length);

// A REG_BINARY of at least one byte, allocated with std::calloc. Null when
// absent, empty or unreadable.
uint8_t *ReadBinarySetting(platform::RegistryKey policyKey, platform::RegistryKey localKey,
                           const char *name, uint32_t *length);

// prefix and then the value's size bytes, in a zero-filled block one byte
// longer than both, so that a text ends in a NUL even where the stored value
// has none of its own. Null if the block cannot be had (silently) or the read
// fails (logged at level 0 with readFailed and name).
uint8_t *ReadValueBehindPrefix(platform::RegistryKey key, const char *name, const char *prefix,
                               uint32_t size, const char16_t *readFailed);

}  // namespace pelarix
