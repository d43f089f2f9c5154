#include "hub/hub_request.h"

#include "frame/log.h"
#include "hub/hub_control_codes.h"

namespace pelarix {

namespace {

struct HubErrorText {
  uint32_t error;
  const char16_t *message;
};

// The hub's own errors, as it reports them when a pending request ends.
constexpr HubErrorText kHubErrorTable[] = {
    {kHubErrorNotificationEventNotSet, u"Item notification event has not been set"},
    {kHubErrorDeviceDescriptorCheck, u"Device descriptor consistency check failed"},
    {kHubErrorConfigDescriptorCheck, u"Configuration descriptor consistency check failed"},
};

void LogPendingFailure(uint32_t error) {
  for (const HubErrorText &entry : kHubErrorTable) {
    if (entry.error == error) {
      LogMessage(kLogFailure, entry.message);
    }
  }
}

}  // namespace

uint32_t HubRequest(platform::HubConnection hubHandle, uint32_t code, const void *input,
                    uint32_t inputLength, void *output, uint32_t outputLength,
                    uint32_t *bytesReturned, platform::Event attachEvent) {
  platform::HubControlResult result = platform::HubControl(
      hubHandle, code, input, inputLength, output, outputLength, bytesReturned, attachEvent);
  if (result.pending && result.error != platform::kErrorSuccess) {
    LogPendingFailure(result.error);
  }
  return result.error;
}

}  // namespace pelarix
