// The client's filter manager: the whole decision on a device for a program
// on the client end of the redirection path, where the device is plugged
// in. It weighs the client's own filter strings ("local") against the
// agent's ("remote", read from the blob that the agent's library writes)
// and runs the combined phases on the merged list, then the agent's Remote
// phase on the agent's list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/dev_filter_mgr.h"
#include "ordo/usb/dev_filter_result.h"
#include "ordo/usb/filter_settings.h"
#include "ordo/usb/filter_types.h"
#include "ordo/usb/log_hook.h"

namespace ordo::usb {

class DevFilterMgrClient : public DevFilterMgr {
 public:
  // local gets the full table of defaults (every boolean key), remote the
  // short one (only exalldev); merged stays empty until the first merge.
  DevFilterMgrClient();

  // The filter log of the whole process (SetFilterLogHook): lines at or
  // above the engine level `threshold` reach the hook. Engine levels run
  // the other way round from the library's log levels: 0 detail, 1
  // information (every decision line), 2 warning, 4 error.
  void SetLogHook(LogHook hook, uint32_t threshold);

  // No gate: the filter list's own checks are all a client string passes,
  // also for the agent's strings added this way.
  void AddFilterRule(const std::string &text, bool isLocal);
  void ClearFilterRules(bool isLocal);

  // The binary form of one list (FilterList::encode): its length, and with
  // a buffer of that length the bytes.
  uint32_t GetFilterBlob(uint8_t *buffer, bool isLocal) const;
  // Appends a blob to one list. The agent's blob is read only while the
  // local list does not say blockremoteconfig, so local strings go first.
  // This form trusts the blob to be whole and answers true.
  bool ReadFilterBlob(const uint8_t *blob, bool isLocal);
  // The same for a blob from elsewhere: never reads past blob + length, and
  // answers false when the blob ran out (what was read whole is kept). A
  // blob of length 0 is the agent's list without values: nothing to read.
  bool ReadFilterBlob(const uint8_t *blob, size_t length, bool isLocal);

  // Rebuilds merged from local and remote, under the sequencing that remote
  // declares, when either changed since the last merge.
  void MergeFilterLists();

  // The whole decision. deviceDesc is the 18-byte device descriptor,
  // configDesc configCount configuration sets back to back (a negative
  // count: as many as the device declares), pathInfo the device's place on
  // the bus or null. False, with result untouched, when a descriptor is
  // missing and the failsafe is off. Otherwise result says: blocked when
  // IsDeviceAllowed is false, split when IsSplit is true (and
  // GetAllowedInterfaces names what goes), forwarded whole otherwise. Give
  // it a fresh result.
  bool EvaluateDevice(const uint8_t *deviceDesc, const uint8_t *configDesc, int32_t configCount,
                      const uint32_t *pathInfo, DevFilterResult &result);

  bool IsSplittingAllowed();
  bool IsBootFilterAllowed() const;
  bool IsRemoteConfigAllowed() const;
  // With it, a device without a configuration descriptor is still judged
  // (only a path or id inclusion can let it pass), and one without any
  // descriptor is passed as the caller's result says.
  void SetAllowDevDescFailsafe(bool value);

  // A boolean filter of the program's own (exalldev or usehid to
  // blockremoteconfig) into local and merged at once, without a merge. An
  // earlier filter of the type still comes first and so still decides.
  void SetHint(FilterType type, bool value);

  // The frame of a split test: two lines and a result dump, no rule.
  void TestSplitRules(const std::string &deviceId, const std::string &family);
  void PrintFilterLists() const;

  const FilterSettings &local() const { return local_; }
  const FilterSettings &remote() const { return remote_; }
  const FilterSettings &merged() const { return merged_; }

 private:
  void RunPhases(const uint8_t *deviceDesc, const uint8_t *configDesc, int32_t configCount,
                 const uint32_t *pathInfo, DevFilterResult &result);
  bool ReadRemoteBlob(const uint8_t *blob, const size_t *length);
  FilterSettings &Side(bool isLocal) { return isLocal ? local_ : remote_; }

  bool allowDevDescFailsafe_ = false;
  FilterSettings local_;
  FilterSettings remote_;
  FilterSettings merged_;
  bool localDirty_ = true;
  bool remoteDirty_ = true;
};

}  // namespace ordo::usb
