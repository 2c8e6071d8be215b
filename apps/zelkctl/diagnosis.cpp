#include "apps/zelkctl/diagnosis.h"

#include <wx/convauto.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <utility>

#include "apps/zelka/version.h"
#include "apps/zelkctl/events_on_disk.h"
#include "apps/zelkctl/log_files.h"
#include "apps/zelkctl/quantity.h"
#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/secrets.h"
#include "apps/zelkctl/stacks_text.h"
#include "platform/program.h"
#include "zelka_core/text.h"

namespace fs = std::filesystem;

namespace {

using ZelkaCore::Json;

constexpr std::int64_t kMostOfALog = 1'048'576;      // bytes
constexpr std::size_t kMostOfAnIniFile = 1'048'576;  // bytes
constexpr int kMostEvents = 1000;

void Check(const std::error_code& error) {
    if (error) {
        throw CommandError(error.message());
    }
}

std::string Pretty(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

// The files of a folder whose names end so; no links, which may lead anywhere.
std::vector<std::string> FilesIn(const fs::path& folder, const std::string& extension) {
    std::error_code error;
    std::set<std::string> found;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (entry->path().extension() == extension && !entry->is_symlink(ignored)) {
            found.insert(entry->path().string());
        }
    }
    return {found.begin(), found.end()};
}

std::string EndOf(const std::string& path) {
    ScopedFd file;
    FileStream stream;
    Check(OpenRegularStream(path, stream));
    (void)std::fseek(stream.get(), 0, SEEK_END);
    const std::int64_t size = std::ftell(stream.get());
    const std::int64_t length = std::min(size, kMostOfALog);
    (void)std::fseek(stream.get(), static_cast<long>(size - length), SEEK_SET);
    std::string content(static_cast<std::size_t>(length), '\0');
    content.resize(std::fread(content.data(), 1, content.size(), stream.get()));
    return content;
}

// An ini file as UTF-8, which the agent takes in other encodings as well.
std::string IniText(const std::string& path) {
    ScopedFd file;
    std::string bytes;
    Check(OpenRegularFile(path, file));
    Check(ReadAtMost(file, kMostOfAnIniFile, bytes));
    const wxString text(bytes.data(), wxConvAuto(wxFONTENCODING_DEFAULT), bytes.size());
    if (text.empty() && !bytes.empty()) {
        throw CommandError("it cannot be read as UTF-8 or UTF-16");
    }
    return WithoutSecrets(ZelkaCore::ToUtf8(text));
}

// What a program of the system prints, which has ten seconds for it.
std::string OutputOf(std::vector<std::string> command) {
    constexpr unsigned long kTimedOut = 124;
    constexpr unsigned long kNotRun = 125;  // and above
    command.insert(command.begin(), "10");
    ProgramResult result;
    Check(RunProgram("/usr/bin/timeout", command, result));
    if (result.exitCode == kTimedOut) {
        throw CommandError(command[1] + " has not ended in ten seconds");
    }
    if (result.exitCode >= kNotRun || result.output.content.empty()) {
        throw CommandError(result.errors.content.empty() ? command[1] + " tells nothing"
                                                         : result.errors.content);
    }
    return WithoutSecrets(result.output.content + result.errors.content);
}

std::string SpaceText(const std::string& folder) {
    std::error_code error;
    const fs::space_info space = fs::space(folder, error);
    Check(error);
    const auto size = [](std::uintmax_t bytes) {
        return SizeText(static_cast<std::int64_t>(bytes));
    };
    return folder + ": " + size(space.available) + " of " + size(space.capacity) +
           " are free for this user\n";
}

}  // namespace

Diagnosis::Diagnosis(const std::string& workdir, const std::string& archive)
    : m_workdir(fs::absolute(workdir).lexically_normal().string()), m_archive(archive) {
    try {
        m_agent.emplace(m_workdir);
    } catch (const CommandError& error) {
        m_lost = error.what();
    }
}

template <class Work>
void Diagnosis::AddPart(const std::string& part, Work work) {
    try {
        m_archive.AddText(part, work());
    } catch (const CommandError& error) {
        Miss(part, error.what());
    }
}

