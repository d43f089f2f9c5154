// The USB descriptor model: configurations, interfaces, groups, families.
#pragma once

#include "ordo/usb/log_hook.h"
