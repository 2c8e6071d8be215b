#pragma once

#include "platform/service.h"

// What the service manager calls; both hand on to the application object.

// The service's body: gives its thread a log target of its own and runs CAgentApp::ServiceMain.
void ServiceMainEntry(DWORD argc, const wchar_t** argv);

// The handler of controls; `context` is the CAgentApp.
DWORD ServiceCtrlEntry(DWORD control, DWORD eventType, void* eventData, void* context);
