#include "apps/start/configuration.h"

#include <wx/confbase.h>

#include <limits>
#include <set>

#include "zelka_core/store/dom.h"
#include "zelka_core/store/sqlite_database.h"
#include "zelka_core/text.h"

using ZelkaCore::CDom;
using ZelkaCore::FromUtf8;

namespace {

constexpr const char* kStallLimit = "StallLimit";
constexpr const char* kPackageTrial = "PackageTrial";
constexpr const char* kDumpLevel = "DumpLevel";
constexpr const char* kTrace = "Trace";
constexpr const char* kDatabase = "sqlite.config";  // begins the names of its keys

constexpr const char* kDefaultTrace =
    "Appl,Cmd,Srvc,zelka.Heartbeat,zelka.ListenThread,zelka.PluginUtils";

// The value of a key; nothing if it has none, or one that is no number or below `lowest`.
std::optional<long> ReadNumber(const wxConfigBase& config, const wxString& key, const Unfit& unfit,
                               long lowest = std::numeric_limits<long>::min()) {
    wxString text;
    long number = 0;
    if (!config.Read(key, &text)) {
        return std::nullopt;
    }
    if (config.Read(key, &number) && number >= lowest) {
        return number;
    }
    unfit(key, wxString::Format("is '%s', which is not a whole number", text) +
                   (lowest == 0 ? " from 0 on" : ""));
    return std::nullopt;
}

// The names of the keys for the database's tuning.
std::set<wxString> TuningKeys() {
    std::set<wxString> names;
    (void)ZelkaCore::TuningFrom([&](const std::string& name) {
        names.insert(FromUtf8(name));
        return std::string();
    });
    return names;
}

}  // namespace

Configuration ReadConfiguration(const wxConfigBase& config, const Unfit& unfit) {
    Configuration configuration;
    wxString fipsMode;
    if (config.Read(kFipsMode, &fipsMode)) {
        configuration.fipsMode = fipsMode;
    }
    configuration.stallLimit = ReadNumber(config, kStallLimit, unfit, 0);
    configuration.packageTrial = ReadNumber(config, kPackageTrial, unfit, 0);
    configuration.hasFullDumps = ReadNumber(config, kDumpLevel, unfit).value_or(0) != 0;
    wxString name;
    long cookie = 0;
    for (bool more = config.GetFirstEntry(name, cookie); more;
         more = config.GetNextEntry(name, cookie)) {
        if (!name.StartsWith(kDatabase)) {
            continue;
        }
        if (const auto number = ReadNumber(config, name, unfit)) {
            configuration.numbers.emplace_back(name, *number);
        }
    }
    return configuration;
}

wxString TraceListOf(const wxConfigBase& config, const wxString& application) {
    return application == kDefaultApplication
               ? config.Read(kTrace, kDefaultTrace)
               : config.Read(application + "." + kTrace, wxEmptyString);
}

bool IsAgentKey(const wxString& key) {
    for (const char* known : {kFipsMode, kStallLimit, kPackageTrial, kDumpLevel, kTrace}) {
        if (key.IsSameAs(known, false)) {
            return true;
        }
    }
    return key.Lower().EndsWith(wxString(".") + wxString(kTrace).Lower()) ||
           TuningKeys().contains(key);  // which are found with regard to case
}

ZelkaCore::IniPaths IniFilesOf(const CDom& dom) {
    return {dom.GetWxString("app.path.ini"), dom.GetWxString("app.path.ini.global")};
}

void PublishConfiguration(const Configuration& configuration, CDom& dom) {
    if (configuration.fipsMode) {
        (void)dom.SetWx("app.fipsmode", *configuration.fipsMode);
    }
    if (configuration.stallLimit && !dom.Find("app.lua.stallLimit")) {
        (void)dom.Set("app.lua.stallLimit", *configuration.stallLimit);
    }
    if (configuration.packageTrial && !dom.Find("app.packages.trial")) {
        (void)dom.Set("app.packages.trial", *configuration.packageTrial);
    }
    (void)dom.Set("app.fulldump", configuration.hasFullDumps);
    for (const auto& [name, number] : configuration.numbers) {
        (void)dom.SetWx(name, number);
    }
}
