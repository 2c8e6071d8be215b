// Which provider OpenSSL works with: decided once, before any other thread exists.

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <wx/file.h>
#include <wx/filename.h>
#include <wx/log.h>

#include <cstdlib>

#include "apps/zelka/host/fips_decision.h"
#include "apps/zelka/host/start_failure.h"
#include "apps/zelka/zelka.h"
#include "platform/fips.h"
#include "platform/regkey.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

using ZelkaCore::ToUtf8;

namespace {

constexpr const char* kPolicyKey = R"(System\CurrentControlSet\Control\Lsa\FIPSAlgorithmPolicy)";
constexpr const char* kPolicyValue = "Enabled";

// The registry's value if there is one, else what the system was started with.
std::optional<long> SystemFipsPolicy() {
    wxRegKey key(wxRegKey::HKLM, kPolicyKey);
    long policy = 0;
    if (key.Open(wxRegKey::Read) && key.HasValue(kPolicyValue)) {
        if (key.QueryValue(kPolicyValue, &policy)) {
            return policy;
        }
        wxLogWarning("Registry value '%s' of '%s' is not a number and is ignored", kPolicyValue,
                     kPolicyKey);
        return std::nullopt;
    }
    return SystemFipsFlag();
}

void RequireFile(const wxString& path, const char* complaint) {
    if (!wxFile::Exists(path)) {
        ReportFailedStart(complaint);
        std::exit(1);
    }
}

}  // namespace

void CAgentApp::SelectCryptoProvider() const {
    const wxString lib = m_pDom->GetWxString("app.path.lib");
    const auto inLib = [&lib](const char* name) { return wxFileName(lib, name).GetFullPath(); };
    const wxString fips = FipsSetting(m_pDom->GetWxString("app.fipsmode"), SystemFipsPolicy);

    (void)OSSL_PROVIDER_set_default_search_path(nullptr, ToUtf8(lib).c_str());
    if (!IsFipsOn(fips)) {
        (void)OSSL_LIB_CTX_load_config(nullptr, ToUtf8(inLib("openssl-default.cnf")).c_str());
        ZELKA_TRACE("Appl", "CAgentApp::OnRun", "FIPS provider is not loaded");
        return;
    }
    RequireFile(inLib("fips.so"), "FIPS library doesn't exist");
    const wxString configuration = inLib("openssl-fips.cnf");
    RequireFile(configuration, "FIPS configuration file doesn't exist");
    // If the module does not load, the property leaves no algorithm to be found: nothing runs
    // unapproved.
    (void)OSSL_LIB_CTX_load_config(nullptr, ToUtf8(configuration).c_str());
    (void)EVP_default_properties_enable_fips(nullptr, 1);
    ZELKA_TRACE("Appl", "CAgentApp::OnRun", "FIPS provider is loaded");
}
