#include "zelka_core/package/package_signature.h"

#include <string>

#include "fuzz/fuzz_target.h"
#include "platform/file.h"
#include "tests/support/scratch_folder.h"
#include "zelka_core/package/trust_folder.h"

namespace {

constexpr std::time_t kNow = 1'800'000'000;

// Its key is lost, like that of the corpus' maker, whose certificate it has issued.
constexpr const char* kRoot = R"(-----BEGIN CERTIFICATE-----
MIIBXzCCAQWgAwIBAgIUVDNthCk4UFAmOqmOmfRuIWLBVnQwCgYIKoZIzj0EAwIw
DzENMAsGA1UEAwwEUm9vdDAeFw0yNjExMjMxNjEyMTBaFw00NjExMTgxNjEyMTBa
MA8xDTALBgNVBAMMBFJvb3QwWTATBgcqhkjOPQIBBggqhkjOPQMBBwNCAASjVRF3
Ekr4yA7Bpl5tl4ZdKHr54AP1HbxBWHia5vjEihjWxc3GEaumgc7oGlbAI0P3k9/h
FGHzj2NoVx4btosRoz8wPTAPBgNVHRMBAf8EBTADAQH/MAsGA1UdDwQEAwIBBjAd
BgNVHQ4EFgQUuTFRCO66aNaeqfU3v/OOWwhDKBMwCgYIKoZIzj0EAwIDSAAwRQIh
AJScYsPvBrjc3+XEOZxARUFZFXjZ0TBXaYco3rEfu80vAiBYf9Wzmlr8L1WRyUx9
K7KzQmXhaM82f8McXgoWOjvBOA==
-----END CERTIFICATE-----
)";

bool IsAccepted(const std::string& signature, std::string package,
                const ZelkaCore::TrustFolder& trust) {
    const FileStream file(fmemopen(package.data(), package.size(), "rb"));
    std::string signer;
    std::string fault;
    const bool isGood =
        ZelkaCore::CheckSignature(file.get(), signature, trust, kNow, nullptr, signer, fault);
    Require(isGood ? signer == "CN=Maker" && fault.empty() : signer.empty() && !fault.empty());
    return isGood;
}

}  // namespace

// Whatever stands in a signature: nobody but the maker has signed, and nothing but these bytes.
void RunOnInput(std::string_view input) {
    static const ZelkaCore::TrustFolder trust = [] {
        const ScratchFolder scratch;
        (void)scratch.Write("root.pem", kRoot);
        ZelkaCore::TrustFolder read(scratch.Path());
        Require(IsAccepted(ReadFile(ZELKA_CORPUS "/good"), "the bytes of a package", read));
        return read;
    }();
    const std::string signature(input);
    (void)IsAccepted(signature, "the bytes of a package", trust);
    Require(!IsAccepted(signature, "the bytes of a packagf", trust));
}
