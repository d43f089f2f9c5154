#include "ordo/usb/dev_filter_mgr.h"

#include "ordo/usb/filter_dictionary.h"

namespace ordo::usb {

DevFilterMgr::~DevFilterMgr() {
  FilterDictionary::releaseInstance();
}

}  // namespace ordo::usb
