#pragma once

#include <wx/string.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "zelka_core/store/ini_files.h"

class wxConfigBase;

namespace ZelkaCore {
class CDom;
}  // namespace ZelkaCore

// What the ini files say to the agent itself: the keys that stand in no group.

inline constexpr const char* kDefaultApplication = "zelk_agent";
inline constexpr const char* kFipsMode = "FIPSMode";

struct Configuration {
    std::optional<wxString> fipsMode;
    std::optional<std::int64_t> stallLimit;    // milliseconds
    std::optional<std::int64_t> packageTrial;  // seconds
    bool hasFullDumps = false;
    std::vector<std::pair<wxString, std::int64_t>> numbers;  // variables for the database
};

// Takes a key whose value is ignored, so that the default stays, and why.
using Unfit = std::function<void(const wxString& key, const wxString& reason)>;

Configuration ReadConfiguration(const wxConfigBase& config, const Unfit& unfit);

// Which modules they have traced for an application.
wxString TraceListOf(const wxConfigBase& config, const wxString& application);

// Whether the agent looks for a key of that name, be it for another application.
bool IsAgentKey(const wxString& key);

// The files' places, and what they say, in the store, where a limit that is there already stays.
ZelkaCore::IniPaths IniFilesOf(const ZelkaCore::CDom& dom);
void PublishConfiguration(const Configuration& configuration, ZelkaCore::CDom& dom);
