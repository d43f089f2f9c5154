// The filter language: dictionary, values, filter lists, matchers, filter log.
#pragma once

#include "ordo/usb/log_hook.h"
