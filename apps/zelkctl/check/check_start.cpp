#include "apps/start/trust_folder.h"
#include "apps/zelkctl/check/checks.h"

void CheckStart(const Start& start, Findings& findings) {
    CheckRegistry(start, findings);
    CheckWorkdir(start, findings);
    if (start.workdir.problem.empty()) {
        CheckIniFiles(start, findings);
        CheckDatabase(start, findings);
    }
    CheckCrypto(start, findings);
    CheckTrust(kTrustFolder, findings);
    CheckPackages(start, findings);
    CheckApplication(start, findings);
}
