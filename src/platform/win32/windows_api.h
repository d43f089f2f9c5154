// The Windows headers as the platform layer includes them. <windows.h> maps
// CreateEvent to CreateEventW by a macro, which would rename the layer's own
// function of that name; the layer calls the W functions by their full names.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#undef CreateEvent
