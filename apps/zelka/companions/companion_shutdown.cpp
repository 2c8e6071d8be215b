// Stops the companion processes, each found by its pid file, and nothing that was not started from
// the agent's own folder.

#include <wx/file.h>
#include <wx/filefn.h>
#include <wx/filename.h>
#include <wx/log.h>

#include <functional>

#include "apps/zelka/zelka.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/system/processes.h"

namespace {

// What the two companions do not share: their messages, with the formats' arguments fixed, and the
// way to stop one.
struct Companion {
    const char* invalidPid;
    const char* stranger;    // pid, command line
    const char* stopFailed;  // pid
    const char* stopped;     // pid
    const char* pidFileStays;
    std::function<bool(unsigned long pid)> stop;
};

// Whether the command line is that of a program in the folder; both in lower case. A folder whose
// name only begins alike is another one.
bool IsFrom(const wxString& folder, const wxString& commandLine) {
    wxString below;
    return commandLine.StartsWith(folder, &below) &&
           (folder.EndsWith("/") || below.StartsWith("/"));
}

bool DropStalePidFile(const wxString& pidFile, unsigned long pid, bool result) {
    const char* outcome = wxRemoveFile(pidFile) ? "Successfully" : "Unsuccessfully";
    wxLogWarning("(pid=%lu) in %s is invalid. %s deleted the pid file.", pid, pidFile, outcome);
    return result;
}

bool Shutdown(const Companion& companion, const wxString& pidFile, const wxString& binPrefix) {
    const unsigned long pid = ZelkaCore::ReadPidFile(pidFile);
    if (pid == 0) {
        wxLogWarning(companion.invalidPid);
        return DropStalePidFile(pidFile, pid, false);
    }
    const wxString commandLine = ZelkaCore::GetCommandLineW(pid).Lower();
    if (commandLine.empty() || !IsFrom(binPrefix, commandLine)) {
        wxLogWarning(companion.stranger, pid, commandLine);
        return DropStalePidFile(pidFile, pid, true);
    }
    if (!companion.stop(pid)) {
        wxLogWarning(companion.stopFailed, pid);
        return false;
    }
    wxLogVerbose(companion.stopped, pid);
    // A process that ends may take its pid file along at this very moment.
    if (wxRemove(pidFile) != 0 && wxFile::Exists(pidFile)) {
        wxLogWarning(companion.pidFileStays);
    }
    return true;
}

// The web server's own command that tells the running one to quit; its exit code does not count.
bool QuitWebServer(const wxString& bin, const wxString& workdir, const wxString& pidFile) {
    wxFileName configuration(pidFile);
    configuration.SetExt("conf");
    const wxFileName executable(bin, "nginx", "exe");
    const wxString arguments =
        wxString::Format(R"( -p "%s/" -c "%s" -s quit)", workdir, configuration.GetFullPath());
    wxString output;
    wxString errors;
    unsigned long exitCode = 0;
    return ZelkaCore::Execute(executable.GetFullPath(), arguments, output, exitCode, errors);
}

}  // namespace

bool CAgentApp::ShutdownTarvok(const wxString& binPrefix) {
    const wxFileName pidFile(m_pDom->GetPluginWorkdirWx("relay"), "tarvok", "pid");
    if (!wxFile::Exists(pidFile.GetFullPath())) {
        return true;
    }
    const Companion tarvok{
        .invalidPid = "Invalid tarvok process ID(0).",
        .stranger = "(pid=%lu) might not be the tarvok process. cmd: %s",
        .stopFailed = "Fail to terminate tarvok process (pid=%lu).",
        .stopped = "tarvok process (pid=%lu) is terminated.",
        .pidFileStays = "Fail to delete tarvok pid file.",
        .stop = [](unsigned long pid) { return ZelkaCore::KillProcess(pid, -1); }};
    return Shutdown(tarvok, pidFile.GetFullPath(), binPrefix);
}

bool CAgentApp::ShutdownNginx(const wxString& binPrefix) {
    wxString workdir = m_pDom->GetPluginWorkdirWx("relay");
    wxString pidFile = wxFileName(workdir, "nginx", "pid").GetFullPath();
    if (!wxFile::Exists(pidFile)) {
        workdir = m_pDom->GetPluginWorkdirWx("erelay");
        pidFile = wxFileName(workdir, "nginx", "pid").GetFullPath();
    }
    if (!wxFile::Exists(pidFile)) {
        return true;
    }
    const wxString bin = m_pDom->GetWxString("app.path.bin");
    const Companion nginx{
        .invalidPid = "Invalid nginx process ID(0).",
        .stranger = "(pid=%lu) might not be nginx process. cmd: %s",
        .stopFailed = "Could not shutdown web server (pid=%lu)",
        .stopped = "Web server (pid=%lu) is terminated.",
        .pidFileStays = "Fail to delete nginx pid file.",
        .stop = [&](unsigned long) { return QuitWebServer(bin, workdir, pidFile); }};
    return Shutdown(nginx, pidFile, binPrefix);
}
