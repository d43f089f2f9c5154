#include "config/filter_feed.h"

#include "frame/log.h"

namespace pelarix {

uint32_t FilterLogThreshold(int32_t logLevel) {
  switch (logLevel) {
    case 0:
      return 3;
    case 1:
      return 2;
    case 2:
      return 1;
    case 3:
      return 0;
    default:
      return 1;
  }
}

HDevFilterMgrAgent *FeedFilterManager(const SessionSettings & /*settings*/, int32_t logLevel) {
  HDevFilterMgrAgent *manager = ordo::usb::CreateFilterManager();
  if (manager == nullptr) {
    LogMessage(kLogFailure, u"Failed to create filter manager");
    return nullptr;
  }
  ordo::usb::SetFilterManagerLog(manager, LogFilterMessage, FilterLogThreshold(logLevel));
  return manager;
}

}  // namespace pelarix
