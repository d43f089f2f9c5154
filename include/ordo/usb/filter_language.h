// The filter language: dictionary, values, filter lists, matchers, filter log,
// the decision phases and the two managers.
#pragma once

#include "ordo/usb/auto_filter.h"
#include "ordo/usb/cxx20.h"
#include "ordo/usb/dev_filter_device.h"
#include "ordo/usb/dev_filter_mgr.h"
#include "ordo/usb/dev_filter_mgr_agent.h"
#include "ordo/usb/dev_filter_mgr_client.h"
#include "ordo/usb/dev_filter_result.h"
#include "ordo/usb/filter_dictionary.h"
#include "ordo/usb/filter_entry_points.h"
#include "ordo/usb/filter_list.h"
#include "ordo/usb/filter_log.h"
#include "ordo/usb/filter_phases.h"
#include "ordo/usb/filter_settings.h"
#include "ordo/usb/filter_text.h"
#include "ordo/usb/filter_types.h"
#include "ordo/usb/flt_matcher.h"
#include "ordo/usb/flt_str_helper.h"
#include "ordo/usb/flt_value.h"
#include "ordo/usb/log_hook.h"
