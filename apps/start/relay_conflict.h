#pragma once

#include <wx/arrstr.h>
#include <wx/string.h>

// An installation is a relay or an edge relay, never both. These rules say what has to go so that
// it stays that way; they look at no file.

// The relay package and the edge relay package of a start, as paths; empty for none.
struct RelayPackages {
    wxString relay;
    wxString edgeRelay;
};

// The last package of each kind, in the order given. The type counts without regard to case.
RelayPackages FindRelayPackages(const wxArrayString& packages);

// Whether there is one of each kind: then both have to go.
bool AreInConflict(const RelayPackages& packages);

// Whether a Lua archive in the extension folder belongs to the other kind than the one package that
// there is. `stem` is the archive's name without its last extension, taken with regard to case. The
// archive of the relay begins with `relay`, that of the edge relay with `erelay`.
bool IsArchiveOfOtherKind(const wxString& stem, const RelayPackages& packages);
