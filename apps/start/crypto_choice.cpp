#include "apps/start/crypto_choice.h"

#include <wx/file.h>
#include <wx/filename.h>

#include <optional>

#include "apps/start/fips_decision.h"
#include "platform/fips.h"
#include "platform/regkey.h"
#include "zelka_core/store/dom.h"

namespace {

constexpr const char* kPolicyKey = R"(System\CurrentControlSet\Control\Lsa\FIPSAlgorithmPolicy)";
constexpr const char* kPolicyValue = "Enabled";

// The registry's value if there is one, else what the system was started with.
std::optional<long> SystemFipsPolicy(CryptoChoice& choice) {
    wxRegKey key(wxRegKey::HKLM, kPolicyKey);
    long policy = 0;
    if (key.Open(wxRegKey::Read) && key.HasValue(kPolicyValue)) {
        if (key.QueryValue(kPolicyValue, &policy)) {
            return policy;
        }
        choice.doubt = wxString::Format(
            "Registry value '%s' of '%s' is not a number and is ignored", kPolicyValue, kPolicyKey);
        choice.doubtLine = key.LineOf(kPolicyValue);
        return std::nullopt;
    }
    return SystemFipsFlag();
}

}  // namespace

CryptoChoice ChooseCryptoProvider(const ZelkaCore::CDom& dom) {
    CryptoChoice choice;
    choice.lib = dom.GetWxString("app.path.lib");
    const auto inLib = [&](const char* name) { return wxFileName(choice.lib, name).GetFullPath(); };
    choice.isFips = IsFipsOn(
        FipsSetting(dom.GetWxString("app.fipsmode"), [&] { return SystemFipsPolicy(choice); }));
    choice.configuration = inLib(choice.isFips ? "openssl-fips.cnf" : "openssl-default.cnf");
    if (!choice.isFips) {
        return choice;
    }
    if (const wxString module = inLib("fips.so"); !wxFile::Exists(module)) {
        choice.missingFile = module;
        choice.complaint = "FIPS library doesn't exist";
    } else if (!wxFile::Exists(choice.configuration)) {
        choice.missingFile = choice.configuration;
        choice.complaint = "FIPS configuration file doesn't exist";
    }
    return choice;
}
