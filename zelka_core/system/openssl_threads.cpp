#include "zelka_core/system/openssl_threads.h"

#include <openssl/crypto.h>

namespace ZelkaCore {

void OpenSSLThreadSetup() {
}

void OpenSSLThreadShutdown() {
    OPENSSL_thread_stop();
}

}  // namespace ZelkaCore
