#include "apps/start/relay_conflict.h"

#include <wx/filename.h>

#include "zelka_core/archive/plugin_type.h"

RelayPackages FindRelayPackages(const wxArrayString& packages) {
    RelayPackages found;
    for (const wxString& package : packages) {
        const wxString type = ZelkaCore::GetPluginType(wxFileName(package)).Lower();
        if (type == "relay") {
            found.relay = package;
        } else if (type == "edgerelay") {
            found.edgeRelay = package;
        }
    }
    return found;
}

bool AreInConflict(const RelayPackages& packages) {
    return !packages.relay.empty() && !packages.edgeRelay.empty();
}

bool IsArchiveOfOtherKind(const wxString& stem, const RelayPackages& packages) {
    const bool onlyEdge = !packages.edgeRelay.empty() && packages.relay.empty();
    const bool onlyRelay = !packages.relay.empty() && packages.edgeRelay.empty();
    return (onlyEdge && stem.StartsWith("relay")) || (onlyRelay && stem.StartsWith("erelay"));
}
