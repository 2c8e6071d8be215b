#pragma once

#include <cstdio>
#include <ctime>
#include <string>

namespace ZelkaCore {

// What somebody signs with: paths of files in PEM.
struct SigningFiles {
    std::string key;          // a passphrase is asked for at the terminal
    std::string certificate;  // the signer's, and behind it others that its chain goes through
    std::string chain = {};   // more of these, if it is not empty
};

// Makes a signature of the content of `package`, read from its beginning. True puts it into
// `signature` and the signer's name into `signer`. False, with what is wrong in `fault`, also for a
// certificate with which no package may be signed now.
bool MakeSignature(std::FILE* package, const SigningFiles& files, std::time_t now,
                   std::string& signature, std::string& signer, std::string& fault);

}  // namespace ZelkaCore
