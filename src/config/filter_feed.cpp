#include "config/filter_feed.h"

#include "config/blacklist.h"
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

HDevFilterMgrAgent *FeedFilterManager(SessionSettings *settings, int32_t logLevel) {
  HDevFilterMgrAgent *manager = ordo::usb::CreateFilterManager();
  if (manager == nullptr) {
    LogMessage(kLogFailure, u"Failed to create filter manager");
    return nullptr;
  }
  ordo::usb::SetFilterManagerLog(manager, LogFilterMessage, FilterLogThreshold(logLevel));
  // Blacklist entries stand in the exid list ahead of ExcludeVidPid's, whose
  // letter, coming last, decides the key's sequencing.
  ApplyBlacklist(settings, manager);
  for (const SettingString &setting : settings->filterStrings) {
    if (setting.text != nullptr) {
      ordo::usb::AddFilterString(manager, setting.text, setting.length);
    }
  }
  return manager;
}

}  // namespace pelarix