void Diagnosis::Miss(const std::string& part, const std::string& reason) {
    m_missing.push_back(part + ": " + Shown(reason.substr(0, reason.find_last_not_of('\n') + 1)));
}

Json Diagnosis::Ask(const char* method, const Json& parameters = Json::object()) {
    if (!m_lost.empty()) {
        throw CommandError(m_lost);
    }
    try {
        return MaskSecrets(m_agent->Call(method, parameters));
    } catch (const AgentLost& error) {
        m_lost = error.what();
        throw;
    }
}

void Diagnosis::AddAgent() {
    AddPart("status.json", [this] {
        const Json reply = Ask("GetStatus");
        m_process = RawMember(MemberPart(MemberPart(reply, "status"), "process"), "pid");
        return Pretty(reply);
    });
    AddPart("tasks.json", [this] { return Pretty(Ask("ListTasks")); });
    AddPart("stacks.txt", [this] { return StacksText(MemberPart(Ask("GetStacks"), "threads")); });
    AddPart("variables.json", [this] { return Pretty(Ask("ListVariables")); });
    AddPart("settings.json", [this] { return Pretty(Ask("ListSettings")); });
    AddPart("trace.json", [this] { return Pretty(Ask("GetTrace")); });
    AddPart("events.json", [this] { return Pretty(AskForEvents()); });
}

// Out of the database if the agent does not tell them.
Json Diagnosis::AskForEvents() {
    std::string reason;
    try {
        return Ask("ListEvents", Json{{"limit", kMostEvents}});
    } catch (const CommandError& error) {
        reason = error.what();
    }
    try {
        return MaskSecrets(EventsOnDisk(m_workdir, std::nullopt));
    } catch (const CommandError& error) {
        throw CommandError(reason + "; " + error.what());
    }
}

void Diagnosis::AddLogs() {
    try {
        for (const std::string& path : LogFilesOf(m_workdir)) {
            AddPart("log/" + fs::path(path).filename().string(),
                    [&] { return WithoutSecrets(EndOf(path)); });
        }
    } catch (const CommandError& error) {
        Miss("log", error.what());
    }
}

std::vector<std::string> Diagnosis::IniFiles() const {
    std::set<std::string> paths{"/etc/zelk_agent.ini", "/etc/zelka/registry.ini"};
    for (const std::string& path : FilesIn(m_workdir, ".ini")) {
        paths.insert(path);
        paths.insert("/etc/" + fs::path(path).filename().string());
    }
    return {paths.begin(), paths.end()};
}

void Diagnosis::AddIniFiles() {
    for (const std::string& path : IniFiles()) {
        std::error_code ignored;
        if (fs::exists(path, ignored)) {
            AddPart("ini" + path, [&] { return IniText(path); });
        }
    }
}

void Diagnosis::AddDumps() {
    for (const std::string& path : FilesIn(fs::path(m_workdir) / "plugins/diag", ".mdmp")) {
        const std::string part = "dumps/" + fs::path(path).filename().string();
        FileStream dump;
        if (const auto error = OpenRegularStream(path, dump)) {
            Miss(part, error.message());
        } else {
            m_archive.AddFile(part, std::move(dump));
        }
    }
}

void Diagnosis::AddUnit() {
    const std::string unit = "zelk_agent.service";
    AddPart("unit/status.txt", [&] {
        return OutputOf({"systemctl", "status", "--no-pager", "--full", unit});
    });
    AddPart("unit/show.txt", [&] { return OutputOf({"systemctl", "show", unit}); });
    if (!m_process.empty()) {
        AddPart("unit/process.txt", [this] {
            return OutputOf({"systemctl", "status", "--no-pager", "--full", m_process});
        });
    }
}

void Diagnosis::AddSystem() {
    AddPart("versions.txt", [] {
        return "zelkctl " ZELKA_VERSION "\n" + OutputOf({"uname", "-a"}) +
               OutputOf({"cat", "/etc/os-release"});
    });
    AddPart("disk.txt", [this] { return SpaceText(m_workdir); });
}

void Diagnosis::Finish() {
    std::string lines;
    for (const std::string& missing : m_missing) {
        lines += missing + "\n";
    }
    if (!lines.empty()) {
        m_archive.AddText("missing.txt", lines);
    }
    m_archive.Finish();
}
