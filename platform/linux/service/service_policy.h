#pragma once

#include <span>
#include <string>

#include "platform/service.h"

// What a service manager does with a control, and how a report reads for systemd. Decided from the
// last report alone, without a system to ask.

enum class ControlFate {
    kDeliver,  // to the handler
    kHold,     // until the next report, then ask again
    kRefuse,   // the service does not accept it
    kDrop,     // it has no meaning at this time
};

// `last` is the last report; its state is 0 if there is none yet. `own` are the application's
// controls.
ControlFate JudgeControl(DWORD control, const SERVICE_STATUS& last,
                         std::span<const ServiceControl> own);

// Whether a report asks for a unit that cannot be stopped by hand.
bool IsHardened(const SERVICE_STATUS& status);

// A report as sd_notify takes it. A line end in the text becomes a blank.
std::string NotificationText(const SERVICE_STATUS& status, const std::string& text);

// The name of a service by its systemd unit: without `.service`. Anything else gives `otherwise`.
std::string ServiceNameOf(const std::string& unit, const std::string& otherwise);
