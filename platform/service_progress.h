#pragma once

#include <string>

// Word to the service manager while a service starts and has long work to do. Nothing happens
// unless a service manager started this process (NOTIFY_SOCKET is set), and a message that does not
// arrive is no failure. Any thread.

// Shows `status` (UTF-8, one line) as what the service is at, and asks for patience as
// ExtendServiceTimeout does.
void ReportServiceProgress(const std::string& status);

// Asks the service manager to wait for five more minutes from now before it gives the start up. May
// be called as often as there is something to tell: at most one message a second goes out.
void ExtendServiceTimeout();
