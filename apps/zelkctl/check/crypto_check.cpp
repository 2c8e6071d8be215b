#include <openssl/conf.h>
#include <openssl/err.h>
#include <wx/filefn.h>

#include <memory>

#include "apps/start/crypto_choice.h"
#include "apps/start/registry_file.h"
#include "apps/zelkctl/check/checks.h"
#include "zelka_core/text.h"

using ZelkaCore::ToUtf8;

namespace {

struct ConfigurationFreer {
    void operator()(CONF* configuration) const { NCONF_free(configuration); }
};

// Without one that it can read OpenSSL has its default provider, or with FIPS no algorithm.
void CheckConfiguration(const CryptoChoice& choice, Findings& findings) {
    const std::string file = ToUtf8(choice.configuration);
    const std::unique_ptr<CONF, ConfigurationFreer> configuration(NCONF_new(nullptr));
    long line = 0;
    if (NCONF_load(configuration.get(), file.c_str(), &line) > 0) {
        return;
    }
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    findings.Error(file, line > 0 ? static_cast<std::size_t>(line) : 0,
                   std::string("OpenSSL does not read it: ") +
                       (reason != nullptr ? reason : "unknown reason"));
    ERR_clear_error();
}

}  // namespace

void CheckCrypto(const Start& start, Findings& findings) {
    const CryptoChoice choice = ChooseCryptoProvider(*start.dom);
    if (!choice.doubt.empty()) {
        findings.Error(RegistryFile(), choice.doubtLine, ToUtf8(choice.doubt));
    }
    if (!choice.complaint.empty()) {
        findings.Error(ToUtf8(choice.missingFile), ToUtf8(choice.complaint));
    } else if (wxFileExists(choice.configuration)) {
        CheckConfiguration(choice, findings);
    }
}
