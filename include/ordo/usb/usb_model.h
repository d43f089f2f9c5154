// The USB descriptor model: configurations, interfaces, groups, families.
#pragma once

#include "ordo/usb/cxx20.h"
#include "ordo/usb/descriptor_view.h"
#include "ordo/usb/dev_family.h"
#include "ordo/usb/hex_text.h"
#include "ordo/usb/log_hook.h"
#include "ordo/usb/union_functional_descriptor.h"
#include "ordo/usb/usb_config_log.h"
#include "ordo/usb/usb_device_config.h"
#include "ordo/usb/usb_select_records.h"
