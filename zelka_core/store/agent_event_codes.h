#pragma once

namespace ZelkaCore {

// The codes of the agent events that the host itself writes; applications may use any others. Each
// has a kind in the journal (event_journal.h).
enum AgentEventCode : int {
    kEventPackageInstalled = 5101,
    kEventPackageNotInstalled = 5102,
    kEventPackageTakenBack = 5103,
    kEventPackageRemoved = 5105,
    kEventPackageNotRemoved = 5106,
    kEventTaskFailed = 5201,
    kEventStalled = 5202,
};

}  // namespace ZelkaCore
