// Everything of the device filter engine and the USB descriptor model, for a
// program on either end of the redirection path.
#pragma once

#include "ordo/usb/cxx20.h"
#include "ordo/usb/filter_language.h"
#include "ordo/usb/usb_model.h"
