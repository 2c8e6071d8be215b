#pragma once

class wxFileName;
class wxString;

// The type of a plug-in package: what stands between the first and the second '-' of its name,
// which is the file's name without the last extension; with one '-' all that stands behind it, with
// none the whole name. The case is kept. `Feature-RELAY-1.0.0.zkp` is of the type `RELAY`.
wxString GetPluginType(const wxFileName& package);
