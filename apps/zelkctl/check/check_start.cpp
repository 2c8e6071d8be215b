#include "apps/zelkctl/check/checks.h"
#include "zelka_core/package/trust_folder.h"

void CheckStart(const Start& start, Findings& findings) {
    CheckRegistry(start, findings);
    CheckWorkdir(start, findings);
    if (start.workdir.problem.empty()) {
        CheckIniFiles(start, findings);
        CheckDatabase(start, findings);
    }
    CheckCrypto(start, findings);
    CheckTrust(ZelkaCore::kTrustFolder, findings);
    CheckPackages(start, findings);
    CheckApplication(start, findings);
}
