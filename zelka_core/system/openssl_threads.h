#pragma once

namespace ZelkaCore {

// Makes OpenSSL fit for the threads that follow, and undoes that. OpenSSL 3 locks by itself; what
// is left is its per-thread data, which the thread that calls the second function gives back.
void OpenSSLThreadSetup();
void OpenSSLThreadShutdown();

}  // namespace ZelkaCore
