// Which provider OpenSSL works with: decided once, before any other thread exists.

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <wx/log.h>

#include <cstdlib>

#include "apps/start/crypto_choice.h"
#include "apps/zelka/host/start_failure.h"
#include "apps/zelka/zelka.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

using ZelkaCore::ToUtf8;

void CAgentApp::SelectCryptoProvider() const {
    const CryptoChoice choice = ChooseCryptoProvider(*m_pDom);
    if (!choice.doubt.empty()) {
        wxLogWarning("%s", choice.doubt);
    }
    const std::string configuration = ToUtf8(choice.configuration);
    (void)OSSL_PROVIDER_set_default_search_path(nullptr, ToUtf8(choice.lib).c_str());
    if (!choice.isFips) {
        (void)OSSL_LIB_CTX_load_config(nullptr, configuration.c_str());
        ZELKA_TRACE("Appl", "CAgentApp::OnRun", "FIPS provider is not loaded");
        return;
    }
    if (!choice.complaint.empty()) {
        ReportFailedStart(choice.complaint);
        std::exit(1);
    }
    // If the module does not load, the property leaves no algorithm to be found: nothing runs
    // unapproved.
    (void)OSSL_LIB_CTX_load_config(nullptr, configuration.c_str());
    (void)EVP_default_properties_enable_fips(nullptr, 1);
    ZELKA_TRACE("Appl", "CAgentApp::OnRun", "FIPS provider is loaded");
}
