#include "zelka_core/store/sqlite_database.h"

#include <sqlite3.h>
#include <wx/log.h>

#include <cerrno>
#include <charconv>
#include <exception>
#include <optional>

#include "zelka_core/mutex.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

struct ProcessState {
    Mutex mutex;
    bool initialized ZELKA_GUARDED_BY(mutex) = false;
    SqliteTuning tuning ZELKA_GUARDED_BY(mutex);
};

ProcessState& State() {
    static ProcessState state;
    return state;
}

// SQLite calls this on the thread that met the trouble, and asks that it does not call SQLite.
void LogMessage(void* /*unused*/, int code, const char* message) noexcept {
    const int savedErrno = errno;
    try {
        const int kind = code & 0xff;
        const bool ordinary = kind == SQLITE_NOTICE || kind == SQLITE_SCHEMA;
        const wxString text = wxString::Format("SQLite: %s (code %d)", FromUtf8(message), code);
        if (ordinary) {
            wxLogVerbose("%s", text);
        } else {
            wxLogWarning("%s", text);
        }
    } catch (const std::exception&) {
        // No memory to say it with. The operation that failed answers for itself.
        (void)code;
    }
    errno = savedErrno;
}

bool Succeeds(int code, const wxString& what) {
    if (code == SQLITE_OK) {
        return true;
    }
    wxLogError("SQLite refused %s: %s", what, FromUtf8(sqlite3_errstr(code)));
    return false;
}

std::optional<std::int64_t> WholeNumber(const std::string& text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return number;
}

using Lookup = std::function<std::string(const std::string&)>;
using Refusal = std::function<void(const std::string& name, const std::string& reason)>;

class TuningReader {
  public:
    TuningReader(const Lookup& lookup, const Refusal& refuse)
        : m_lookup(lookup), m_refuse(refuse) {}

    template <typename Number>
    void Read(const char* key, std::int64_t lowest, std::int64_t highest, Number& value) const {
        const std::string name = std::string("sqlite.config.") + key;
        const std::string text = m_lookup(name);
        if (text.empty()) {
            return;
        }
        const std::optional<std::int64_t> number = WholeNumber(text);
        if (!number || *number < lowest || *number > highest) {
            m_refuse(name, "is '" + text + "', which is not a whole number from " +
                               std::to_string(lowest) + " to " + std::to_string(highest));
            return;
        }
        value = static_cast<Number>(*number);
    }

  private:
    const Lookup& m_lookup;
    const Refusal& m_refuse;
};

}  // namespace

SqliteTuning TuningFrom(const Lookup& lookup) {
    return TuningFrom(lookup, [](const std::string& name, const std::string& reason) {
        wxLogWarning("%s %s: ignored", FromUtf8(name), FromUtf8(reason));
    });
}

SqliteTuning TuningFrom(const Lookup& lookup, const Refusal& refuse) {
    SqliteTuning tuning;
    const TuningReader reader(lookup, refuse);
    reader.Read("cache_size", -1'048'576, 262'144, tuning.cacheSize);
    reader.Read("mmap_size", 0, 0x7fff0000, tuning.mmapSize);
    reader.Read("busy_timeout", 0, 600'000, tuning.busyTimeout);
    reader.Read("synchronous", SqliteTuning::kNormal, SqliteTuning::kExtra, tuning.synchronous);
    reader.Read("wal_autocheckpoint", 1, 1'000'000, tuning.walAutocheckpoint);
    return tuning;
}

void CSqliteDatabase::InitializeSQLite(const SqliteTuning& tuning) {
    ProcessState& state = State();
    const MutexLock lock(state.mutex);
    state.tuning = tuning;
    if (state.initialized) {
        return;
    }
    // Serialized, as libraries that scripts load may share connections between threads.
    const bool threads = Succeeds(sqlite3_config(SQLITE_CONFIG_SERIALIZED), "the threading mode");
    const bool log = Succeeds(sqlite3_config(SQLITE_CONFIG_LOG, &LogMessage, nullptr), "its log");
    state.initialized = Succeeds(sqlite3_initialize(), "to start") && threads && log;
}

void CSqliteDatabase::InitializeSQLite(CDom& dom) {
    InitializeSQLite(TuningFrom([&](const std::string& name) { return dom.Get(name); }));
}

void CSqliteDatabase::ShutdownSQLite() {
    ProcessState& state = State();
    const MutexLock lock(state.mutex);
    if (!state.initialized) {
        return;
    }
    state.initialized = false;
    state.tuning = SqliteTuning();
    (void)Succeeds(sqlite3_shutdown(), "to shut down");
    (void)Succeeds(sqlite3_config(SQLITE_CONFIG_LOG, nullptr, nullptr), "to drop its log");
}

SqliteTuning CSqliteDatabase::Tuning() {
    ProcessState& state = State();
    const MutexLock lock(state.mutex);
    return state.tuning;
}

}  // namespace ZelkaCore
