#include "apps/start/registry_file.h"
#include "apps/zelkctl/check/checks.h"
#include "platform/regkey.h"
#include "zelka_core/text.h"

using ZelkaCore::ToUtf8;

void CheckRegistry(const Start& start, Findings& findings) {
    const std::string file = RegistryFile();
    for (const RegistryFault& fault : RegistryFaults()) {
        findings.Error(file, fault.line, fault.text);
    }
    const Workdir& workdir = start.workdir;
    if (workdir.isStandIn) {
        findings.Error(file, "has no value '" + ToUtf8(workdir.given) +
                                 "': the working folder is that of the program, " +
                                 ToUtf8(workdir.folder));
    } else if (workdir.registryLine != 0 && !workdir.problem.empty()) {
        findings.Error(file, workdir.registryLine, ToUtf8(workdir.problem));
    }
}
