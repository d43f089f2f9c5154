// The engine's public headers need C++20: the engine is written, built and
// tested at that level only, and its classes must look the same to a program
// as to the library that it links (an older standard may compile the headers
// yet lay things out or resolve calls differently). Every header includes
// this one, so a program built to an older standard is told so in one line.
// Build with -std=c++20 (GCC, Clang) or /std:c++20 (MSVC); the CMake
// package's pelarix::ordo_usb asks for it by itself.
#pragma once

#if defined(_MSVC_LANG)
#define ORDO_USB_CXX_LEVEL _MSVC_LANG
#elif defined(__cplusplus)
#define ORDO_USB_CXX_LEVEL __cplusplus
#else
#error "the ordo/usb headers are C++: include them from a C++20 translation unit"
#endif
#if ORDO_USB_CXX_LEVEL < 202002L
#error "the ordo/usb headers need C++20 (-std=c++20, /std:c++20)"
#endif
#undef ORDO_USB_CXX_LEVEL
