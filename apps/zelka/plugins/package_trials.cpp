#include "apps/zelka/plugins/package_trials.h"

#include <wx/filename.h>
#include <wx/log.h>

#include <map>
#include <string>
#include <vector>

#include "zelka_core/package/package_settlement.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

using ZelkaCore::FromUtf8;
using ZelkaCore::ToUtf8;

namespace {

constexpr unsigned long kTrial = 60;  // seconds

std::chrono::seconds LengthOfTrial(const ZelkaCore::CDom& dom) {
    unsigned long seconds = 0;
    const bool isSet = dom.GetWxString("app.packages.trial").ToULong(&seconds);
    return std::chrono::seconds(isSet ? seconds : kTrial);
}

}  // namespace

void PackageTrials::Look(ZelkaCore::CDom& dom, std::chrono::milliseconds uptime) {
    if (!m_areUnderway || uptime < LengthOfTrial(dom)) {
        return;
    }
    m_areUnderway = false;
    const wxFileName bin(dom.GetWxString("app.path.bin"), wxString());
    ZelkaCore::PackageSettlement settlement(*dom.Database());
    std::map<std::string, ZelkaCore::PackageTrial> trials;
    std::vector<std::string> notes;
    if (!settlement.Open(ToUtf8(bin.GetPath(wxPATH_GET_VOLUME)), notes) ||
        !settlement.Records().Trials(trials)) {
        return;
    }
    for (const auto& [package, trial] : trials) {
        if (!trial.needsStart && settlement.Pass(package)) {
            wxLogVerbose("The package %s has passed its trial", FromUtf8(package));
        }
    }
}

void PackageTrials::Forgive(ZelkaCore::CDom& dom) {
    if (m_areUnderway) {
        (void)ZelkaCore::PackageRecords(*dom.Database()).ForgiveFailures();
    }
}
