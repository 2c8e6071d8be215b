#include "zelka_core/log/log_file.h"

#include <spdlog/sinks/rotating_file_sink.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <vector>

#include "platform/file.h"
#include "platform/private_file.h"
#include "zelka_core/log/log_text.h"
#include "zelka_core/mutex.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

using Sink = spdlog::sinks::rotating_file_sink_st;

constexpr std::size_t kMaximumSize = 10'485'760;  // bytes: 10 MiB
constexpr std::size_t kFilesKept = 5;

class LogFile {
  public:
    bool Open(const std::string& path) ZELKA_EXCLUDES(m_mutex);
    void Write(const std::string& line) ZELKA_EXCLUDES(m_mutex);
    void Close() ZELKA_EXCLUDES(m_mutex);

  private:
    enum class State { kWaiting, kOpen, kStandardError };

    void WriteToSink(const std::string& line) ZELKA_REQUIRES(m_mutex);
    void FallBack(const char* reason) ZELKA_REQUIRES(m_mutex);
    void FlushWaiting() ZELKA_REQUIRES(m_mutex);

    Mutex m_mutex;  // held over writes to the file, whose lines it keeps apart
    State m_state ZELKA_GUARDED_BY(m_mutex) = State::kWaiting;
    std::vector<std::string> m_waiting ZELKA_GUARDED_BY(m_mutex);
    std::unique_ptr<Sink> m_sink ZELKA_GUARDED_BY(m_mutex);
    bool m_failed ZELKA_GUARDED_BY(m_mutex) = false;
};

void PrintToStandardError(const std::string& line) {
    (void)std::fprintf(stderr, "%s\n", line.c_str());
}

bool LogFile::Open(const std::string& path) {
    const MutexLock lock(m_mutex);
    if (IsPipe(path)) {
        // Opening it would wait for a reader, for ever if none comes.
        FallBack((path + " is a pipe and no log file").c_str());
        FlushWaiting();
        return false;
    }
    try {
        spdlog::file_event_handlers handlers;
        handlers.after_open = [](const spdlog::filename_t& name, std::FILE*) {
            (void)CloseToOthers(name);  // also one that rotation makes
        };
        m_sink = std::make_unique<Sink>(path, kMaximumSize, kFilesKept, false, handlers);
        m_sink->set_pattern("%v");
        m_state = State::kOpen;
    } catch (const std::exception& error) {
        FallBack(error.what());
    }
    FlushWaiting();
    return m_state == State::kOpen;
}

void LogFile::Write(const std::string& line) {
    const MutexLock lock(m_mutex);
    switch (m_state) {
        case State::kWaiting:
            m_waiting.push_back(line);
            break;
        case State::kOpen:
            WriteToSink(line);
            break;
        case State::kStandardError:
            PrintToStandardError(line);
            break;
    }
}

void LogFile::Close() {
    const MutexLock lock(m_mutex);
    m_sink.reset();
    m_state = State::kStandardError;
    FlushWaiting();
}

void LogFile::WriteToSink(const std::string& line) {
    try {
        m_sink->log(spdlog::details::log_msg({}, spdlog::level::info, line));
        m_sink->flush();
        m_failed = false;
    } catch (const std::exception& error) {
        // The disk may have room again for the next line.
        if (!m_failed) {
            PrintToStandardError(error.what());
        }
        m_failed = true;
        PrintToStandardError(line);
    }
}

void LogFile::FallBack(const char* reason) {
    m_sink.reset();
    m_state = State::kStandardError;
    PrintToStandardError(reason);
}

void LogFile::FlushWaiting() {
    for (const std::string& line : m_waiting) {
        if (m_state == State::kOpen) {
            WriteToSink(line);
        } else {
            PrintToStandardError(line);
        }
    }
    m_waiting.clear();
    m_waiting.shrink_to_fit();
}

// Never destroyed, as threads may log to the very end; closed when the process ends.
LogFile& TheLogFile() {
    static auto* file = [] {
        (void)std::atexit(CloseLogFile);
        return new LogFile;
    }();
    return *file;
}

}  // namespace

bool OpenLogFile(const wxString& folder, const wxString& name) {
    wxString plain = name;
    plain.Replace("/", "_");
    const std::string path = ToUtf8(folder);
    // A folder that cannot be made shows when the file is opened.
    (void)MakePrivateFolder(path);
    return TheLogFile().Open(path + "/" + ToUtf8(plain) + ".log");
}

void WriteLogLine(const std::string& line) {
    TheLogFile().Write(LogText(line));
}

void CloseLogFile() {
    TheLogFile().Close();
}

}  // namespace ZelkaCore
