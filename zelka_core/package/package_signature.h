#pragma once

#include <cstdio>
#include <ctime>
#include <string>

namespace ZelkaCore {

class TrustFolder;

// The signature of a package's file is a file beside: a detached CMS signature in DER, as
// `openssl cms -sign -binary -outform DER` makes one.
inline constexpr const char* kSignatureEnding = ".p7s";
inline constexpr std::size_t kLargestSignature = 0x100000;

// Judges a signature of the content of `package`, which is read from its beginning, in pieces;
// `progress`, if it is not null, is called again and again meanwhile. It has to be by one signer
// who may sign packages now (TrustFolder::SignerFault), with a digest of 256 bits at least.
//
// True puts the signer's name (SubjectOf) into `signer`. False tells why in `fault`, fit to follow
// the package's name. Works with the cryptographic provider in use. The signature counts as
// hostile.
bool CheckSignature(std::FILE* package, const std::string& signature, const TrustFolder& trust,
                    std::time_t now, void (*progress)(), std::string& signer, std::string& fault);

}  // namespace ZelkaCore
